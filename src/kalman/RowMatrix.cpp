#include "kalman/RowMatrix.h"

#include <utility>

namespace kalman {

RowMatrix::RowMatrix(int rows, int cols)
    : rowCount_(rows),
      colCount_(cols),
      allocated_(true),
      elements_(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols), 0.0f),
      rowTable_(static_cast<std::size_t>(rows)) {
    for (std::size_t r = 0; r < rowTable_.size(); ++r)
        rowTable_[r] = elements_.data() + r * static_cast<std::size_t>(cols);
}

RowMatrix::RowMatrix(RowMatrix&& other) noexcept
    : rowCount_(std::exchange(other.rowCount_, 0)),
      colCount_(std::exchange(other.colCount_, 0)),
      allocated_(std::exchange(other.allocated_, false)),
      elements_(std::move(other.elements_)),
      rowTable_(std::move(other.rowTable_)) {
    other.elements_.clear();
    other.rowTable_.clear();
}

RowMatrix& RowMatrix::operator=(RowMatrix&& other) noexcept {
    if (this != &other) {
        rowCount_ = std::exchange(other.rowCount_, 0);
        colCount_ = std::exchange(other.colCount_, 0);
        allocated_ = std::exchange(other.allocated_, false);
        elements_ = std::move(other.elements_);
        rowTable_ = std::move(other.rowTable_);
        other.elements_.clear();
        other.rowTable_.clear();
    }
    return *this;
}

}  // namespace kalman
