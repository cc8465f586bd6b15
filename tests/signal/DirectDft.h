// Test reference: the discrete Fourier transform summed directly in long double.
// The twiddle of angle 2 pi j k / N comes from an exact table entry at every 64th j
// and from a long-double rotation by the step angle in between, so the twiddles
// stay within about 64 * 3 * 5.4e-20 = 1e-17 of the true values and the sums read
// the table sparsely (the sampled large transforms would otherwise be bound by
// cache misses). The reference's error, about sqrt(N) * 1e-19 relative, is far
// below the double kernels' bounds. Outputs are computed one at a time, so large
// transforms are checked at a sample of bins. N is a power of two, at least 8.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <vector>

namespace ferrotip_test {

using LongComplex = std::complex<long double>;

class DirectDft {
public:
    // The table is filled from one octant by the exact symmetries of sine and cosine.
    explicit DirectDft(int n) : n_(n), table_(n) {
        const long double twoPi = 6.283185307179586476925286766559005768L;
        const int quarter = n / 4;
        std::vector<long double> quarterCos(quarter + 1);
        for (int j = 0; 8 * j <= n; ++j) {
            quarterCos[j] = std::cos(twoPi * j / n);
            quarterCos[quarter - j] = std::sin(twoPi * j / n);
        }
        for (int j = 0; j < n; ++j)
            table_[j] = {cosineAt(quarterCos, j), cosineAt(quarterCos, j + 3 * quarter)};
    }

    int size() const { return n_; }

    // sum_j x[j] exp(sign * 2 pi i j k / N); sign -1 forward, +1 inverse (unscaled).
    LongComplex complexBin(const std::vector<LongComplex>& x, int k, int sign) const {
        long double re = 0.0L;
        long double im = 0.0L;
        forEachTwiddle(k, [&](int j, long double c, long double s) {
            s *= sign;
            re += x[j].real() * c - x[j].imag() * s;
            im += x[j].real() * s + x[j].imag() * c;
        });
        return {re, im};
    }

    // Forward transform of N real samples at bin k.
    LongComplex realBin(const std::vector<long double>& x, int k) const {
        long double re = 0.0L;
        long double im = 0.0L;
        forEachTwiddle(k, [&](int j, long double c, long double s) {
            re += x[j] * c;
            im -= x[j] * s;
        });
        return {re, im};
    }

    // Sample j of the real signal whose spectrum has bins X[0..N/2] (imaginary parts
    // of bins 0 and N/2 ignored), including the factor 1/N.
    long double realSample(const std::vector<LongComplex>& bins, int j) const {
        const int half = n_ / 2;
        const long double ends = bins[0].real() + ((j & 1) ? -bins[half].real() : bins[half].real());
        long double pairs = 0.0L;
        forEachTwiddle(j, [&](int k, long double c, long double s) {
            if (k > 0 && k < half)
                pairs += bins[k].real() * c - bins[k].imag() * s;
        }, half);
        return (ends + 2.0L * pairs) / n_;
    }

private:
    struct Twiddle {
        long double cos;
        long double sin;
    };

    static constexpr int reseedInterval = 64;

    // Calls f(j, cos, sin) of the angle 2 pi j k / N for j = 0 .. count - 1.
    template <typename F>
    void forEachTwiddle(int k, F f, int count = -1) const {
        if (count < 0)
            count = n_;
        const std::uint64_t n = static_cast<std::uint64_t>(n_);
        const Twiddle step = table_[static_cast<std::uint64_t>(k) % n];
        for (int start = 0; start < count; start += reseedInterval) {
            Twiddle w = table_[static_cast<std::uint64_t>(start) * static_cast<std::uint64_t>(k) % n];
            const int stop = start + reseedInterval < count ? start + reseedInterval : count;
            for (int j = start; j < stop; ++j) {
                f(j, w.cos, w.sin);
                w = {w.cos * step.cos - w.sin * step.sin, w.sin * step.cos + w.cos * step.sin};
            }
        }
    }

    // cos(2 pi j / N) for any j >= 0 from the first quarter turn.
    long double cosineAt(const std::vector<long double>& quarterCos, int j) const {
        const int quarter = n_ / 4;
        const int r = j % n_;
        if (r <= quarter) return quarterCos[r];
        if (r <= 2 * quarter) return -quarterCos[2 * quarter - r];
        if (r <= 3 * quarter) return -quarterCos[r - 2 * quarter];
        return quarterCos[n_ - r];
    }

    int n_;
    std::vector<Twiddle> table_;
};

}  // namespace ferrotip_test
