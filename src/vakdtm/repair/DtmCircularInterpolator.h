#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/repair/SourceWindow.h"
#include "vakdtm/store/DtmAccess.h"

namespace vak {

/// Fills holes of a model from the cells around them: the mean, by inverse distance, of at most one neighbour in each
/// of eight directions, where the neighbours cover half a circle or more. At the edge of the surveyed ground, with data
/// on one side alone, a hole stays one.
///
/// A neighbour has hits, in a model that records them, so that a run doesn't feed on its own output: a filled cell has
/// none. In a model without `iNUM` every cell is a neighbour, one without a value too, which uses up its direction, and
/// cells filled before are taken for measured ones; then, and where a cell with hits lacks a value and gets one, what
/// comes out depends on the order of the walk.
///
/// A cell is a hole when it lacks one of the values to be filled, and all of them are made anew then. Distances are
/// those of cell centres; for `dMIN` and `dMAX` those to the neighbour's sounding itself, where its offsets are known.
/// Neighbours are looked for in rings, each from its upper right corner to the left; the first in each direction
/// counts.
///
/// Every hole is looked at with what its surroundings hold then, whoever changes them and when. Where an area is
/// announced, that costs little for each: where the hits are is remembered for as long as none change, and the blocks
/// around stay open until the walk is elsewhere, at its end or stopped, and then new begun or gone.
///
/// Takes 16 (2 radius + 1)^2 bytes, shared by its clones, and for itself a bit or two for each cell of an area with its
/// margin. For one thread; `Clone` gives another its own.
class DtmCircularInterpolator final : public DtmProcessor {
 public:
  /// A table of 256 MB; `Init` refuses more.
  static constexpr int kLargestRadius = 2000;

  /// @param block   id of the block to fill; 0: every height that the model records, `dVAL`, `dMIN` and `dMAX`.
  /// @param radius  how far a neighbour may be, in cells; with 0 or less nothing is ever filled.
  DtmCircularInterpolator(int block, int radius);
  DtmCircularInterpolator(const DtmCircularInterpolator& other);
  DtmCircularInterpolator& operator=(const DtmCircularInterpolator&) = delete;
  ~DtmCircularInterpolator() override;

  DtmProcessor* Clone() override;

  /// How many areas besides those around the one announced it keeps open, for walks that come back to them; none at
  /// first. Before `Init`.
  void KeepAreas(std::size_t count) { keep_ = count; }

  /// Adds to what is filled and forgets nothing: a second walk of the same model fills every value twice over, to the
  /// same end. Of another model, cells that lack a kind which the first one had, and this one hasn't, are holes.
  /// @return false when the access has no file, or the radius is too large.
  bool Init(DtmAccess& access) override;

  /// Sets the weight to 0 where the area and the margin around it hold no data.
  /// @param row,col  of the area's bottom-left cell. With others nothing is remembered, each cell looked at by itself.
  /// @return true.
  bool ProcessArea(int row, int col, double& weight) override;

  /// Fills the cell if it is a hole that can be filled. @return false only when a write failed.
  bool ProcessCell(int row, int col, double& weight) override;

  /// What the cell would be filled with, if every cell were a neighbour, with hits or without. Changes nothing.
  /// @param value  gets the last of the values to be filled; stays as it came when the cell isn't a hole or can't be
  ///               filled.
  /// @return true.
  bool InterpolateCell(int row, int col, double& value);

  /// Gives up the blocks held for the areas announced last. @return true.
  bool Fini() override;

  /// Whether what becomes of the cells of the area announced last may depend on what became of others before, or others
  /// on them. To be asked before its first cell.
  bool DependsOnOrder();

  /// Of the cells shown since it was made, or copied: the holes that got a value, and those that didn't.
  std::int64_t NumFilled() const { return filled_; }
  std::int64_t NumLeft() const { return left_; }

 private:
  struct Polar {
    double distance;  // cells
    double angle;     // degrees
  };
  struct Target {
    int block;
    bool isZ;
    double sum;      // of weighted values
    double weights;  // sum of weights
  };
  /// The angles that the neighbours cover, from `first` upwards through `last`.
  class Arc {
   public:
    void Widen(double angle);
    double Width() const;

   private:
    bool exists_ = false;
    double first_ = 0;
    double last_ = 0;
  };
  struct Neighbour {
    int row, col;  // in the window
    int place;     // in the order of search
    double distance;
  };

  bool AreAreasEmpty(std::int64_t firstRow, std::int64_t firstCol, std::int64_t lastRow, std::int64_t lastCol);
  const Polar& PolarOf(int dRow, int dCol) const;
  bool UsesOffsets() const { return offsets_[0] != 0; }
  double DistanceOf(int dRow, int dCol, double x, double y) const;
  static void Add(Target& target, double value, double distance);
  void ClearSums();
  bool Write(int row, int col);
  bool FillCell(int row, int col);

  // By the accesses, cell by cell.
  bool IsComplete(int row, int col);
  bool Search(int row, int col, bool needsHits);
  void SearchRing(int row, int col, int ring, bool needsHits, Arc& arc, unsigned& directions);
  bool IsNeighbour(int row, int col, int dRow, int dCol, bool needsHits, double& distance);

  // By the window, rows and columns in it.
  void MakeWindow();
  void MoveWindow(int row, int col);
  bool IsCompleteInWindow(int row, int col);
  bool SearchWindow(int row, int col);
  template <int kDirection>
  bool FindInWindow(int row, int col, Neighbour& found);
  bool IsInCircle(Neighbour& found, int dRow, int dCol);
  void AddFromWindow(const Neighbour& neighbour);

  int block_;
  int radius_;
  DtmAccess* access_ = nullptr;  // the walker's
  DtmAccess own_{nullptr};       // neighbours are read through it, so that the walker's keeps its areas
  int areaSize_ = 1;
  double cellSize_ = 1.0;
  bool hasHits_ = false;
  std::array<int, 2> offsets_{};  // blocks of the sounding's place in its cell; 0: it isn't asked for
  std::shared_ptr<const std::vector<Polar>> pattern_;  // of (2 radius + 1) squared cells
  std::vector<Target> targets_;
  std::vector<int> reach_;  // of each ring: how far from the axis its cells may lie to be in the circle
  std::size_t keep_ = 0;
  std::unique_ptr<SourceWindow> window_;  // null: it doesn't pay
  std::int64_t filled_ = 0;
  std::int64_t left_ = 0;
};

}  // namespace vak
