// A plain transcription of the filter step in 32-bit floats, element by element in
// the order the recursion is written (including the dense N by N by N covariance
// product, summed k = 0..N-1 for each element). It shares no code with the library,
// so a bitwise match shows that the library's loop orders and its shortcut in the
// covariance update change no rounding. Valid for noise order 2.
#pragma once

#include <vector>

namespace kalman_test {

class LiteralKalman {
public:
    LiteralKalman(const std::vector<float>& signalAr, const std::vector<float>& noiseAr,
                  float signalVariance, const std::vector<float>& driving, int delay,
                  const std::vector<float>& initialState, int outputSignal)
        : p_(static_cast<int>(signalAr.size()) - 1),
          d_(delay),
          n_(p_ + d_ + 2),
          m_(p_ + d_),
          outputSignal_(outputSignal),
          signalVariance_(signalVariance),
          noiseVariance_(driving[0]),
          driving_(driving),
          x_(static_cast<std::size_t>(n_), 0.0f),
          xp_(x_),
          k_(x_),
          p0_(square(0.0f)),
          pp_(square(0.0f)),
          a_(square(0.0f)) {
        for (int i = 0; i < p_; ++i) c_.push_back(-signalAr[static_cast<std::size_t>(i) + 1]);
        nc_ = {-noiseAr[1], -noiseAr[2]};
        for (int i = 0; i < m_; ++i) x_[static_cast<std::size_t>(i)] = initialState[static_cast<std::size_t>(i)];
    }

    float step(float y) {
        predict();
        pp_[0][0] += signalVariance_;
        pp_[m_][m_] += noiseVariance_;
        for (int r = 0; r < n_; ++r) k_[r] = pp_[r][m_] + pp_[r][0];
        const float s = k_[m_] + k_[0];
        for (int r = 0; r < n_; ++r) k_[r] = k_[r] / s;
        const float e = y - (xp_[m_] + xp_[0]);
        for (int r = 0; r < n_; ++r) x_[r] = xp_[r] + e * k_[r];
        update();
        ++index_;
        if (index_ < static_cast<int>(driving_.size())) noiseVariance_ = driving_[index_];
        if (outputSignal_ != 0) return x_[d_ > 0 ? p_ + d_ - 1 : 0];
        return x_[d_ > 0 ? n_ - 1 : p_];
    }

    const std::vector<float>& state() const { return x_; }
    const std::vector<std::vector<float>>& cov() const { return p0_; }

private:
    using Matrix = std::vector<std::vector<float>>;

    Matrix square(float value) const {
        return Matrix(static_cast<std::size_t>(n_), std::vector<float>(static_cast<std::size_t>(n_), value));
    }

    void predict() {
        float sum = 0.0f;
        for (int i = 0; i < p_; ++i) sum += c_[i] * x_[i];
        xp_[0] = sum;
        for (int i = 1; i < m_; ++i) xp_[i] = x_[i - 1];
        sum = 0.0f;
        for (int i = 0; i < 2; ++i) sum += x_[m_ + i] * nc_[i];
        xp_[m_] = sum;
        xp_[m_ + 1] = x_[m_];
        for (int j = 0; j < n_; ++j) {
            sum = 0.0f;
            for (int i = 0; i < p_; ++i) sum += p0_[i][j] * c_[i];
            a_[0][j] = sum;
            for (int r = 1; r < m_; ++r) a_[r][j] = p0_[r - 1][j];
            a_[m_][j] = p0_[m_ + 1][j] * nc_[1] + p0_[m_][j] * nc_[0];
            a_[m_ + 1][j] = p0_[m_][j];
        }
        for (int r = 0; r < n_; ++r) {
            sum = 0.0f;
            for (int i = 0; i < p_; ++i) sum += a_[r][i] * c_[i];
            pp_[r][0] = sum;
            for (int c = 1; c < m_; ++c) pp_[r][c] = a_[r][c - 1];
            pp_[r][m_] = a_[r][m_ + 1] * nc_[1] + a_[r][m_] * nc_[0];
            pp_[r][m_ + 1] = a_[r][m_];
        }
    }

    void update() {
        for (int r = 0; r < n_; ++r) {
            for (int j = 0; j < n_; ++j) a_[r][j] = 0.0f;
            a_[r][0] = -k_[r];
            a_[r][m_] = -k_[r];
            a_[r][r] += 1.0f;
        }
        for (int i = 0; i < n_; ++i)
            for (int j = 0; j < n_; ++j) {
                p0_[i][j] = 0.0f;
                for (int k = 0; k < n_; ++k) p0_[i][j] += a_[i][k] * pp_[k][j];
            }
    }

    int p_, d_, n_, m_, outputSignal_;
    float signalVariance_, noiseVariance_;
    std::vector<float> driving_;
    std::vector<float> c_, nc_;
    std::vector<float> x_, xp_, k_;
    Matrix p0_, pp_, a_;
    int index_ = 0;
};

}  // namespace kalman_test
