#include "kalman/Kalman.h"

#include "kalman/KalmanSteps.h"
#include "kalman/MatrixToolkit.h"

#include <algorithm>

using kalman::resetMatrix;
using kalman::resetVector;
using kalman::RowMatrix;

namespace {

// The recursion coefficients: the AR polynomial's tail negated, zero beyond count.
void negatedTail(const float* polynomial, int count, int size, std::vector<float>& out) {
    resetVector(out, size);
    for (int i = 0; i < count; ++i) out[static_cast<std::size_t>(i)] = -polynomial[i + 1];
}

// Companion form: the coefficients in row 0, ones on the subdiagonal.
void fillCompanion(RowMatrix& matrix, const float* coeffs, int order) {
    if (order == 0) return;
    std::copy(coeffs, coeffs + order, matrix[0]);
    for (int i = 1; i < order; ++i) matrix[i][i - 1] = 1.0f;
}

void copyBlock(const RowMatrix& block, RowMatrix& target, int offset, int size) {
    for (int i = 0; i < size; ++i) std::copy(block[i], block[i] + size, target[offset + i] + offset);
}

}  // namespace

int Kalman::noiseStorage() const { return std::max(noiseOrder_, 2); }

void Kalman::setModels(const float* signalAr, int signalLen, const float* noiseAr,
                       int noiseLen) {
    signalOrder_ = signalLen - 1;
    noiseOrder_ = noiseLen - 1;
    stateSize_ = signalOrder_ + noiseOrder_;
    negatedTail(signalAr, signalOrder_, signalOrder_, signalCoeffs_);
    negatedTail(noiseAr, noiseOrder_, noiseStorage(), noiseCoeffs_);
    if (!transition_.isAllocated()) {
        buildTransitions();
        return;
    }
    // A model already exists: only the signal row of the full transition follows the
    // new coefficients (within the row it has); the filter itself reads the vectors.
    if (transition_.rowCount() > 0) {
        const int count = std::min(signalOrder_, transition_.colCount());
        std::copy(signalCoeffs_.begin(), signalCoeffs_.begin() + count, transition_[0]);
    }
}

void Kalman::buildTransitions() {
    const int p = signalOrder_;
    const int q = noiseOrder_;
    resetMatrix(signalTransition_, p, p);
    resetMatrix(noiseTransition_, q, q);
    resetMatrix(transition_, p + q, p + q);
    fillCompanion(signalTransition_, signalCoeffs_.data(), p);
    fillCompanion(noiseTransition_, noiseCoeffs_.data(), q);
    copyBlock(signalTransition_, transition_, 0, p);
    copyBlock(noiseTransition_, transition_, p, q);
}

void Kalman::setNoise(float signalVariance, float cleanVariance, float flaggedVariance,
                      const int* flags, int flagCount) {
    signalVariance_ = signalVariance;
    cleanVariance_ = cleanVariance;
    flaggedVariance_ = flaggedVariance;
    flagCount_ = flagCount;
    const int count = std::max(flagCount, 0);
    flags_.assign(flags, flags + count);
    resetVector(drivingVariance_, count);
    for (int i = 0; i < count; ++i)
        drivingVariance_[static_cast<std::size_t>(i)] = flags_[static_cast<std::size_t>(i)] == 1
                                                             ? flaggedVariance
                                                             : cleanVariance;
    noiseInputs_ = 2;
    resetMatrix(noiseCov_, noiseInputs_, noiseInputs_);
    noiseCov_[0][0] = signalVariance;
    if (count > 0) noiseCov_[1][1] = drivingVariance_[0];
    sampleIndex_ = 0;
}

void Kalman::start(int delay, const float* initialState, int outputSignal) {
    stateSize_ += delay;
    outputSignal_ = outputSignal;
    delay_ = delay;
    buildInputs();
    const int signalBlock = signalOrder_ + delay_;
    std::copy(initialState, initialState + signalBlock, state_.begin());
    sampleIndex_ = 0;
}

void Kalman::buildInputs() {
    const int signalBlock = signalOrder_ + delay_;
    const int storage = stateSize_ + noiseStorage() - noiseOrder_;
    resetVector(signalInput_, signalBlock);
    resetVector(noiseInput_, noiseOrder_);
    resetVector(observation_, storage);
    resetVector(gain_, storage);
    resetVector(predictedState_, storage);
    resetVector(state_, storage);
    resetMatrix(inputMatrix_, storage, 2);
    resetMatrix(predictedCov_, storage, storage);
    resetMatrix(cov_, storage, storage);
    resetMatrix(scratchA_, storage, storage);
    resetMatrix(scratchB_, storage, storage);
    if (signalBlock > 0) signalInput_[0] = 1.0f;
    if (noiseOrder_ > 0) noiseInput_[0] = 1.0f;
    observation_[0] = 1.0f;
    observation_[static_cast<std::size_t>(signalBlock)] = 1.0f;
    inputMatrix_[0][0] = 1.0f;
    inputMatrix_[signalBlock][1] = 1.0f;
}

float Kalman::processSample(float y) {
    const int p = signalOrder_;
    const int n = stateSize_;
    const int m = p + delay_;
    const float* signalCoeffs = signalCoeffs_.data();
    const float* noiseCoeffs = noiseCoeffs_.data();
    kalman::predictState(state_.data(), signalCoeffs, noiseCoeffs, p, noiseOrder_, m,
                         predictedState_.data());
    kalman::predictCovariance(cov_.rows(), signalCoeffs, noiseCoeffs, p, m, n, scratchA_.rows(),
                              predictedCov_.rows());
    predictedCov_[0][0] += noiseCov_[0][0];
    predictedCov_[m][m] += noiseCov_[1][1];
    kalman::computeGain(predictedCov_.rows(), m, n, gain_.data());
    kalman::updateState(y, predictedState_.data(), gain_.data(), m, n, scratchA_[0],
                        state_.data());
    kalman::buildCorrection(gain_.data(), m, n, scratchA_.rows());
    kalman::updateCovariance(scratchA_.rows(), predictedCov_.rows(), m, n, cov_.rows());
    advanceSample();
    return estimate();
}

// Loads the noise drive variance of the next sample; past the flags the current one
// stays.
void Kalman::advanceSample() {
    ++sampleIndex_;
    if (sampleIndex_ < flagCount_)
        noiseCov_[1][1] = drivingVariance_[static_cast<std::size_t>(sampleIndex_)];
}

// The delayed signal output lags p + d - 1 samples, the delayed noise output q - 1:
// the delay lengthens only the signal block.
float Kalman::estimate() const {
    int element = 0;
    if (outputSignal_ != 0)
        element = delay_ > 0 ? signalOrder_ + delay_ - 1 : 0;
    else
        element = delay_ > 0 ? stateSize_ - 1 : signalOrder_;
    return state_[static_cast<std::size_t>(element)];
}
