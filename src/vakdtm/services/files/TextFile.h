#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vak {

/// A text file read line by line as wide text: UTF-8, with or without a byte order mark, or UTF-16 of either byte order
/// with one. A byte that belongs to no valid UTF-8 comes through as `FromUtf8` says; half a UTF-16 pair is U+FFFD.
///
/// A line comes with its newline; one that is longer than a call takes comes in several pieces, and the last one of the
/// file may lack its newline. A carriage return in front of it is part of the line. A piece that a read error cuts
/// short isn't handed out.
///
/// Reads ahead in large blocks. Owns its stream. For one thread at a time.
class TextFile {
 public:
  /// That many bytes behind every line that comes as UTF-8 are readable, whatever they hold.
  static constexpr std::size_t kPadding = 128;

  /// Takes over a stream, at its start; null: a file that can't be read.
  explicit TextFile(std::FILE* stream);
  /// Closes the stream.
  ~TextFile();
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;

  /// Opens a file for reading. `IsOpen` tells whether that worked.
  static std::FILE* Open(const std::wstring& path);
  /// Gives the stream back, standing anywhere, and has none any more.
  std::FILE* Release() { return std::exchange(stream_, nullptr); }
  bool IsOpen() const { return stream_ != nullptr; }

  /// Reads the next piece of a line into a buffer of `size` wide characters, of which the last is kept for the NUL that
  /// ends it.
  /// @return false at the file's end, after an error, and for a size below 2; the buffer is unchanged then.
  bool ReadLine(wchar_t* buffer, std::size_t size);

  /// The same as UTF-8, without copying: at most `longest` characters, however many bytes they have. `line` stays as it
  /// is until the next call of anything but the getters.
  bool ReadLine(std::string_view& line, std::size_t longest) {
    if (!TakeShort(line, longest) && !Take(line, longest)) return false;
    lineNumber_ += lineBegins_ ? 1 : 0;
    lineBegins_ = line.back() == '\n';
    return true;
  }

  /// Goes to the start; line numbers begin again and an error is forgotten. @return false when the stream can't seek.
  bool SeekToBegin();
  /// Goes behind the last byte. @return false when the stream can't seek.
  bool SeekToEnd();

  /// @return the place in the file behind what was read last, in bytes.
  std::int64_t GetPosition() const { return position_; }

  /// @return the number of the line that the piece last read is part of, from 1; 0 before the first.
  std::int64_t LineNumber() const { return lineNumber_; }
  /// @return whether reading ended by an error rather than by the file's end.
  bool Failed() const { return failed_; }

 private:
  enum class Encoding { kUnknown, kUtf8, kUtf16Little, kUtf16Big };

  bool TakeShort(std::string_view& line, std::size_t longest);
  bool Take(std::string_view& line, std::size_t longest);
  void HandOut(std::size_t length, std::string_view& line);
  std::size_t PieceLength(std::size_t longest) const;
  void StartAt(std::int64_t position);
  void Fill();
  void FindEncoding();
  void Append(const char* bytes, std::size_t count);
  void AppendUtf16();
  bool IsUtf16() const { return encoding_ == Encoding::kUtf16Little || encoding_ == Encoding::kUtf16Big; }

  std::FILE* stream_;
  Encoding encoding_ = Encoding::kUnknown;
  std::vector<char> raw_;   // read, but no text yet
  std::vector<char> text_;  // UTF-8, kPadding bytes longer than what is in it
  std::size_t at_ = 0;      // in text_: what is handed out next
  std::size_t end_ = 0;     // in text_: behind the last byte
  std::int64_t position_ = 0;
  std::int64_t lineNumber_ = 0;
  bool lineBegins_ = true;
  bool ended_ = false;
  bool failed_ = false;
};

}  // namespace vak
