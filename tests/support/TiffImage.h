#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TestFolder.h"

namespace vak::test {

/// A TIFF file of one image read by a reader of its own, so that what the library writes isn't judged by itself: fields
/// in the order of the file, strips, LZW. Throws on what isn't so.
class TiffImage {
 public:
  explicit TiffImage(const std::string& path) : bytes_(ReadBytes(path)) {
    const auto magic = Get<std::uint16_t>(2);
    if (bytes_.size() < 16 || bytes_[0] != 'I' || bytes_[1] != 'I' || (magic != 42 && magic != 43)) Fail("no TIFF");
    isBig_ = magic == 43;
    std::uint64_t at = isBig_ ? Get<std::uint64_t>(8) : Get<std::uint32_t>(4);
    const std::uint64_t count = isBig_ ? Get<std::uint64_t>(at) : Get<std::uint16_t>(at);
    at += isBig_ ? 8 : 2;
    for (std::uint64_t i = 0; i < count; ++i, at += isBig_ ? 20 : 12) ReadField(at);
  }

  bool IsBig() const { return isBig_; }
  const std::vector<unsigned>& Tags() const { return tags_; }
  bool Has(unsigned tag) const { return fields_.contains(tag); }
  const std::vector<double>& Numbers(unsigned tag) const { return fields_.at(tag); }
  /// The first number of a field.
  int Number(unsigned tag) const { return static_cast<int>(fields_.at(tag).front()); }
  std::string Text(unsigned tag) const {
    std::string text;
    for (const double each : fields_.at(tag)) text += static_cast<char>(each);
    return text;
  }

  int Width() const { return Number(0x100); }
  int Height() const { return Number(0x101); }

  /// The samples of a line; of one that wasn't written, none.
  std::vector<std::uint8_t> Line(int line) const {
    const auto at = static_cast<std::size_t>(Numbers(0x111).at(static_cast<std::size_t>(line)));
    const auto size = static_cast<std::size_t>(Numbers(0x117).at(static_cast<std::size_t>(line)));
    if (at + size > bytes_.size()) Fail("a strip beyond the file");
    const std::uint8_t* const from = bytes_.data() + at;
    return Number(0x103) == 5 ? Unpacked(from, size) : std::vector<std::uint8_t>(from, from + size);
  }

  /// The samples of all lines, from the top.
  std::vector<std::uint8_t> Samples() const {
    std::vector<std::uint8_t> all;
    for (int line = 0; line < Height(); ++line) {
      const std::vector<std::uint8_t> samples = Line(line);
      all.insert(all.end(), samples.begin(), samples.end());
    }
    return all;
  }
  std::vector<float> Floats() const {
    const std::vector<std::uint8_t> samples = Samples();
    std::vector<float> floats(samples.size() / sizeof(float));
    std::memcpy(floats.data(), samples.data(), floats.size() * sizeof(float));
    return floats;
  }

  /// The keys of georeferencing that are whole numbers.
  std::map<int, int> Keys() const {
    std::map<int, int> keys;
    const std::vector<double>& directory = Numbers(34735);
    for (std::size_t i = 4; i + 3 < directory.size(); i += 4) {
      if (directory[i + 1] == 0) keys[static_cast<int>(directory[i])] = static_cast<int>(directory[i + 3]);
    }
    return keys;
  }
  /// The text of one; without the bar that ends it.
  std::string KeyText(int key) const {
    const std::vector<double>& directory = Numbers(34735);
    for (std::size_t i = 4; i + 3 < directory.size(); i += 4) {
      if (directory[i] != key || directory[i + 1] != 34737) continue;
      return Text(34737).substr(static_cast<std::size_t>(directory[i + 3]),
                                static_cast<std::size_t>(directory[i + 2]) - 1);
    }
    return "";
  }

 private:
  [[noreturn]] static void Fail(const char* what) { throw std::runtime_error(what); }

  static std::vector<std::uint8_t> ReadBytes(const std::string& path) {
    std::vector<std::uint8_t> bytes;
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) Fail("no such file");
    std::uint8_t block[4096];
    for (std::size_t count = 0; (count = std::fread(block, 1, sizeof block, file)) > 0;) {
      bytes.insert(bytes.end(), block, block + count);
    }
    std::fclose(file);
    return bytes;
  }

  template <typename T>
  T Get(std::uint64_t at) const {
    static_assert(std::endian::native == std::endian::little);
    T value{};
    if (at + sizeof(T) > bytes_.size()) Fail("a place beyond the file");
    std::memcpy(&value, bytes_.data() + at, sizeof(T));
    return value;
  }

  double GetNumber(unsigned type, std::uint64_t at) const {
    switch (type) {
      case 1:
      case 2:
        return Get<std::uint8_t>(at);
      case 3:
        return Get<std::uint16_t>(at);
      case 4:
        return Get<std::uint32_t>(at);
      case 12:
        return Get<double>(at);
      case 16:
        return static_cast<double>(Get<std::uint64_t>(at));
      default:
        Fail("a type of field that isn't known");
    }
  }

  void ReadField(std::uint64_t at) {
    const unsigned tag = Get<std::uint16_t>(at);
    const unsigned type = Get<std::uint16_t>(at + 2);
    const std::uint64_t count = isBig_ ? Get<std::uint64_t>(at + 4) : Get<std::uint32_t>(at + 4);
    const std::uint64_t width = type <= 2 ? 1 : type == 3 ? 2 : type == 4 ? 4 : 8;
    const std::uint64_t inside = isBig_ ? 8 : 4;
    std::uint64_t place = at + 4 + inside;
    if (count * width > inside) place = isBig_ ? Get<std::uint64_t>(place) : Get<std::uint32_t>(place);
    std::vector<double> numbers;
    for (std::uint64_t i = 0; i < count; ++i) numbers.push_back(GetNumber(type, place + i * width));
    tags_.push_back(tag);
    fields_[tag] = numbers;
  }

  /// Codes of 9 bits and more, the highest bit first, each a change of width one code early.
  static std::vector<std::uint8_t> Unpacked(const std::uint8_t* from, std::size_t size) {
    constexpr unsigned kClear = 256;
    constexpr unsigned kEnd = 257;
    std::vector<std::uint8_t> out;
    std::vector<std::vector<std::uint8_t>> table;
    unsigned width = 9;
    std::vector<std::uint8_t> before;
    std::uint64_t bit = 0;
    const auto reset = [&] {
      table.assign(258, {});
      for (unsigned i = 0; i < 256; ++i) table[i] = {static_cast<std::uint8_t>(i)};
      width = 9;
      before.clear();
    };
    reset();
    for (; bit + width <= size * 8;) {
      unsigned code = 0;
      for (unsigned i = 0; i < width; ++i, ++bit) code = code << 1 | (from[bit / 8] >> (7 - bit % 8) & 1U);
      if (code == kEnd) break;
      if (code == kClear) {
        reset();
        continue;
      }
      std::vector<std::uint8_t> entry;
      if (code < table.size()) {
        entry = table[code];
      } else if (code == table.size() && !before.empty()) {
        entry = before;
        entry.push_back(before.front());
      } else {
        Fail("a code that can't be");
      }
      out.insert(out.end(), entry.begin(), entry.end());
      if (!before.empty()) {
        before.push_back(entry.front());
        table.push_back(before);
      }
      before = entry;
      if (table.size() + 1 >= (1U << width) && width < 12) ++width;
    }
    return out;
  }

  std::vector<std::uint8_t> bytes_;
  bool isBig_ = false;
  std::vector<unsigned> tags_;
  std::map<unsigned, std::vector<double>> fields_;
};

}  // namespace vak::test
