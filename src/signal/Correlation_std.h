// Correlation_std<T>: autocorrelation and cross-correlation through the real
// transform of one size N fixed at construction (the size rules of CFft_std).
//
// Results are plain sums of products, unnormalised, and circular over N:
//   autocorrelate, lag l:  sum_n x[n] * x[(n + l) mod N]
//   crossCorrelate, lag l: sum_n x[n] * y[(n + l) mod N]  (a peak at l > 0: y lags x)
// They equal the linear correlation when length + the greatest lag <= N. Inputs
// longer than N are cut to their first N samples. Negative lags of crossCorrelate
// come from the conjugate spectrum, not from the circular wrap. Quirk kept on
// purpose: crossCorrelate with minLag >= 0 and maxLag <= 0 writes nothing.
//
// Work happens in place in scratch and a second buffer of N elements; only the
// constructor allocates. result must not overlap the inputs. One thread at a time.
// T is double or float.
#pragma once

#include "signal/CFft_std.h"

#include <memory>

namespace standardLib::standard {

template <typename T>
class Correlation_std : public CFft_std<T> {
public:
    explicit Correlation_std(int size);
    ~Correlation_std() override;

    // Lags 0 .. lagCount - 1 of x (length samples) to result.
    void autocorrelate(const T* x, int length, T* result, int lagCount);

    // Lags minLag .. maxLag, rising, to result (maxLag - minLag + 1 elements).
    void crossCorrelate(const T* x, int lengthX, const T* y, int lengthY, T* result,
                        int minLag, int maxLag);

    // The full range: lags 1 - lengthX .. lengthY - 1 for distinct pointers; for one
    // pointer (identity, not equal contents) the autocorrelation of the longer length
    // m, mirrored into 2m - 1 elements centred on index m - 1.
    void correlate(const T* x, int lengthX, const T* y, int lengthY, T* result);

private:
    // The first min(length, N) samples of source, zero-extended to N, in target.
    void load(const T* source, int length, T* target) const;
    void forward(T* data) const;
    void inverse(T* data) const;

    std::unique_ptr<T[]> secondSpectrum;  // size elements: the second signal's spectrum
};

extern template class Correlation_std<double>;
extern template class Correlation_std<float>;

}  // namespace standardLib::standard
