#include "vakdtm/store/DtmFile.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <limits>
#include <numeric>
#include <tuple>

#include "vakdtm/store/AreaIndex.h"
#include "vakdtm/store/AreaMoves.h"
#include "vakdtm/store/ChunkWalk.h"
#include "vakdtm/store/DtmUpdater.h"
#include "vakdtm/store/FloorToInt.h"

namespace vak {
namespace {

// Where the extents start before there is an area.
constexpr int kNoLowest = std::numeric_limits<int>::max();
constexpr int kNoHighest = std::numeric_limits<int>::min();

bool NameSamePlaces(const std::vector<grid::IndexEntry>& one, const std::vector<grid::IndexEntry>& other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](const grid::IndexEntry& a, const grid::IndexEntry& b) {
                      return a.row == b.row && a.col == b.col && a.position == b.position;
                    });
}

// How many entries an index may have beyond twice those that there is room for; small files are cheap whatever they
// say.
constexpr std::int64_t kFreeLies = 1024;

/// Sorts by the first numbers, leaving equal ones in their order: by one byte after the other, since a file may list
/// millions of ids.
void SortByFirst(std::vector<std::pair<int, int>>& pairs) {
  std::vector<std::pair<int, int>> sorted(pairs.size());
  for (int shift = 0; shift < 32; shift += 8) {
    const auto digit = [&](const std::pair<int, int>& pair) {
      return ((static_cast<std::uint32_t>(pair.first) ^ 0x80000000U) >> shift) & 0xFFU;
    };
    std::array<std::size_t, 256> starts{};
    for (const auto& pair : pairs) ++starts[digit(pair)];
    std::exclusive_scan(starts.begin(), starts.end(), starts.begin(), std::size_t{0});
    for (const auto& pair : pairs) sorted[starts[digit(pair)]++] = pair;
    pairs.swap(sorted);
  }
}

}  // namespace

DtmFile::DtmFile(DataStream* stream, bool create)
    : stream_(stream),
      creating_(create),
      end_(stream),
      lowestRow_(kNoLowest),
      highestRow_(kNoHighest),
      lowestCol_(kNoLowest),
      highestCol_(kNoHighest) {}

DtmFile::~DtmFile() = default;

