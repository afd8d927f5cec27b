#include "vakdtm/store/DtmVerifier.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/store/AreaIndex.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/ChunkWalk.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/GridFormat.h"
#include "vakdtm/store/GridSettings.h"

namespace vak {
namespace {

using Kind = DtmFaultKind;
using FaultSink = DtmVerifier::FaultSink;

constexpr std::int64_t kPieceSize = 1 << 18;
constexpr std::int64_t kClockSlack = 86400;     // a clock may be set to another day without being a fault
constexpr int kHeights[] = {dVAL, dMIN, dMAX};  // what an area's Z range is made of

/// One pass over a file: its header, its index, and every area that can be found.
class Scan {
 public:
  struct Area {
    std::int64_t start = 0;   // of the chunk's header
    std::int64_t length = 0;  // of the body, as far as it is this area's
    int row = 0;
    int col = 0;
    bool hasPlace = false;
    bool isReadable = false;  // every block is there
    bool isRegular = false;   // readable, and the chunk is as it is written
    bool isRepeated = false;  // another one is taken for the place

    std::int64_t Body() const { return start + grid::kHeaderSize; }
  };

  enum class Result { kDone, kStopped, kHeaderUnusable };

  /// @param ranges  whether known Z ranges are compared with the cells, which then have to be read.
  Scan(DataStream& stream, FaultSink report, DtmVerifier::ProgressSink progress, bool ranges)
      : stream_(stream), report_(std::move(report)), progress_(std::move(progress)), checksRanges_(ranges) {}

  Result Run();

  std::int64_t FileSize() const { return fileSize_; }
  /// Where the first area may begin.
  std::int64_t AreasFrom() const { return areasFrom_; }
  const GridSettings& Settings() const { return settings_; }
  const std::vector<Area>& Areas() const { return areas_; }
  /// The index, or null when it couldn't be read.
  const AreaIndex* Index() const { return index_.get(); }

  /// The entry that names this area rightly, or null.
  const grid::IndexEntry* EntryOf(const Area& area) const;
  /// Offsets of the cells of a readable area's blocks, by their place in the list. @return false when they can't be
  /// read any more.
  bool LocateBlocks(const Area& area, std::vector<std::int64_t>& offsets);
  /// The Z range of a readable area's cells; the start values when there are none. @return false when the cells can't
  /// be read.
  bool FindRange(const Area& area, float& lowest, float& highest);
  /// What follows takes the progress from one part to another, 0 to 1.
  void SetPhase(double from, double to) {
    phaseFrom_ = from;
    phaseTo_ = to;
  }
  /// Says how far the phase has come, 0 to 1. @return false when the work is to stop.
  bool Tick(double done) {
    if (!stopped_ && progress_) stopped_ = !progress_(phaseFrom_ + (phaseTo_ - phaseFrom_) * done);
    return !stopped_;
  }
  /// The same by the offset in the file.
  bool TickAt(std::int64_t offset) {
    return Tick(fileSize_ > 0 ? static_cast<double>(offset) / static_cast<double>(fileSize_) : 1.0);
  }

 private:
  void Report(Kind kind, std::int64_t offset, int tag = 0, std::int64_t found = 0, std::int64_t wanted = 0,
              std::int64_t next = 0);
  void ReportOf(const Area& area, Kind kind, std::int64_t offset, int tag = 0, std::int64_t found = 0,
                std::int64_t wanted = 0, std::int64_t next = 0);

  bool CheckHeader();
  void CheckSettingsChunk(const ChunkWalk& attributes);
  void CheckBlockList(std::int64_t offset);
  void PrepareSettings();
  void CheckIndexShape();

  void WalkChunks();
  std::int64_t PassChunk(std::int64_t at, std::int64_t end);
  std::int64_t PassBadHeader(std::int64_t at, std::int64_t end, grid::ChunkHeader header);
  std::int64_t PassIndex(std::int64_t at, grid::ChunkHeader header);
  std::int64_t PassArea(std::int64_t at, grid::ChunkHeader header);
  std::int64_t PassUnknown(std::int64_t at, grid::ChunkHeader header);
  std::int64_t PassSoundBody(std::int64_t at, Area area);
  std::int64_t PassLeftover(std::int64_t from, std::int64_t length);
  std::int64_t LookBack(std::int64_t at);
  void AddArea(Area area);
  void CheckRange(const Area& area);
  void CheckEnd();

  bool IsRegularBody(std::int64_t body, Area& area);
  std::int64_t Hunt(std::int64_t from, std::int64_t to);
  bool ReadPlace(const grid::ChunkHeader& header, Area& area);
  bool WalkBlocks(Area& area, std::vector<std::int64_t>* offsets, bool reports);
  template <typename Visit>
  bool VisitHeights(const Area& area, Visit visit);

  void CheckEntries();
  void CheckEntry(std::size_t number, std::int64_t now);

  DataStream& stream_;
  FaultSink report_;
  DtmVerifier::ProgressSink progress_;
  bool checksRanges_;
  bool stopped_ = false;
  double phaseFrom_ = 0;
  double phaseTo_ = 1;

  std::int64_t fileSize_ = 0;
  std::int64_t areasFrom_ = 0;
  std::int64_t areasEnd_ = 0;             // start of the index, or end of the file
  std::unique_ptr<StreamWindow> window_;  // from CheckHeader on
  std::vector<std::byte> piece_;

  GridSettings settings_;
  std::int64_t smallestBody_ = 0;
  std::vector<std::pair<int, int>> slots_;  // id and place in the list, sorted
  std::vector<std::int64_t> blockStarts_;   // of each block's header in a regular body
  std::vector<int> placed_;                 // scratch: how many blocks of an id were met, by first place in slots_

  std::unique_ptr<const AreaIndex> index_;
  std::vector<std::size_t> entryOrder_;  // by position; empty when the index is sorted
  bool endExplained_ = false;            // that the file ends without an index was said

