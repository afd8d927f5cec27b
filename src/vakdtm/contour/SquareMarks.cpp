#include "vakdtm/contour/SquareMarks.h"

#include <algorithm>
#include <utility>

#include "vakdtm/store/CellValue.h"

namespace vak {
namespace {

/// Of each cell and its right neighbour, whether both bits are set. @param next  the bits that follow.
std::uint64_t InPairs(std::uint64_t bits, std::uint64_t next) { return bits & ((bits >> 1) | (next << 63)); }

}  // namespace

void SquareMarks::Mark(const double* cells, unsigned side, double level) {
  side_ = side;
  words_ = (side_ + kBits - 1) / kBits;
  marks_.resize(side_ * words_);
  // A part more than there are, of no cells.
  lower_.assign(words_ + 1, Part());
  upper_.assign(words_ + 1, Part());
  Compare(cells, level, lower_);
  for (std::size_t row = 0; row + 1 < side_; ++row) {
    Compare(cells + (row + 1) * side_, level, upper_);
    MarkRow(marks_.data() + row * words_);
    std::swap(lower_, upper_);
  }
  for (std::size_t word = 0; word < words_; ++word) marks_[(side_ - 1) * words_ + word] = Columns(word);
}

void SquareMarks::Compare(const double* cells, double level, Row& row) const {
  for (std::size_t word = 0; word < words_; ++word) {
    row[word] = Compare(cells + word * kBits, std::min(kBits, side_ - word * kBits), level);
  }
}

SquareMarks::Part SquareMarks::Compare(const double* cells, std::size_t count, double level) {
  std::uint64_t above = 0;
  std::uint64_t below = 0;
  // Bits come in at the top and go down: one shift for all. Both tests are one comparison to the machine.
  for (std::size_t i = 0; i < count; ++i) {
    const double z = LoadCell(cells + i);
    above = (above >> 1) | (std::uint64_t{z > level} << (kBits - 1));
    below = (below >> 1) | (std::uint64_t{!(z >= level)} << (kBits - 1));
  }
  const std::size_t unused = kBits - count;
  return {above >> unused, below >> unused};
}

void SquareMarks::MarkRow(std::uint64_t* marks) const {
  for (std::size_t word = 0; word < words_; ++word) {
    const std::uint64_t above =
        InPairs(lower_[word].above & upper_[word].above, lower_[word + 1].above & upper_[word + 1].above);
    const std::uint64_t below =
        InPairs(lower_[word].below & upper_[word].below, lower_[word + 1].below & upper_[word + 1].below);
    // Behind the last cell nothing is above or below, so that the last square of the row is marked.
    marks[word] = ~(above | below) & Columns(word);
  }
}

/// The bits of a word that stand for a column.
std::uint64_t SquareMarks::Columns(std::size_t word) const {
  const std::size_t count = std::min(kBits, side_ - word * kBits);
  return count == kBits ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
}

}  // namespace vak