bool DtmFile::Open() {
  const std::scoped_lock lock(fileMutex_);
  if (openCount_ < 1) {
    lostData_ = false;
    walkStoppedAt_ = -1;
    const GridSettings former = settings_;
    if (!(creating_ ? WriteDtm() : ReadDtm())) {
      ForgetAreas();
      settings_ = former;
      largestAllowed_ = -1;
      ForgetSlots();
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
    if (!WriteAll()) SetLostData();
    ForgetAreas();
    largestAllowed_ = -1;
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
  ForgetSlots();
  return true;
}

bool DtmFile::AddBlockId(int id) {
  const std::scoped_lock lock(fileMutex_);
  if (openCount_ > 0) return false;
  settings_.blockIds.push_back(id);
  ForgetSlots();
  return true;
}

int DtmFile::OpenCount() const {
  const std::scoped_lock lock(fileMutex_);
  return openCount_;
}

long long DtmFile::FileSize() const {
  const StreamLock lock(*stream_);
  return end_.Size();
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
  DtmArea* const present = FindArea(pos);
  if (present || !create || openCount_ < 1) return present;
  auto area = std::make_unique<DtmArea>(this, settings_.areaSize * pos.AreaRow(), settings_.areaSize * pos.AreaCol());
  if (!WriteArea(*area)) return nullptr;
  DtmArea* const added = area.get();
  AddArea(std::move(area));
  return added;
}

DtmArea* DtmFile::FindArea(DtmAreaPos pos) const {
  const std::scoped_lock lock(fileMutex_);
  const auto found = areaMap_.find(pos);
  return found == areaMap_.end() ? nullptr : found->second;
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

std::int64_t DtmFile::BlockStart(int index) const {
  std::int64_t start = grid::kAreaAttributesSize;
  for (int before = 0; before < index; ++before) start += grid::kHeaderSize + BlockSize(GetBlockId(before));
  return start;
}

std::byte* DtmFile::Scratch(std::size_t size) {
  if (scratch_.size() < size) scratch_.resize(size);
  return scratch_.data();
}

std::span<const std::pair<int, int>> DtmFile::FindBlockSlots(int id) const {
  std::call_once(*slotsSorted_, [this] {
    slots_.clear();
    slots_.reserve(settings_.blockIds.size());
    for (int i = 0; i < NumBlockIds(); ++i) slots_.emplace_back(GetBlockId(i), i);
    SortByFirst(slots_);
  });
  const auto first = std::lower_bound(slots_.begin(), slots_.end(), std::pair(id, 0));
  const auto last = std::upper_bound(first, slots_.end(), std::pair(id, std::numeric_limits<int>::max()));
  return {first, last};
}

std::int64_t DtmFile::OwnLength(std::int64_t position, int length) {
  // What overlaps an area of the usual length was told apart at the opening.
  if (length == smallestBody_ || !fromIndex_.known) return length;
  CheckIndexedAreas();
  std::int64_t end = std::min(position + length, fromIndex_.end);
  if (position <= settings_.start) end = std::min(end, settings_.start);
  const auto next = std::upper_bound(fromIndex_.areas.begin(), fromIndex_.areas.end(), position,
                                     [](std::int64_t at, const grid::IndexEntry& area) { return at < area.position; });
  if (next != fromIndex_.areas.end()) end = std::min(end, next->position - grid::kHeaderSize);
  return end - position;
}

void DtmFile::CheckIndexedAreas() {
  if (fromIndex_.checked) return;
  StreamWindow window(*stream_, fromIndex_.end);
  std::erase_if(fromIndex_.areas, [&](const grid::IndexEntry& area) { return !IsAreaChunk(window, area); });
  fromIndex_.checked = true;
}

// ---- Opening and creating

bool DtmFile::HasUsableSettings() const { return settings_.IsUsable(); }

bool DtmFile::TakeSettings() {
  if (!HasUsableSettings()) return false;
  smallestBody_ = static_cast<int>(settings_.SmallestBody());
  largestAllowed_ = settings_.LargestAllowed();
  ForgetSlots();
  return true;
}

bool DtmFile::WriteDtm() {
  // A chunk with one of these tags would never be found again: one ends every walk, the other is the area's own.
  const auto isNoBlock = [](int id) { return id == 0 || id == grid::kAttributes; };
  if (std::any_of(settings_.blockIds.begin(), settings_.blockIds.end(), isNoBlock) || !TakeSettings()) return false;
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
  settings_.start = grid::kMagicSize;
  settings_.end = stream_->Position();
  end_.Reset(settings_.end, settings_.end, false);
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
  const std::int64_t next = stream_->Position();
  if (!stream_->Seek(0, DataStream::kFromEnd)) return false;
  end_.Reset(next, stream_->Position(), false);
  return true;
}

bool DtmFile::ReadAttributes() {
  StreamWindow window(*stream_, end_.Size());
  return ReadGridSettings(window, settings_);
}

DtmOpenedBy DtmFile::ReadAreaIndex() {
  AreaIndex index;
  if (!vak::ReadAreaIndex(*stream_, index)) return DtmOpenedBy::kNothing;
  // The next area would go over what every area is read by.
  if (index.start < settings_.end) return DtmOpenedBy::kNothing;
  // An index may lie about some areas. One that lies about most is no index, and would only cost time and memory.
  const std::int64_t room = (index.start - grid::kMagicSize) / (grid::kHeaderSize + smallestBody_);
  if (static_cast<std::int64_t>(index.entries.size()) > 2 * room + kFreeLies) return DtmOpenedBy::kNothing;
  heldIndex_ = std::move(index.entries);
  heldIndexAt_ = index.old ? -1 : index.start;  // the old form gives way to the new one as a whole
  indexHeld_ = true;
  end_.Reset(index.start, index.size, true);  // whatever is written next goes over the index
  return index.old ? DtmOpenedBy::kOldIndex : DtmOpenedBy::kIndex;
}

bool DtmFile::IsPlausible(const grid::IndexEntry& entry) const {
  if (!settings_.IsAreaPlace(entry.row, entry.col)) return false;
  if (entry.position < grid::kMagicSize + grid::kHeaderSize || entry.position > end_.Next() - smallestBody_)
    return false;
  const std::int64_t start = entry.position - grid::kHeaderSize;
  return start >= settings_.end || entry.position + smallestBody_ <= settings_.start;
}

bool DtmFile::IsAreaChunk(StreamWindow& window, const grid::IndexEntry& entry) const {
  const std::byte* bytes = window.At(entry.position - grid::kHeaderSize, grid::kAreaPrefixSize);
  if (!bytes) return false;
  const grid::ChunkHeader header = grid::LoadHeader(bytes);
  AreaPlace place;
  return header.tag == grid::kArea && header.length >= smallestBody_ &&
         ReadAreaPlaceNearby(window, entry.position, header.length, place) && place.row == entry.row &&
         place.col == entry.col;
}

DtmFile::ClaimList DtmFile::SortClaims(const EntryList& entries) const {
  ClaimList claims;
  claims.reserve(entries.size());
  for (std::uint32_t i = 0; i < entries.size(); ++i) {
    const grid::IndexEntry& entry = entries[i];
    // Of a place that no cell can have, nothing can be kept, not even a shell.
    if (!settings_.IsAreaPlace(entry.row, entry.col)) continue;
    claims.push_back({DtmAreaPos(settings_.areaSize, entry.row, entry.col), i});
  }
  std::sort(claims.begin(), claims.end());
  return claims;
}

std::vector<bool> DtmFile::FindDoubtfulEntries(std::size_t count, const PositionList& order,
                                               const ClaimList& claims) const {
  std::vector<bool> doubtful(count);
  for (std::size_t k = 1; k < order.size(); ++k) {
    if (order[k].first - order[k - 1].first < smallestBody_ + grid::kHeaderSize) {
      doubtful[order[k].second] = doubtful[order[k - 1].second] = true;
    }
  }
  for (std::size_t k = 1; k < claims.size(); ++k) {
    if (claims[k].pos == claims[k - 1].pos) doubtful[claims[k].index] = doubtful[claims[k - 1].index] = true;
  }
  return doubtful;
}

std::vector<bool> DtmFile::FindFalseClaims(const EntryList& entries, const ClaimList& claims) {
  // An index is believed without a look at the areas, except where it contradicts itself: entries that overlap, or two
  // for one place. There the chunks decide, and where both chunks agree, the first of them. An honest index costs one
  // pass. Chunks are looked at in the order of the file, and none for long, so that no index takes more than a few
  // passes.
  std::vector<bool> isFalse(entries.size());
  PositionList order;
  order.reserve(entries.size());
  for (std::uint32_t i = 0; i < entries.size(); ++i) {
    isFalse[i] = !IsPlausible(entries[i]);
    if (!isFalse[i]) order.emplace_back(entries[i].position, i);
  }
  if (!std::is_sorted(order.begin(), order.end())) std::sort(order.begin(), order.end());
  const std::vector<bool> doubtful = FindDoubtfulEntries(entries.size(), order, claims);
  StreamWindow window(*stream_, end_.Next());
  fromIndex_ = {true, false, end_.Next(), {}};
  fromIndex_.areas.reserve(order.size());
  std::int64_t end = 0;
  for (const auto& [position, i] : order) {
    if (doubtful[i]) isFalse[i] = position < end || !IsAreaChunk(window, entries[i]);
    if (isFalse[i]) continue;
    end = position + smallestBody_ + grid::kHeaderSize;
    fromIndex_.areas.push_back(entries[i]);
  }
  for (auto claim = claims.begin(); claim != claims.end();) {
    bool found = false;
    const DtmAreaPos pos = claim->pos;
    for (; claim != claims.end() && claim->pos == pos; ++claim) {
      if (found) isFalse[claim->index] = true;
      found = found || !isFalse[claim->index];
    }
  }
  return isFalse;
}

bool DtmFile::ReadIndexedAreas() {
  openedBy_ = ReadAreaIndex();
  if (openedBy_ == DtmOpenedBy::kNothing) return false;
  const ClaimList claims = SortClaims(heldIndex_);
  const std::vector<bool> isFalse = FindFalseClaims(heldIndex_, claims);
  // Of several claims to one place the one that is believed counts, else the first.
  std::vector<bool> isChosen(heldIndex_.size());
  for (auto claim = claims.begin(); claim != claims.end();) {
    Claim chosen = *claim;
    for (; claim != claims.end() && claim->pos == chosen.pos; ++claim) {
      if (!isFalse[claim->index]) chosen = *claim;
    }
    isChosen[chosen.index] = true;
  }
  areas_.resize(heldIndex_.size());
  for (std::size_t i = 0; i < heldIndex_.size(); ++i) {
    if (isChosen[i]) areas_[i] = MakeIndexedArea(heldIndex_[i], isFalse[i]);
  }
  EnterAreas(claims);
  return true;
}

void DtmFile::EnterAreas(const ClaimList& claims) {
  // The claims are in the order of the map's keys, so it is filled without searching.
  for (const Claim& claim : claims) {
    if (claim.index >= areas_.size() || !areas_[claim.index]) continue;
    areaMap_.emplace_hint(areaMap_.end(), claim.pos, areas_[claim.index].get());
  }
  std::erase(areas_, nullptr);
  for (const auto& area : areas_) NoteExtents(*area);
  areaCount_.store(static_cast<int>(areas_.size()), std::memory_order_release);
}

std::unique_ptr<DtmArea> DtmFile::MakeIndexedArea(const grid::IndexEntry& entry, bool isFalse) {
  auto area = std::make_unique<DtmArea>(this, entry.row, entry.col, stream_.get(), entry.position, entry.lastWritten);
  if (entry.HasRange()) area->SetMinMaxZ(std::bit_cast<float>(entry.lowestZ), std::bit_cast<float>(entry.highestZ));
  if (isFalse) area->MarkUnreadable();
  return area;
}

DtmFile::Walked DtmFile::WalkAreas() const {
  Walked walked;
  StreamWindow window(*stream_, end_.Size());
  ChunkWalk walk(window, grid::kMagicSize, end_.Size() - grid::kMagicSize);
  walked.end = grid::kMagicSize;
  while (walk.Next() && !grid::IsIndexTag(walk.Header().tag)) {
    if (walk.Header().tag == grid::kArea) {
      AreaPlace place;
      if (!ReadAreaPlace(window, walk.Body(), walk.Header().length, place) ||
          !settings_.IsAreaPlace(place.row, place.col)) {
        break;
      }
      walked.claims.push_back(
          {DtmAreaPos(settings_.areaSize, place.row, place.col), static_cast<std::uint32_t>(walked.areas.size())});
      walked.areas.push_back({place, walk.Header().length, walk.Start()});
    }
    walked.end = walk.End();
  }
  walked.readable = !window.HasFailed();

  // Two areas for one place: the first counts, and the walk ends at the second. Told by sorting, which also gives the
  // map its order.
  std::sort(walked.claims.begin(), walked.claims.end());
  std::size_t end = walked.areas.size();
  for (std::size_t i = 1; i < walked.claims.size(); ++i) {
    if (walked.claims[i].pos == walked.claims[i - 1].pos) end = std::min<std::size_t>(end, walked.claims[i].index);
  }
  if (end < walked.areas.size()) walked.end = walked.areas[end].start;
  walked.areas.resize(end);
  return walked;
}

bool DtmFile::ReadAreas() {
  const Walked walked = WalkAreas();
  // Whatever the bytes are, they make a model. Bytes that couldn't be read may be areas that the next one would go
  // over.
  if (!walked.readable) return false;
  areas_.resize(walked.areas.size());
  for (std::size_t i = 0; i < areas_.size(); ++i) {
    const WalkedArea& one = walked.areas[i];
    areas_[i] =
        std::make_unique<DtmArea>(this, one.place.row, one.place.col, stream_.get(), one.start + grid::kHeaderSize, 0);
    areas_[i]->bodyLength_ = one.length;
  }
  EnterAreas(walked.claims);
  openedBy_ = DtmOpenedBy::kWalk;
  walkStoppedAt_ = BelongsAtAnEnd(walked.end) ? -1 : walked.end;
  // The walk may have ended in front of the settings.
  end_.Reset(std::max(walked.end, settings_.end), end_.Size(), false);
  return true;
}

bool DtmFile::BelongsAtAnEnd(long long position) const {
  if (position == end_.Size()) return true;
  StreamWindow window(*stream_, end_.Size());
  const std::byte* bytes = window.At(position, grid::kHeaderSize);
  if (!bytes) return false;
  const grid::ChunkHeader header = grid::LoadHeader(bytes);
  if (grid::IsIndexTag(header.tag) || (header.tag == 0 && header.length == grid::kFillerLength)) return true;
  // Room for an area of whose beginning a power cut has let only a part arrive.
  AreaPlace place;
  return header.tag == grid::kArea && ReadAreaPlaceNearby(window, position + grid::kHeaderSize, header.length, place) &&
         (place.row == grid::kNoPlace || place.col == grid::kNoPlace);
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
  if (IsFollowing()) return false;  // another process may have moved the end
  // This goes over the index. Should the area be gone again before the next one is due, the entries would be those held
  // and yet no longer in the file.
  indexHeld_ = false;
  if (!end_.MakeRoom(settings_) || !stream_->Seek(end_.Next(), DataStream::kFromStart)) return false;
  if (!area.WriteArea(stream_.get(), DtmArea::Target::kRoom)) {
    end_.ForgetRoom();
    return false;
  }
  end_.Advance(grid::kHeaderSize + area.bodyLength_);
  return true;
}

void DtmFile::ForgetAreas() {
  areas_.clear();
  areaMap_.clear();
  areaCount_.store(0, std::memory_order_release);
  lowestRow_ = lowestCol_ = kNoLowest;
  highestRow_ = highestCol_ = kNoHighest;
  heldIndex_.clear();
  heldIndexAt_ = -1;
  indexHeld_ = false;
  deadChunks_.clear();
  fromIndex_ = {};
}

// ---- Writing out

bool DtmFile::SyncWrite() {
  const std::scoped_lock lock(writeMutex_);
  return OpenCount() >= 1 && WriteAll();
}

bool DtmFile::WriteAll() {
  std::vector<DtmArea*> moving;  // those that need another end of the file: emptied ones, and ones without a place
  for (int i = 0; DtmArea* area = GetArea(i); ++i) {
    const std::scoped_lock lock(area->Mutex());
    if (area->IsEmpty() ? area->IsWritten() : !area->IsWritten()) {
      moving.push_back(area);
    } else if (area->IsWritten() && !area->HasReadError() && !area->SyncWrite()) {
      return false;  // of one with a read error the bytes stay as they are
    }
  }
  bool allDone = true;
  if (!moving.empty()) {
    if (IsFollowing()) return false;
    AreaMoves moves(*this);
    for (DtmArea* area : moving) {
      const AreaMoves::Done done = area->IsWritten() ? moves.Remove(*area) : moves.Append(*area);
      if (done == AreaMoves::Done::kFailed) return false;
      allDone = allDone && done == AreaMoves::Done::kAll;
    }
    if (!moves.CarryOut()) return false;
  }
  // The index is written also when a damaged area had to stay: new areas may have gone over the old one, and a walk
  // doesn't get past such an area.
  return WriteAreaIndex() && allDone;
}

bool DtmFile::WriteAreaIndex() {
  for (;;) {
    std::int64_t end = 0;
    {
      const StreamLock lock(*stream_);
      end = end_.Next();
    }
    EntryList entries = GatherEntries();
    const StreamLock lock(*stream_);
    // An area was added meanwhile: an index that doesn't name it would hide it.
    if (end_.Next() != end) continue;
    if (indexHeld_ && entries == heldIndex_) return SyncCells();
    if (IsFollowing()) return false;
    // The next area goes over the index, so the next-write position stays in front of it.
    const bool inPlace = heldIndexAt_ == end && NameSamePlaces(entries, heldIndex_);
    heldIndex_ = std::move(entries);
    heldIndexAt_ = end;
    // One that may not have reached the disk isn't relied on: the next pass writes it again.
    indexHeld_ = end_.WriteIndex(heldIndex_, inPlace);
    unsynced_ = unsynced_ && !indexHeld_;
    return indexHeld_ && ClearDeadChunks();
  }
}

bool DtmFile::ClearDeadChunks() {
  // With the index on the disk nothing refers to them. A walk that finds no index must not meet them either, and the
  // end that was meant for the file may stand in one.
  if (deadChunks_.empty()) return true;
  for (const std::int64_t position : deadChunks_) {
    if (position < end_.Next() && !WriteHeader(position, {grid::kHole, smallestBody_})) return false;
  }
  if (!stream_->Sync()) return false;
  deadChunks_.clear();
  return true;
}

bool DtmFile::WriteHeader(std::int64_t position, grid::ChunkHeader header) {
  std::array<std::byte, grid::kHeaderSize> bytes{};
  grid::StoreHeader(bytes.data(), header);
  return stream_->Seek(position - grid::kHeaderSize, DataStream::kFromStart) &&
         stream_->Write(bytes.data(), bytes.size());
}

bool DtmFile::WriteTag(std::int64_t position, std::int32_t tag) {
  std::array<std::byte, sizeof tag> bytes{};
  grid::Store(bytes.data(), tag);
  return stream_->Seek(position - grid::kHeaderSize, DataStream::kFromStart) &&
         stream_->Write(bytes.data(), bytes.size());
}

DtmFile::EntryList DtmFile::GatherEntries() const {
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
    if (area->HasReadError()) KeepHeldEntry(entry);
    entries.push_back(entry);
  }
  // Only false claims can share a position.
  std::sort(entries.begin(), entries.end(), [](const grid::IndexEntry& one, const grid::IndexEntry& other) {
    return std::tie(one.position, one.row, one.col) < std::tie(other.position, other.row, other.col);
  });
  return entries;
}

void DtmFile::KeepHeldEntry(grid::IndexEntry& entry) const {
  const StreamLock lock(*stream_);
  const auto held = std::find_if(heldIndex_.begin(), heldIndex_.end(), [&](const grid::IndexEntry& one) {
    return one.position == entry.position && one.row == entry.row && one.col == entry.col;
  });
  if (held != heldIndex_.end()) entry = *held;
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
    if (!stream_->Sync() || !ReadFollowedIndex(entries)) return false;
  }
  return Follow(std::move(entries), Trust::kTimes, updater);
}

bool DtmFile::CatchUp(DtmUpdater* updater) {
  if (OpenCount() < 1) return false;
  EntryList entries;
  auto trust = Trust::kIndex;
  {
    const StreamLock lock(*stream_);
    if (!stream_->Sync()) return false;
    if (!ReadFollowedIndex(entries)) {
      if (!WalkForIndex()) return false;
      entries = heldIndex_;
      trust = Trust::kPlaces;
    }
  }
  return Follow(std::move(entries), trust, updater);
}

bool DtmFile::ReadFollowedIndex(EntryList& entries) {
  if (ReadAreaIndex() == DtmOpenedBy::kNothing) return false;
  entries = heldIndex_;
  // Read once more: between two readings that agree no writer was half through with another.
  if (ReadAreaIndex() == DtmOpenedBy::kNothing || heldIndex_ != entries) return false;
  const std::vector<bool> isFalse = FindFalseClaims(entries, SortClaims(entries));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!isFalse[i]) continue;
    // A false claim that the file has had from the beginning harms its own area alone. One that wasn't there before
    // speaks against the index.
    const DtmArea* const area = FindArea(DtmAreaPos(settings_.areaSize, entries[i].row, entries[i].col));
    if (settings_.IsAreaPlace(entries[i].row, entries[i].col) && !(area && area->IsFalseClaim())) return false;
  }
  std::size_t i = 0;
  std::erase_if(entries, [&](const grid::IndexEntry&) { return isFalse[i++]; });
  return true;
}

