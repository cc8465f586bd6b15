// The in-place update of Levinson's recursions: v[j] += scale * v[k - 1 - j] for
// j < k, every pair read before either is written (the middle one, when k is odd,
// gains scale times itself). Each output is one product and one sum, as with a copy
// of v taken first, so the result has the same bits without the copy.
#pragma once

inline void addReversedInPlace(double* v, int k, double scale)
{
    int low = 0, high = k - 1;
    for (; low < high; ++low, --high) {
        const double a = v[low], b = v[high];
        v[low] = a + scale * b;
        v[high] = b + scale * a;
    }
    if (low == high) v[low] = v[low] + scale * v[low];
}
