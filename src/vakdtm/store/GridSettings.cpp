#include "vakdtm/store/GridSettings.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/GridFormat.h"

namespace vak {
namespace {

/// Lengths of bodies are 31 bits in the file.
constexpr std::int64_t kLargestLength = std::numeric_limits<std::int32_t>::max();

/// The body of the first chunk with this tag in an `attr`, valid until the window is used again; null when there is
/// none or it is shorter than `atLeast`.
const std::byte* FindIn(StreamWindow& window, const ChunkWalk& attributes, std::int32_t tag, std::int64_t atLeast,
                        std::int64_t& length) {
  ChunkWalk walk(window, attributes.Body(), attributes.Header().length);
  if (!walk.Find(tag) || walk.Header().length < atLeast) return nullptr;
  length = walk.Header().length;
  return window.At(walk.Body(), length);
}

}  // namespace

bool GridSettings::IsUsable() const {
  return std::isfinite(cellSize) && cellSize > 0 && areaSize >= 1 && !blockIds.empty() && SmallestBody() > 0;
}

int GridSettings::BlockSize(int id) const {
  return areaSize * areaSize * DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id));
}

std::int64_t GridSettings::SmallestBody() const {
  const std::int64_t cells = std::int64_t{areaSize} * areaSize;
  if (cells > kLargestLength) return -1;
  std::int64_t body = grid::kAreaAttributesSize;
  for (const int id : blockIds) {
    body += grid::kHeaderSize + cells * DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id));
    if (body > kLargestLength) return -1;
  }
  return body;
}

int GridSettings::LargestAllowed() const { return static_cast<int>(kLargestLength - 2 * std::int64_t{areaSize}); }

bool GridSettings::IsAreaPlace(int row, int col) const {
  // An area at the low end may begin up to S - 1 below the lowest cell that is allowed.
  const int largest = LargestAllowed();
  const auto fits = [&](int value) { return value % areaSize == 0 && value <= largest && value > -largest - areaSize; };
  return fits(row) && fits(col);
}

bool ReadGridSettings(StreamWindow& window, GridSettings& settings, std::int32_t* missing) {
  GridSettings read;
  ChunkWalk attributes(window, grid::kMagicSize, window.End() - grid::kMagicSize);
  const auto lacks = [&](std::int32_t tag) {
    if (missing) *missing = tag;
    return false;
  };
  if (!attributes.Find(grid::kAttributes)) return lacks(grid::kAttributes);
  read.start = attributes.Start();
  read.end = attributes.End();
  // All of it in one reading, unless strangers make it larger than these few numbers could.
  constexpr std::int64_t kUsualLength = 4096;
  window.At(attributes.Body(), std::min<std::int64_t>(attributes.Header().length, kUsualLength));
  // Each is looked up from the start of the body, so that the order doesn't matter and unknown chunks are passed over.
  std::int64_t length = 0;
  const std::byte* bytes = FindIn(window, attributes, grid::kCellSize, 8, length);
  if (!bytes) return lacks(grid::kCellSize);
  read.cellSize = grid::Load<double>(bytes);
  bytes = FindIn(window, attributes, grid::kAreaSize, 4, length);
  if (!bytes) return lacks(grid::kAreaSize);
  read.areaSize = grid::Load<std::int32_t>(bytes);
  bytes = FindIn(window, attributes, grid::kBlockIds, 4, length);
  if (!bytes) return lacks(grid::kBlockIds);
  read.blockIds.resize(static_cast<std::size_t>(length / 4));
  for (int& id : read.blockIds) {
    id = grid::Load<std::int32_t>(bytes);
    bytes += 4;
  }
  settings = std::move(read);
  return true;
}

}  // namespace vak
