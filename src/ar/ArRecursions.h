// Estimation of autoregressive (AR) models: direct autocorrelation, Levinson-Durbin
// in three forms, Burg's method in two.
//
// An AR polynomial is order + 1 doubles with coefficients[0] == 1.0, so the
// prediction error filter is e(t) = x(t) + a1 x(t-1) + ... + ap x(t-p). A
// reflection coefficient has the sign of the highest coefficient of its order:
// k(1) = -r[1] / r[0]. A row table is order + 1 caller-owned rows of order + 1
// doubles; row m receives the polynomial of order m in its columns 0..m.
//
// Pure functions apart from their outputs; scratch is owned and freed on every
// path; any thread.
#pragma once

// lags[k] = sum_{i=0}^{count-k-1} samples[i] * samples[i+k], summed upward from zero,
// for k = 0..maxLag (biased, unnormalised). maxLag must be below count; -1 does nothing.
void autocorrelate(const double* samples, int count, double* lags, int maxLag);
// The same on floats, with the sums kept in float.
void autocorrelate(const float* samples, int count, float* lags, int maxLag);

// Levinson-Durbin recursion from autocorrelation r[0..order]. Always computes the
// first order (so coefficients needs room for two entries even when order < 2).
// A reflection coefficient of magnitude 1.0 or more stops the recursion silently:
// the coefficients of that order and above are zeroed and E stays the error of the
// last stable order.
void levinsonDurbin(const double* autocorrelation, double* coefficients, int order,
                    double* predictionError);

// The same recursion keeping every order in `rows` and every order's error in
// orderErrors[1..order] (orderErrors[0] is never written).
void levinsonDurbinOrders(const double* autocorrelation, double** rows, int order,
                          double* orderErrors);

// levinsonDurbinOrders without the error output. Returns the highest order whose row
// it completed: `order` (at least 1), or m - 1 when step m was unstable. An unstable
// step m writes only entries 0 and m..order of row m; later rows keep what they held.
int levinsonDurbinRows(const double* autocorrelation, double** rows, int order);

// Burg's method from samples. Returns 0, or -1 when a stage's residual energy is
// exactly zero (coefficients then hold 1.0 and zeros).
int burg(const double* samples, int count, double* coefficients, int order);

// Burg's method keeping every order in `rows`. Row 0 doubles as the working
// polynomial, so on return it holds the highest order's polynomial, not the trivial one.
int burgOrders(const double* samples, int count, double** rows, int order);
