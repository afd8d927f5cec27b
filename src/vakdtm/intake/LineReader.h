#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace vak {

/// Reads a stream of text line by line, in large blocks and without copying the lines.
///
/// The lines are cut as repeated `fgets(buffer, 256, stream)` cuts them: up to and with the newline, but no more than
/// 255 bytes at a time, so that a longer line comes in several pieces; the last line may lack its newline; NUL is a
/// byte like any other. As with `fgets`, a piece that a read error cuts short isn't handed out.
///
/// Reads ahead: while a reader is in use, nobody else may read or move the stream. Doesn't own the stream, which must
/// outlive it. Not thread safe.
class LineReader {
 public:
  static constexpr std::size_t kLongestPiece = 255;

  /// That many bytes behind every piece are readable, enough for `SoundingScanner`.
  static constexpr std::size_t kPadding = 128;

  static constexpr std::size_t kBlockSize = std::size_t{256} * 1024;

  /// Reads `stream` from its present position on; `blockSize` bytes at a time, at least `kLongestPiece`.
  explicit LineReader(std::FILE* stream, std::size_t blockSize = kBlockSize);

  /// Hands out the next piece, which stays as it is until the next call of `Next` or `Rewind`.
  /// @return false at the end of the stream and after a read error (see `Failed`); `line` is unchanged then.
  bool Next(std::string_view& line) {
    if (TakeLine(line)) return true;
    return TakeAcrossBlocks(line);
  }

  /// @return the position in the stream behind the piece last handed out, in bytes from its start: what `ftello` tells
  /// after the `fgets`. Counted from 0 where the stream can't tell its position.
  std::int64_t Position() const { return blockPosition_ + static_cast<std::int64_t>(at_ - block_.get()); }

  /// @return the number of the physical line that the piece last handed out is part of, from 1; 0 before the first. The
  /// pieces of one line have the same number.
  std::int64_t LineNumber() const { return lineNumber_; }

  /// @return whether reading ended by an error rather than by the stream's end.
  bool Failed() const { return failed_; }

  /// @return the stream's size in bytes, -1 when it has none (a pipe). What is read next is not changed by it.
  std::int64_t Size();

  /// Goes back to the stream's start; line numbers start again, a read error is forgotten.
  /// @return false when the stream can't seek; nothing has changed then.
  bool Rewind();

 private:
  // Takes a piece that lies in the block whole.
  bool TakeLine(std::string_view& line) {
    const auto left = static_cast<std::size_t>(end_ - at_);
    const std::size_t most = left < kLongestPiece ? left : kLongestPiece;
    const void* const newline = std::memchr(at_, '\n', most);
    if (newline == nullptr && most < kLongestPiece) return false;
    HandOut(newline == nullptr ? most : static_cast<std::size_t>(static_cast<const char*>(newline) + 1 - at_), line);
    return true;
  }

  void HandOut(std::size_t length, std::string_view& line) {
    line = {at_, length};
    at_ += length;
    lineNumber_ += lineBegins_ ? 1 : 0;
    lineBegins_ = line.back() == '\n';
  }

  bool TakeAcrossBlocks(std::string_view& line);
  void Refill();
  void StartAt(std::int64_t position);

  std::FILE* stream_;
  std::size_t blockSize_;
  std::unique_ptr<char[]> block_;
  const char* at_;                  // what is handed out next
  const char* end_;                 // behind the last byte read
  std::int64_t blockPosition_ = 0;  // in the stream, of the block's first byte
  std::int64_t lineNumber_ = 0;
  bool lineBegins_ = true;  // the next piece is the first of its line
  bool ended_ = false;      // the stream has no more
  bool failed_ = false;
};

}  // namespace vak
