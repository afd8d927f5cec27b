#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "vakdtm/store/DtmAreaPos.h"

namespace vak {

/// What imports did, added up over one source or several: counts of lines, the range of heights, the cells touched.
///
/// Every line is counted once: `Lines` is the sum of the other five. A value with a little memory, one bit a cell of
/// the areas touched. Not thread safe; to be read when the importer has ended.
class ImportTally {
 public:
  static constexpr std::size_t kNotedLines = 10;

  enum class Reason { kNotParsed, kOutside };

  /// One of the first lines that weren't taken.
  struct RejectedLine {
    int source;         ///< how many sources were begun before, from 0
    std::int64_t line;  ///< number in the source, from 1
    Reason reason;
    std::string text;  ///< without the line's end
  };

  /// @param areaSize  cells per side of the model's areas.
  explicit ImportTally(int areaSize) : areaSize_(areaSize) {}

  /// Says that lines to come are another source's.
  void BeginSource() { ++source_; }

  void CountTaken(int row, int col, double z) {
    ++taken_;
    if (z < lowestZ_ || taken_ == 1) lowestZ_ = z;
    if (z > highestZ_ || taken_ == 1) highestZ_ = z;
    Touch(row, col);
  }
  void CountNotANumber() { ++notANumber_; }
  void CountOutsidePolygon() { ++outsidePolygon_; }
  void CountSkipped(std::int64_t line, std::string_view text);
  void CountRefused(std::int64_t line, std::string_view text);

  std::int64_t Lines() const { return taken_ + skipped_ + refused_ + notANumber_ + outsidePolygon_; }
  /// Inserted into the model.
  std::int64_t Taken() const { return taken_; }
  /// Lines that don't hold three numbers.
  std::int64_t Skipped() const { return skipped_; }
  /// Points where no cell can be.
  std::int64_t Refused() const { return refused_; }
  /// Points with a height that isn't a number.
  std::int64_t NotANumber() const { return notANumber_; }
  /// Points outside the polygon that limits the import.
  std::int64_t OutsidePolygon() const { return outsidePolygon_; }

  /// Cells that took a sounding, each counted once.
  std::int64_t Cells() const;
  /// Areas that took a sounding.
  std::int64_t Areas() const { return static_cast<std::int64_t>(touched_.size()); }
  /// Range of the heights taken, metres; means something when `Taken` isn't 0.
  double LowestZ() const { return lowestZ_; }
  double HighestZ() const { return highestZ_; }

  const std::vector<RejectedLine>& RejectedLines() const { return rejected_; }

 private:
  using Bits = std::vector<std::uint64_t>;

  void Touch(int row, int col) {
    const auto areaSize = static_cast<unsigned>(areaSize_);
    unsigned down = static_cast<unsigned>(row) - static_cast<unsigned>(bottomRow_);
    unsigned left = static_cast<unsigned>(col) - static_cast<unsigned>(leftCol_);
    if (!bits_ || down >= areaSize || left >= areaSize) {
      EnterArea(row, col);
      down = static_cast<unsigned>(row) - static_cast<unsigned>(bottomRow_);
      left = static_cast<unsigned>(col) - static_cast<unsigned>(leftCol_);
    }
    const std::size_t cell = std::size_t{down} * areaSize + left;
    (*bits_)[cell / 64] |= std::uint64_t{1} << (cell % 64);
  }
  void EnterArea(int row, int col);
  void Note(std::int64_t line, Reason reason, std::string_view text);

  int areaSize_;
  int source_ = -1;
  std::int64_t taken_ = 0;
  std::int64_t skipped_ = 0;
  std::int64_t refused_ = 0;
  std::int64_t notANumber_ = 0;
  std::int64_t outsidePolygon_ = 0;
  double lowestZ_ = 0;
  double highestZ_ = 0;
  std::vector<RejectedLine> rejected_;
  std::unordered_map<std::uint64_t, Bits> touched_;  // by area row and column
  Bits* bits_ = nullptr;                             // of the area last touched
  int bottomRow_ = 0;                                // its bottom-left cell
  int leftCol_ = 0;
};

}  // namespace vak
