#include "vakdtm/repair/DtmCircularFill.h"

#include <algorithm>

#include "vakdtm/frame/AtomicCounter.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/repair/DtmCircularInterpolator.h"
#include "vakdtm/services/jobs/ParallelProcessor.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmAreaPos.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/FloorToInt.h"

namespace vak {
namespace {

/// For areas that will be needed again, as neighbours of others.
constexpr std::uint64_t kMemory = std::uint64_t{256} << 20;

/// So many that no thread is left with a long one at the end.
constexpr std::size_t kRunsOfAThread = 8;

/// Cuts rows or columns to those whose middle lies between two coordinates.
void CutToMiddles(double from, double to, double cellSize, int& lowest, int& highest) {
  const auto middle = [cellSize](int cell) { return (cell + 0.5) * cellSize; };
  // A cell more than may be in, for rounding.
  lowest = std::max(lowest, std::min(FloorToInt(from / cellSize - 1), highest));
  highest = std::min(highest, std::max(FloorToInt(to / cellSize), lowest));
  while (lowest <= highest && middle(lowest) < from) ++lowest;
  while (lowest <= highest && middle(highest) > to) --highest;
}

}  // namespace

/// What one thread fills with.
class DtmCircularFill::Filler {
 public:
  Filler(DtmCircularFill& fill, unsigned long threads)
      : fill_(fill), access_(fill.access_), interpolator_(fill.block_, fill.radius_) {
    const auto body = static_cast<std::uint64_t>(access_.GetDtmFile()->SmallestBody());
    interpolator_.KeepAreas(kMemory / body / threads);
    if (!fill.polygon_.IsEmpty()) clipper_ = std::make_unique<DtmPolyClipper>(fill.polygon_, true, false);
  }

  bool Init() { return interpolator_.Init(access_) && (clipper_ == nullptr || clipper_->Init(access_)); }

  /// @param inOrder  nobody else is filling, and what comes before is done.
  bool FillArea(const Place& place, bool inOrder) {
    const DtmFile& file = *access_.GetDtmFile();
    const int size = file.AreaSize();
    const int bottom = place.areaRow * size;
    const int left = place.areaCol * size;
    double weight = 1;
    if (clipper_ != nullptr) clipper_->ProcessArea(bottom, left, weight);
    if (weight > 0) interpolator_.ProcessArea(bottom, left, weight);
    if (!(weight > 0)) return true;
    if (!inOrder && interpolator_.DependsOnOrder()) {
      fill_.PutOff(place);
      return true;
    }
    const CellRange& range = fill_.range_;
    const int lastRow = std::min(range.highestRow, bottom + (size - 1));
    const int lastCol = std::min(range.highestCol, left + (size - 1));
    for (int row = std::max(range.lowestRow, bottom); row <= lastRow; ++row) {
      if (fill_.IsStopped()) return false;
      if (!FillRow(row, std::max(range.lowestCol, left), lastCol)) return false;
    }
    WriteOut(bottom, left);
    return true;
  }

  bool Fini() { return interpolator_.Fini(); }
  std::int64_t NumFilled() const { return interpolator_.NumFilled(); }
  std::int64_t NumLeft() const { return interpolator_.NumLeft(); }

 private:
  /// What was filled of an area goes to the file at once, while the other threads are filling theirs: at the end they
  /// would all wait for the file. What can't be written now stays to be written.
  void WriteOut(int bottom, int left) {
    DtmArea* const area = access_.GetArea(bottom, left, false);
    if (area != nullptr && area->IsModified()) area->SyncWrite();
  }

  bool FillRow(int row, int firstCol, int lastCol) {
    double weight = 1;
    for (int col = firstCol; col <= lastCol; ++col) {
      if (clipper_ != nullptr) {
        weight = 1;
        clipper_->ProcessCell(row, col, weight);
        if (!(weight > 0)) continue;
      }
      if (!interpolator_.ProcessCell(row, col, weight)) return false;
    }
    return true;
  }

