#include "vakdtm/services/device/PngChunks.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

using Table = std::array<std::uint32_t, 256>;

constexpr Table MakeTable() {
  Table table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t rest = i;
    for (int bit = 0; bit < 8; ++bit) rest = (rest & 1) != 0 ? 0xEDB88320U ^ rest >> 1 : rest >> 1;
    table[i] = rest;
  }
  return table;
}

std::string BigEndian(std::uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 255);
  return bytes;
}

std::string Chunk(std::string_view kind, std::string_view data) {
  std::string checked(kind);
  checked += data;
  return BigEndian(static_cast<std::uint32_t>(data.size())) + checked + BigEndian(PngCheck(checked));
}

bool IsKey(std::string_view key) {
  constexpr std::size_t kLongest = 79;
  if (key.empty() || key.size() > kLongest || key.front() == ' ' || key.back() == ' ') return false;
  return key.find("  ") == std::string_view::npos &&
         std::all_of(key.begin(), key.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

}  // namespace

std::uint32_t PngCheck(std::string_view bytes) {
  static constexpr Table kTable = MakeTable();
  std::uint32_t check = 0xFFFFFFFFU;
  for (const char c : bytes) check = kTable[(check ^ static_cast<unsigned char>(c)) & 255] ^ check >> 8;
  return ~check;
}

std::string PngResolution(double dotsPerInch) {
  constexpr double kInch = 0.0254;
  const std::string perMetre = BigEndian(static_cast<std::uint32_t>(std::lround(dotsPerInch / kInch)));
  return Chunk("pHYs", perMetre + perMetre + '\x01');
}

bool PngNotes(std::span<const PictureNote> notes, std::string& chunks) {
  std::string all;
  for (const PictureNote& note : notes) {
    if (!IsKey(note.key)) return false;
    std::wstring text = note.text;
    for (wchar_t& c : text) {
      // What `ToUtf8` makes a byte of that is no character.
      if (c == 0 || (c >= 0xDC80 && c <= 0xDCFF)) c = L'\xFFFD';
    }
    // Key, not packed, by no method, in no language, under no translated key.
    all += Chunk("iTXt", note.key + std::string(5, '\0') + ToUtf8(text));
  }
  chunks += all;
  return true;
}

}  // namespace vak
