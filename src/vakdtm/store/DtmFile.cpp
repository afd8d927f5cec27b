#include "vakdtm/store/DtmFile.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <limits>
#include <numeric>

#include "vakdtm/store/AreaIndex.h"
#include "vakdtm/store/ChunkWalk.h"
#include "vakdtm/store/DtmUpdater.h"
#include "vakdtm/store/FloorToInt.h"

namespace vak {
namespace {

// Where the extents start before there is an area.
constexpr int kNoLowest = std::numeric_limits<int>::max();
constexpr int kNoHighest = std::numeric_limits<int>::min();

}  // namespace

DtmFile::DtmFile(DataStream* stream, bool create)
    : stream_(stream),
      creating_(create),
      lowestRow_(kNoLowest),
      highestRow_(kNoHighest),
      lowestCol_(kNoLowest),
      highestCol_(kNoHighest) {
  SortSlots();
}

DtmFile::~DtmFile() = default;

bool DtmFile::Open() {
  const std::scoped_lock lock(fileMutex_);
  if (openCount_ < 1) {
    lostData_ = false;
    walkStoppedAt_ = -1;
    if (!(creating_ ? WriteDtm() : ReadDtm())) {
      ForgetAreas();
      return false;
    }
    creating_ = false;
    openCount_ = 0;
  }
  ++openCount_;
  return true;
}

int DtmFile::Close() {
  const std::scoped_lock lock(fileMutex_);
  if (openCount_ >= 2) return --openCount_;
  if (openCount_ == 1) {
    const bool pendingWritten =
        std::all_of(areas_.begin(), areas_.end(), [&](const auto& area) { return WritePending(*area); });
    if (pendingWritten) WriteAreaIndex();
    ForgetAreas();
    openCount_ = 0;
  }
  return 0;
}

bool DtmFile::SetCellSize(double cellSize) {
  const std::scoped_lock lock(fileMutex_);
  if (openCount_ > 0) return false;
  settings_.cellSize = cellSize;
  return true;
}

bool DtmFile::SetAreaSize(int areaSize) {
  const std::scoped_lock lock(fileMutex_);
  if (openCount_ > 0) return false;
  settings_.areaSize = areaSize;
  return true;
}

bool DtmFile::ClearBlockIds() {
  const std::scoped_lock lock(fileMutex_);
  if (openCount_ > 0) return false;
  settings_.blockIds.clear();
  SortSlots();
  return true;
}

bool DtmFile::AddBlockId(int id) {
  const std::scoped_lock lock(fileMutex_);
  if (openCount_ > 0) return false;
  settings_.blockIds.push_back(id);
  SortSlots();
  return true;
}

void DtmFile::SortSlots() {
  slots_.clear();
  slots_.reserve(settings_.blockIds.size());
  for (int i = 0; i < NumBlockIds(); ++i) slots_.emplace_back(GetBlockId(i), i);
  std::sort(slots_.begin(), slots_.end());
}

int DtmFile::OpenCount() const {
  const std::scoped_lock lock(fileMutex_);
  return openCount_;
}

long long DtmFile::FileSize() const {
  const StreamLock lock(*stream_);
  return fileSize_;
}

DtmArea* DtmFile::GetArea(int index) const {
  const std::scoped_lock lock(fileMutex_);
  if (index < 0 || index >= static_cast<int>(areas_.size())) return nullptr;
  return areas_[static_cast<std::size_t>(index)].get();
}

DtmArea* DtmFile::GetArea(int row, int col, bool create) {
  if (!IsAllowed(row) || !IsAllowed(col)) return nullptr;
  const std::scoped_lock lock(fileMutex_);
  const DtmAreaPos pos(settings_.areaSize, row, col);
  const auto found = areaMap_.find(pos);
  if (found != areaMap_.end()) return found->second;
  if (!create) return nullptr;
  auto area = std::make_unique<DtmArea>(this, settings_.areaSize * pos.AreaRow(), settings_.areaSize * pos.AreaCol());
  if (!WriteArea(*area)) return nullptr;
  DtmArea* const added = area.get();
  AddArea(std::move(area));
  return added;
}

void DtmFile::GetAreaMap(std::map<DtmAreaPos, DtmArea*>& out) const {
  if (out.size() == static_cast<std::size_t>(NumAreas())) return;
  const std::scoped_lock lock(fileMutex_);
  if (out.empty()) {
    out = areaMap_;
    return;
  }
  for (std::size_t i = out.size(); i < areas_.size(); ++i) out.emplace(DtmAreaPos(areas_[i].get()), areas_[i].get());
}

bool DtmFile::GetAreaExtents(double& x0, double& y0, double& x1, double& y1) const {
  const std::scoped_lock lock(fileMutex_);
  if (areas_.empty()) return false;
  x0 = lowestCol_ * settings_.cellSize;
  y0 = lowestRow_ * settings_.cellSize;
  x1 = (highestCol_ + settings_.areaSize) * settings_.cellSize;
  y1 = (highestRow_ + settings_.areaSize) * settings_.cellSize;
  return true;
}

void DtmFile::CalcRowCol(double x, double y, int& row, int& col) const {
  row = FloorToInt(y / settings_.cellSize);
  col = FloorToInt(x / settings_.cellSize);
}

void DtmFile::CalcXY(int row, int col, double& x, double& y) const {
  x = (col + 0.5) * settings_.cellSize;
  y = (row + 0.5) * settings_.cellSize;
}

void DtmFile::CalcCellPos(double x, double y, float& dx, float& dy) const {
  dx = static_cast<float>(x - (std::floor(x / settings_.cellSize) + 0.5) * settings_.cellSize);
  dy = static_cast<float>(y - (std::floor(y / settings_.cellSize) + 0.5) * settings_.cellSize);
}

int DtmFile::BlockSize(int id) const { return settings_.BlockSize(id); }

std::byte* DtmFile::Scratch(std::size_t size) {
  if (scratch_.size() < size) scratch_.resize(size);
  return scratch_.data();
}

bool DtmFile::HoldsOtherArea(long long position, int length) const {
  if (length == smallestBody_) return false;  // what overlaps one of the usual length was told apart at the opening
  return std::any_of(heldIndex_.begin(), heldIndex_.end(), [&](const grid::IndexEntry& entry) {
    return entry.position > position && entry.position < position + length;
  });
}

// ---- Opening and creating

bool DtmFile::HasUsableSettings() const { return settings_.IsUsable(); }

bool DtmFile::TakeSettings() {
  if (!HasUsableSettings()) return false;
  smallestBody_ = static_cast<int>(settings_.SmallestBody());
  largestAllowed_ = settings_.LargestAllowed();
  SortSlots();
  return true;
}

bool DtmFile::WriteDtm() {
  if (!TakeSettings()) return false;
  const auto ids = static_cast<std::int64_t>(settings_.blockIds.size());
  std::vector<std::byte> bytes(static_cast<std::size_t>(grid::kMagicSize + grid::FileAttributesSize(ids)));
  std::byte* to = bytes.data();
  for (const char letter : grid::kMagic) to = grid::Store(to, letter);
  const auto body = static_cast<std::int32_t>(grid::FileAttributesSize(ids) - grid::kHeaderSize);
  to = grid::StoreHeader(to, {grid::kAttributes, body});
  to = grid::Store(grid::StoreHeader(to, {grid::kCellSize, 8}), settings_.cellSize);
  to = grid::Store(grid::StoreHeader(to, {grid::kAreaSize, 4}), static_cast<std::int32_t>(settings_.areaSize));
  to = grid::StoreHeader(to, {grid::kBlockIds, static_cast<std::int32_t>(4 * ids)});
  for (const int id : settings_.blockIds) to = grid::Store(to, static_cast<std::int32_t>(id));

  const StreamLock lock(*stream_);
  if (!stream_->Seek(0, DataStream::kFromStart) || !stream_->Write(bytes.data(), bytes.size())) return false;
  nextWrite_ = fileSize_ = stream_->Position();
  openedBy_ = DtmOpenedBy::kCreation;
  return true;
}

bool DtmFile::ReadDtm() {
  const StreamLock lock(*stream_);
  if (!ReadMagic() || !ReadAttributes() || !TakeSettings()) return false;
  return ReadIndexedAreas() || ReadAreas();
}

bool DtmFile::ReadMagic() {
  std::array<char, grid::kMagicSize> magic{};
  if (!stream_->Seek(0, DataStream::kFromStart) || !stream_->Read(magic.data(), magic.size())) return false;
  if (magic != grid::kMagic) return false;
  nextWrite_ = stream_->Position();
  if (!stream_->Seek(0, DataStream::kFromEnd)) return false;
  fileSize_ = stream_->Position();
  return true;
}

bool DtmFile::ReadAttributes() {
  StreamWindow window(*stream_, fileSize_);
  return ReadGridSettings(window, settings_);
}

DtmOpenedBy DtmFile::ReadAreaIndex() {
  AreaIndex index;
  if (!vak::ReadAreaIndex(*stream_, index)) return DtmOpenedBy::kNothing;
  heldIndex_ = std::move(index.entries);
  indexHeld_ = true;
  fileSize_ = index.size;
  nextWrite_ = index.start;  // whatever is written next goes over the index
  return index.old ? DtmOpenedBy::kOldIndex : DtmOpenedBy::kIndex;
}

bool DtmFile::IsPlausible(const grid::IndexEntry& entry) const {
  const std::int64_t first = grid::kMagicSize + 2 * grid::kHeaderSize;
  return settings_.IsAreaPlace(entry.row, entry.col) && entry.position >= first &&
         entry.position <= nextWrite_ - smallestBody_;
}

bool DtmFile::IsAreaChunk(const grid::IndexEntry& entry) const {
  StreamWindow window(*stream_, nextWrite_);
  const std::byte* bytes = window.At(entry.position - grid::kHeaderSize, grid::kAreaPrefixSize);
  if (!bytes) return false;
  const grid::ChunkHeader header = grid::LoadHeader(bytes);
  AreaPlace place;
  return header.tag == grid::kArea && header.length >= smallestBody_ && header.length <= nextWrite_ - entry.position &&
         ReadAreaPlace(window, entry.position, header.length, place) && place.row == entry.row &&
         place.col == entry.col;
}

std::vector<bool> DtmFile::FindFalseClaims(const EntryList& entries) const {
  // An index is believed without a look at the areas, except where it contradicts itself: entries that overlap, or two
  // for one place. There the chunks decide, and where both chunks agree, the first of them. An honest index costs one
  // pass.
  std::vector<bool> isFalse(entries.size());
  std::vector<std::size_t> order(entries.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  const auto before = [&](std::size_t a, std::size_t b) { return LiesBefore(entries[a], entries[b]); };
  if (!std::is_sorted(entries.begin(), entries.end(), LiesBefore)) std::stable_sort(order.begin(), order.end(), before);

  std::vector<bool> doubtful(entries.size());
  std::size_t previous = entries.size();
  for (const std::size_t i : order) {
    isFalse[i] = !IsPlausible(entries[i]);
    if (isFalse[i]) continue;
    if (previous < entries.size() &&
        entries[i].position - entries[previous].position < smallestBody_ + grid::kHeaderSize) {
      doubtful[i] = doubtful[previous] = true;
    }
    previous = i;
  }
  std::int64_t end = 0;
  for (const std::size_t i : order) {
    if (isFalse[i]) continue;
    if (doubtful[i]) isFalse[i] = entries[i].position < end || !IsAreaChunk(entries[i]);
    if (!isFalse[i]) end = entries[i].position + smallestBody_ + grid::kHeaderSize;
  }
  return isFalse;
}

bool DtmFile::ReadIndexedAreas() {
  openedBy_ = ReadAreaIndex();
  if (openedBy_ == DtmOpenedBy::kNothing) return false;
  const std::vector<bool> isFalse = FindFalseClaims(heldIndex_);
  std::vector<Claim> claims;
  claims.reserve(heldIndex_.size());
  for (std::size_t i = 0; i < heldIndex_.size(); ++i) {
    const grid::IndexEntry& entry = heldIndex_[i];
    // Of a place that no cell can have, nothing can be kept, not even a shell.
    if (settings_.IsAreaPlace(entry.row, entry.col)) {
      claims.push_back({DtmAreaPos(settings_.areaSize, entry.row, entry.col), isFalse[i], i});
    }
  }
  // By place, the credible first. The map is then filled in the order of its keys, at a fraction of the cost of
  // searching.
  std::sort(claims.begin(), claims.end());
  areas_.resize(heldIndex_.size());
  for (auto claim = claims.begin(); claim != claims.end();) {
    const auto next = std::find_if(claim, claims.end(), [&](const Claim& other) { return other.pos != claim->pos; });
    const Claim& chosen = Choose(claim, next);
    auto area = MakeIndexedArea(heldIndex_[chosen.index], chosen.isFalse);
    areaMap_.emplace_hint(areaMap_.end(), chosen.pos, area.get());
    areas_[chosen.index] = std::move(area);
    claim = next;
  }
  std::erase(areas_, nullptr);
  for (const auto& area : areas_) NoteExtents(*area);
  areaCount_.store(static_cast<int>(areas_.size()), std::memory_order_release);
  return true;
}

const DtmFile::Claim& DtmFile::Choose(ClaimIterator first, ClaimIterator last) const {
  if (last - first == 1) return *first;
  const auto found = std::find_if(
      first, last, [&](const Claim& claim) { return !claim.isFalse && IsAreaChunk(heldIndex_[claim.index]); });
  return found == last ? *first : *found;
}

std::unique_ptr<DtmArea> DtmFile::MakeIndexedArea(const grid::IndexEntry& entry, bool isFalse) {
  auto area = std::make_unique<DtmArea>(this, entry.row, entry.col, stream_.get(), entry.position, entry.lastWritten);
  if (entry.HasRange()) area->SetMinMaxZ(std::bit_cast<float>(entry.lowestZ), std::bit_cast<float>(entry.highestZ));
  if (isFalse) area->MarkUnreadable();
  return area;
}

bool DtmFile::ReadAreas() {
  struct Found {
    DtmAreaPos pos;
    AreaPlace place;
    int length;
    std::int64_t start;
  };
  std::vector<Found> found;
  StreamWindow window(*stream_, fileSize_);
  ChunkWalk walk(window, grid::kMagicSize, fileSize_ - grid::kMagicSize);
  nextWrite_ = grid::kMagicSize;
  while (walk.Next() && !grid::IsIndexTag(walk.Header().tag)) {
    if (walk.Header().tag == grid::kArea) {
      AreaPlace place;
      if (!ReadAreaPlace(window, walk.Body(), walk.Header().length, place) ||
          !settings_.IsAreaPlace(place.row, place.col)) {
        break;
      }
      found.push_back(
          {DtmAreaPos(settings_.areaSize, place.row, place.col), place, walk.Header().length, walk.Start()});
    }
    nextWrite_ = walk.End();
  }

  // Two areas for one place: the first counts, and the walk ends at the second. Told by sorting, which also gives the
  // map its order.
  std::vector<std::size_t> order(found.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return found[a].pos == found[b].pos ? a < b : found[a].pos < found[b].pos;
  });
  std::size_t end = found.size();
  for (std::size_t i = 1; i < order.size(); ++i) {
    if (found[order[i]].pos == found[order[i - 1]].pos) end = std::min(end, order[i]);
  }
  if (end < found.size()) nextWrite_ = found[end].start;

  areas_.resize(end);
  for (const std::size_t i : order) {
    if (i >= end) continue;
    const Found& one = found[i];
    areas_[i] =
        std::make_unique<DtmArea>(this, one.place.row, one.place.col, stream_.get(), one.start + grid::kHeaderSize, 0);
    areas_[i]->bodyLength_ = one.length;
    areaMap_.emplace_hint(areaMap_.end(), one.pos, areas_[i].get());
  }
  for (const auto& area : areas_) NoteExtents(*area);
  areaCount_.store(static_cast<int>(areas_.size()), std::memory_order_release);
  openedBy_ = DtmOpenedBy::kWalk;
  walkStoppedAt_ = BelongsAtAnEnd(nextWrite_) ? -1 : nextWrite_;
  return true;
}

bool DtmFile::BelongsAtAnEnd(long long position) const {
  if (position == fileSize_) return true;
  StreamWindow window(*stream_, fileSize_);
  const std::byte* bytes = window.At(position, grid::kHeaderSize);
  if (!bytes) return false;
  const grid::ChunkHeader header = grid::LoadHeader(bytes);
  return grid::IsIndexTag(header.tag) || (header.tag == 0 && header.length == grid::kFillerLength);
}

// ---- Areas

void DtmFile::NoteExtents(const DtmArea& area) {
  lowestRow_ = std::min(lowestRow_, area.BottomLeftRow());
  highestRow_ = std::max(highestRow_, area.BottomLeftRow());
  lowestCol_ = std::min(lowestCol_, area.BottomLeftCol());
  highestCol_ = std::max(highestCol_, area.BottomLeftCol());
}

void DtmFile::AddArea(std::unique_ptr<DtmArea> area) {
  NoteExtents(*area);
  areaMap_.emplace(DtmAreaPos(area.get()), area.get());
  areas_.push_back(std::move(area));
  areaCount_.store(static_cast<int>(areas_.size()), std::memory_order_release);
}

bool DtmFile::WriteArea(DtmArea& area) {
  const StreamLock lock(*stream_);
  // This goes over the index. Should the area be gone again before the next one is due, the entries would be those held
  // and yet no longer in the file.
  indexHeld_ = false;
  if (!stream_->Seek(nextWrite_, DataStream::kFromStart) || !area.WriteArea(stream_.get())) return false;
  nextWrite_ = stream_->Position();
  return true;
}

void DtmFile::ForgetAreas() {
  areas_.clear();
  areaMap_.clear();
  areaCount_.store(0, std::memory_order_release);
  lowestRow_ = lowestCol_ = kNoLowest;
  highestRow_ = highestCol_ = kNoHighest;
  heldIndex_.clear();
  indexHeld_ = false;
}

// ---- Writing out

bool DtmFile::SyncWrite() {
  if (OpenCount() < 1) return false;
  for (int i = 0; DtmArea* area = GetArea(i); ++i) {
    if (!WritePending(*area)) return false;
  }
  return WriteAreaIndex();
}

bool DtmFile::WritePending(DtmArea& area) {
  const std::scoped_lock lock(area.Mutex());
  if (!area.IsWritten()) return area.IsEmpty() || WriteArea(area);
  if (area.HasReadError()) return true;  // its bytes stay as they are
  return area.IsEmpty() ? RemoveArea(area) : area.SyncWrite();
}

DtmArea* DtmFile::FindLastLiveArea(long long hole) const {
  DtmArea* last = nullptr;
  long long furthest = hole;
  for (int i = 0; DtmArea* area = GetArea(i); ++i) {
    const std::scoped_lock lock(area->Mutex());
    if (area->BlockPosition() <= furthest || area->IsFalseClaim() || area->IsEmpty()) continue;
    furthest = area->BlockPosition();
    last = area;
  }
  return last;
}

bool DtmFile::RemoveArea(DtmArea& area) {
  const std::int64_t hole = area.BlockPosition();
  DtmArea* const last = FindLastLiveArea(hole);
  std::unique_lock<RecursiveMutex> lastLock;
  std::int64_t end = hole;
  if (last) {
    lastLock = std::unique_lock(last->Mutex());
    last->CreateDataBlocks();
    // An area that can't be read can't be moved: the emptied one stays where it is, and no other comes to harm.
    if (last->HasReadError()) return area.SyncWrite();
    if (last->BlockSize() != area.BlockSize()) {
      area.SyncWrite();
      return false;
    }
    end = last->BlockPosition();
    if (!last->MakeUnwritten()) return false;
  }
  if (!area.MakeUnwritten()) return false;
  // Emptied areas behind the last one with data have no more place in the file.
  for (int i = 0; DtmArea* other = GetArea(i); ++i) {
    const std::scoped_lock lock(other->Mutex());
    if (other->BlockPosition() > end && !other->IsFalseClaim() && other->IsEmpty()) other->MakeUnwritten();
  }
  const StreamLock lock(*stream_);
  if (last && (!stream_->Seek(hole - grid::kHeaderSize, DataStream::kFromStart) || !last->WriteArea(stream_.get()))) {
    return false;
  }
  nextWrite_ = end - grid::kHeaderSize;
  return true;
}

bool DtmFile::WriteAreaIndex() {
  EntryList entries;
  entries.reserve(static_cast<std::size_t>(NumAreas()));
  for (int i = 0; const DtmArea* area = GetArea(i); ++i) {
    const std::scoped_lock lock(area->Mutex());
    if (!area->IsWritten()) continue;
    grid::IndexEntry entry;
    area->GetBottomLeft(entry.row, entry.col);
    entry.position = area->BlockPosition();
    entry.lastWritten = area->LastWritten();
    float lo = 0;
    float hi = 0;
    if (area->GetMinMaxZ(lo, hi)) {
      entry.lowestZ = std::bit_cast<std::uint32_t>(lo);
      entry.highestZ = std::bit_cast<std::uint32_t>(hi);
    }
    entries.push_back(entry);
  }
  std::stable_sort(entries.begin(), entries.end(), LiesBefore);

  const StreamLock lock(*stream_);
  if (indexHeld_ && entries == heldIndex_) return SyncCells();
  // What the index will name has to be on the disk before it is named. The next area goes over the index, so the
  // next-write position stays in front of it.
  if (!stream_->Sync() || !vak::WriteAreaIndex(*stream_, nextWrite_, entries)) return false;
  fileSize_ = stream_->Position();
  EndFileAt(*stream_, fileSize_);
  heldIndex_ = std::move(entries);
  // One that may not have reached the disk isn't relied on: the next pass writes it again.
  indexHeld_ = stream_->Sync();
  unsynced_ = unsynced_ && !indexHeld_;
  return indexHeld_;
}

bool DtmFile::SyncCells() {
  // Cells changed within one second leave the index as it was.
  if (!unsynced_) return true;
  unsynced_ = !stream_->Sync();
  return !unsynced_;
}

// ---- Following another process

bool DtmFile::SyncRead(DtmUpdater* updater) {
  if (OpenCount() < 1) return false;
  EntryList entries;
  {
    const StreamLock lock(*stream_);
    if (!stream_->Sync() || ReadAreaIndex() == DtmOpenedBy::kNothing) return false;
    entries = heldIndex_;
    const std::vector<bool> isFalse = FindFalseClaims(entries);
    std::size_t i = 0;
    std::erase_if(entries, [&](const grid::IndexEntry&) { return isFalse[i++]; });
  }
  for (const grid::IndexEntry& entry : entries) {
    if (!FollowEntry(entry, updater)) return false;
  }
  if (entries.size() < static_cast<std::size_t>(NumAreas())) SyncRemoved(std::move(entries), updater);
  return true;
}

bool DtmFile::FollowEntry(const grid::IndexEntry& entry, DtmUpdater* updater) {
  DtmArea* const area = GetArea(entry.row, entry.col, false);
  if (!area) {
    const std::scoped_lock lock(fileMutex_);
    AddArea(MakeIndexedArea(entry, false));
  } else {
    const std::scoped_lock lock(area->Mutex());
    if (area->BlockPosition() != entry.position) area->SetBlockPosition(stream_.get(), entry.position);
    if (area->LastWritten() == entry.lastWritten) return true;
    if (!area->SyncRead(entry.lastWritten)) return false;
    if (entry.HasRange()) area->SetMinMaxZ(std::bit_cast<float>(entry.lowestZ), std::bit_cast<float>(entry.highestZ));
  }
  if (updater) updater->UpdateArea(entry.row, entry.col, area != nullptr);
  return true;
}

void DtmFile::SyncRemoved(EntryList entries, DtmUpdater* updater) {
  std::stable_sort(entries.begin(), entries.end(), LiesBefore);
  for (int i = 0; DtmArea* area = GetArea(i); ++i) {
    {
      const std::scoped_lock lock(area->Mutex());
      if (!area->IsWritten() || area->IsFalseClaim()) continue;
      grid::IndexEntry wanted;
      wanted.position = area->BlockPosition();
      const auto found = std::lower_bound(entries.begin(), entries.end(), wanted, LiesBefore);
      if (found != entries.end() && found->position == wanted.position && found->row == area->BottomLeftRow() &&
          found->col == area->BottomLeftCol()) {
        continue;
      }
      area->SetBlockPosition(nullptr, -1);
      area->MakeEmpty();
    }
    if (updater) updater->UpdateArea(area->BottomLeftRow(), area->BottomLeftCol(), true);
  }
}

}  // namespace vak
