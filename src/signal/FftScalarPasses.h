// Internal: the passes of the in-place decimation-in-time graph, one complex point
// at a time. This is the reference arithmetic; the vector passes must give the same
// bits. Point indices are complex-point indices into interleaved (re, im) data.
//
// Every butterfly on (a, b) with twiddle w forms the difference first,
//   t.re = (a.re - w.re b.re) + w.im b.im,  t.im = (a.im - w.re b.im) - w.im b.re,
// and then a <- 2a - t, b <- t, so each output is one fixed chain of operations.
// No allocation; header-only templates over precision and direction.
#pragma once

#include "signal/FftTables.h"

namespace standardLib::fft {

template <typename T>
struct Complex {
    T re;
    T im;
};

template <typename T>
inline Complex<T> loadPoint(const T* data, int p) {
    return {data[2 * p], data[2 * p + 1]};
}

template <typename T>
inline void storePoint(T* data, int p, Complex<T> v) {
    data[2 * p] = v.re;
    data[2 * p + 1] = v.im;
}

// Sign conventions of one direction: W(theta) = cos -+ i sin, quarter turn -+ i.
template <typename T, bool Inverse>
struct Direction {
    static Complex<T> twiddle(T cosine, T sine) {
        if constexpr (Inverse)
            return {cosine, sine};
        else
            return {cosine, -sine};
    }
    // -i v for the forward direction, +i v for the inverse: exact (swap and negate).
    static Complex<T> quarterTurn(Complex<T> v) {
        if constexpr (Inverse)
            return {-v.im, v.re};
        else
            return {v.im, -v.re};
    }
};

// t = a - w b as one left-to-right chain per component.
template <typename T>
inline Complex<T> differenceChain(Complex<T> a, Complex<T> w, Complex<T> b) {
    return {(a.re - w.re * b.re) + w.im * b.im, (a.im - w.re * b.im) - w.im * b.re};
}

// a + w b as one left-to-right chain per component.
template <typename T>
inline Complex<T> sumChain(Complex<T> a, Complex<T> w, Complex<T> b) {
    return {(a.re + w.re * b.re) - w.im * b.im, (a.im + w.re * b.im) + w.im * b.re};
}

// a <- 2a - t, b <- t.
template <typename T>
inline void settle(Complex<T>& a, Complex<T>& b, Complex<T> t) {
    a = {T(2) * a.re - t.re, T(2) * a.im - t.im};
    b = t;
}

template <typename T>
inline void butterfly(Complex<T>& a, Complex<T>& b, Complex<T> w) {
    settle(a, b, differenceChain(a, w, b));
}

// Twiddle 1: no multiplication.
template <typename T>
inline void butterflyUnit(Complex<T>& a, Complex<T>& b) {
    settle(a, b, Complex<T>{a.re - b.re, a.im - b.im});
}

// Twiddle -i (forward) or +i (inverse): b turned exactly, then subtracted.
template <typename T, bool Inverse>
inline void butterflyQuarter(Complex<T>& a, Complex<T>& b) {
    const Complex<T> turned = Direction<T, Inverse>::quarterTurn(b);
    settle(a, b, Complex<T>{a.re - turned.re, a.im - turned.im});
}

// Level-1 butterflies of one block of four points (p, p + 1, p + half,
// p + half + 1) as loaded; results scaled after the sum or difference.
template <typename T, bool Scaled>
struct LevelOne {
    static T scaled(T v, T scale) {
        if constexpr (Scaled)
            return v * scale;
        else
            return (void)scale, v;
    }
    static void store(T* data, int p, int half, const Complex<T> (&x)[4], T scale) {
        storePoint(data, p, {scaled(x[0].re + x[2].re, scale), scaled(x[0].im + x[2].im, scale)});
        storePoint(data, p + 1, {scaled(x[0].re - x[2].re, scale), scaled(x[0].im - x[2].im, scale)});
        storePoint(data, p + half, {scaled(x[1].re + x[3].re, scale), scaled(x[1].im + x[3].im, scale)});
        storePoint(data, p + half + 1,
                   {scaled(x[1].re - x[3].re, scale), scaled(x[1].im - x[3].im, scale)});
    }
    static void load(const T* data, int p, int half, Complex<T> (&x)[4]) {
        x[0] = loadPoint(data, p);
        x[1] = loadPoint(data, p + 1);
        x[2] = loadPoint(data, p + half);
        x[3] = loadPoint(data, p + half + 1);
    }
};

// Index geometry of the merged bit-reversal pass on 2^m points. A point index
// splits into r (h-1 bits at c), the middle bit h for odd m, b (h-1 bits at 1), bit
// 0 and the top bit; the block P(x, y) starts at x 2^c + a + 2 rev(y).
struct ReversalGeometry {
    int h;
    int c;
    int half;
    int count;      // 2^(h-1) values of x and y
    int shift;      // rev(v) = bitReverseByte[v] >> shift
    int middles;    // 1, or 2 for odd m (a = 0 and a = 2^h)

