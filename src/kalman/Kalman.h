// Kalman restoration filter over a two-process autoregressive model. The observation
// y(n) = s(n) + v(n) is the sum of a signal s of order p and a noise v of order q = 2,
// with no measurement noise. The state holds p + d signal values (current first; the
// d further values only delay older ones) and then q noise values (current first):
// N = p + d + q elements, with the current noise value at m = p + d.
//
// Units: samples and variances in the caller's scale; all arithmetic in 32-bit floats.
// Allocation: setModels, setNoise and start replace their arrays; processSample
// allocates nothing. Aliasing: every caller array is read during the call and copied,
// none is kept. Threads: one object serves one stream from one thread.
//
// Call order: setModels and setNoise (either first), then start, then processSample
// once per sample. start adds the delay to the state size, so every start needs a
// setModels before it. A setModels without start is allowed only with delay 0 and the
// same orders: the filter then runs on with the new coefficients.
//
// Noise orders below 2 are outside the model; the noise block is then stored with two
// elements (the missing coefficients 0) so that the two-tap recursion stays in bounds.
#pragma once

#include "kalman/RowMatrix.h"

#include <vector>

class Kalman {
public:
    Kalman() = default;
    virtual ~Kalman() = default;
    Kalman(const Kalman&) = delete;
    Kalman& operator=(const Kalman&) = delete;

    // signalAr holds p + 1 values and noiseAr q + 1: full AR polynomials whose leading
    // element is ignored. The recursions use the negated remaining coefficients.
    void setModels(const float* signalAr, int signalLen, const float* noiseAr, int noiseLen);

    // flags[i] == 1 gives sample i the noise drive variance flaggedVariance, any other
    // value cleanVariance. With flagCount 0 the noise drive variance stays 0.
    void setNoise(float signalVariance, float cleanVariance, float flaggedVariance,
                  const int* flags, int flagCount);

    // Clears state and covariance; initialState supplies the p + d signal values (it
    // must hold that many elements, also with delay 0). outputSignal non-zero returns
    // signal estimates, zero noise estimates.
    void start(int delay, const float* initialState, int outputSignal);

    // One filter step on observed sample y. Returns, by outputSignal and delay:
    //   signal, delay 0: state[0]            the current signal value
    //   signal, delay d: state[p + d - 1]    the signal p + d - 1 samples ago
    //   noise,  delay 0: state[p]            the current noise value
    //   noise,  delay d: state[N - 1]        the noise q - 1 samples ago
    // After the step the noise drive variance of the next sample is loaded; past
    // flagCount samples the last one stays.
    float processSample(float y);

    int signalOrder() const { return signalOrder_; }
    int noiseOrder() const { return noiseOrder_; }
    int stateSize() const { return stateSize_; }
    int noiseInputs() const { return noiseInputs_; }
    const std::vector<float>& signalInput() const { return signalInput_; }
    const std::vector<float>& noiseInput() const { return noiseInput_; }
    const std::vector<float>& observation() const { return observation_; }
    const kalman::RowMatrix& inputMatrix() const { return inputMatrix_; }
    const kalman::RowMatrix& signalTransition() const { return signalTransition_; }
    const kalman::RowMatrix& noiseTransition() const { return noiseTransition_; }
    const kalman::RowMatrix& transition() const { return transition_; }
    const kalman::RowMatrix& predictedCov() const { return predictedCov_; }
    const kalman::RowMatrix& cov() const { return cov_; }
    const std::vector<float>& gain() const { return gain_; }
    const std::vector<float>& predictedState() const { return predictedState_; }
    const std::vector<float>& state() const { return state_; }
    const std::vector<float>& signalCoeffs() const { return signalCoeffs_; }
    const std::vector<float>& noiseCoeffs() const { return noiseCoeffs_; }
    float signalVariance() const { return signalVariance_; }
    float cleanVariance() const { return cleanVariance_; }
    float flaggedVariance() const { return flaggedVariance_; }
    const std::vector<int>& flags() const { return flags_; }
    int flagCount() const { return flagCount_; }
    const std::vector<float>& drivingVariance() const { return drivingVariance_; }
    const kalman::RowMatrix& noiseCov() const { return noiseCov_; }
    int sampleIndex() const { return sampleIndex_; }
    int delay() const { return delay_; }
    int outputSignal() const { return outputSignal_; }
    const kalman::RowMatrix& scratchA() const { return scratchA_; }
    const kalman::RowMatrix& scratchB() const { return scratchB_; }

private:
    void buildTransitions();
    void buildInputs();
    void advanceSample();
    float estimate() const;
    // Elements of the noise block as stored: q, but at least the recursion's two taps.
    int noiseStorage() const;

    int signalOrder_ = 0;
    int noiseOrder_ = 0;
    int stateSize_ = 0;
    int noiseInputs_ = 0;
    std::vector<float> signalInput_;
    std::vector<float> noiseInput_;
    std::vector<float> observation_;
    kalman::RowMatrix inputMatrix_;
    kalman::RowMatrix signalTransition_;
    kalman::RowMatrix noiseTransition_;
    kalman::RowMatrix transition_;
    kalman::RowMatrix predictedCov_;
    kalman::RowMatrix cov_;
    std::vector<float> gain_;
    std::vector<float> predictedState_;
    std::vector<float> state_;
    std::vector<float> signalCoeffs_;
    std::vector<float> noiseCoeffs_;
    float signalVariance_ = 0.0f;
    float cleanVariance_ = 0.0f;
    float flaggedVariance_ = 0.0f;
    std::vector<int> flags_;
    int flagCount_ = 0;
    std::vector<float> drivingVariance_;
    kalman::RowMatrix noiseCov_;
    int sampleIndex_ = 0;
    int delay_ = 0;
    int outputSignal_ = 0;  // set by start; nothing reads it before
    kalman::RowMatrix scratchA_;
    kalman::RowMatrix scratchB_;
};
