#pragma once

#include <cstddef>
#include <string_view>

namespace vak {

/// How the columns of a sounding are parted, by the format that says what a line means.
enum class SoundingFormat {
  kComma,  ///< "%lf,%lf,%lf": a comma straight behind a number; blanks may stand before the next one
  kBlank,  ///< "%lf %lf %lf": any white space, or none where the next number can't be taken for more of this one
};

/// What was found in one line.
struct ScannedSounding {
  double x = 0.0;  ///< as written, no unit; holds its old value when `fields` is less than 1
  double y = 0.0;  ///< holds its old value when `fields` is less than 2
  double z = 0.0;  ///< holds its old value when `fields` is less than 3

  /// Numbers found from the left, 0 to 3, or `EOF` when the line ended before anything but white space was seen.
  int fields = 0;

  /// The part of the line that nobody has looked at. Behind z when all three are plain decimal numbers, and empty when
  /// only the line's end (`\r`, `\n`) is left there; otherwise the whole line.
  std::string_view unread;

  /// The character behind z; means something when `fields` is 3.
  const char* behindZ = nullptr;

  /// True says that three plain decimal numbers and the line's end are all that the line holds. False says nothing.
  bool RestIsEmpty() const { return unread.empty() && fields == 3; }
};

/// Scans the x, y and z of a line of text.
///
/// For every line the answer is that of `sscanf` with the format in the "C" locale, whatever the process locale is:
/// (1) `fields` is what `sscanf` returns; (2) the numbers converted have the same bits (infinities, not-a-numbers, the
/// sign of zero and hexadecimal included); (3) numbers not converted keep the value that they had; (4) the line ends
/// at its first NUL. Lines of plain decimal numbers cost some ten nanoseconds, all others a call of `sscanf`.
///
/// No state but the format: any thread may use a copy, or the same object.
class SoundingScanner {
 public:
  /// That many bytes behind the end of a line must be readable. What they hold doesn't matter.
  static constexpr std::size_t kPadding = 128;

  explicit SoundingScanner(SoundingFormat format = SoundingFormat::kComma) : format_(format) {}

  SoundingFormat Format() const { return format_; }

  /// Scans [begin, end), of any length, with or without the line's end; no NUL is needed behind it.
  ///
  /// @param sounding  takes the answer; x, y and z keep their value where nothing was converted. Its `unread` points
  ///                  into the line.
  /// @return `sounding.fields`.
  int Scan(const char* begin, const char* end, ScannedSounding& sounding) const;

 private:
  SoundingFormat format_;
};

/// @return whether the marker stands anywhere before the first NUL of the line that was scanned. Searches only what the
/// scan left unread, so that it costs nothing for a line of three plain numbers.
/// @param marker  no part of a plain decimal number.
bool HoldsMarker(const ScannedSounding& sounding, std::string_view marker = "-nan");

}  // namespace vak