    explicit ReversalGeometry(int m)
        : h(m >> 1), c(m - (m >> 1)), half(powerOfTwo[m - 1]), count(powerOfTwo[(m >> 1) - 1]),
          shift(9 - (m >> 1)), middles((m & 1) ? 2 : 1) {}
    int rev(int v) const { return bitReverseByte[v] >> shift; }
    int block(int a, int x, int revY) const { return (x << c) + a + 2 * revY; }
    int middle(int index) const { return index << h; }
};

// Bit reversal merged with level 1: blocks P(x, y) and P(y, x) swap places with
// their level-1 butterflies; P(x, x) is its own partner.
template <typename T, bool Scaled>
void bitReversePass(T* data, int m, T scale) {
    using Level = LevelOne<T, Scaled>;
    const ReversalGeometry g(m);
    for (int mid = 0; mid < g.middles; ++mid) {
        const int a = g.middle(mid);
        for (int x = g.count - 1; x >= 0; --x) {
            const int revX = g.rev(x);
            for (int y = g.count - 1; y > x; --y) {
                const int px = g.block(a, x, g.rev(y));
                const int py = g.block(a, y, revX);
                Complex<T> first[4];
                Complex<T> second[4];
                Level::load(data, px, g.half, first);
                Level::load(data, py, g.half, second);
                Level::store(data, py, g.half, first, scale);
                Level::store(data, px, g.half, second, scale);
            }
            const int pxx = g.block(a, x, revX);
            Complex<T> own[4];
            Level::load(data, pxx, g.half, own);
            Level::store(data, pxx, g.half, own, scale);
        }
    }
}

// The diagonal twiddles W(pi/4) and W(3 pi/4) of the two-level leading pass.
template <typename T, bool Inverse>
struct Diagonals {
    static constexpr T c = T(0.7071067811865476);
    static Complex<T> eighth() { return Direction<T, Inverse>::twiddle(c, c); }
    static Complex<T> threeEighths() { return Direction<T, Inverse>::twiddle(-c, c); }
};

// One level on four consecutive points: (0, 2) with 1 and (1, 3) with -i.
template <typename T, bool Inverse>
inline void leadingQuad(Complex<T>* f) {
    butterflyUnit(f[0], f[2]);
    butterflyQuarter<T, Inverse>(f[1], f[3]);
}

// Leading pass for the levels left over after the radix-8 passes. Returns the
// butterfly distance of the next level.
template <typename T, bool Inverse>
int leadingPass(T* data, int points, int levelsAfterFirst) {
    const int leftover = levelsAfterFirst % 3;
    if (leftover == 0)
        return 2;
    const int group = leftover == 1 ? 4 : 8;
    for (int base = 0; base < points; base += group) {
        Complex<T> f[8];
        for (int k = 0; k < group; ++k)
            f[k] = loadPoint(data, base + k);
        leadingQuad<T, Inverse>(f);
        if (leftover == 2) {
            leadingQuad<T, Inverse>(f + 4);
            butterflyUnit(f[0], f[4]);
            butterfly(f[1], f[5], Diagonals<T, Inverse>::eighth());
            butterflyQuarter<T, Inverse>(f[2], f[6]);
            butterfly(f[3], f[7], Diagonals<T, Inverse>::threeEighths());
        }
        for (int k = 0; k < group; ++k)
            storePoint(data, base + k, f[k]);
    }
    return group;
}

// Table positions of the twiddles of a radix-8 pass with butterfly distance D, on a
// table built for tableSize points (Q = tableSize / 4 is the quarter turn).
struct Radix8Walk {
    int quarter;
    int step1;    // index of theta1 = pi d / D per d
    int step2;    // theta2 = theta1 / 2
    int step3;    // theta3 = theta1 / 4
    int eighth;   // offset of w4 from w3
    int half;     // d from here on reads w1 past the quarter turn

