#include "vakdtm/services/files/TextFile.h"

#include <algorithm>
#include <cstring>
#include <stdio.h>

#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

constexpr std::size_t kBlockSize = std::size_t{256} * 1024;
constexpr std::size_t kLongestCharacter = 4;  // bytes of UTF-8

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kLittleMark = "\xFF\xFE";
constexpr std::string_view kBigMark = "\xFE\xFF";

constexpr wchar_t kReplacement = 0xFFFD;

bool IsHighSurrogate(unsigned unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(unsigned unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

/// Bytes that a text has in UTF-16.
std::int64_t Utf16Bytes(std::string_view utf8) {
  std::int64_t units = 0;
  for (const char c : utf8) {
    const auto byte = static_cast<unsigned char>(c);
    const bool continues = (byte & 0xC0) == 0x80;
    units += continues ? 0 : byte >= 0xF0 ? 2 : 1;
  }
  return 2 * units;
}

}  // namespace

TextFile::TextFile(std::FILE* stream) : stream_(stream) {}

TextFile::~TextFile() {
  if (stream_) std::fclose(stream_);
}

std::FILE* TextFile::Open(const std::wstring& path) { return std::fopen(ToUtf8(path).c_str(), "rbe"); }

bool TextFile::ReadLine(wchar_t* buffer, std::size_t size) {
  std::string_view line;
  if (size < 2 || !ReadLine(line, size - 1)) return false;
  const std::wstring wide = FromUtf8(line);
  std::copy(wide.begin(), wide.end(), buffer);
  buffer[wide.size()] = L'\0';
  return true;
}

bool TextFile::SeekToBegin() {
  if (!stream_ || fseeko(stream_, 0, SEEK_SET) != 0) return false;
  std::clearerr(stream_);
  StartAt(0);
  return true;
}

bool TextFile::SeekToEnd() {
  if (!stream_ || fseeko(stream_, 0, SEEK_END) != 0) return false;
  StartAt(ftello(stream_));
  return true;
}

void TextFile::StartAt(std::int64_t position) {
  raw_.clear();
  at_ = end_ = 0;
  encoding_ = position == 0 ? Encoding::kUnknown : Encoding::kUtf8;
  position_ = position;
  lineNumber_ = 0;
  lineBegins_ = true;
  ended_ = false;
  failed_ = false;
}

/// Takes a piece whose end is sure to be its newline, which nearly all are: none is longer in characters than in bytes.
bool TextFile::TakeShort(std::string_view& line, std::size_t longest) {
  if (at_ == end_) return false;
  const char* const begin = text_.data() + at_;
  const void* const newline = std::memchr(begin, '\n', std::min(end_ - at_, longest));
  if (!newline) return false;
  HandOut(static_cast<std::size_t>(static_cast<const char*>(newline) - begin) + 1, line);
  return true;
}

bool TextFile::Take(std::string_view& line, std::size_t longest) {
  if (longest == 0 || !stream_) return false;
  while (!ended_ && (end_ - at_) / kLongestCharacter < longest) {
    Fill();
    if (TakeShort(line, longest)) return true;
  }
  if (failed_ || at_ == end_) return false;
  HandOut(PieceLength(longest), line);
  return true;
}

void TextFile::HandOut(std::size_t length, std::string_view& line) {
  line = {text_.data() + at_, length};
  at_ += length;
  position_ += IsUtf16() ? Utf16Bytes(line) : static_cast<std::int64_t>(length);
}

/// Bytes up to and with the newline or the last of `longest` characters.
std::size_t TextFile::PieceLength(std::size_t longest) const {
  const std::string_view left(text_.data() + at_, end_ - at_);
  std::size_t length = 0;
  for (std::size_t count = 0; count < longest && length < left.size(); ++count) {
    const bool newline = left[length] == '\n';
    length += FirstCharacterLength(left.substr(length));
    if (newline) break;
  }
  return length;
}

/// Moves what is left to the front and reads a block behind it.
void TextFile::Fill() {
  if (at_ > 0) std::memmove(text_.data(), text_.data() + at_, end_ - at_);
  end_ -= at_;
  at_ = 0;
  const std::size_t kept = raw_.size();
  raw_.resize(kept + kBlockSize);
  const std::size_t count = std::fread(raw_.data() + kept, 1, kBlockSize, stream_);
  raw_.resize(kept + count);
  ended_ = count < kBlockSize;
  failed_ = ended_ && std::ferror(stream_) != 0;
  if (encoding_ == Encoding::kUnknown) FindEncoding();
  if (IsUtf16()) {
    AppendUtf16();
  } else {
    Append(raw_.data(), raw_.size());
    raw_.clear();
  }
}

void TextFile::FindEncoding() {
  const std::string_view begin(raw_.data(), raw_.size());
  std::size_t mark = 0;
  encoding_ = Encoding::kUtf8;
  if (begin.starts_with(kUtf8Mark)) {
    mark = kUtf8Mark.size();
  } else if (begin.starts_with(kLittleMark) || begin.starts_with(kBigMark)) {
    encoding_ = begin.starts_with(kLittleMark) ? Encoding::kUtf16Little : Encoding::kUtf16Big;
    mark = kLittleMark.size();
  }
  raw_.erase(raw_.begin(), raw_.begin() + static_cast<std::ptrdiff_t>(mark));
  position_ += static_cast<std::int64_t>(mark);
}

void TextFile::Append(const char* bytes, std::size_t count) {
  if (text_.size() < end_ + count + kPadding) text_.resize(end_ + count + kPadding);
  if (count > 0) std::memcpy(text_.data() + end_, bytes, count);
  end_ += count;
}

/// Leaves in `raw_` what needs the next block: an odd byte, the first half of a pair.
void TextFile::AppendUtf16() {
  const std::size_t low = encoding_ == Encoding::kUtf16Little ? 0 : 1;
  const auto unit = [&](std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned>(static_cast<unsigned char>(raw_[i])); };
    return byte(at + low) | byte(at + 1 - low) << 8;
  };
  std::wstring wide;
  wide.reserve(raw_.size() / 2);
  std::size_t at = 0;
  for (; at + 2 <= raw_.size(); at += 2) {
    const unsigned first = unit(at);
    if (IsHighSurrogate(first)) {
      if (at + 4 > raw_.size() && !ended_) break;
      if (at + 4 <= raw_.size() && IsLowSurrogate(unit(at + 2))) {
        wide += static_cast<wchar_t>(0x10000 + ((first - 0xD800) << 10) + (unit(at + 2) - 0xDC00));
        at += 2;
        continue;
      }
    }
    wide += IsHighSurrogate(first) || IsLowSurrogate(first) ? kReplacement : static_cast<wchar_t>(first);
  }
  raw_.erase(raw_.begin(), raw_.begin() + static_cast<std::ptrdiff_t>(at));
  const std::string utf8 = ToUtf8(wide);
  Append(utf8.data(), utf8.size());
}

}  // namespace vak
