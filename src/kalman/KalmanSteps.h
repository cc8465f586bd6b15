// The steps of one Kalman filter update over the two-process model of Kalman.h, on
// bare arrays of 32-bit floats. n is the state size, p the signal order, q the noise
// order and m = p + d the index of the current noise value (m >= 1). The transition is
// never formed: the signal block is a shift plus one dot product, the noise block a
// shift plus a two-tap recursion on noiseCoeffs[0] and [1], so vectors need at least
// max(n, m + 2) elements and matrices that many rows and columns.
//
// Sums start from 0.0f and run in ascending index order. Nothing allocates. Outputs
// never share storage with inputs, except where a comment says so. No state.
#pragma once

namespace kalman {

// predictedState = F * state (step 1 of the update).
void predictState(const float* state, const float* signalCoeffs, const float* noiseCoeffs,
                  int p, int q, int m, float* predictedState);

// predictedCov = F * cov * F' for the rows and columns below n, through scratch = F * cov.
// The drives are not added here.
void predictCovariance(const float* const* cov, const float* signalCoeffs,
                       const float* noiseCoeffs, int p, int m, int n, float** scratch,
                       float** predictedCov);

// gain = predictedCov * H' / (H * predictedCov * H') with H picking elements 0 and m.
// No guard against a zero innovation variance.
void computeGain(const float* const* predictedCov, int m, int n, float* gain);

// state = predictedState + gain * (y - H * predictedState); the correction terms are
// left in correction[0..n).
void updateState(float y, const float* predictedState, const float* gain, int m, int n,
                 float* correction, float* state);

// correction = I - gain * H, row by row.
void buildCorrection(const float* gain, int m, int n, float** correction);

// cov = correction * predictedCov, exactly as matMul forms it with all sizes n. When
// the result cannot differ, only the three non-zero columns of each correction row
// take part (see KalmanSteps.cpp); otherwise the dense product runs.
void updateCovariance(const float* const* correction, const float* const* predictedCov,
                      int m, int n, float** cov);

// The dense product alone, for comparison.
void updateCovarianceDense(const float* const* correction, const float* const* predictedCov,
                           int n, float** cov);

}  // namespace kalman