  std::vector<Area> areas_;                                  // ascending by start
  std::unordered_map<std::uint64_t, std::int64_t> firstOf_;  // place to start of the first readable area there
};

std::uint64_t PlaceKey(int row, int col) {
  return (std::uint64_t{static_cast<std::uint32_t>(row)} << 32) | static_cast<std::uint32_t>(col);
}

// ---- Reporting

void Scan::Report(Kind kind, std::int64_t offset, int tag, std::int64_t found, std::int64_t wanted, std::int64_t next) {
  ReportOf(Area{}, kind, offset, tag, found, wanted, next);
}

void Scan::ReportOf(const Area& area, Kind kind, std::int64_t offset, int tag, std::int64_t found, std::int64_t wanted,
                    std::int64_t next) {
  if (!report_) return;
  DtmFault fault;
  fault.kind = kind;
  fault.offset = offset;
  fault.tag = tag;
  fault.hasPlace = area.hasPlace;
  fault.row = area.row;
  fault.col = area.col;
  fault.found = found;
  fault.wanted = wanted;
  fault.next = next;
  report_(fault);
}

// ---- The whole

Scan::Result Scan::Run() {
  if (!CheckHeader()) return Result::kHeaderUnusable;
  PrepareSettings();
  CheckIndexShape();
  WalkChunks();
  if (stopped_) return Result::kStopped;
  CheckEnd();
  if (index_) CheckEntries();
  return Tick(1.0) ? Result::kDone : Result::kStopped;
}

// ---- The header

bool Scan::CheckHeader() {
  if (!stream_.Seek(0, DataStream::kFromEnd)) {
    Report(Kind::kUnreadable, 0);
    return false;
  }
  areasEnd_ = fileSize_ = stream_.Position();
  window_ = std::make_unique<StreamWindow>(stream_, fileSize_);
  const std::byte* magic = window_->At(0, grid::kMagicSize);
  if (!magic || std::memcmp(magic, grid::kMagic.data(), grid::kMagic.size()) != 0) {
    Report(Kind::kMagic, 0);
    return false;
  }
  ChunkWalk attributes(*window_, grid::kMagicSize, fileSize_ - grid::kMagicSize);
  std::int32_t missing = 0;
  const bool found = attributes.Find(grid::kAttributes);
  if (!found) {
    Report(Kind::kSettingMissing, attributes.End(), grid::kAttributes);
    return false;
  }
  if (!ReadGridSettings(*window_, settings_, &missing)) {
    Report(Kind::kSettingMissing, attributes.Body(), missing);
    return false;
  }
  areasFrom_ = attributes.End();
  CheckSettingsChunk(attributes);
  return settings_.IsUsable();
}

void Scan::CheckSettingsChunk(const ChunkWalk& attributes) {
  ChunkWalk walk(*window_, attributes.Body(), attributes.Header().length);
  std::vector<std::int32_t> met;
  while (walk.Next()) {
    const std::int32_t tag = walk.Header().tag;
    const std::int64_t length = walk.Header().length;
    if (tag != grid::kCellSize && tag != grid::kAreaSize && tag != grid::kBlockIds) {
      Report(Kind::kUnknownChunk, walk.Start(), tag, length);
      continue;
    }
    if (std::find(met.begin(), met.end(), tag) != met.end()) {
      Report(Kind::kSettingRepeated, walk.Start(), tag);
      continue;
    }
    met.push_back(tag);
    const std::int64_t wanted = tag == grid::kCellSize ? 8 : tag == grid::kAreaSize ? 4 : length / 4 * 4;
    if (length != wanted) Report(Kind::kSettingLength, walk.Start(), tag, length, wanted);
    const bool isUsable = tag == grid::kCellSize   ? std::isfinite(settings_.cellSize) && settings_.cellSize > 0
                          : tag == grid::kAreaSize ? settings_.areaSize >= 1
                                                   : settings_.areaSize < 1 || settings_.SmallestBody() > 0;
    if (!isUsable) Report(Kind::kSettingUnusable, walk.Start(), tag, settings_.areaSize);
    if (tag == grid::kBlockIds) CheckBlockList(walk.Body());
  }
  if (walk.End() != attributes.End()) {
    Report(Kind::kSettingLeftover, walk.End(), 0, attributes.End() - walk.End());
  }
}

void Scan::CheckBlockList(std::int64_t offset) {
  std::vector<std::pair<int, std::size_t>> sorted;
  sorted.reserve(settings_.blockIds.size());
  for (std::size_t i = 0; i < settings_.blockIds.size(); ++i) sorted.emplace_back(settings_.blockIds[i], i);
  std::sort(sorted.begin(), sorted.end());
  std::vector<bool> isRepeated(sorted.size());
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    isRepeated[sorted[i].second] = sorted[i].first == sorted[i - 1].first;
  }
  for (std::size_t i = 0; i < settings_.blockIds.size(); ++i) {
    const int id = settings_.blockIds[i];
    const std::int64_t at = offset + 4 * static_cast<std::int64_t>(i);
    if (isRepeated[i]) {
      Report(Kind::kBlockListedTwice, at, id);
    } else if (DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id)) == 0) {
      Report(Kind::kBlockUnknownLetter, at, id);
    } else if (!DtmBlockId(id)) {
      Report(Kind::kBlockUnknown, at, id);
    }
  }
}

void Scan::PrepareSettings() {
  smallestBody_ = settings_.SmallestBody();
  std::int64_t at = grid::kAreaAttributesSize;
  for (std::size_t i = 0; i < settings_.blockIds.size(); ++i) {
    const int id = settings_.blockIds[i];
    slots_.emplace_back(id, static_cast<int>(i));
    blockStarts_.push_back(at);
    at += grid::kHeaderSize + settings_.BlockSize(id);
  }
  std::sort(slots_.begin(), slots_.end());
  placed_.assign(slots_.size(), 0);
}

void Scan::CheckIndexShape() {
  AreaIndex index;
  if (!ReadAreaIndex(stream_, index) || index.start < areasFrom_) return;
  areasEnd_ = index.start;
  if (index.old) Report(Kind::kOldIndex, index.start);
  const std::int64_t entries = static_cast<std::int64_t>(index.entries.size());
  const std::int64_t leftover = index.size - grid::kHeaderSize - index.EntryAt(index.entries.size());
  if (leftover != 0) Report(Kind::kIndexLength, index.EntryAt(static_cast<std::size_t>(entries)), 0, leftover);
  if (!std::is_sorted(index.entries.begin(), index.entries.end(), LiesBefore)) {
    entryOrder_.resize(index.entries.size());
    for (std::size_t i = 0; i < entryOrder_.size(); ++i) entryOrder_[i] = i;
    std::stable_sort(entryOrder_.begin(), entryOrder_.end(),
                     [&](std::size_t a, std::size_t b) { return LiesBefore(index.entries[a], index.entries[b]); });
  }
  index_ = std::make_unique<const AreaIndex>(std::move(index));
}

// ---- The chunks

void Scan::WalkChunks() {
  std::int64_t at = grid::kMagicSize;
  while (at < areasEnd_ && TickAt(at)) at = PassChunk(at, areasEnd_);
}

