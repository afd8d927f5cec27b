#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "vakdtm/frame/CellRange.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/jobs/Processor.h"

namespace vak {

class DtmAccess;
class DtmCircularInterpolator;

/// Fills the holes of a model by a `DtmCircularInterpolator`, on several threads at a time.
///
/// Areas are filled by rows of them from the bottom, each from left to right, and so are the cells in an area. What
/// comes out is what one thread makes in this order, cell for cell, however many there are: areas where the order
/// matters are left to one thread, behind the others. In a model without hit counts that is all of them.
///
/// For one thread; `Stop` and `GetProgress` may be called by others. A stop leaves what is filled so far.
class DtmCircularFill : public Processor {
 public:
  /// @param access  of the model, not owned; it goes to other areas. Its updater is told of the cells on this thread,
  ///                copies of it on others.
  /// @param block,radius  as `DtmCircularInterpolator` takes them.
  DtmCircularFill(DtmAccess& access, int block, int radius);
  ~DtmCircularFill() override;

  // What is to be filled, before `Process`.

  /// Limits it to the cells whose centre lies in a rectangle (metres), edges included.
  void SetRect(const Page& rect) { rect_ = rect; }
  /// Limits it to the cells whose centre lies in a polygon, which is copied.
  void SetPolygon(const PolyClipLine& polygon) { polygon_ = polygon; }
  /// Whether areas that are missing in the rectangle of those that the model has are filled as well; at first they
  /// aren't.
  void SetFillGaps(bool fill) { fillGaps_ = fill; }
  /// How many threads there may be; at first as many as cores. 0 is as 1.
  void SetThreads(unsigned long threads) { threads_ = threads; }

  /// @return false when it was stopped, a cell couldn't be written, or the access has no file.
  bool Process() override;
  double GetProgress() const override;

  // Behind `Process`.

  /// Cells that got a value.
  std::int64_t NumFilled() const { return filled_; }
  /// Holes that were looked at and stayed: in areas with nothing in reach none is looked at.
  std::int64_t NumLeft() const { return left_; }

 private:
  struct Place {
    int areaRow, areaCol;
    bool operator<(const Place& other) const {
      return areaRow != other.areaRow ? areaRow < other.areaRow : areaCol < other.areaCol;
    }
    bool operator==(const Place& other) const = default;
  };
  class Filler;

  bool FindRange();
  void FindPlaces();
  void AddPlacesAround(const Place& place, int reach);
  bool FillTogether();
  bool FillInOrder(const std::vector<Place>& places);
  bool FillWholeRange();
  bool Finish(Filler& filler, bool done);
  void PutOff(const Place& place);

  DtmAccess& access_;
  const int block_;
  const int radius_;
  std::optional<Page> rect_;
  PolyClipLine polygon_;
  bool fillGaps_ = false;
  unsigned long threads_;
  CellRange range_;            // of cells
  std::vector<Place> places_;  // of areas, in order
  std::mutex mutex_;
  std::vector<Place> late_;  // guarded by mutex_: where the order matters
  std::atomic<std::int64_t> done_{0};
  std::atomic<std::int64_t> total_{0};
  std::int64_t filled_ = 0;
  std::int64_t left_ = 0;
};

}  // namespace vak
