// Conjugate gradients on the normal equations of a gap's least-squares fill,
// preconditioned by a Toeplitz system (ToeplitzSolver): the model's, or a mean of
// models', autocorrelation, which differs from the true normal equations only where
// rows are dropped or weighted, and so leaves few iterations to do.
//
// The caller writes the normal equations' residual at its starting fill (minus the
// gradient of the errors' energy) into residual(), then runs solve() with the product
// of the normal equations with a direction. The constructor allocates for gaps up to
// maxGap; solve never allocates. Each sum in a fixed order: the same bits on every
// platform. One thread at a time per object.
#pragma once

#include <algorithm>
#include <memory>

#include "inpaint/ToeplitzSolver.h"

class PreconditionedGradients {
public:
    explicit PreconditionedGradients(int maxGap)
        : residual_(new double[maxGap]()),
          step_(new double[maxGap]()),
          direction_(new double[maxGap]()),
          product_(new double[maxGap]())
    {
    }

    double* residual() { return residual_.get(); }

    // fill[0, length): refined in place by at most `iterations` steps, or until the
    // preconditioned residual falls by 1e-12. column[0..order]: the preconditioner.
    // normalProduct(direction, out) writes the normal equations times direction.
    template <typename NormalProduct>
    void solve(const double* column, int order, ToeplitzSolver& solver, double* fill, int length, int iterations,
               NormalProduct&& normalProduct)
    {
        double fit = preconditioned(column, order, solver, length);
        const double settled = fit * 1e-12;
        std::copy_n(step_.get(), length, direction_.get());
        for (int iteration = 0; iteration < iterations && fit > settled; ++iteration) {
            normalProduct(static_cast<const double*>(direction_.get()), product_.get());
            const double curvature = dot(direction_.get(), product_.get(), length);
            if (!(curvature > 0.0)) break;
            const double alpha = fit / curvature;
            for (int i = 0; i < length; ++i) {
                fill[i] += alpha * direction_[i];
                residual_[i] -= alpha * product_[i];
            }
            const double next = preconditioned(column, order, solver, length);
            const double beta = next / fit;
            fit = next;
            for (int i = 0; i < length; ++i) direction_[i] = step_[i] + beta * direction_[i];
        }
    }

private:
    static double dot(const double* x, const double* y, int count)
    {
        double sum = 0.0;
        for (int i = 0; i < count; ++i) sum += x[i] * y[i];
        return sum;
    }

    // step = T^-1 residual (the residual itself where T is singular); returns residual . step.
    double preconditioned(const double* column, int order, ToeplitzSolver& solver, int length)
    {
        std::copy_n(residual_.get(), length, step_.get());
        double* rhs[1] = {step_.get()};
        if (!solver.solve(column, order, length, rhs, 1)) std::copy_n(residual_.get(), length, step_.get());
        return dot(residual_.get(), step_.get(), length);
    }

    std::unique_ptr<double[]> residual_, step_, direction_, product_;  // maxGap each
};