bool DtmFile::WalkForIndex() {
  if (!stream_->Seek(0, DataStream::kFromEnd)) return false;
  end_.Reset(end_.Next(), stream_->Position(), false);
  const Walked walked = WalkAreas();
  // Behind a place where the walk had to stop there may be more areas.
  if (!walked.readable || !BelongsAtAnEnd(walked.end)) return false;
  end_.Reset(std::max(walked.end, settings_.end), end_.Size(), false);
  heldIndex_.clear();
  heldIndexAt_ = -1;
  indexHeld_ = false;
  fromIndex_ = {};
  for (const WalkedArea& area : walked.areas) {
    heldIndex_.push_back({area.place.row, area.place.col, area.start + grid::kHeaderSize, 0});
  }
  return true;
}

bool DtmFile::Follow(EntryList entries, Trust trust, DtmUpdater* updater) {
  for (const grid::IndexEntry& entry : entries) {
    if (!FollowEntry(entry, trust, updater)) return false;
  }
  if (entries.size() < static_cast<std::size_t>(NumAreas())) SyncRemoved(std::move(entries), updater);
  return true;
}

bool DtmFile::FollowEntry(const grid::IndexEntry& entry, Trust trust, DtmUpdater* updater) {
  DtmArea* area = nullptr;
  {
    const std::scoped_lock lock(fileMutex_);
    area = FindArea(DtmAreaPos(settings_.areaSize, entry.row, entry.col));
    if (!area) AddArea(MakeIndexedArea(entry, false));
  }
  if (!area) {
    if (updater) updater->UpdateArea(entry.row, entry.col, false);
    return true;
  }
  bool mayDiffer = false;
  {
    const std::scoped_lock lock(area->Mutex());
    const bool wasWritten = area->IsWritten();
    if (area->BlockPosition() != entry.position || area->HasReadError()) {
      area->SetBlockPosition(stream_.get(), entry.position);
    }
    // One that can't be read keeps its time, so that the next index brings it up again.
    if (area->HasReadError()) return true;
    const bool isOld = !wasWritten || area->LastWritten() != entry.lastWritten || trust == Trust::kPlaces;
    // Times are whole seconds. Who only looks accepts that; who will write cells back reads afresh what is resident,
    // but for what has been changed here. A shell that has a place again holds nothing of what is there.
    mayDiffer = isOld || (trust == Trust::kIndex && (!area->blocks_.empty() || area->lookedAt_));
    if (isOld ? !area->SyncRead(entry.lastWritten) : mayDiffer && !area->RefreshUnmodified()) return false;
    TakeRange(*area, entry, trust);
  }
  if (mayDiffer && updater) updater->UpdateArea(entry.row, entry.col, true);
  return true;
}

void DtmFile::TakeRange(DtmArea& area, const grid::IndexEntry& entry, Trust trust) {
  // Also at the same time: an untouched reader's index must be the file's to the last byte, or it would write its own.
  if (area.IsModified()) return;
  if (entry.HasRange()) {
    area.SetMinMaxZ(std::bit_cast<float>(entry.lowestZ), std::bit_cast<float>(entry.highestZ));
  } else if (trust == Trust::kPlaces) {
    area.rangeValid_ = false;
  }
}

void DtmFile::SyncRemoved(EntryList entries, DtmUpdater* updater) const {
  std::sort(entries.begin(), entries.end(), LiesBefore);
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
