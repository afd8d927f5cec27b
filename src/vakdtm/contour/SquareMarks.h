#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vak {

/// Marks the squares of an area that a level may cross, so that the others needn't be looked at. Square (row, col) has
/// the cells (row, col) to (row + 1, col + 1) of the area as corners; those of the last row and the last column also
/// have corners in other areas.
///
/// Memory is taken once for the largest area.
class SquareMarks {
 public:
  /// Marks the squares that may be crossed: those that don't have all corners on one side of the level, and those with
  /// corners in other areas.
  /// @param cells  those of the area, row by row; another thread may change them.
  /// @param side   cells per row and column.
  void Mark(const double* cells, unsigned side, double level);

  /// Shows the marked squares of a row in order, as columns of the area, until one is answered with false.
  /// @return false when one was.
  template <typename Visit>
  bool ForEach(unsigned row, const Visit& visit) const {
    for (std::size_t word = 0; word < words_; ++word) {
      for (std::uint64_t rest = marks_[row * words_ + word]; rest != 0; rest &= rest - 1) {
        if (!visit(static_cast<unsigned>(word * kBits) + static_cast<unsigned>(std::countr_zero(rest)))) return false;
      }
    }
    return true;
  }

 private:
  static constexpr std::size_t kBits = 64;

  /// The cells of a part of a row: what is above the level, and what is below or no number. A square with a corner that
  /// is no number isn't crossed where the others are below.
  struct Part {
    std::uint64_t above = 0;
    std::uint64_t below = 0;
  };
  using Row = std::vector<Part>;

  static Part Compare(const double* cells, std::size_t count, double level);
  void Compare(const double* cells, double level, Row& row) const;
  void MarkRow(std::uint64_t* marks) const;
  std::uint64_t Columns(std::size_t word) const;

  std::size_t side_ = 0;
  std::size_t words_ = 0;  // of a row
  std::vector<std::uint64_t> marks_;
  Row lower_;
  Row upper_;
};

}  // namespace vak
