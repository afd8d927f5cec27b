#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

namespace vak::test {

/// A text that is read through a stream which refuses what it is told to.
class FaultyText {
 public:
  explicit FaultyText(std::string bytes) : bytes_(std::move(bytes)) {}

  /// A stream on it, the caller's, which this must outlive.
  std::FILE* Open() {
    return fopencookie(this, "r", {.read = &Read, .write = nullptr, .seek = &Seek, .close = nullptr});
  }

  static constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

  std::size_t failsAt = kNever;  ///< reading fails at this byte
  bool failsOnce = false;        ///< only the first time
  bool hasNoEnd = false;         ///< can't seek to its end
  bool hasNoStart = false;       ///< can't seek to its start

 private:
  static ssize_t Read(void* self, char* buffer, size_t size) {
    auto& text = *static_cast<FaultyText*>(self);
    if (text.at_ >= text.failsAt) {
      if (text.failsOnce) text.failsAt = kNever;
      errno = EIO;
      return -1;
    }
    const std::size_t count = std::min({size, text.bytes_.size() - text.at_, text.failsAt - text.at_});
    std::memcpy(buffer, text.bytes_.data() + text.at_, count);
    text.at_ += count;
    return static_cast<ssize_t>(count);
  }

  static int Seek(void* self, off64_t* offset, int whence) {
    auto& text = *static_cast<FaultyText*>(self);
    const bool refused = whence == SEEK_END ? text.hasNoEnd : whence == SEEK_SET && *offset == 0 && text.hasNoStart;
    if (refused) {
      errno = ESPIPE;
      return -1;
    }
    const auto base = static_cast<off64_t>(whence == SEEK_SET ? 0 : whence == SEEK_CUR ? text.at_ : text.bytes_.size());
    *offset += base;
    text.at_ = static_cast<std::size_t>(*offset);
    return 0;
  }

  std::string bytes_;
  std::size_t at_ = 0;
};

}  // namespace vak::test