/// Looks at what begins at `at`. @return where to go on.
std::int64_t Scan::PassChunk(std::int64_t at, std::int64_t end) {
  const std::byte* own = window_->At(at, grid::kHeaderSize);
  if (const grid::ChunkHeader header = own ? grid::LoadHeader(own) : grid::ChunkHeader{};
      header.tag == grid::kHole && header.length >= 0 && header.length <= end - at - grid::kHeaderSize) {
    Report(Kind::kHole, at, header.tag, header.length);  // whatever the body looks like, it is no area
    return at + grid::kHeaderSize + header.length;
  }
  // The bytes of an area's body say more surely what is here than the eight of a header that may be damaged.
  Area area;
  area.start = at;
  area.length = smallestBody_;
  if (IsRegularBody(at + grid::kHeaderSize, area)) return PassSoundBody(at, area);
  if (const std::int64_t overlapping = LookBack(at); overlapping >= 0) return overlapping;
  if (end - at < grid::kHeaderSize) {
    Report(Kind::kTrailingBytes, at, 0, end - at, 0, end);
    return end;
  }
  const std::byte* bytes = window_->At(at, grid::kHeaderSize);
  if (!bytes) {
    Report(Kind::kUnreadable, at);
    return end;
  }
  const grid::ChunkHeader header = grid::LoadHeader(bytes);
  if (grid::IsIndexTag(header.tag)) return PassIndex(at, header);
  if (header.tag == 0 || header.length < 0 || header.length > end - at - grid::kHeaderSize) {
    return PassBadHeader(at, end, header);
  }
  return header.tag == grid::kArea ? PassArea(at, header) : PassUnknown(at, header);
}

/// Bytes may be missing from the cells at an area's end or from the next one's header, so that the next one begins
/// before it should.
/// @return where that one begins, or -1 when what ends at `at` isn't such an area.
std::int64_t Scan::LookBack(std::int64_t at) {
  if (areas_.empty() || !areas_.back().isReadable || areas_.back().Body() + areas_.back().length != at) return -1;
  const std::int64_t start = Hunt(areas_.back().start + 1, at);
  if (start < 0) return -1;
  const std::byte* bytes = window_->At(start, grid::kHeaderSize);
  const grid::ChunkHeader header = bytes ? grid::LoadHeader(bytes) : grid::ChunkHeader{};
  const bool isHeaderWhole = header.tag == grid::kArea && header.length == smallestBody_;
  if (!isHeaderWhole && start + grid::kHeaderSize >= at) return start;  // only the next one's header was hit
  Area& shortened = areas_.back();
  ReportOf(shortened, Kind::kHiddenArea, shortened.start, grid::kArea, shortened.length, 0, start);
  shortened.isReadable = false;  // nobody can say from where on its cells are out of place
  return start;
}

/// A body that is as it should be, behind a header that may be damaged or claim more than this area.
std::int64_t Scan::PassSoundBody(std::int64_t at, Area area) {
  const std::byte* bytes = window_->At(at, grid::kHeaderSize);
  const grid::ChunkHeader header = bytes ? grid::LoadHeader(bytes) : grid::ChunkHeader{};
  const std::int64_t bodyEnd = at + grid::kHeaderSize + smallestBody_;
  area.hasPlace = area.isReadable = true;
  area.isRegular = header.tag == grid::kArea && header.length == smallestBody_;
  const bool isLonger =
      header.tag == grid::kArea && header.length > smallestBody_ && header.length <= areasEnd_ - at - grid::kHeaderSize;
  if (header.tag != grid::kArea) {
    ReportOf(area, Kind::kAreaTag, at, header.tag);
  } else if (!area.isRegular && !isLonger) {
    ReportOf(area, Kind::kAreaLength, at, 0, header.length, smallestBody_);
  }
  AddArea(area);
  return isLonger ? PassLeftover(bodyEnd, header.length) : bodyEnd;
}

/// What a chunk of `length` bytes holds behind the last block of its area, which is the last that was met: too much was
/// written into it, or its length is wrong and other areas lie within it.
std::int64_t Scan::PassLeftover(std::int64_t from, std::int64_t length) {
  const Area area = areas_.back();
  const std::int64_t chunkEnd = area.Body() + length;
  if (const std::int64_t overlapping = LookBack(from); overlapping >= 0) return overlapping;
  const std::int64_t hidden = Hunt(from, chunkEnd);
  const std::int64_t next = hidden < 0 ? chunkEnd : hidden;
  if (hidden >= 0) ReportOf(area, Kind::kHiddenArea, area.start, grid::kArea, length, 0, hidden);
  if (next != from) ReportOf(area, Kind::kAreaLeftover, from, 0, next - from);
  return next;
}

std::int64_t Scan::PassBadHeader(std::int64_t at, std::int64_t end, grid::ChunkHeader header) {
  const bool isFiller = header.tag == 0 && header.length == grid::kFillerLength;
  const std::int64_t found = Hunt(at + 1, end);
  const std::int64_t next = found < 0 ? end : found;
  if (isFiller && !index_ && found < 0) {
    Report(Kind::kFiller, at);
    endExplained_ = true;
  } else if (header.tag == 0) {
    Report(Kind::kTagZero, at, 0, header.length, 0, next);
  } else if (header.length < 0) {
    Report(Kind::kNegativeLength, at, header.tag, header.length, 0, next);
  } else {
    Report(Kind::kBeyondEnd, at, header.tag, header.length, end - at - grid::kHeaderSize, next);
  }
  return next;
}

/// An index tag where areas are expected: an index behind which the file should have ended.
std::int64_t Scan::PassIndex(std::int64_t at, grid::ChunkHeader header) {
  const std::int64_t found = Hunt(at + 1, areasEnd_);
  const std::int64_t next = found < 0 ? areasEnd_ : found;
  if (found >= 0 || index_) {
    Report(Kind::kStrayIndex, at, header.tag, header.length, 0, next);
    return next;
  }
  endExplained_ = true;
  // A whole index with the filler behind it is how a file ends that couldn't be cut.
  const std::int64_t tail = at + std::int64_t{header.length} - 1;
  const std::byte* bytes = header.length > grid::kHeaderSize ? window_->At(tail, 2 * grid::kHeaderSize) : nullptr;
  if (bytes) {
    const grid::ChunkHeader there = grid::LoadHeader(bytes);
    const grid::ChunkHeader behind = grid::LoadHeader(bytes + grid::kHeaderSize);
    if (there.tag == header.tag && there.length == header.length - 1 && behind.tag == 0 &&
        behind.length == grid::kFillerLength) {
      Report(Kind::kFiller, tail + grid::kHeaderSize);
      return next;
    }
  }
  Report(Kind::kIndexTorn, at, header.tag, header.length);
  return next;
}

std::int64_t Scan::PassUnknown(std::int64_t at, grid::ChunkHeader header) {
  const std::int64_t chunkEnd = at + grid::kHeaderSize + header.length;
  if (header.tag == grid::kAttributes && chunkEnd == areasFrom_) return chunkEnd;
  const std::int64_t found = Hunt(at + 1, chunkEnd);
  if (found < 0) {
    Report(Kind::kUnknownChunk, at, header.tag, header.length);
    return chunkEnd;
  }
  Report(Kind::kHiddenArea, at, header.tag, header.length, 0, found);
  return found;
}