  DtmCircularFill& fill_;
  DtmAccess access_;
  DtmCircularInterpolator interpolator_;
  std::unique_ptr<DtmPolyClipper> clipper_;  // null: everywhere
};

DtmCircularFill::DtmCircularFill(DtmAccess& access, int block, int radius)
    : access_(access), block_(block), radius_(radius), threads_(GetTotalNumberOfCores()) {}

DtmCircularFill::~DtmCircularFill() = default;

double DtmCircularFill::GetProgress() const {
  const std::int64_t total = total_.load(std::memory_order_relaxed);
  return total == 0 ? 0.0 : static_cast<double>(done_.load(std::memory_order_relaxed)) / static_cast<double>(total);
}

bool DtmCircularFill::Process() {
  const DtmFile* const file = access_.GetDtmFile();
  if (file == nullptr) return false;
  filled_ = left_ = 0;
  done_ = total_ = 0;
  places_.clear();
  late_.clear();
  if (!FindRange()) return true;
  // Filled cells become sources, which may bring any area into reach.
  const bool spreads = block_ == iNUM || !file->HasBlockId(iNUM);
  if (spreads && fillGaps_) return FillWholeRange();
  FindPlaces();
  total_ = static_cast<std::int64_t>(places_.size());
  if (spreads || threads_ < 2 || places_.size() < 2) return FillInOrder(places_);
  if (!FillTogether()) return false;
  std::sort(late_.begin(), late_.end());
  return late_.empty() || FillInOrder(late_);
}

/// @return false when there are no cells.
bool DtmCircularFill::FindRange() {
  const DtmFile& file = *access_.GetDtmFile();
  range_ = {};
  for (int i = 0; const DtmArea* const area = file.GetArea(i); ++i) {
    const int row = area->BottomLeftRow();
    const int col = area->BottomLeftCol();
    const int last = file.AreaSize() - 1;
    if (i == 0) range_ = {row, row + last, col, col + last};
    range_.lowestRow = std::min(range_.lowestRow, row);
    range_.highestRow = std::max(range_.highestRow, row + last);
    range_.lowestCol = std::min(range_.lowestCol, col);
    range_.highestCol = std::max(range_.highestCol, col + last);
  }
  if (rect_ && !range_.IsEmpty()) {
    CutToMiddles(rect_->bottom(), rect_->top(), file.CellSize(), range_.lowestRow, range_.highestRow);
    CutToMiddles(rect_->left(), rect_->right(), file.CellSize(), range_.lowestCol, range_.highestCol);
  }
  return !range_.IsEmpty();
}

/// The areas with cells in the range, and for gaps those from which one of them may be in reach.
void DtmCircularFill::FindPlaces() {
  const DtmFile& file = *access_.GetDtmFile();
  const int size = file.AreaSize();
  const int reach = fillGaps_ && radius_ > 0 ? (radius_ - 1) / size + 1 : 0;
  for (int i = 0; const DtmArea* const area = file.GetArea(i); ++i) {
    AddPlacesAround({CalcAreaIndex(size, area->BottomLeftRow()), CalcAreaIndex(size, area->BottomLeftCol())}, reach);
  }
  std::sort(places_.begin(), places_.end());
  places_.erase(std::unique(places_.begin(), places_.end()), places_.end());
}

void DtmCircularFill::AddPlacesAround(const Place& place, int reach) {
  const CellRange areas = range_.Areas(access_.GetDtmFile()->AreaSize());
  const int lowestCol = std::max(areas.lowestCol, place.areaCol - reach);
  const int highestCol = std::min(areas.highestCol, place.areaCol + reach);
  for (int row = std::max(areas.lowestRow, place.areaRow - reach);
       row <= std::min(areas.highestRow, place.areaRow + reach); ++row) {
    for (int col = lowestCol; col <= highestCol; ++col) places_.push_back({row, col});
  }
}

void DtmCircularFill::PutOff(const Place& place) {
  const std::scoped_lock lock(mutex_);
  late_.push_back(place);
}

bool DtmCircularFill::Finish(Filler& filler, bool done) {
  const std::scoped_lock lock(mutex_);
  filled_ += filler.NumFilled();
  left_ += filler.NumLeft();
  return done && filler.Fini();
}

bool DtmCircularFill::FillTogether() {
  /// Claims places until there are no more.
  class Member final : public Processor {
   public:
    /// @param run  places that follow one another and are claimed at once: neighbours share what they look at.
    Member(DtmCircularFill& fill, unsigned long threads, AtomicCounter& counter, std::size_t run)
        : fill_(fill), filler_(std::make_unique<Filler>(fill, threads)), counter_(counter), run_(run) {}

    bool Process() override {
      const bool done = fill_.Finish(*filler_, filler_->Init() && FillPlaces());
      filler_.reset();  // which writes what it holds, on this thread
      return done;
    }

   private:
    bool FillPlaces() {
      const std::vector<Place>& places = fill_.places_;
      for (;;) {
        const std::size_t first = static_cast<std::size_t>(counter_.Increment()) * run_;
        if (first >= places.size()) return true;
        for (std::size_t i = first; i < std::min(first + run_, places.size()); ++i, ++fill_.done_) {
          if (IsStopped() || !filler_->FillArea(places[i], false)) return false;
        }
      }
    }

    DtmCircularFill& fill_;
    std::unique_ptr<Filler> filler_;
    AtomicCounter& counter_;
    const std::size_t run_;
  };

  AtomicCounter counter;
  ParallelProcessor group;
  const unsigned long threads = std::min<unsigned long>(threads_, places_.size());
  const std::size_t run = std::max<std::size_t>(1, places_.size() / (threads * kRunsOfAThread));
  for (unsigned long i = 0; i < threads; ++i) {
    group.AddProcessor(std::make_unique<Member>(*this, threads, counter, run).release());
  }
  return group.Initialize() && group.Process();
}

bool DtmCircularFill::FillInOrder(const std::vector<Place>& places) {
  total_ = done_ + static_cast<std::int64_t>(places.size());
  Filler filler(*this, 1);
  bool done = filler.Init();
  for (auto place = places.begin(); done && place != places.end(); ++place, ++done_) {
    done = !IsStopped() && filler.FillArea(*place, true);
  }
  return Finish(filler, done);
}

bool DtmCircularFill::FillWholeRange() {
  const CellRange areas = range_.Areas(access_.GetDtmFile()->AreaSize());
  total_ = areas.NumRows();
  Filler filler(*this, 1);
  bool done = filler.Init();
  for (int row = areas.lowestRow; done && row <= areas.highestRow; ++row, ++done_) {
    for (int col = areas.lowestCol; done && col <= areas.highestCol; ++col) {
      done = !IsStopped() && filler.FillArea({row, col}, true);
    }
  }
  return Finish(filler, done);
}

}  // namespace vak
