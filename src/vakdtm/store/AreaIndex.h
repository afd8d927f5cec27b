#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vakdtm/services/files/DataStream.h"
#include "vakdtm/store/GridFormat.h"

namespace vak {

/// The index at the end of a grid file, as its bytes say; nothing of it has been compared with the areas.
struct AreaIndex {
  std::vector<grid::IndexEntry> entries;  ///< in the order of the file
  std::int64_t start = 0;                 ///< offset of the head
  std::int64_t size = 0;                  ///< of the file, which the tail ends
  bool old = false;                       ///< in the old form, without Z ranges

  std::int64_t EntrySize() const { return old ? grid::kOldEntrySize : grid::kEntrySize; }
  /// Offset of an entry.
  std::int64_t EntryAt(std::size_t entry) const {
    return start + grid::kHeaderSize + static_cast<std::int64_t>(entry) * EntrySize();
  }
};

/// Reads the index from the back of the file. Requires: stream lock held.
/// @return false when there is none, or head and tail don't belong together; `index` is untouched then.
bool ReadAreaIndex(DataStream& stream, AreaIndex& index);

/// Forms an index: head, entries, tail. @return false when there are more entries than an index can count.
bool FormIndex(const std::vector<grid::IndexEntry>& entries, std::vector<std::byte>& bytes);

/// Writes an index at `start`; the stream is left behind the tail. Requires: stream lock held.
/// @return false when a write failed, or there are more entries than an index can count; part of it may be written.
bool WriteAreaIndex(DataStream& stream, std::int64_t start, const std::vector<grid::IndexEntry>& entries);

/// Ends the stream at `size`, behind the tail. A stream that can't be cut gets the filler instead, with which readers
/// walk from the front and stop there. Requires: stream lock held.
void EndFileAt(DataStream& stream, std::int64_t size);

/// Ascending by position: the order of an index.
inline bool LiesBefore(const grid::IndexEntry& a, const grid::IndexEntry& b) { return a.position < b.position; }

}  // namespace vak