/// An area whose body isn't as it is written.
std::int64_t Scan::PassArea(std::int64_t at, grid::ChunkHeader header) {
  Area area;
  area.start = at;
  area.length = header.length;
  const std::int64_t chunkEnd = at + grid::kHeaderSize + header.length;
  const bool hasPlace = ReadPlace(header, area);
  std::int64_t blocksEnd = at;
  if (header.length < smallestBody_) {
    ReportOf(area, Kind::kAreaLength, at, 0, header.length, smallestBody_);
  } else {
    std::vector<std::int64_t> offsets;
    area.isReadable = WalkBlocks(area, &offsets, true) && hasPlace;
    for (std::size_t i = 0; area.isReadable && i < offsets.size(); ++i) {
      blocksEnd = std::max(blocksEnd, offsets[i] + settings_.BlockSize(settings_.blockIds[i]));
    }
  }
  // Blocks that are whole aren't searched: cells may hold anything.
  const std::int64_t found = Hunt(area.isReadable ? blocksEnd : at + 1, chunkEnd);
  if (found >= 0) ReportOf(area, Kind::kHiddenArea, at, header.tag, header.length, 0, found);
  AddArea(area);
  return found < 0 ? chunkEnd : found;
}

void Scan::AddArea(Area area) {
  if (area.hasPlace) {
    const auto [first, isFirst] = firstOf_.try_emplace(PlaceKey(area.row, area.col), area.start);
    if (!isFirst) {
      ReportOf(area, Kind::kAreaRepeated, area.start, 0, 0, 0, first->second);
      const auto former = std::lower_bound(areas_.begin(), areas_.end(), first->second,
                                           [](const Area& one, std::int64_t start) { return one.start < start; });
      // One that can't be read doesn't stand in the way of one that can, nor one that readers never meet in that of one
      // that the index names.
      const bool isBetter = area.isReadable && (!former->isReadable || (EntryOf(area) && !EntryOf(*former)));
      area.isRepeated = !isBetter;
      if (isBetter) {
        former->isRepeated = former->isReadable;
        first->second = area.start;
      }
    }
  }
  areas_.push_back(area);
  if (index_ && area.isReadable && !area.isRepeated && !EntryOf(area)) {
    ReportOf(area, Kind::kAreaNotInIndex, area.start);
  }
  if (checksRanges_ && area.isReadable) CheckRange(area);
}

void Scan::CheckEnd() {
  if (index_ || endExplained_) return;
  const std::byte* bytes = window_->At(fileSize_ - grid::kHeaderSize, grid::kHeaderSize);
  const grid::ChunkHeader tail = bytes ? grid::LoadHeader(bytes) : grid::ChunkHeader{};
  if (grid::IsIndexTag(tail.tag)) {
    Report(Kind::kIndexHead, fileSize_ - grid::kHeaderSize, tail.tag, tail.length, 0,
           fileSize_ - tail.length - grid::kHeaderSize);
  } else {
    Report(Kind::kNoIndex, fileSize_);
  }
}

// ---- Areas

/// Whether an area's body lies here exactly as it is written; its place is filled in.
bool Scan::IsRegularBody(std::int64_t body, Area& area) {
  if (body > areasEnd_ - smallestBody_) return false;
  const std::byte* bytes = window_->At(body, grid::kAreaAttributesSize);
  if (!bytes) return false;
  const int row = grid::Load<std::int32_t>(bytes + 16);
  const int col = grid::Load<std::int32_t>(bytes + 28);
  const auto wanted = grid::AreaPrefix(0, row, col);
  if (std::memcmp(bytes, wanted.data() + grid::kHeaderSize, grid::kAreaAttributesSize) != 0) return false;
  if (!settings_.IsAreaPlace(row, col)) return false;
  for (std::size_t i = 0; i < blockStarts_.size(); ++i) {
    bytes = window_->At(body + blockStarts_[i], grid::kHeaderSize);
    if (!bytes) return false;
    const grid::ChunkHeader header = grid::LoadHeader(bytes);
    const int id = settings_.blockIds[i];
    if (header.tag != id || header.length != settings_.BlockSize(id)) return false;
  }
  area.row = row;
  area.col = col;
  return true;
}

/// Looks for an area whose chunk begins at `from` or behind and before `to`. @return its start, or -1. Its header may
/// be damaged, its body isn't.
std::int64_t Scan::Hunt(std::int64_t from, std::int64_t to) {
  const auto prefix = grid::AreaPrefix(0, 0, 0);
  // The body begins with the header of `attr` and that of `blrw`.
  const std::string_view pattern(reinterpret_cast<const char*>(prefix.data()) + grid::kHeaderSize,
                                 2 * grid::kHeaderSize);
  from = std::max(from, areasFrom_);
  const std::int64_t last = std::min(to - 1, areasEnd_ - smallestBody_ - grid::kHeaderSize);
  std::int64_t body = from + grid::kHeaderSize;
  const std::int64_t lastBody = last + grid::kHeaderSize;
  piece_.resize(static_cast<std::size_t>(kPieceSize));
  while (body <= lastBody && TickAt(body)) {
    const auto patternSize = static_cast<std::int64_t>(pattern.size());
    const std::int64_t count = std::min(kPieceSize, lastBody + patternSize - body);
    if (!stream_.Seek(body, DataStream::kFromStart) ||
        !stream_.Read(piece_.data(), static_cast<std::uint64_t>(count))) {
      Report(Kind::kUnreadable, body);
      return -1;
    }
    const std::string_view text(reinterpret_cast<const char*>(piece_.data()), static_cast<std::size_t>(count));
    for (std::size_t at = text.find(pattern); at != std::string_view::npos; at = text.find(pattern, at + 1)) {
      Area area;
      const std::int64_t found = body + static_cast<std::int64_t>(at);
      if (IsRegularBody(found, area)) return found - grid::kHeaderSize;
    }
    body += count - patternSize + 1;
  }
  return -1;
}

/// Row and column as a reader finds them. Says what is wrong with them.
bool Scan::ReadPlace(const grid::ChunkHeader& header, Area& area) {
  const std::int64_t body = area.Body();
  ChunkWalk attributes(*window_, body, header.length);
  AreaPlace place;
  if (!attributes.Find(grid::kAttributes)) {
    Report(Kind::kAreaAttributes, body, grid::kAttributes);
    return false;
  }
  if (!ReadAreaPlace(*window_, body, header.length, place)) {
    ChunkWalk walk(*window_, attributes.Body(), attributes.Header().length);
    const bool hasRow = walk.Find(grid::kBottomLeftRow) && walk.Header().length >= 4;
    Report(Kind::kAreaAttributes, attributes.Start(), hasRow ? grid::kBottomLeftCol : grid::kBottomLeftRow);
    return false;
  }
  area.row = place.row;
  area.col = place.col;
  area.hasPlace = true;
  if (!settings_.IsAreaPlace(place.row, place.col)) {
    ReportOf(area, Kind::kAreaPlace, attributes.Start());
    area.hasPlace = false;
    return false;
  }
  const std::byte* bytes = window_->At(body, std::min<std::int64_t>(header.length, grid::kAreaAttributesSize));
  const auto wanted = grid::AreaPrefix(0, place.row, place.col);
  if (header.length >= grid::kAreaAttributesSize && bytes &&
      std::memcmp(bytes, wanted.data() + grid::kHeaderSize, grid::kAreaAttributesSize) != 0) {
    ReportOf(area, Kind::kAreaAttributes, attributes.Start(), grid::kAttributes);
  }
  return true;
}

