#include "vakdtm/intake/DatedSoundingScanner.h"

#include <string_view>

namespace vak {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

/// A line that is read from the left.
class Rest {
 public:
  Rest(const char* begin, const char* end) : at_(begin), end_(end) {}

  void SkipWhiteSpace() {
    while (at_ != end_ && kWhiteSpace.find(*at_) != std::string_view::npos) ++at_;
  }

  bool Skip(char wanted) {
    if (at_ == end_ || *at_ != wanted) return false;
    ++at_;
    return true;
  }

  /// As `%2d` and `%4d`: white space, a sign, digits; sign and digits at most `width` characters.
  bool Read(int width, std::int16_t& value) {
    SkipWhiteSpace();
    const bool negative = Skip('-');
    if (negative || Skip('+')) --width;
    const char* const digits = at_;
    int number = 0;
    for (; width > 0 && at_ != end_ && *at_ >= '0' && *at_ <= '9'; --width, ++at_) number = 10 * number + (*at_ - '0');
    if (at_ == digits) return false;
    value = static_cast<std::int16_t>(negative ? -number : number);
    return true;
  }

 private:
  const char* at_;
  const char* end_;
};

/// @return how many of day, month and year were found.
int ScanDate(Rest rest, SoundingFormat columns, ScannedDate& date) {
  if (columns == SoundingFormat::kComma && !rest.Skip(',')) return 0;
  if (!rest.Read(2, date.day)) return 0;
  if (!rest.Skip('-') || !rest.Read(2, date.month)) return 1;
  return rest.Skip('-') && rest.Read(4, date.year) ? 3 : 2;
}

}  // namespace

int DatedSoundingScanner::Scan(const char* begin, const char* end, ScannedSounding& sounding, ScannedDate& date) const {
  const int fields = scanner_.Scan(begin, end, sounding);
  if (!format_.dated || fields != 3) return fields;
  return 3 + ScanDate(Rest(sounding.behindZ, end), format_.columns, date);
}

}  // namespace vak
