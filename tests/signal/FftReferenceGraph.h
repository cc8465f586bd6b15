// Test reference: the kernels' flow graph written level by level, the plain way:
// a bit-reversed copy, then every level over the whole array. Its twiddles are read
// from the same quarter-wave table by the same rules, and each butterfly uses the
// same chain (t = a - w b first, then 2a - t), so it must agree with the kernels to
// the bit: a check that the fused passes (reversal with level 1, the leading pass,
// radix-8) compute exactly the graph and nothing else. Allocates; slow; tests only.
#pragma once

#include <vector>

namespace ferrotip_test {

template <typename T>
struct RefComplex {
    T re;
    T im;
};

template <typename T, bool Inverse>
struct RefGraph {
    using C = RefComplex<T>;

    // W(angle) from the table, the angle in units of 2 pi / tableSize, below a half turn.
    static C tableTwiddle(const T* U, int tableSize, int index) {
        const int q = tableSize / 4;
        const T cosine = index < q ? U[index] : -U[2 * q - index];
        const T sine = index < q ? U[q - index] : U[index - q];
        return Inverse ? C{cosine, sine} : C{cosine, -sine};
    }
    static C turn(C v) { return Inverse ? C{-v.im, v.re} : C{v.im, -v.re}; }

    enum class Kind { Table, Unit, Quarter };

    static void butterfly(C& a, C& b, C w, Kind kind) {
        C t;
        if (kind == Kind::Unit) {
            t = {a.re - b.re, a.im - b.im};
        } else if (kind == Kind::Quarter) {
            const C r = turn(b);
            t = {a.re - r.re, a.im - r.im};
        } else {
            t = {(a.re - w.re * b.re) + w.im * b.im, (a.im - w.re * b.im) - w.im * b.re};
        }
        a = {T(2) * a.re - t.re, T(2) * a.im - t.im};
        b = t;
    }

    // Twiddle of position j (0 <= j < E) at the level of distance E.
    static void twiddleOf(int j, int e, int leadLevels, const T* U, int tableSize, C& w, Kind& kind) {
        kind = Kind::Table;
        if (leadLevels > 0 && e < (2 << leadLevels)) {
            // Levels of the leading pass: exact twiddles 1, -i and the diagonals.
            const T c = T(0.7071067811865476);
            const int eighths = j * (4 / e);  // angle in units of pi / 4
            if (eighths == 0) kind = Kind::Unit;
            else if (eighths == 2) kind = Kind::Quarter;
            else w = Inverse ? C{eighths == 1 ? c : -c, c} : C{eighths == 1 ? c : -c, -c};
            return;
        }
        // Radix-8 passes start at distance 2 * 2^lead and cover three levels each.
        int start = 2 << leadLevels;
        while (start * 8 <= e)
            start *= 8;
        const int d = j % start;
        const int r = j / start;
        if (e == start) {
            w = tableTwiddle(U, tableSize, d * (tableSize / (2 * start)));
        } else if (e == 2 * start) {
            w = tableTwiddle(U, tableSize, d * (tableSize / (4 * start)));
            if (r == 1) w = turn(w);
        } else {
            const int base = d * (tableSize / (8 * start));
            w = tableTwiddle(U, tableSize, (r & 1) ? base + tableSize / 8 : base);
            if (r >= 2) w = turn(w);
        }
    }

    static void run(T* data, int m, bool scaled, T scale, const T* U, int tableSize) {
        const int n = 1 << m;
        std::vector<C> x(n);
        for (int i = 0; i < n; ++i) {
            int reversed = 0;
            for (int bit = 0; bit < m; ++bit)
                reversed |= ((i >> bit) & 1) << (m - 1 - bit);
            x[reversed] = {data[2 * i], data[2 * i + 1]};
        }
        for (int i = 0; i < n; i += 2) {
            const C a = x[i];
            const C b = x[i + 1];
            C sum{a.re + b.re, a.im + b.im};
            C difference{a.re - b.re, a.im - b.im};
            if (scaled) {
                sum = {sum.re * scale, sum.im * scale};
                difference = {difference.re * scale, difference.im * scale};
            }
            x[i] = sum;
            x[i + 1] = difference;
        }
        const int leadLevels = (m - 1) % 3;
        for (int e = 2; e < n; e *= 2) {
            for (int j = 0; j < e; ++j) {
                C w{};
                Kind kind;
                twiddleOf(j, e, leadLevels, U, tableSize, w, kind);
                for (int i = j; i < n; i += 2 * e)
                    butterfly(x[i], x[i + e], w, kind);
            }
        }
        for (int i = 0; i < n; ++i) {
            data[2 * i] = x[i].re;
            data[2 * i + 1] = x[i].im;
        }
    }
};

// The unpacking after the forward graph of N/2 points, one bin pair at a time.
template <typename T>
void referenceUnpack(T* data, int n, const T* U) {
    const int half = n / 2;
    const int q = n / 4;
    const T re0 = data[0];
    const T im0 = data[1];
    data[0] = T(2) * re0 + T(2) * im0;
    data[1] = T(2) * re0 - T(2) * im0;
    data[2 * q] = T(2) * data[2 * q];
    data[2 * q + 1] = T(-2) * data[2 * q + 1];
    for (int k = 1; k < q; ++k) {
        const int mk = half - k;
        const T er = data[2 * k] + data[2 * mk];
        const T ei = data[2 * k + 1] - data[2 * mk + 1];
        const T orr = data[2 * k] - data[2 * mk];
        const T oi = data[2 * k + 1] + data[2 * mk + 1];
        // i w with w = U[k] - i U[Q - k].
        const T wr = U[q - k];
        const T wi = U[k];
        const T tr = (er - wr * orr) + wi * oi;
        const T ti = (ei - wr * oi) - wi * orr;
        data[2 * k] = tr;
        data[2 * k + 1] = ti;
        data[2 * mk] = T(2) * er - tr;
        data[2 * mk + 1] = -(T(2) * ei - ti);
    }
}

// The packing before the inverse graph, one bin pair at a time.
template <typename T>
void referencePack(T* data, int n, const T* U) {
    const int half = n / 2;
    const int q = n / 4;
    const T first = data[0];
    const T second = data[1];
    data[0] = first + second;
    data[1] = first - second;
    data[2 * q] = T(2) * data[2 * q];
    data[2 * q + 1] = T(-2) * data[2 * q + 1];
    for (int k = 1; k < q; ++k) {
        const int mk = half - k;
        const T pr = data[2 * k] + data[2 * mk];
        const T pi = data[2 * k + 1] - data[2 * mk + 1];
        const T rr = data[2 * k] - data[2 * mk];
        const T ri = data[2 * k + 1] + data[2 * mk + 1];
        // i w with w = U[k] + i U[Q - k].
        const T wr = -U[q - k];
        const T wi = U[k];
        data[2 * k] = (pr + wr * rr) - wi * ri;
        data[2 * k + 1] = (pi + wr * ri) + wi * rr;
        data[2 * mk] = (pr - wr * rr) + wi * ri;
        data[2 * mk + 1] = -((pi - wr * ri) - wi * rr);
    }
}

}  // namespace ferrotip_test
