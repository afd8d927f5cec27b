#include "DiscardOnKill.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vak {
namespace {

enum SlotState : int { kFree, kTaken, kNamed };

struct Slot {
  std::atomic<int> state{kFree};
  char path[PATH_MAX] = {};  // read by the handler while the state is kNamed
};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

std::array<Slot, 8> slots;

bool IsDots(const char* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

/// What the system writes into the buffer, where the library's own type has another size of numbers.
struct Entry {
  std::uint64_t inode;
  std::int64_t offset;
  std::uint16_t length;
  unsigned char type;
};
constexpr std::size_t kNameOffset = offsetof(Entry, type) + 1;

/// @return whether there was anything to remove.
bool RemoveEntries(int folder) {
  bool removed = false;
  alignas(Entry) char buffer[4096];
  long count = 0;
  // Not readdir, which allocates.
  while ((count = syscall(SYS_getdents64, folder, buffer, sizeof buffer)) > 0) {
    for (long place = 0; place < count;) {
      Entry entry = {};
      std::memcpy(&entry, buffer + place, kNameOffset);
      const char* const name = buffer + place + kNameOffset;
      if (!IsDots(name) && unlinkat(folder, name, 0) == 0) removed = true;
      place += entry.length;
    }
  }
  return removed;
}

}  // namespace

void RemoveFlat(const char* path) {
  const int folder = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder < 0) {
    unlink(path);
    return;
  }
  // Removing can hide what comes next from a walk that has begun.
  while (RemoveEntries(folder) && lseek(folder, 0, SEEK_SET) == 0) continue;
  close(folder);
  rmdir(path);
}

void DiscardOnKill::Name(const std::string& path) {
  Forget();
  if (path.size() >= sizeof Slot::path) return;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    int state = kFree;
    if (!slots[i].state.compare_exchange_strong(state, kTaken)) continue;
    std::copy_n(path.c_str(), path.size() + 1, slots[i].path);
    slots[i].state = kNamed;
    slot_ = static_cast<int>(i);
    return;
  }
}

void DiscardOnKill::Forget() {
  if (slot_ >= 0) slots[static_cast<std::size_t>(slot_)].state = kFree;
  slot_ = -1;
}

void DiscardNamed() {
  for (const Slot& slot : slots) {
    if (slot.state == kNamed) RemoveFlat(slot.path);
  }
}

}  // namespace vak
