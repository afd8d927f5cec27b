#include "vakdtm/store/AreaIndex.h"

#include <array>
#include <cstddef>
#include <limits>
#include <utility>

namespace vak {

bool ReadAreaIndex(DataStream& stream, AreaIndex& index) {
  std::array<std::byte, grid::kHeaderSize> bytes{};
  const auto readHeader = [&](grid::ChunkHeader& header) {
    if (!stream.Read(bytes.data(), bytes.size())) return false;
    header = grid::LoadHeader(bytes.data());
    return true;
  };
  grid::ChunkHeader tail;
  grid::ChunkHeader head;
  if (!stream.Seek(-grid::kHeaderSize, DataStream::kFromEnd) || !readHeader(tail)) return false;
  if (!grid::IsIndexTag(tail.tag) || tail.length < grid::kHeaderSize) return false;
  AreaIndex read;
  read.size = stream.Position();
  read.start = read.size - tail.length - grid::kHeaderSize;
  if (read.start < grid::kMagicSize || !stream.Seek(read.start, DataStream::kFromStart) || !readHeader(head)) {
    return false;
  }
  // The head says one byte more than the tail: that tells a pair from two tags that happen to stand there.
  if (head.tag != tail.tag || std::int64_t{head.length} != std::int64_t{tail.length} + 1) return false;

  read.old = tail.tag == grid::kOldIndex;
  const auto count = static_cast<std::size_t>((tail.length - grid::kHeaderSize) / read.EntrySize());
  std::vector<std::byte> raw(count * static_cast<std::size_t>(read.EntrySize()));
  if (!stream.Read(raw.data(), raw.size())) return false;
  read.entries.resize(count);
  const std::byte* from = raw.data();
  for (grid::IndexEntry& entry : read.entries) {
    entry = read.old ? grid::LoadOldEntry(from) : grid::LoadEntry(from);
    from += read.EntrySize();
  }
  // A writer invalidates the tail before it goes over anything else of an index: what still has it was whole.
  if (!stream.Seek(-grid::kHeaderSize, DataStream::kFromEnd) || !stream.Read(bytes.data(), bytes.size())) return false;
  const grid::ChunkHeader still = grid::LoadHeader(bytes.data());
  if (stream.Position() != read.size || still.tag != tail.tag || still.length != tail.length) return false;
  index = std::move(read);
  return true;
}

bool FormIndex(const std::vector<grid::IndexEntry>& entries, std::vector<std::byte>& bytes) {
  const auto count = static_cast<std::int64_t>(entries.size());
  if (grid::IndexHeadLength(count) > std::numeric_limits<std::int32_t>::max()) return false;
  bytes.resize(static_cast<std::size_t>(2 * grid::kHeaderSize + grid::kEntrySize * count));
  std::byte* to =
      grid::StoreHeader(bytes.data(), {grid::kIndex, static_cast<std::int32_t>(grid::IndexHeadLength(count))});
  for (const grid::IndexEntry& entry : entries) to = grid::StoreEntry(to, entry);
  grid::StoreHeader(to, {grid::kIndex, static_cast<std::int32_t>(grid::IndexTailLength(count))});
  return true;
}

bool WriteAreaIndex(DataStream& stream, std::int64_t start, const std::vector<grid::IndexEntry>& entries) {
  std::vector<std::byte> bytes;
  return FormIndex(entries, bytes) && stream.Seek(start, DataStream::kFromStart) &&
         stream.Write(bytes.data(), bytes.size());
}

void EndFileAt(DataStream& stream, std::int64_t size) {
  if (stream.SetSize(size)) return;
  // A stream that can't be cut still ends in the old tail, which must not be believed. Without a tail at the end,
  // readers walk from the front, and the filler tells them where to stop. Nobody could do anything about a failure
  // here.
  if (!stream.Seek(-grid::kHeaderSize, DataStream::kFromEnd) || stream.Position() < size) return;
  std::array<std::byte, grid::kHeaderSize> bytes{};
  if (!stream.Write(bytes.data(), bytes.size()) || !stream.Seek(size, DataStream::kFromStart)) return;
  grid::StoreHeader(bytes.data(), {0, grid::kFillerLength});
  stream.Write(bytes.data(), bytes.size());
}

}  // namespace vak