    Radix8Walk(int tableSize, int distance)
        : quarter(tableSize / 4), step1(tableSize / (2 * distance)),
          step2(tableSize / (4 * distance)), step3(tableSize / (8 * distance)),
          eighth(tableSize / 8), half(distance / 2) {}
};

// The four twiddles of one d, with the three quarter-turned ones.
template <typename T>
struct Radix8Twiddles {
    Complex<T> w1, w2, w3, w4, w2q, w3q, w4q;
};

template <typename T, bool Inverse>
Radix8Twiddles<T> radix8Twiddles(const T* U, const Radix8Walk& walk, int d) {
    using Dir = Direction<T, Inverse>;
    const int q = walk.quarter;
    const int j1 = d * walk.step1;
    const int j2 = d * walk.step2;
    const int j3 = d * walk.step3;
    const int j4 = j3 + walk.eighth;
    Radix8Twiddles<T> w;
    // w1 crosses the quarter turn halfway: the walk reverses and the cosine flips sign.
    w.w1 = d < walk.half ? Dir::twiddle(U[j1], U[q - j1]) : Dir::twiddle(-U[2 * q - j1], U[j1 - q]);
    w.w2 = Dir::twiddle(U[j2], U[q - j2]);
    w.w3 = Dir::twiddle(U[j3], U[q - j3]);
    w.w4 = Dir::twiddle(U[j4], U[q - j4]);
    w.w2q = Dir::quarterTurn(w.w2);
    w.w3q = Dir::quarterTurn(w.w3);
    w.w4q = Dir::quarterTurn(w.w4);
    return w;
}

// Three levels on eight points f[k] at distance D, all loaded before any store.
template <typename T>
inline void radix8Butterflies(Complex<T>* f, const Radix8Twiddles<T>& w) {
    butterfly(f[0], f[1], w.w1);
    butterfly(f[2], f[3], w.w1);
    butterfly(f[4], f[5], w.w1);
    butterfly(f[6], f[7], w.w1);
    butterfly(f[0], f[2], w.w2);
    butterfly(f[4], f[6], w.w2);
    butterfly(f[1], f[3], w.w2q);
    butterfly(f[5], f[7], w.w2q);
    butterfly(f[0], f[4], w.w3);
    butterfly(f[1], f[5], w.w4);
    butterfly(f[2], f[6], w.w3q);
    butterfly(f[3], f[7], w.w4q);
}

template <typename T, bool Inverse>
void radix8Pass(T* data, int points, int distance, const T* U, int tableSize) {
    const Radix8Walk walk(tableSize, distance);
    const int span = 8 * distance;
    for (int d = 0; d < distance; ++d) {
        const Radix8Twiddles<T> w = radix8Twiddles<T, Inverse>(U, walk, d);
        for (int base = d; base < points; base += span) {
            Complex<T> f[8];
            for (int k = 0; k < 8; ++k)
                f[k] = loadPoint(data, base + k * distance);
            radix8Butterflies(f, w);
            for (int k = 0; k < 8; ++k)
                storePoint(data, base + k * distance, f[k]);
        }
    }
}

// Real unpacking of one bin pair (k, m' = N/2 - k) with w = W(2 pi k / N):
// E = Z[k] + conj(Z[m']), O = Z[k] - conj(Z[m']), t = E - (i w) O,
// bin k = t, bin m' = conj(2E - t).
template <typename T>
inline void unpackPair(T* data, int k, int mirror, Complex<T> w) {
    const Complex<T> zk = loadPoint(data, k);
    const Complex<T> zm = loadPoint(data, mirror);
    const Complex<T> e{zk.re + zm.re, zk.im - zm.im};
    const Complex<T> o{zk.re - zm.re, zk.im + zm.im};
    const Complex<T> iw{-w.im, w.re};
    const Complex<T> t = differenceChain(e, iw, o);
    storePoint(data, k, t);
    storePoint(data, mirror, {T(2) * e.re - t.re, -(T(2) * e.im - t.im)});
}

// Real packing of one bin pair with w = W(-2 pi k / N): P = X[k] + conj(X[m']),
// R = X[k] - conj(X[m']), point k = P + (i w) R, point m' = conj(P - (i w) R).
template <typename T>
inline void packPair(T* data, int k, int mirror, Complex<T> w) {
    const Complex<T> xk = loadPoint(data, k);
    const Complex<T> xm = loadPoint(data, mirror);
    const Complex<T> p{xk.re + xm.re, xk.im - xm.im};
    const Complex<T> r{xk.re - xm.re, xk.im + xm.im};
    const Complex<T> iw{-w.im, w.re};
    const Complex<T> d = differenceChain(p, iw, r);
    storePoint(data, k, sumChain(p, iw, r));
    storePoint(data, mirror, {d.re, -d.im});
}

// Elements 0 and 1 and the bin N/4 of the unpacking and the packing.
template <typename T>
inline void unpackEnds(T* data, int n) {
    const T re = data[0];
    const T im = data[1];
    data[0] = T(2) * re + T(2) * im;
    data[1] = T(2) * re - T(2) * im;
    data[n / 2] = T(2) * data[n / 2];
    data[n / 2 + 1] = T(-2) * data[n / 2 + 1];
}

template <typename T>
inline void packEnds(T* data, int n) {
    const T first = data[0];
    const T second = data[1];
    data[0] = first + second;
    data[1] = first - second;
    data[n / 2] = T(2) * data[n / 2];
    data[n / 2 + 1] = T(-2) * data[n / 2 + 1];
}

// The four bins k, N/2 - k, N/4 - k, N/4 + k share U[k] and U[Q - k].
template <typename T, bool Packing>
inline void realQuad(T* data, int points, int quarter, int k, T cosine, T sine) {
    if constexpr (Packing) {
        packPair(data, k, points - k, Complex<T>{cosine, sine});
        packPair(data, quarter - k, quarter + k, Complex<T>{sine, cosine});
    } else {
        unpackPair(data, k, points - k, Complex<T>{cosine, -sine});
        unpackPair(data, quarter - k, quarter + k, Complex<T>{sine, -cosine});
    }
}

// Bins N/8 and 3N/8, which come first and use U[N/8] alone.
template <typename T, bool Packing>
void realEighths(T* data, int n, const T* U) {
    const int eighth = n / 8;
    if constexpr (Packing)
        packPair(data, eighth, n / 2 - eighth, Complex<T>{U[eighth], U[eighth]});
    else
        unpackPair(data, eighth, n / 2 - eighth, Complex<T>{U[eighth], -U[eighth]});
}

// Four bins per step for k = from .. N/8 - 1.
template <typename T, bool Packing>
void realQuads(T* data, int n, const T* U, int from) {
    const int quarter = n / 4;
    for (int k = from; k < n / 8; ++k)
        realQuad<T, Packing>(data, n / 2, quarter, k, U[k], U[quarter - k]);
}

// fftRealForward's last step: Z (the halved transform of the sample pairs) to the
// packed spectrum of N real samples.
template <typename T>
void unpackReal(T* data, int n, const T* U) {
    unpackEnds(data, n);
    realEighths<T, false>(data, n, U);
    realQuads<T, false>(data, n, U, 1);
}

// fftRealInverse's first step, unscaled.
template <typename T>
void packReal(T* data, int n, const T* U) {
    packEnds(data, n);
    realEighths<T, true>(data, n, U);
    realQuads<T, true>(data, n, U, 1);
}

// The scalar path's passes, behind the interface every path offers.
struct ScalarPasses {
    template <typename T, bool Scaled>
    static void bitReverse(T* data, int m, T scale) {
        bitReversePass<T, Scaled>(data, m, scale);
    }
    template <typename T, bool Inverse>
    static int leading(T* data, int points, int levelsAfterFirst) {
        return leadingPass<T, Inverse>(data, points, levelsAfterFirst);
    }
    template <typename T, bool Inverse>
    static void radix8(T* data, int points, int distance, const T* U, int tableSize) {
        radix8Pass<T, Inverse>(data, points, distance, U, tableSize);
    }
    template <typename T>
    static void unpack(T* data, int n, const T* U) {
        unpackReal(data, n, U);
    }
    template <typename T>
    static void pack(T* data, int n, const T* U) {
        packReal(data, n, U);
    }
};

}  // namespace standardLib::fft
