#include "vakdtm/intake/SoundingScanner.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <locale.h>
#include <string>
#include <system_error>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vak {
namespace {

// Three ways lead to the answer, each for more lines and slower than the one before:
//   ScanShort    plain decimals in the first bytes, found through one bit mask of all bytes that are no digits
//   ScanDecimal  decimals of any length, with exponent or '+', through std::from_chars
//   ScanAny      sscanf itself
// The first two decline a line, and leave no trace, as soon as they see anything that they are not sure about.

// Integers up to here, and powers of ten up to 10^22, are doubles exactly, so their quotient is rounded once: it is the
// double nearest to the decimal number.
constexpr std::uint64_t kExactInteger = std::uint64_t{1} << 53;
constexpr unsigned kMostDigits = 16;  // more never make an integer up to `kExactInteger`, but for leading zeros
constexpr unsigned kShortLine = 60;   // bytes of a line that ScanShort looks at; the mask has a few more bits
static_assert(kShortLine + 3 <= 64 && kShortLine + 2 + kMostDigits <= SoundingScanner::kPadding);

constexpr std::array<double, kMostDigits + 1> kPowerOfTen = {1e0, 1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7, 1e8,
                                                             1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16};

constexpr std::array<std::uint64_t, kMostDigits + 1> IntegerPowersOfTen() {
  std::array<std::uint64_t, kMostDigits + 1> powers{};
  std::uint64_t power = 1;
  for (std::uint64_t& entry : powers) {
    entry = power;
    power *= 10;
  }
  return powers;
}
constexpr std::array<std::uint64_t, kMostDigits + 1> kIntegerPowerOfTen = IntegerPowersOfTen();

std::uint64_t LoadLittleEndian(const char* bytes) {
  std::uint64_t value;
  std::memcpy(&value, bytes, sizeof value);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return value;
}

// The bytes of `count` digits, 1 to 8, with the last digit in the highest byte and zeros below the first. Reads eight
// bytes.
std::uint64_t LoadDigits(const char* digits, unsigned count) { return LoadLittleEndian(digits) << (64 - 8 * count); }

// Two numbers of up to eight digits.
struct TwoNumbers {
  std::uint64_t first;
  std::uint64_t second;
};

#if defined(__SSE2__)

std::uint64_t NonDigitsOf16(const char* bytes) {
  const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
  // Shifted so that '9' is the highest signed byte: one comparison then tells the digits.
  const __m128i shifted = _mm_add_epi8(text, _mm_set1_epi8(127 - '9'));
  const __m128i digits = _mm_cmpgt_epi8(shifted, _mm_set1_epi8(127 - 10));
  return static_cast<unsigned>(_mm_movemask_epi8(digits)) ^ 0xFFFFU;
}

// The numbers written in the digits that LoadDigits gave: digits are joined to pairs, pairs to fours, fours to eights,
// in both numbers at once.
[[gnu::always_inline]] inline TwoNumbers JoinDigits(std::uint64_t first, std::uint64_t second) {
  const __m128i text = _mm_unpacklo_epi64(_mm_cvtsi64_si128(static_cast<long long>(first)),
                                          _mm_cvtsi64_si128(static_cast<long long>(second)));
  const __m128i digits = _mm_and_si128(text, _mm_set1_epi8(0x0F));
  const __m128i pairs = _mm_srli_epi16(_mm_mullo_epi16(digits, _mm_set1_epi16(10 * 0x100 + 1)), 8);
  const __m128i fours = _mm_madd_epi16(pairs, _mm_set1_epi32(0x10000 + 100));
  const __m128i eights = _mm_madd_epi16(_mm_packs_epi32(fours, fours), _mm_set1_epi32(0x10000 + 10000));
  const auto both = static_cast<std::uint64_t>(_mm_cvtsi128_si64(eights));
  return {both & 0xFFFFFFFFU, both >> 32};
}

#else

constexpr std::uint64_t EachByte(unsigned byte) { return byte * 0x0101010101010101U; }

std::uint64_t NonDigitsOf8(const char* bytes) {
  const std::uint64_t distance = LoadLittleEndian(bytes) ^ EachByte('0');  // 0 to 9 for digits, more for all others
  const std::uint64_t low = distance & EachByte(0x7F);                     // no carry into the next byte
  const std::uint64_t high = ((low + EachByte(0x80 - 10)) | distance) & EachByte(0x80);
  return ((high >> 7) * 0x0102040810204080U) >> 56;  // gathers the eight bits
}

std::uint64_t NonDigitsOf16(const char* bytes) { return NonDigitsOf8(bytes) | NonDigitsOf8(bytes + 8) << 8; }

// The number written in the digits that LoadDigits gave. A multiplication adds ten times each digit to its neighbour,
// the next a hundred times each pair to its neighbour, and so on.
std::uint64_t JoinEight(std::uint64_t digits) {
  const std::uint64_t pairs = ((digits & EachByte(0x0F)) * (10 * 0x100 + 1)) >> 8;
  const std::uint64_t fours = ((pairs & 0x00FF00FF00FF00FFU) * (100 * 0x10000 + 1)) >> 16;
  return ((fours & 0x0000FFFF0000FFFFU) * (10000 * 0x100000000U + 1)) >> 32;
}

TwoNumbers JoinDigits(std::uint64_t first, std::uint64_t second) { return {JoinEight(first), JoinEight(second)}; }

#endif

// Bit i is set when byte i is no digit.
[[gnu::always_inline]] inline std::uint64_t NonDigits(const char* bytes) {
  return NonDigitsOf16(bytes) | NonDigitsOf16(bytes + 16) << 16 | NonDigitsOf16(bytes + 32) << 32 |
         NonDigitsOf16(bytes + 48) << 48;
}

// The number written in `count` digits, 0 to `kMostDigits`.
std::uint64_t ReadDigits(const char* digits, unsigned count) {
  if (count == 0) return 0;
  if (count <= 8) return JoinDigits(LoadDigits(digits, count), 0).first;
  const auto [first, second] = JoinDigits(LoadDigits(digits, 8), LoadDigits(digits + 8, count - 8));
  return first * kIntegerPowerOfTen[count - 8] + second;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool IsLineEnd(char c) { return c == '\r' || c == '\n'; }

// What surely is no more of a decimal number in front of it; many others aren't either.
bool EndsNumber(char c) { return c == ',' || IsBlank(c) || IsLineEnd(c); }

double WithSign(double magnitude, bool negative) { return negative ? -magnitude : magnitude; }

// What ReadShort answers for a text that it isn't sure about; no decimal number is one.
constexpr double kDeclined = std::numeric_limits<double>::quiet_NaN();

// The number of `whole` digits, with `point` a point, and `decimals` digits; any count of them, none included.
[[gnu::noinline]] double ReadUnusual(const char* start, unsigned whole, bool point, unsigned decimals) {
  if (whole + decimals == 0 || whole + decimals > kMostDigits) return kDeclined;
  const char* const fraction = start + whole + (point ? 1 : 0);
  const std::uint64_t mantissa =
      ReadDigits(start, whole) * kIntegerPowerOfTen[decimals] + ReadDigits(fraction, decimals);
  return mantissa <= kExactInteger ? static_cast<double>(mantissa) / kPowerOfTen[decimals] : kDeclined;
}

// Reads [blanks] [-] [digits] [. [digits]] from byte `at` on, at most `kShortLine`, and moves `at` to the byte behind
// it, two bytes further than that at most. `nonDigits` has a bit for each byte of `text` that is no digit, and for each
// from `kShortLine` on: so there are always two more of them. May run beyond the line's end, on whatever stands there;
// the caller looks at that. Inlined, so that everything stays in registers.
[[gnu::always_inline]] inline double ReadShort(const char* text, std::uint64_t nonDigits, unsigned& at) {
  nonDigits >>= at;
  bool negative = false;
  if ((nonDigits & 1) != 0) {
    while (IsBlank(text[at]) && at < kShortLine) {
      nonDigits >>= 1;
      ++at;
    }
    negative = text[at] == '-';
    if (negative) {
      nonDigits >>= 1;
      ++at;
    }
  }
  const char* const start = text + at;
  const auto whole = static_cast<unsigned>(std::countr_zero(nonDigits));
  at += whole;
  if (text[at] != '.') return WithSign(ReadUnusual(start, whole, false, 0), negative);
  const char* const fraction = text + at + 1;
  const unsigned decimals = static_cast<unsigned>(std::countr_zero(nonDigits & (nonDigits - 1))) - whole - 1;
  at += 1 + decimals;
  // Nearly all numbers have one to eight digits on both sides of the point.
  if (((whole - 1) | (decimals - 1)) < 8) [[likely]] {
    const TwoNumbers parts = JoinDigits(LoadDigits(start, whole), LoadDigits(fraction, decimals));
    const std::uint64_t mantissa = parts.first * kIntegerPowerOfTen[decimals] + parts.second;
    if (mantissa <= kExactInteger) [[likely]] {
      return WithSign(static_cast<double>(static_cast<std::int64_t>(mantissa)) / kPowerOfTen[decimals], negative);
    }
  }
  return WithSign(ReadUnusual(start, whole, true, decimals), negative);
}

template <SoundingFormat format>
bool IsSeparator(char c) {
  return format == SoundingFormat::kComma ? c == ',' : IsBlank(c);
}

// Looks at what follows z: false when that may be more of z; otherwise `unread` is the rest of the line, nothing when
// it is only the line's end.
[[gnu::always_inline]] inline bool FindUnread(const char* behind, const char* end, std::string_view& unread) {
  const char* rest = behind;
  while (rest != end && IsLineEnd(*rest)) ++rest;
  if (rest == end) {
    unread = {};
    return true;
  }
  if (!EndsNumber(*behind)) return false;
  unread = {behind, static_cast<std::size_t>(end - behind)};
  return true;
}

template <SoundingFormat format>
bool ScanShort(const char* begin, const char* end, ScannedSounding& sounding) {
  const std::size_t limit = std::min<std::size_t>(static_cast<std::size_t>(end - begin), kShortLine);
  const std::uint64_t nonDigits = NonDigits(begin) | ~std::uint64_t{0} << limit;
  unsigned behind = 0;
  const double x = ReadShort(begin, nonDigits, behind);
  if (std::isnan(x) || behind >= limit || !IsSeparator<format>(begin[behind])) return false;
  ++behind;
  const double y = ReadShort(begin, nonDigits, behind);
  if (std::isnan(y) || behind >= limit || !IsSeparator<format>(begin[behind])) return false;
  ++behind;
  const double z = ReadShort(begin, nonDigits, behind);
  if (std::isnan(z) || behind > limit) return false;
  if (!FindUnread(begin + behind, end, sounding.unread)) return false;
  sounding.x = x;
  sounding.y = y;
  sounding.z = z;
  sounding.fields = 3;
  sounding.behindZ = begin + behind;
  return true;
}

// Reads [blanks] [sign] digits [. digits] [e [sign] digits] and moves `at` behind it; false declines the line. What it
// leaves may be more of the number for others, as in "0x1p3" or "1e+": the caller looks for what ends a number.
bool ReadDecimal(const char*& at, const char* end, double& number) {
  while (at != end && IsBlank(*at)) ++at;
  if (at == end) return false;
  const bool negative = *at == '-';
  if (negative || *at == '+') ++at;
  // Not the names of infinity and of what is no number, nor a second sign.
  if (at == end || (!IsDigit(*at) && *at != '.')) return false;
  double magnitude = 0.0;
  const auto [stop, error] = std::from_chars(at, end, magnitude);
  if (error != std::errc{}) return false;  // no digit, too large or too small
  number = WithSign(magnitude, negative);
  at = stop;
  return true;
}

template <SoundingFormat format>
bool SkipSeparator(const char*& at, const char* end) {
  if (at == end || !IsSeparator<format>(*at)) return false;
  ++at;
  return true;
}

template <SoundingFormat format>
bool ScanDecimal(const char* begin, const char* end, ScannedSounding& sounding) {
  const char* at = begin;
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  if (!ReadDecimal(at, end, x) || !SkipSeparator<format>(at, end) || !ReadDecimal(at, end, y) ||
      !SkipSeparator<format>(at, end) || !ReadDecimal(at, end, z)) {
    return false;
  }
  std::string_view unread;
  if (!FindUnread(at, end, unread)) return false;
  sounding = {x, y, z, 3, unread, at};
  return true;
}

// Has the calling thread read numbers the C way for a scope.
class NeutralLocale {
 public:
  NeutralLocale() : previous_(uselocale(Neutral())) {}
  ~NeutralLocale() { uselocale(previous_); }

  NeutralLocale(const NeutralLocale&) = delete;
  NeutralLocale& operator=(const NeutralLocale&) = delete;

 private:
  // Never freed: threads may still be scanning while the process ends.
  static locale_t Neutral() {
    static const locale_t neutral = newlocale(LC_ALL_MASK, "C", nullptr);
    return neutral;
  }

  locale_t previous_;
};

template <SoundingFormat format>
void ScanAny(const char* begin, const char* end, ScannedSounding& sounding) {
  const auto length = static_cast<std::size_t>(end - begin);
  std::array<char, 256> buffer;
  std::string longLine;
  const char* text = buffer.data();
  if (length < buffer.size()) {
    if (length != 0) std::memcpy(buffer.data(), begin, length);
    buffer[length] = '\0';
  } else {
    longLine.assign(begin, length);
    text = longLine.c_str();
  }
  const NeutralLocale neutral;
  int behindZ = 0;
  // strtod would report a number out of range; here the number that sscanf makes of it is what is asked for.
  // NOLINTBEGIN(cert-err34-c)
  sounding.fields = format == SoundingFormat::kComma
                        ? std::sscanf(text, "%lf,%lf,%lf%n", &sounding.x, &sounding.y, &sounding.z, &behindZ)
                        : std::sscanf(text, "%lf %lf %lf%n", &sounding.x, &sounding.y, &sounding.z, &behindZ);
  // NOLINTEND(cert-err34-c)
  sounding.unread = {begin, length};
  sounding.behindZ = begin + behindZ;
}

template <SoundingFormat format>
void ScanLine(const char* begin, const char* end, ScannedSounding& sounding) {
  if (ScanShort<format>(begin, end, sounding) || ScanDecimal<format>(begin, end, sounding)) return;
  ScanAny<format>(begin, end, sounding);
}

}  // namespace

int SoundingScanner::Scan(const char* begin, const char* end, ScannedSounding& sounding) const {
  if (format_ == SoundingFormat::kComma) {
    ScanLine<SoundingFormat::kComma>(begin, end, sounding);
  } else {
    ScanLine<SoundingFormat::kBlank>(begin, end, sounding);
  }
  return sounding.fields;
}

bool HoldsMarker(const ScannedSounding& sounding, std::string_view marker) {
  if (sounding.unread.empty()) return false;
  return sounding.unread.substr(0, sounding.unread.find('\0')).find(marker) != std::string_view::npos;
}

}  // namespace vak
