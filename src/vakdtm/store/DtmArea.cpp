#include "vakdtm/store/DtmArea.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/store/ChunkWalk.h"
#include "vakdtm/store/DtmAreaPos.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

namespace vak {
namespace {

/// Takes what lies near into the window in one reading, as much as the system reads for a single byte. Whether it can
/// be had is left to whoever asks for a piece of it.
/// @return false when it is more.
bool ReadAhead(StreamWindow& window, std::int64_t begin, std::int64_t end) {
  constexpr std::int64_t kNear = 4096;
  if (end - begin > kNear) return false;
  window.At(begin, end - begin);
  return true;
}

/// Of a block's place among those that the area remembers; 0 beyond them.
std::uint64_t HeaderBit(int index) { return index < 64 ? std::uint64_t{1} << index : 0; }

}  // namespace

DtmAreaPos::DtmAreaPos(const DtmArea* area)
    : areaRow_(area->BottomLeftRow() / area->AreaSize()), areaCol_(area->BottomLeftCol() / area->AreaSize()) {}

DtmArea::DtmArea(DtmFile* file, int row, int col)
    : file_(file), areaSize_(file->AreaSize()), bottomLeftRow_(row), bottomLeftCol_(col), rangeValid_(true) {}

DtmArea::DtmArea(DtmFile* file, int row, int col, DataStream* stream, long long position, long long time)
    : file_(file),
      areaSize_(file->AreaSize()),
      stream_(stream),
      position_(position),
      bottomLeftRow_(row),
      bottomLeftCol_(col),
      lastWritten_(time) {}

DtmArea::~DtmArea() = default;

int DtmArea::BlockSize() const {
  const std::scoped_lock lock(mutex_);
  return bodyLength_;
}

long long DtmArea::BlockPosition() const {
  const std::scoped_lock lock(mutex_);
  return position_;
}

long long DtmArea::LastWritten() const {
  const std::scoped_lock lock(mutex_);
  return lastWritten_;
}

bool DtmArea::IsWritten() const {
  const std::scoped_lock lock(mutex_);
  return stream_ != nullptr;
}

bool DtmArea::IsModified() const {
  const std::scoped_lock lock(mutex_);
  return std::any_of(blocks_.begin(), blocks_.end(), [](const auto& block) { return block->IsModified(); });
}

bool DtmArea::HasReadError() const {
  const std::scoped_lock lock(mutex_);
  return readError_;
}

void DtmArea::CreateDataBlocks() {
  if (!blocks_.empty() || readError_) return;
  if (stream_) {
    readError_ = !ReadDataBlocks();
  } else {
    MakeBlocks();
  }
}

void DtmArea::MakeBlocks() {
  const int count = file_->NumBlockIds();
  blocks_.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    const int id = file_->GetBlockId(i);
    blocks_.push_back(std::make_unique<DtmDataBlock>(this, id, file_->BlockSize(id)));
  }
}

bool DtmArea::ReadDataBlocks() {
  const StreamLock lock(*stream_);
  if (!stream_->Seek(0, DataStream::kFromEnd)) return false;
  StreamWindow window(*stream_, stream_->Position());
  // The chunk is looked at before any block is made: a length that lies costs no memory.
  if (!ReadOwnHeader(window)) return false;
  if (blocks_.empty()) MakeBlocks();
  return FindBlocks(window);
}

bool DtmArea::ReadOwnHeader(StreamWindow& window) {
  // Header, attr and the first block's header in one reading.
  const std::byte* bytes = window.At(position_ - grid::kHeaderSize, grid::kAreaPrefixSize + grid::kHeaderSize);
  if (!bytes) return false;
  const grid::ChunkHeader header = grid::LoadHeader(bytes);
  if (header.tag != grid::kArea || header.length < file_->SmallestBody()) return false;
  // Every block has to fit in before memory is taken for any, and the chunk has to say that it is this area's: an index
  // that lies, or one older than a move, must not bring one area's cells under another's rows and columns.
  const std::int64_t own = std::min(file_->OwnLength(position_, header.length), window.End() - position_);
  AreaPlace place;
  if (own < file_->SmallestBody() || !ReadAreaPlace(window, position_, own, place)) return false;
  if (place.row != bottomLeftRow_ || place.col != bottomLeftCol_) return false;
  bodyLength_ = header.length;
  return true;
}