/// Goes over the chunks in an area's body as `DtmArea` does, taking the same one where a block stands twice.
/// Requires: a length of at least the smallest body, which bounds the work by the bytes that are there.
/// @return whether every block was found with its size.
bool Scan::WalkBlocks(Area& area, std::vector<std::int64_t>* offsets, bool reports) {
  const auto say = [&](Kind kind, std::int64_t offset, int tag, std::int64_t found, std::int64_t wanted) {
    if (reports) ReportOf(area, kind, offset, tag, found, wanted);
  };
  std::fill(placed_.begin(), placed_.end(), 0);
  if (offsets) offsets->assign(slots_.size(), -1);
  ChunkWalk walk(*window_, area.Body(), area.length);
  std::size_t missing = slots_.size();
  int turn = 0;
  bool isAttributesPassed = false;
  std::int64_t outOfTurn = -1;
  int outOfTurnTag = 0;
  while (walk.Next()) {
    const auto [tag, length] = walk.Header();
    if (tag == grid::kAttributes && !std::exchange(isAttributesPassed, true)) continue;
    const auto first = std::lower_bound(slots_.begin(), slots_.end(), std::pair(static_cast<int>(tag), 0));
    if (first == slots_.end() || first->first != tag) {
      say(Kind::kAreaLeftover, walk.Start(), tag, grid::kHeaderSize + length, 0);
      continue;
    }
    if (length != settings_.BlockSize(tag) && missing > 0) {
      say(Kind::kBlockLength, walk.Start(), tag, length, settings_.BlockSize(tag));
      return false;
    }
    int& met = placed_[static_cast<std::size_t>(first - slots_.begin())];
    const auto mine = first + met;
    const bool isNew = mine != slots_.end() && mine->first == tag;
    if (!isNew) {
      say(Kind::kBlockTwice, walk.Start(), tag, 0, 0);
      if (missing == 0) continue;
    }
    const int slot = isNew ? mine->second : first->second;
    if (isNew) {
      ++met;
      --missing;
      if (slot != turn && outOfTurn < 0) {
        outOfTurn = walk.Start();
        outOfTurnTag = tag;
      }
      turn = slot + 1;
    }
    if (offsets) (*offsets)[static_cast<std::size_t>(slot)] = walk.Body();
  }
  const std::int64_t end = area.Body() + area.length;
  if (missing > 0) {
    int tag = 0;
    for (std::size_t i = 0; i < slots_.size() && tag == 0; ++i) {
      const std::size_t first = static_cast<std::size_t>(
          std::lower_bound(slots_.begin(), slots_.end(), std::pair(slots_[i].first, 0)) - slots_.begin());
      if (first + static_cast<std::size_t>(placed_[first]) <= i) tag = slots_[i].first;
    }
    say(Kind::kBlockMissing, walk.End(), tag, static_cast<std::int64_t>(missing), 0);
    return false;
  }
  if (outOfTurn >= 0) say(Kind::kBlockOrder, outOfTurn, outOfTurnTag, 0, 0);
  if (walk.End() != end) say(Kind::kAreaLeftover, walk.End(), 0, end - walk.End(), 0);
  return true;
}

bool Scan::LocateBlocks(const Area& area, std::vector<std::int64_t>& offsets) {
  Area copy = area;
  Area regular;
  if (!IsRegularBody(area.Body(), regular)) return WalkBlocks(copy, &offsets, false);
  offsets.resize(blockStarts_.size());
  for (std::size_t i = 0; i < offsets.size(); ++i) offsets[i] = area.Body() + blockStarts_[i] + grid::kHeaderSize;
  return true;
}

// ---- Cells

/// Calls `visit(id, offset, cell, value)` for each height of a readable area that isn't empty. @return false when they
/// can't be read.
template <typename Visit>
bool Scan::VisitHeights(const Area& area, Visit visit) {
  std::vector<std::int64_t> offsets;
  for (const int id : kHeights) {
    const auto slot = std::lower_bound(slots_.begin(), slots_.end(), std::pair(id, 0));
    if (slot == slots_.end() || slot->first != id) continue;
    if (offsets.empty() && !LocateBlocks(area, offsets)) return false;
    const std::int64_t begin = offsets[static_cast<std::size_t>(slot->second)];
    const std::int64_t size = settings_.BlockSize(id);
    piece_.resize(static_cast<std::size_t>(kPieceSize));
    for (std::int64_t at = 0; at < size; at += kPieceSize) {
      const std::int64_t count = std::min(kPieceSize, size - at);
      if (!TickAt(begin + at)) return true;
      if (!stream_.Seek(begin + at, DataStream::kFromStart) ||
          !stream_.Read(piece_.data(), static_cast<std::uint64_t>(count))) {
        return false;
      }
      for (std::int64_t i = 0; i < count; i += 8) {
        const auto value = grid::Load<double>(piece_.data() + i);
        if (!IsEmptyValue(value)) visit(id, begin + at + i, (at + i) / 8, value);
      }
    }
  }
  return true;
}

void Scan::CheckRange(const Area& area) {
  const grid::IndexEntry* const entry = EntryOf(area);
  if (!entry || !entry->HasRange()) return;
  constexpr float kFar = std::numeric_limits<float>::infinity();
  DtmFault fault;
  fault.kind = Kind::kCellOutside;
  fault.hasPlace = true;
  fault.lowest = std::bit_cast<float>(entry->lowestZ);
  fault.highest = std::bit_cast<float>(entry->highestZ);
  // The range is kept in floats, so a height may lie beyond it by its rounding.
  const double lowest = std::nextafter(std::bit_cast<float>(entry->lowestZ), -kFar);
  const double highest = std::nextafter(std::bit_cast<float>(entry->highestZ), kFar);
  const bool read = VisitHeights(area, [&](int id, std::int64_t offset, std::int64_t cell, double value) {
    if (!(value < lowest) && !(value > highest)) return;
    if (fault.found++ > 0) return;
    fault.offset = offset;
    fault.tag = id;
    fault.row = area.row + static_cast<int>(cell / settings_.areaSize);
    fault.col = area.col + static_cast<int>(cell % settings_.areaSize);
    fault.value = value;
  });
  if (!read) ReportOf(area, Kind::kUnreadable, area.start);
  if (fault.found > 0 && report_) report_(fault);
}

