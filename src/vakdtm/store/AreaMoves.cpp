#include "vakdtm/store/AreaMoves.h"

#include <algorithm>

#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

namespace vak {
namespace {

/// Planned moves keep their cells in memory; beyond this they are carried out.
constexpr std::int64_t kMostInMemory = std::int64_t{64} << 20;

}  // namespace

AreaMoves::AreaMoves(DtmFile& file) : file_(file), fileLock_(file.fileMutex_) {}

AreaMoves::~AreaMoves() { CarryOut(); }

void AreaMoves::FindPlaced() {
  if (placedKnown_) return;
  placed_.clear();
  for (const auto& area : file_.areas_) {
    const std::scoped_lock lock(area->Mutex());
    if (area->IsWritten() && !area->IsFalseClaim()) placed_.push_back({area->BlockPosition(), area.get()});
  }
  std::sort(placed_.begin(), placed_.end(), [](const Placed& a, const Placed& b) { return a.position < b.position; });
  placedKnown_ = true;
}

AreaMoves::Done AreaMoves::KeepInPlace(DtmArea& area, Done otherwise) {
  return area.SyncWrite() ? otherwise : Done::kFailed;
}

AreaMoves::Done AreaMoves::RemoveLast(DtmArea& area) {
  const std::int64_t position = area.BlockPosition();
  if (!area.MakeUnwritten()) return Done::kFailed;
  vacated_.push_back(position);
  placed_.pop_back();
  // Strange files have areas in front of the settings too; these don't move the end.
  end_ = std::max(position - grid::kHeaderSize, file_.settings_.end);
  return Done::kAll;
}

bool AreaMoves::DropEmptyAreasBehind(std::int64_t hole) {
  // Those behind the last area with data have no more place in the file. One that has got a sounding since it was
  // emptied is an area with data.
  while (!placed_.empty() && placed_.back().position > hole) {
    DtmArea& last = *placed_.back().area;
    const std::scoped_lock lock(last.Mutex());
    if (!last.IsEmpty()) return true;
    if (RemoveLast(last) == Done::kFailed) return false;
  }
  return true;
}

AreaMoves::Done AreaMoves::Remove(DtmArea& area) {
  FindPlaced();
  std::unique_lock<RecursiveMutex> lock(area.Mutex());
  if (!area.IsWritten() || !area.IsEmpty()) return Done::kAll;  // dropped already, or no longer empty
  const std::int64_t hole = area.BlockPosition();
  // A planned move into a place behind this one would have to be thought of anew.
  const auto liesBehind = [&](const Move& move) { return move.hole > hole; };
  if (std::any_of(moves_.begin(), moves_.end(), liesBehind)) {
    lock.unlock();
    if (!CarryOut()) return Done::kFailed;
    return Remove(area);
  }
  if (!DropEmptyAreasBehind(hole)) return Done::kFailed;
  if (placed_.back().position <= hole) return RemoveLast(area);

  DtmArea& last = *placed_.back().area;
  const std::scoped_lock lastLock(last.Mutex());
  last.CreateDataBlocks();
  // An area that can't be read can't be moved: the emptied one stays where it is, and no other comes to harm.
  if (last.HasReadError()) return KeepInPlace(area, Done::kAll);
  if (last.BlockSize() != area.BlockSize()) return KeepInPlace(area, Done::kPart);
  const std::int64_t from = last.BlockPosition();
  if (!last.MakeUnwritten()) return KeepInPlace(area, Done::kPart);
  moves_.push_back({&last, hole});
  placed_.pop_back();
  vacated_.push_back(from);
  end_ = std::max(from - grid::kHeaderSize, file_.settings_.end);
  inMemory_ += area.BlockSize();
  if (!area.MakeUnwritten()) return Done::kFailed;
  const auto entry =
      std::lower_bound(placed_.begin(), placed_.end(), hole,
                       [](const Placed& placed, std::int64_t position) { return placed.position < position; });
  entry->area = &last;
  if (inMemory_ < kMostInMemory) return Done::kAll;
  lock.unlock();
  return CarryOut() ? Done::kAll : Done::kFailed;
}

AreaMoves::Done AreaMoves::Append(DtmArea& area) {
  if (!CarryOut()) return Done::kFailed;
  const std::scoped_lock lock(area.Mutex());
  if (area.IsWritten() || area.IsEmpty()) return Done::kAll;
  placedKnown_ = false;
  return file_.WriteArea(area) ? Done::kAll : Done::kFailed;
}

bool AreaMoves::TagHoles(std::int32_t tag) {
  const StreamLock lock(*file_.stream_);
  for (const Move& move : moves_) {
    if (!file_.WriteTag(move.hole, tag)) return false;
    // A walk ends at the first area that it meets for the second time, so the furthest has to be at its new place
    // before the next one is: moves are in this order.
    if (tag == grid::kArea && !file_.stream_->Sync()) return false;
  }
  return file_.stream_->Sync();
}

bool AreaMoves::WriteMoved() {
  for (const Move& move : moves_) {
    const std::scoped_lock lock(move.area->Mutex());
    const StreamLock streamLock(*file_.stream_);
    if (!file_.stream_->Seek(move.hole - grid::kHeaderSize, DataStream::kFromStart) ||
        !move.area->WriteArea(file_.stream_.get(), DtmArea::Target::kHole)) {
      return false;
    }
  }
  const StreamLock streamLock(*file_.stream_);
  return file_.stream_->Sync();
}

bool AreaMoves::CarryOut() {
  if (end_ < 0) return true;
  bool done = false;
  {
    const StreamLock lock(*file_.stream_);
    file_.indexHeld_ = false;
    done = file_.end_.DropIndex();
  }
  done = done && (moves_.empty() || (TagHoles(grid::kHole) && WriteMoved() && TagHoles(grid::kArea)));
  const StreamLock lock(*file_.stream_);
  done = done && file_.end_.MoveBack(end_);
  if (done) {
    std::erase_if(file_.deadChunks_, [&](std::int64_t position) { return position >= file_.end_.Next(); });
  } else {
    GiveUp();
  }
  moves_.clear();
  vacated_.clear();
  end_ = -1;
  inMemory_ = 0;
  placedKnown_ = placedKnown_ && done;
  return done;
}

void AreaMoves::GiveUp() {
  // The end stays where it was, and what was moved is in memory once more, to go behind it. All places that it had or
  // was to have still look like areas.
  for (const Move& move : moves_) {
    const std::scoped_lock lock(move.area->Mutex());
    if (move.area->IsWritten() && !move.area->MakeUnwritten()) file_.SetLostData();
    vacated_.push_back(move.hole);
  }
  file_.deadChunks_.insert(file_.deadChunks_.end(), vacated_.begin(), vacated_.end());
}

}  // namespace vak
