#include "vakdtm/services/text/Utf8.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vak {
namespace {

constexpr std::uint32_t kEscapeBase = 0xDC00;
constexpr std::uint32_t kReplacement = 0xFFFD;

bool IsSurrogate(std::uint32_t point) { return point >= 0xD800 && point <= 0xDFFF; }

/// A code point and the count of bytes that it takes; count 0 when the bytes begin no valid sequence.
struct Decoded {
  std::uint32_t point;
  std::size_t count;
};

Decoded DecodeFirst(std::string_view bytes) {
  const auto at = [bytes](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])); };
  const std::uint32_t lead = at(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t count = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || bytes.size() < count) return {0, 0};
  constexpr std::uint32_t kLeadBits[] = {0, 0, 0x1F, 0x0F, 0x07};
  constexpr std::uint32_t kLowest[] = {0, 0, 0x80, 0x800, 0x10000};
  std::uint32_t point = lead & kLeadBits[count];
  for (std::size_t i = 1; i < count; ++i) {
    if ((at(i) & 0xC0) != 0x80) return {0, 0};
    point = point << 6 | (at(i) & 0x3F);
  }
  if (point < kLowest[count] || point > 0x10FFFF || IsSurrogate(point)) return {0, 0};
  return {point, count};
}

void AppendPoint(std::string& out, std::uint32_t point) {
  const auto put = [&out](std::uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (point < 0x80) {
    put(point);
  } else if (point < 0x800) {
    put(0xC0 | point >> 6);
    put(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    put(0xE0 | point >> 12);
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
  } else {
    put(0xF0 | point >> 18);
    put(0x80 | (point >> 12 & 0x3F));
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
  }
}

}  // namespace

std::wstring FromUtf8(std::string_view bytes) {
  std::wstring text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    Decoded next = DecodeFirst(bytes);
    if (next.count == 0) next = {kEscapeBase + static_cast<unsigned char>(bytes.front()), 1};
    text += static_cast<wchar_t>(next.point);
    bytes.remove_prefix(next.count);
  }
  return text;
}

std::size_t FirstCharacterLength(std::string_view bytes) {
  if (bytes.empty()) return 0;
  const std::size_t count = DecodeFirst(bytes).count;
  return count == 0 ? 1 : count;
}

std::string ToUtf8(std::wstring_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (const wchar_t c : text) {
    const auto point = static_cast<std::uint32_t>(c);  // NOLINT(bugprone-signed-char-misuse): 32 bits, no char
    if (point >= kEscapeBase + 0x80 && point <= kEscapeBase + 0xFF) {
      bytes += static_cast<char>(static_cast<unsigned char>(point - kEscapeBase));
    } else {
      AppendPoint(bytes, IsSurrogate(point) || point > 0x10FFFF ? kReplacement : point);
    }
  }
  return bytes;
}

}  // namespace vak