bool DtmArea::IsStillThere() {
  StreamWindow window(*stream_, position_ + bodyLength_);
  return ReadOwnHeader(window);
}

bool DtmArea::FindBlocks(StreamWindow& window) {
  ChunkWalk walk(window, position_, file_->OwnLength(position_, bodyLength_));
  std::vector<std::size_t> met(blocks_.size());  // chunks with an id, counted at the id's first place in the list
  std::size_t missing = blocks_.size();
  while (walk.Next()) {
    if (walk.Header().tag == grid::kAttributes) continue;
    const auto slots = file_->FindBlockSlots(walk.Header().tag);
    if (slots.empty()) continue;
    // An id that is listed twice has its chunks in the order of the list.
    std::size_t& count = met[static_cast<std::size_t>(slots.front().second)];
    const bool isSurplus = count == slots.size();
    DtmDataBlock& block = *blocks_[static_cast<std::size_t>(slots[isSurplus ? 0 : count].second)];
    if (walk.Header().length != block.BlockSize()) return false;
    block.SetBlockPosition(stream_, walk.Body());
    block.ClearEmpty();  // it may hold data
    if (isSurplus) continue;
    ++count;
    --missing;
  }
  return missing == 0;
}

DtmDataBlock* DtmArea::OpenDataBlock(int id) {
  const int slot = file_->FindBlockSlot(id);
  return slot < 0 ? nullptr : OpenDataBlockAt(slot);
}

DtmDataBlock* DtmArea::OpenDataBlockAt(int index) {
  const std::scoped_lock lock(mutex_);
  DtmDataBlock* const block = FindDataBlockAt(index);
  return block && block->Open() ? block : nullptr;
}

DtmDataBlock* DtmArea::FindDataBlockAt(int index) {
  CreateDataBlocks();
  return readError_ ? nullptr : blocks_[static_cast<std::size_t>(index)].get();
}

bool DtmArea::BeginsAsWritten(StreamWindow& window) const {
  const auto prefix = grid::AreaPrefix(file_->SmallestBody(), bottomLeftRow_, bottomLeftCol_);
  const std::byte* const bytes = window.At(position_ - grid::kHeaderSize, grid::kAreaPrefixSize);
  return bytes && std::equal(prefix.begin(), prefix.end(), bytes);
}

bool DtmArea::IsHeaderOf(int index, StreamWindow& window, std::int64_t header) const {
  const std::byte* const bytes = window.At(header, grid::kHeaderSize);
  if (!bytes) return false;
  const grid::ChunkHeader found = grid::LoadHeader(bytes);
  const int id = file_->GetBlockId(index);
  return found.tag == id && found.length == file_->BlockSize(id);
}

bool DtmArea::FindEndOfFile(std::int64_t& end) const {
  // To ask the system costs as much as a reading: not for an area that was whole when the file was opened.
  end = file_->FileSize();
  if (!file_->IsFollowing() && position_ + file_->SmallestBody() <= end) return true;
  if (!stream_->Seek(0, DataStream::kFromEnd)) return false;
  end = stream_->Position();
  return true;
}

