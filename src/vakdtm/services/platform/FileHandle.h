#pragma once

#include <utility>

namespace vak {

/// Owns one file descriptor of the system and closes it.
class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int descriptor) : descriptor_(descriptor) {}
  ~FileHandle() { Close(); }

  FileHandle(FileHandle&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileHandle& operator=(FileHandle&& other) noexcept {
    if (this != &other) {
      Close();
      descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
  }

  bool IsOpen() const { return descriptor_ >= 0; }
  int Get() const { return descriptor_; }

  /// Closes it if it is open. @return false when the system reported a failed write only now; it is closed all the
  /// same.
  bool Close();

 private:
  int descriptor_ = -1;
};

/// `open` with the flags of <fcntl.h>, closed in child programs, tried again when a signal came in between.
/// @return a handle that isn't open when it failed; `errno` tells why.
FileHandle OpenDescriptor(const char* path, int flags, unsigned mode = 0666);

}  // namespace vak
