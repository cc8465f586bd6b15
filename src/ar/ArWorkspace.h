// Least-squares AR interpolation of a gap: the gap's samples minimise the AR
// prediction error over the gap and its surroundings. The normal equations are a
// symmetric Toeplitz system solved by a Levinson-type recursion in O(L^2).
//
// The workspace owns every array of a solve, so a solve allocates nothing. One
// workspace belongs to one thread at a time.
//
// context (caller's floats): before a call, entries 0..m-1 hold the m samples right
// before the gap (oldest first) and m..2m-1 the m samples right after it (nearest
// first); after it, entries 0..L-1 hold the repaired gap in time order. It needs
// room for max(2m, L) entries. coefficients: AR polynomial, entries 0..m.
#pragma once

#include <vector>

class ArWorkspace {
public:
    ArWorkspace(int modelCapacity, int gapCapacity);

    // Zeroes the solver arrays. The uneven extent (the lowest byte of the last
    // coefficient lag, the first g entries of the reversed context) is the
    // operation's definition; no solve depends on what it leaves.
    void clear();

    // Solves a gap of gapLength samples with a model of `order` (at most
    // modelCapacity; gapLength at most gapCapacity). Returns the solver's code.
    // The solution is always written to context, whatever the code.
    int interpolateGap(float* context, const double* coefficients, int order, int gapLength);

    // As interpolateGap with at most contextLimit samples of right context; prints
    // " error in lsar: %d\n" on standard output when the solve fails.
    void interpolateGapForward(float* context, const double* coefficients, int order,
                               int gapLength, int contextLimit);

    // The mirror image by time reversal: at most contextLimit samples of left context.
    void interpolateGapBackward(float* context, const double* coefficients, int order,
                                int gapLength, int contextLimit);

    // Solves T x = rhs for the symmetric Toeplitz T with first row `row`.
    // Returns 0; -1 for size <= 1 (x untouched); -2 when row[0] or a pivot is below
    // 1e-10 in magnitude (x holds the partial result).
    static int solveToeplitz(const double* row, const double* rhs, int size, double* x,
                             double* scratch);

    int modelCapacity() const { return modelCapacity_; }
    int gapCapacity() const { return gapCapacity_; }

private:
    // Steps shared by the three gap operations; rightContextLimit bounds the right
    // context read (order for the full solve).
    int solveGap(float* context, const double* coefficients, int order, int gapLength,
                 int rightContextLimit);

    int modelCapacity_;
    int gapCapacity_;
    std::vector<double> coefficientLags_;
    std::vector<double> spare_;
    std::vector<double> rightHandSide_;
    std::vector<double> solution_;
    std::vector<double> toeplitzRow_;
    std::vector<double> toeplitzScratch_;
    std::vector<float> reversedContext_;
};