DtmArea::Reading DtmArea::ReadUntouched(int index, int cell, int count, std::byte* out) {
  const int width = DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(file_->GetBlockId(index)));
  const std::int64_t header = position_ + file_->BlockStart(index);
  const std::int64_t begin = header + grid::kHeaderSize + std::int64_t{cell} * width;
  const std::int64_t size = std::int64_t{count} * width;
  lookedAt_ = true;
  if (std::exchange(headersAt_, refreshes_) != refreshes_) headersMet_ = 0;
  const std::uint64_t bit = HeaderBit(index);
  const StreamLock lock(*stream_);
  if ((headersMet_ & bit) != 0) {
    const bool read =
        stream_->Seek(begin, DataStream::kFromStart) && stream_->Read(out, static_cast<std::size_t>(size));
    if (!read) return Reading::kFailed;
  } else {
    std::int64_t end = 0;
    if (!FindEndOfFile(end)) return Reading::kFailed;
    StreamWindow window(*stream_, end);
    const std::int64_t start = position_ - grid::kHeaderSize;
    if (!ReadAhead(window, start, begin + size)) ReadAhead(window, start, header + grid::kHeaderSize);
    const auto noSuch = [&] { return window.HasFailed() ? Reading::kFailed : Reading::kElsewhere; };
    if (window.End() - position_ < file_->SmallestBody() || !BeginsAsWritten(window)) return noSuch();
    ReadAhead(window, header, begin + size);
    if (!IsHeaderOf(index, window, header)) return noSuch();
    const std::byte* const bytes = window.At(begin, size);
    if (!bytes) return Reading::kFailed;
    std::copy_n(bytes, size, out);
    headersMet_ |= bit;
  }
  if (!file_->IsFollowing()) return Reading::kDone;
  // As for whole blocks: the place may have become another's.
  StreamWindow window(*stream_, position_ + file_->SmallestBody());
  return BeginsAsWritten(window) ? Reading::kDone : Reading::kFailed;
}

bool DtmArea::IsEmpty() {
  const std::scoped_lock lock(mutex_);
  if (stream_ && (blocks_.empty() || readError_)) return false;
  return std::all_of(blocks_.begin(), blocks_.end(), [](const auto& block) { return block->IsEmpty(); });
}

void DtmArea::CheckEmpty() {
  const std::scoped_lock lock(mutex_);
  CreateDataBlocks();
  if (readError_) return;
  for (const auto& block : blocks_) {
    if (block->IsEmpty()) continue;
    const BlockHold hold(block.get());
    if (!hold || !block->HoldsOnlyFill()) return;
    block->SetEmpty();
  }
  ResetMinMaxZ();
}

void DtmArea::MakeEmpty() {
  const std::scoped_lock lock(mutex_);
  if (blocks_.empty() && !stream_) return;
  CreateDataBlocks();
  for (const auto& block : blocks_) block->MakeEmpty();
  ResetMinMaxZ();
}

void DtmArea::SetBlockPosition(DataStream* stream, long long position) {
  const std::scoped_lock lock(mutex_);
  ++refreshes_;
  stream_ = stream;
  position_ = position;
  bodyLength_ = 0;
  falseClaim_ = false;
  if (!stream) {
    for (const auto& block : blocks_) {
      block->SetBlockPosition(nullptr, -1);
      block->ClearEmpty();
    }
    return;
  }
  readError_ = false;
  if (blocks_.empty() || ReadDataBlocks()) return;
  readError_ = true;
  // Whoever still has a block open must not reach what lies at its old place now.
  for (const auto& block : blocks_) block->SetBlockPosition(nullptr, -1);
}

bool DtmArea::MakeUnwritten() {
  const std::scoped_lock lock(mutex_);
  CreateDataBlocks();
  if (readError_) return false;
  // All in memory before the first is cut off: an area is written or unwritten as a whole.
  std::vector<BlockHold> holds;
  holds.reserve(blocks_.size());
  for (const auto& block : blocks_) {
    if (!block->IsEmpty() && !holds.emplace_back(block.get())) return false;
  }
  for (const auto& block : blocks_) {
    if (!block->MakeUnwritten()) return false;
  }
  stream_ = nullptr;
  position_ = -1;
  return true;
}

bool DtmArea::GetMinMaxZ(float& lo, float& hi) const {
  const std::scoped_lock lock(mutex_);
  lo = lowestZ_;
  hi = highestZ_;
  return rangeValid_;
}