bool Scan::FindRange(const Area& area, float& lowest, float& highest) {
  double least = std::numeric_limits<double>::max();
  double most = -std::numeric_limits<double>::max();
  bool any = false;
  const bool read = VisitHeights(area, [&](int, std::int64_t, std::int64_t, double value) {
    if (std::isnan(value)) return;
    least = std::min(least, value);
    most = std::max(most, value);
    any = true;
  });
  // The start values are the ends of the type, and a height beyond them has no float.
  lowest = any ? static_cast<float>(std::clamp<double>(least, kNoHighestZ, kNoLowestZ)) : kNoLowestZ;
  highest = any ? static_cast<float>(std::clamp<double>(most, kNoHighestZ, kNoLowestZ)) : kNoHighestZ;
  return read;
}

// ---- The index against the areas

const grid::IndexEntry* Scan::EntryOf(const Area& area) const {
  if (!index_ || !area.hasPlace) return nullptr;
  const std::vector<grid::IndexEntry>& entries = index_->entries;
  const auto at = [&](std::size_t i) -> const grid::IndexEntry& {
    return entries[entryOrder_.empty() ? i : entryOrder_[i]];
  };
  std::size_t low = 0;
  std::size_t high = entries.size();
  while (low < high) {
    const std::size_t middle = low + (high - low) / 2;
    if (at(middle).position < area.Body()) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  // Several may give one position; a few are looked at, a lying index is not searched to its end for every area.
  for (std::size_t i = low; i < std::min(entries.size(), low + 8) && at(i).position == area.Body(); ++i) {
    if (at(i).row == area.row && at(i).col == area.col) return &at(i);
  }
  return nullptr;
}

void Scan::CheckEntries() {
  const std::int64_t now = _time64(nullptr);
  for (std::size_t i = 0; i < index_->entries.size(); ++i) CheckEntry(i, now);
}

void Scan::CheckEntry(std::size_t number, std::int64_t now) {
  const grid::IndexEntry& entry = index_->entries[number];
  const std::int64_t offset = index_->EntryAt(number);
  Area named;
  named.hasPlace = true;
  named.row = entry.row;
  named.col = entry.col;
  const auto say = [&](Kind kind, std::int64_t found = 0, std::int64_t wanted = 0) {
    ReportOf(named, kind, offset, 0, found, wanted, entry.position);
  };
  if (number > 0 && entry.position < index_->entries[number - 1].position) say(Kind::kEntryUnsorted);
  if (!settings_.IsAreaPlace(entry.row, entry.col)) return say(Kind::kEntryPlace);
  const auto area = std::lower_bound(areas_.begin(), areas_.end(), entry.position,
                                     [](const Area& one, std::int64_t position) { return one.Body() < position; });
  if (area == areas_.end() || area->Body() != entry.position) return say(Kind::kEntryNoArea);
  if (!area->hasPlace) return;  // that the area is damaged was said
  if (area->row != entry.row || area->col != entry.col) return say(Kind::kEntryWrongPlace, area->col, area->row);
  if (EntryOf(*area) != &entry) return say(Kind::kEntryRepeated);
  if (entry.lastWritten < 0 || entry.lastWritten > now + kClockSlack) say(Kind::kEntryTime, entry.lastWritten);
  const auto lowest = std::bit_cast<float>(entry.lowestZ);
  const auto highest = std::bit_cast<float>(entry.highestZ);
  const bool isNothingSeen = lowest == kNoLowestZ && highest == kNoHighestZ;
  const bool isHalf = (entry.lowestZ == grid::kUnknownZ) != (entry.highestZ == grid::kUnknownZ);
  if (isHalf || (entry.HasRange() && !isNothingSeen && !(lowest <= highest))) say(Kind::kEntryRange);
}

// ---- Rebuilding

/// Writes a file anew from the areas of a scan.
class Rebuilding {
 public:
  Rebuilding(DataStream& stream, Scan& scan, DtmRepairReport& report)
      : stream_(stream), scan_(scan), report_(report), whole_(grid::kHeaderSize + scan.Settings().SmallestBody()) {}

  bool Run() {
    if (!Choose() || !WriteIrregularAfresh() || !MoveDown() || !WriteIndex()) return false;
    CountLeftOut();
    return true;
  }

 private:
  struct Kept {
    Scan::Area area;
    grid::IndexEntry entry;
  };

  bool Choose();
  bool WriteIrregularAfresh();
  bool WriteAfresh(const Kept& kept, std::int64_t at);
  bool MoveDown();
  bool WriteIndex();
  void CountLeftOut();
  bool Copy(std::int64_t from, std::int64_t to, std::int64_t count);
  void Lose(const Scan::Area& area) {
    report_.lost.push_back({area.start, area.hasPlace, area.row, area.col, area.isRepeated});
  }

  DataStream& stream_;
  Scan& scan_;
  DtmRepairReport& report_;
  std::int64_t whole_;  // bytes of an area's chunk
  std::vector<Kept> kept_;
  std::vector<Kept> irregular_;
  std::vector<std::byte> buffer_;
  std::int64_t areasTo_ = 0;  // behind the last area
};

/// Sorts out what is kept and works out its index entries. Nothing is written here.
bool Rebuilding::Choose() {
  scan_.SetPhase(0.3, 0.6);
  const std::int64_t now = _time64(nullptr);
  for (const Scan::Area& area : scan_.Areas()) {
    Kept kept{area, {}};
    kept.entry.row = area.row;
    kept.entry.col = area.col;
    float lowest = 0;
    float highest = 0;
    if (!area.isReadable || area.isRepeated || !scan_.FindRange(area, lowest, highest)) {
      Lose(area);
      continue;
    }
    if (!scan_.TickAt(area.start)) return false;
    const grid::IndexEntry* const former = scan_.EntryOf(area);
    kept.entry.lastWritten = former ? former->lastWritten : now;
    if (kept.entry.lastWritten < 0 || kept.entry.lastWritten > now + kClockSlack) kept.entry.lastWritten = now;
    kept.entry.lowestZ = std::bit_cast<std::uint32_t>(lowest);
    kept.entry.highestZ = std::bit_cast<std::uint32_t>(highest);
    (area.isRegular ? kept_ : irregular_).push_back(kept);
  }
  report_.kept = static_cast<std::int64_t>(kept_.size() + irregular_.size());
  report_.rewritten = static_cast<std::int64_t>(irregular_.size());
  return true;
}

bool Rebuilding::WriteIrregularAfresh() {
  std::int64_t at = scan_.FileSize();
  for (Kept& kept : irregular_) {
    if (!WriteAfresh(kept, at)) {
      stream_.SetSize(scan_.FileSize());
      return false;
    }
    kept.area.start = at;
    kept_.push_back(kept);
    at += whole_;
    report_.changed = true;
  }
  return true;
}

bool Rebuilding::WriteAfresh(const Kept& kept, std::int64_t at) {
  const GridSettings& settings = scan_.Settings();
  std::vector<std::int64_t> offsets;
  if (!scan_.LocateBlocks(kept.area, offsets)) return false;
  const auto length = static_cast<std::int32_t>(whole_ - grid::kHeaderSize);
  const auto prefix = grid::AreaPrefix(length, kept.area.row, kept.area.col);
  if (!stream_.Seek(at, DataStream::kFromStart) || !stream_.Write(prefix.data(), prefix.size())) return false;
  at += grid::kAreaPrefixSize;
  for (std::size_t i = 0; i < offsets.size(); ++i) {
    const int id = settings.blockIds[i];
    const std::int32_t size = settings.BlockSize(id);
    std::array<std::byte, grid::kHeaderSize> header{};
    grid::StoreHeader(header.data(), {id, size});
    if (!stream_.Seek(at, DataStream::kFromStart) || !stream_.Write(header.data(), header.size()) ||
        !Copy(offsets[i], at + grid::kHeaderSize, size)) {
      return false;
    }
    at += grid::kHeaderSize + size;
  }
  return true;
}

bool Rebuilding::MoveDown() {
  scan_.SetPhase(0.6, 1.0);
  areasTo_ = scan_.AreasFrom();
  std::int64_t done = 0;
  for (Kept& kept : kept_) {
    // Where an area lies in front of the settings, it stays there.
    if (kept.area.start >= scan_.AreasFrom()) {
      if (kept.area.start != areasTo_) {
        report_.changed = true;
        ++report_.moved;
        if (!Copy(kept.area.start, areasTo_, whole_)) return false;
        kept.area.start = areasTo_;
      }
      areasTo_ += whole_;
    }
    kept.entry.position = kept.area.Body();
    // Half a move is worse than a late stop, so the answer isn't looked at.
    scan_.Tick(static_cast<double>(++done) / static_cast<double>(kept_.size()));
  }
  return true;
}

/// Copies downwards, or to where nothing is read from: front to back is right for both.
bool Rebuilding::Copy(std::int64_t from, std::int64_t to, std::int64_t count) {
  buffer_.resize(static_cast<std::size_t>(4 * kPieceSize));
  while (count > 0) {
    const std::int64_t part = std::min(count, static_cast<std::int64_t>(buffer_.size()));
    if (!stream_.Seek(from, DataStream::kFromStart) ||
        !stream_.Read(buffer_.data(), static_cast<std::uint64_t>(part)) || !stream_.Seek(to, DataStream::kFromStart) ||
        !stream_.Write(buffer_.data(), static_cast<std::uint64_t>(part))) {
      return false;
    }
    from += part;
    to += part;
    count -= part;
  }
  return true;
}

bool Rebuilding::WriteIndex() {
  std::vector<grid::IndexEntry> entries;
  entries.reserve(kept_.size());
  for (const Kept& kept : kept_) entries.push_back(kept.entry);
  std::sort(entries.begin(), entries.end(), LiesBefore);
  const AreaIndex* const former = scan_.Index();
  const bool isSame = !report_.changed && former && !former->old && former->start == areasTo_ &&
                      former->entries == entries && former->EntryAt(entries.size()) + grid::kHeaderSize == former->size;
  if (isSame) return true;
  report_.changed = true;
  // What the index names has to be on the disk before it is named.
  if (!stream_.Sync() || !WriteAreaIndex(stream_, areasTo_, entries)) return false;
  EndFileAt(stream_, stream_.Position());
  return stream_.Sync();
}

void Rebuilding::CountLeftOut() {
  const AreaIndex* const index = scan_.Index();
  const std::int64_t formerEnd = index ? index->start : scan_.FileSize();
  report_.bytesLeftOut = std::max<std::int64_t>(0, formerEnd - areasTo_);
}

// ---- Words

struct Traits {
  DtmFaultSeverity severity;
  bool isMendable;
};

Traits TraitsOf(Kind kind) {
  using enum DtmFaultSeverity;
  switch (kind) {
    case Kind::kMagic:
    case Kind::kSettingMissing:
    case Kind::kSettingUnusable:
    case Kind::kUnreadable:
      return {kFault, false};
    case Kind::kSettingLength:
    case Kind::kSettingRepeated:
    case Kind::kSettingLeftover:
    case Kind::kBlockListedTwice:
    case Kind::kBlockUnknownLetter:
    case Kind::kUnknownChunk:
      return {kWarning, false};
    case Kind::kBlockUnknown:
    case Kind::kOldIndex:
    case Kind::kFiller:
    case Kind::kHole:
      return {kNote, false};
    case Kind::kEntryTime:
    case Kind::kEntryRange:
    case Kind::kCellOutside:
      return {kWarning, true};
    default:
      return {kFault, true};
  }
}

std::string Number(std::int64_t value) { return std::to_string(value); }

std::string Number(double value) {
  char text[32];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

/// A tag as its letters, or as a number when they can't be shown.
std::string Letters(int tag) {
  std::string letters;
  for (int shift = 24; shift >= 0; shift -= 8) {
    letters += static_cast<char>(static_cast<std::uint32_t>(tag) >> shift & 0xFF);
  }
  const bool isPlain = std::all_of(letters.begin(), letters.end(), [](char c) { return c > ' ' && c < 0x7F; });
  if (isPlain) return letters;
  char text[16];
  return "0x" + std::string(text, std::to_chars(text, text + sizeof text, static_cast<std::uint32_t>(tag), 16).ptr);
}

std::string Place(const DtmFault& fault) {
  return "row " + Number(std::int64_t{fault.row}) + ", column " + Number(std::int64_t{fault.col});
}

std::string TheArea(const DtmFault& fault) {
  return fault.hasPlace ? "the area at " + Place(fault) : std::string("an area without a place");
}

std::string Bytes(std::int64_t count) { return Number(count) + (count == 1 ? " byte" : " bytes"); }

std::string GoingOn(const DtmFault& fault) { return "; going on at " + Number(fault.next); }

std::string HeaderText(const DtmFault& fault) {
  const std::string tag = Letters(fault.tag);
  switch (fault.kind) {
    case Kind::kMagic:
      return "the file doesn't begin as a grid model does";
    case Kind::kSettingMissing:
      return "the header has no whole '" + tag + "'";
    case Kind::kSettingUnusable:
      return "no model can have this '" + tag + "'";
    case Kind::kSettingLength:
      return "'" + tag + "' has " + Bytes(fault.found) + ", of which " + Number(fault.wanted) + " count";
    case Kind::kSettingRepeated:
      return "a second '" + tag + "' in the header; the first counts";
    case Kind::kSettingLeftover:
      return Bytes(fault.found) + " of the header are no chunk";
    case Kind::kBlockListedTwice:
      return "the header lists block " + tag + " twice";
    case Kind::kBlockUnknownLetter:
      return "the header lists block " + tag + ", whose letter gives no cell width";
    default:
      return "the header lists block " + tag + ", a kind that isn't known";
  }
}

std::string ChunkText(const DtmFault& fault) {
  const std::string tag = Letters(fault.tag);
  switch (fault.kind) {
    case Kind::kTagZero:
      return "a chunk with tag 0" + GoingOn(fault);
    case Kind::kNegativeLength:
      return "a chunk '" + tag + "' with length " + Number(fault.found) + GoingOn(fault);
    case Kind::kBeyondEnd:
      return "a chunk '" + tag + "' of " + Bytes(fault.found) + " where " + Number(fault.wanted) + " are left" +
             GoingOn(fault);
    case Kind::kTrailingBytes:
      return Bytes(fault.found) + " behind the last chunk";
    case Kind::kHole:
      return "the place of an area that was being moved, " + Bytes(fault.found) + " without use";
    case Kind::kUnknownChunk:
      return "a chunk '" + tag + "' of " + Bytes(fault.found) + " that has no meaning here";
    case Kind::kHiddenArea:
      return "a chunk '" + tag + "' of " + Bytes(fault.found) + " with another area inside" + GoingOn(fault);
    case Kind::kStrayIndex:
      return "an index in front of areas or of the index" + GoingOn(fault);
    default:
      return "the bytes here can't be read";
  }
}

std::string AreaText(const DtmFault& fault) {
  const std::string tag = Letters(fault.tag);
  const std::string area = TheArea(fault);
  switch (fault.kind) {
    case Kind::kAreaTag:
      return area + " has the tag '" + tag + "'";
    case Kind::kAreaLength:
      return area + " says that it has " + Bytes(fault.found) + ", " + Number(fault.wanted) + " wanted";
    case Kind::kAreaAttributes:
      return fault.hasPlace ? area + ": its '" + tag + "' is out of order" : "an area without '" + tag + "'";
    case Kind::kAreaPlace:
      return "no area can be at " + Place(fault);
    case Kind::kAreaRepeated:
      return area + " is there already, at " + Number(fault.next);
    case Kind::kBlockMissing:
      return area + " lacks block " + tag + (fault.found > 1 ? " and " + Number(fault.found - 1) + " more" : "");
    case Kind::kBlockLength:
      return area + ": block " + tag + " has " + Bytes(fault.found) + ", " + Number(fault.wanted) + " wanted";
    case Kind::kBlockTwice:
      return area + " has block " + tag + " once too often";
    case Kind::kBlockOrder:
      return area + ": block " + tag + " is out of turn";
    default:
      return area + " holds " + Bytes(fault.found) + " that belong to no block";
  }
}

std::string IndexText(const DtmFault& fault) {
  const std::string entry =
      "the index entry for row " + Number(std::int64_t{fault.row}) + ", column " + Number(std::int64_t{fault.col});
  switch (fault.kind) {
    case Kind::kNoIndex:
      return "the file ends without an index; it opens by a walk";
    case Kind::kIndexTorn:
      return "an index begins here and isn't whole; the file opens by a walk";
    case Kind::kIndexHead:
      return "the index should begin at " + Number(fault.next) + " and doesn't; the file opens by a walk";
    case Kind::kIndexLength:
      return "the index holds " + Bytes(fault.found) + " that are no entry";
    case Kind::kOldIndex:
      return "the index has the old form, without Z ranges";
    case Kind::kFiller:
      return "no index: the file ends in filler and opens by a walk";
    case Kind::kEntryPlace:
      return entry + ": no area can be there";
    case Kind::kEntryNoArea:
      return entry + ": no area begins at " + Number(fault.next - grid::kHeaderSize);
    case Kind::kEntryWrongPlace:
      return entry + ": the area at " + Number(fault.next - grid::kHeaderSize) + " is that of row " +
             Number(fault.wanted) + ", column " + Number(fault.found);
    case Kind::kEntryRepeated:
      return entry + ": its area was named before";
    case Kind::kEntryUnsorted:
      return entry + " stands behind one with a larger position";
    case Kind::kEntryTime:
      return entry + ": last written at " + Number(fault.found) + " seconds since 1970 can't be";
    case Kind::kEntryRange:
      return entry + ": its Z range can't be one";
    case Kind::kAreaNotInIndex:
      return TheArea(fault) + " isn't in the index";
    default: {
      const std::string others = fault.found > 1 ? " and " + Number(fault.found - 1) + " more of its area" : "";
      return "cell at " + Place(fault) + ": " + Letters(fault.tag) + " " + Number(fault.value) + others +
             " outside the index's Z range " + Number(fault.lowest) + " to " + Number(fault.highest);
    }
  }
}

}  // namespace

DtmFaultSeverity DtmFault::Severity() const { return TraitsOf(kind).severity; }
bool DtmFault::IsMendable() const { return TraitsOf(kind).isMendable; }

std::string DtmFault::Text() const {
  if (kind <= Kind::kBlockUnknown) return HeaderText(*this);
  if (kind <= Kind::kUnreadable) return ChunkText(*this);
  if (kind <= Kind::kAreaLeftover) return AreaText(*this);
  return IndexText(*this);
}

void DtmVerifier::Report(const DtmFault& fault) {
  switch (fault.Severity()) {
    case DtmFaultSeverity::kFault:
      ++counts_.faults;
      break;
    case DtmFaultSeverity::kWarning:
      ++counts_.warnings;
      break;
    case DtmFaultSeverity::kNote:
      ++counts_.notes;
      break;
  }
  if (fault.IsMendable()) ++counts_.mendable;
  if (faultSink_) faultSink_(fault);
}

bool DtmVerifier::Verify() {
  counts_ = {};
  const StreamLock lock(stream_);
  Scan scan(stream_, [this](const DtmFault& fault) { Report(fault); }, progressSink_, true);
  const Scan::Result result = scan.Run();
  headerUsable_ = result != Scan::Result::kHeaderUnusable;
  counts_.areas = std::count_if(scan.Areas().begin(), scan.Areas().end(),
                                [](const Scan::Area& area) { return area.isReadable && !area.isRepeated; });
  return result != Scan::Result::kStopped;
}

bool DtmVerifier::Repair(DtmRepairReport& report) {
  report = {};
  const StreamLock lock(stream_);
  Scan scan(stream_, nullptr, progressSink_, false);
  scan.SetPhase(0.0, 0.3);
  return scan.Run() == Scan::Result::kDone && Rebuilding(stream_, scan, report).Run();
}

}  // namespace vak
