#include "vakdtm/services/platform/FileHandle.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace vak {

bool FileHandle::Close() {
  if (descriptor_ < 0) return true;
  // Never closed twice: the descriptor is gone even when a signal interrupts, and its number may be another thread's.
  return close(std::exchange(descriptor_, -1)) == 0 || errno == EINTR;
}

FileHandle OpenDescriptor(const char* path, int flags, unsigned mode) {
  for (;;) {
    const int descriptor = open(path, flags | O_CLOEXEC, mode);
    if (descriptor >= 0 || errno != EINTR) return FileHandle(descriptor);
  }
}

}  // namespace vak