void DtmArea::SetMinMaxZ(float lo, float hi) {
  const std::scoped_lock lock(mutex_);
  lowestZ_ = lo;
  highestZ_ = hi;
  rangeValid_ = true;
}

void DtmArea::UpdateMinMaxZ(float z) {
  const std::scoped_lock lock(mutex_);
  UpdateMinMaxZLocked(z);
}

void DtmArea::ResetMinMaxZ() { SetMinMaxZ(kNoLowestZ, kNoHighestZ); }

void DtmArea::FindMinMaxZ(const int* ids, int count) {
  const std::scoped_lock lock(mutex_);
  float lo = kNoLowestZ;
  float hi = kNoHighestZ;
  for (int i = 0; i < count; ++i) {
    if (!file_->HasBlockId(ids[i])) continue;
    DtmDataBlock* block = OpenDataBlock(ids[i]);
    if (!block) {
      // A range without the cells that couldn't be read would pass for the area's, and go into the file as such.
      ResetMinMaxZ();
      rangeValid_ = false;
      return;
    }
    block->FindMinMax(lo, hi);
    block->Close();
  }
  SetMinMaxZ(lo, hi);
}

bool DtmArea::SyncWrite() {
  const std::scoped_lock lock(mutex_);
  if (!stream_) return false;
  if (std::none_of(blocks_.begin(), blocks_.end(), [](const auto& block) { return block->NeedsWriting(); }))
    return true;
  for (const auto& block : blocks_) {
    if (!block->SyncWrite()) return false;
  }
  lastWritten_ = _time64(nullptr);
  return true;
}

bool DtmArea::SyncRead(long long time) {
  const std::scoped_lock lock(mutex_);
  ++refreshes_;
  for (const auto& block : blocks_) {
    if (!block->SyncRead()) return false;
  }
  lastWritten_ = time;
  return true;
}

bool DtmArea::RefreshUnmodified() {
  ++refreshes_;
  const std::scoped_lock lock(mutex_);
  return std::all_of(blocks_.begin(), blocks_.end(),
                     [](const auto& block) { return block->NeedsWriting() || block->SyncRead(); });
}

bool DtmArea::WriteArea(DataStream* stream, Target target) {
  const std::scoped_lock lock(mutex_);
  if (stream_) return false;
  CreateDataBlocks();
  if (readError_) return false;
  // Held until all is written: if a write fails halfway, the cells are still there.
  std::vector<BlockHold> holds;
  holds.reserve(blocks_.size());
  for (const auto& block : blocks_) {
    if (target == Target::kRoom && block->IsEmpty()) continue;
    if (!holds.emplace_back(block.get())) return false;
  }
  const int length = file_->SmallestBody();
  auto prefix = grid::AreaPrefix(length, bottomLeftRow_, bottomLeftCol_);
  if (target == Target::kHole) grid::Store(prefix.data(), grid::kHole);
  const StreamLock streamLock(*stream);
  const std::int64_t start = stream->Position();
  // The beginning last: a process that is killed on the way leaves no area with half its cells.
  const bool written = stream->Seek(start + grid::kAreaPrefixSize, DataStream::kFromStart) &&
                       WriteBlocks(stream, target) && stream->Seek(start, DataStream::kFromStart) &&
                       stream->Write(prefix.data(), prefix.size()) &&
                       stream->Seek(start + grid::kHeaderSize + length, DataStream::kFromStart);
  if (!written) {
    for (const auto& block : blocks_) block->MakeUnwritten();
    return false;
  }
  stream_ = stream;
  position_ = start + grid::kHeaderSize;
  bodyLength_ = length;
  lastWritten_ = _time64(nullptr);
  readError_ = false;
  return true;
}

bool DtmArea::WriteBlocks(DataStream* stream, Target target) {
  for (const auto& block : blocks_) {
    const bool isThere = target == Target::kRoom && block->IsEmpty();
    if (isThere ? !block->TakePlace(stream) : !block->WriteBlock(stream)) return false;
  }
  return true;
}

}  // namespace vak
