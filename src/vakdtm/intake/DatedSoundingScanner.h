#pragma once

#include <cstdint>

#include "vakdtm/intake/SoundingScanner.h"

namespace vak {

/// A date as a line tells it, in range or not.
struct ScannedDate {
  std::int16_t day = 0;
  std::int16_t month = 0;  ///< from 1
  std::int16_t year = 0;

  bool operator==(const ScannedDate&) const = default;
};

/// What a line of a text of soundings holds.
struct DatedFormat {
  SoundingFormat columns = SoundingFormat::kComma;
  bool dated = false;  ///< behind z, parted from it like the other columns, stands day-month-year

  /// How many numbers a line that holds everything yields.
  int Fields() const { return dated ? 6 : 3; }
};

/// Scans the x, y and z of a line of text and, of a dated text, the date behind them.
///
/// For every line the answer is that of `sscanf` in the "C" locale with "%lf,%lf,%lf,%2d-%2d-%4d" or "%lf %lf %lf
/// %2d-%2d-%4d", or these as far as z: what isn't converted keeps the value that it had. Any thread may use it.
class DatedSoundingScanner {
 public:
  /// That many bytes behind the end of a line must be readable.
  static constexpr std::size_t kPadding = SoundingScanner::kPadding;

  explicit DatedSoundingScanner(DatedFormat format) : format_(format), scanner_(format.columns) {}

  /// Scans [begin, end). @return the count of numbers found from the left, up to `Fields`, or `EOF`.
  int Scan(const char* begin, const char* end, ScannedSounding& sounding, ScannedDate& date) const;

 private:
  DatedFormat format_;
  SoundingScanner scanner_;
};

}  // namespace vak
