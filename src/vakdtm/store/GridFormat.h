#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

/// The bytes of a grid model file: tags, sizes and the little-endian form of every record.
///
/// This header alone knows the layout; `docs/grid-format.md` tells it to people. A file is
///
///     magic | attr | area area ... | index head | index entries | index tail
///
/// where everything behind the magic is a chunk: tag, signed body length, body.
namespace vak::grid {

// Cells go between file and memory as they lie, so the machine has to have the file's byte order.
static_assert(std::endian::native == std::endian::little, "grid models are stored little-endian");

/// A tag as its four letters are written, the first in the high byte; in the file the bytes read backwards.
constexpr std::int32_t Tag(const char (&letters)[5]) {
  std::uint32_t tag = 0;
  for (int i = 0; i < 4; ++i) tag = (tag << 8) | static_cast<unsigned char>(letters[i]);
  return static_cast<std::int32_t>(tag);
}

constexpr std::array<char, 12> kMagic = {'V', 'A', 'K', '4', '1', '0', '0', ' ', 'D', 'T', 'M', '\0'};
constexpr std::int64_t kMagicSize = 12;

constexpr std::int32_t kAttributes = Tag("attr");
constexpr std::int32_t kCellSize = Tag("csiz");
constexpr std::int32_t kAreaSize = Tag("asiz");
constexpr std::int32_t kBlockIds = Tag("bids");
constexpr std::int32_t kArea = Tag("area");
constexpr std::int32_t kBottomLeftRow = Tag("blrw");
constexpr std::int32_t kBottomLeftCol = Tag("blcl");
constexpr std::int32_t kIndex = 0x696E3364;      // bytes "d3ni"; the name it goes by, ind3, has the digit elsewhere
constexpr std::int32_t kOldIndex = Tag("indx");  // read, never written

constexpr std::int64_t kHeaderSize = 8;
constexpr std::int64_t kEntrySize = 32;
constexpr std::int64_t kOldEntrySize = 24;
/// The `attr` chunk that every area begins with: its header, row and column.
constexpr std::int64_t kAreaAttributesSize = 32;
/// The length that a stream which can't be cut carries in the header behind the index.
constexpr std::int32_t kFillerLength = 0x7FFFFFFF;
/// What stands in place of an area's tag where there is none any more, or not yet: readers pass such a chunk over.
constexpr std::int32_t kHole = Tag("hole");
/// Row and column of room for an area, which no area can have.
constexpr std::int32_t kNoPlace = std::numeric_limits<std::int32_t>::min();
/// Both Z fields of an entry whose range isn't known.
constexpr std::uint32_t kUnknownZ = 0xFFFFFFFFU;

template <typename T>
T Load(const std::byte* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

template <typename T>
std::byte* Store(std::byte* to, T value) {
  std::memcpy(to, &value, sizeof value);
  return to + sizeof value;
}

struct ChunkHeader {
  std::int32_t tag = 0;
  std::int32_t length = 0;  ///< of the body
};

inline ChunkHeader LoadHeader(const std::byte* from) {
  return {Load<std::int32_t>(from), Load<std::int32_t>(from + 4)};
}

inline std::byte* StoreHeader(std::byte* to, ChunkHeader header) { return Store(Store(to, header.tag), header.length); }

inline bool IsIndexTag(std::int32_t tag) { return tag == kIndex || tag == kOldIndex; }

/// What the index says of one area.
struct IndexEntry {
  std::int32_t row = 0;                ///< of the bottom-left cell
  std::int32_t col = 0;                ///< of the bottom-left cell
  std::int64_t position = 0;           ///< file offset of the area's body, 8 beyond its tag
  std::int64_t lastWritten = 0;        ///< seconds since 1970
  std::uint32_t lowestZ = kUnknownZ;   ///< bits of a float
  std::uint32_t highestZ = kUnknownZ;  ///< bits of a float

  bool operator==(const IndexEntry&) const = default;
  bool HasRange() const { return lowestZ != kUnknownZ && highestZ != kUnknownZ; }
};

inline IndexEntry LoadOldEntry(const std::byte* from) {
  IndexEntry entry;
  entry.row = Load<std::int32_t>(from);
  entry.col = Load<std::int32_t>(from + 4);
  entry.position = Load<std::int64_t>(from + 8);
  entry.lastWritten = Load<std::int64_t>(from + 16);
  return entry;
}

inline IndexEntry LoadEntry(const std::byte* from) {
  IndexEntry entry = LoadOldEntry(from);
  entry.lowestZ = Load<std::uint32_t>(from + 24);
  entry.highestZ = Load<std::uint32_t>(from + 28);
  return entry;
}

inline std::byte* StoreEntry(std::byte* to, const IndexEntry& entry) {
  to = Store(Store(to, entry.row), entry.col);
  to = Store(Store(to, entry.position), entry.lastWritten);
  return Store(Store(to, entry.lowestZ), entry.highestZ);
}

/// The head says one byte more than there is, so that a walk from the front falls off the end of the file there.
constexpr std::int64_t IndexTailLength(std::int64_t entries) { return kEntrySize * entries + kHeaderSize; }
constexpr std::int64_t IndexHeadLength(std::int64_t entries) { return IndexTailLength(entries) + 1; }

/// Header and `attr` chunk of an area, in front of its first block.
constexpr std::int64_t kAreaPrefixSize = kHeaderSize + kAreaAttributesSize;

inline std::array<std::byte, kAreaPrefixSize> AreaPrefix(std::int32_t bodyLength, std::int32_t row, std::int32_t col) {
  std::array<std::byte, kAreaPrefixSize> bytes{};
  std::byte* to = StoreHeader(bytes.data(), {kArea, bodyLength});
  to = StoreHeader(to, {kAttributes, static_cast<std::int32_t>(kAreaAttributesSize - kHeaderSize)});
  to = Store(StoreHeader(to, {kBottomLeftRow, 4}), row);
  Store(StoreHeader(to, {kBottomLeftCol, 4}), col);
  return bytes;
}

/// Size of the file's own `attr` chunk with this many block ids, header included.
constexpr std::int64_t FileAttributesSize(std::int64_t blockIds) { return 44 + 4 * blockIds; }

}  // namespace vak::grid
