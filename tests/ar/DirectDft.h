// Reference transforms for the split-radix tests: direct sums in long double, O(n) per
// bin, over a cos/sin table of one size. Sign as the transforms under test: forward
// X[k] = sum_t x[t] e^{-2πi kt/n}; the inverse sums with e^{+2πi kt/n} and no 1/n.
#pragma once

#include <cmath>
#include <complex>
#include <vector>

using LongComplex = std::complex<long double>;

class DirectDft {
public:
    explicit DirectDft(int n) : n_(n), cos_(n), sin_(n)
    {
        const long double pi = 3.141592653589793238462643383279502884L;
        for (int t = 0; t < n; ++t) {
            cos_[t] = std::cos(2.0L * pi * t / n);
            sin_[t] = std::sin(2.0L * pi * t / n);
        }
    }

    // Bin k of the forward transform of re + i im (im may be null for real input).
    LongComplex forwardBin(const float* re, const float* im, int k) const
    {
        long double sumRe = 0.0L, sumIm = 0.0L;
        for (int t = 0; t < n_; ++t) {
            const int m = static_cast<int>((static_cast<long long>(k) * t) % n_);
            const long double x = re[t], y = im ? im[t] : 0.0L;
            sumRe += x * cos_[m] + y * sin_[m];
            sumIm += y * cos_[m] - x * sin_[m];
        }
        return {sumRe, sumIm};
    }

    // Sample t of the unscaled inverse of a packed half spectrum (Hermitian extension).
    long double inverseRealSample(const float* packed, int t) const
    {
        const int half = n_ / 2;
        long double sum = packed[0] + ((t % 2) ? -1.0L : 1.0L) * packed[half];
        for (int k = 1; k < half; ++k) {
            const int m = static_cast<int>((static_cast<long long>(k) * t) % n_);
            sum += 2.0L * (packed[k] * cos_[m] - packed[n_ - k] * sin_[m]);
        }
        return sum;
    }

    long double cosine(long long m) const { return cos_[m % n_]; }
    long double sine(long long m) const { return sin_[m % n_]; }

private:
    int n_;
    std::vector<long double> cos_;
    std::vector<long double> sin_;
};
