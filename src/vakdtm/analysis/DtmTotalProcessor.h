#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/store/CellValue.h"

namespace vak {

class BaseVAKMessage;
class CFile;

/// What the cells of a model, or of a part of it, amount to: surfaces, hit count, mean height and its deviation,
/// deepest and highest point, latest time; and a report on it.
///
/// Driven by a walker, mostly behind a polygon clipper in a `DtmMultiProcessor`. A cell counts by its plan area, all of
/// the cell or what a polygon leaves of it. *Used* is a cell with a `dVAL`. A cell counts as often as it was hit; one
/// without a hit count, and one that was filled, as if hit once.
///
/// The destructor reports, if a walk has run to its end; it does so on its own thread, and the object must outlive the
/// walk. A copy reports as well. A second walk starts anew, but for the duration, which goes on adding up. Belongs to
/// one thread; can't be run in parallel.
///
/// Known and kept: where a model has no `dMIN`, the deepest height is the lowest `dVAL`, and the centre of its cell
/// becomes the position of the *highest*; the rectangle of `SetRect` judges only those extremes of which both offsets
/// within the cell are known.
class DtmTotalProcessor : public DtmProcessor {
 public:
  /// Reports nothing.
  DtmTotalProcessor() = default;

  /// @param showResults  the report goes to the message log, line by line, and as a message to the user.
  /// @param clipName     names the polygon in the report; empty: not mentioned.
  /// @param file         gets the report as one line of a delimited list; null: none. Not owned, outlives this object.
  ///                     Whether writing went well is asked of the file.
  /// @param writeHeader  a line of headings comes first.
  DtmTotalProcessor(bool showResults, std::wstring clipName, CFile* file, bool writeHeader);

  /// The line of headings that a delimited list gets now, without its end: by the current project's units and the marks
  /// of the user's locale. For who appends to a list that is there.
  static std::wstring Headings();

  DtmTotalProcessor(const DtmTotalProcessor&) = default;
  DtmTotalProcessor& operator=(const DtmTotalProcessor&) = default;

  /// Reports.
  ~DtmTotalProcessor() override;

  /// An extreme whose place within its cell is known counts only when it is in this rectangle, metres.
  void SetRect(const Page& rect);
  /// @param log  gets the report when results are shown; not owned, outlives this object; may be null.
  void SetMessageLog(BaseVAKMessage* log) { messageLog_ = log; }
  /// For `UnusedArea` and the report alone: which cells are visited is the walker's and the clipper's affair. Copied.
  void SetClippingPolygon(const PolyClipLine& polygon) { polygon_ = polygon; }

  void ClearExtraBlockIds();
  /// Asks for the first value of a further kind that the walk meets. To be said before the walk.
  void AddExtraBlockId(int id);
  /// That value; the empty one where none was met. @param index  by order of adding; not checked.
  double GetExtraData(std::size_t index) const { return extraValues_[index]; }

  /// In whole cells.
  double UsedCells() const { return usedArea_ / cellArea_; }
  // Square metres.
  double EmptyArea() const { return emptyArea_; }
  double UsedArea() const { return usedArea_; }
  /// What of the clipping polygon isn't used, be there cells or none.
  double UnusedArea() const;

  /// The mean height, each hit and each square metre counting alike. @return false when nothing counts.
  bool GetAverage(double& average) const;
  /// How many soundings the cells stand for; the type's end when there are more.
  int TotalNumber() const;
  /// Sum of the cells' durations. @return false when it is 0.
  bool TotalDuration(float& duration) const;
  /// Deviation of the soundings from the mean height, from the cells' means, hits and deviations.
  /// @return false below one and a half hits.
  bool GetStandardDeviation(double& deviation) const;
  /// Quadratic mean of the deviations of those cells that were hit more than once, cell by cell, whatever their area.
  /// @return false when there is none.
  bool GetStandardDeviationSd(double& deviation) const;
  /// The deepest point. @return false when there is none. The position is the empty value where it isn't known.
  bool GetMinimum(double& z, double& x, double& y) const { return minimum_.Get(z, x, y); }
  /// The highest point, likewise.
  bool GetMaximum(double& z, double& x, double& y) const { return maximum_.Get(z, x, y); }
  /// Seconds since 1970; 0 when there is none.
  long LatestTime() const { return latestTime_; }

  bool Init(DtmAccess& access) override;
  bool Fini() override;
  /// False, which ends the walk, when the area can't be read.
  bool ProcessArea(int row, int col, double& weight) override;
  bool ProcessCell(int row, int col, double& weight) override;

 private:
  struct Extreme {
    bool have = false;
    double z = EmptyDouble();
    double x = EmptyDouble();
    double y = EmptyDouble();

    bool Get(double& outZ, double& outX, double& outY) const;
  };
  /// Which kinds the model has: asking cell by cell for one that it hasn't is what takes the time in a plain model.
  struct Kinds {
    bool val, num, sdv, dur, min, xmn, ymn, max, xmx, ymx, tim;
  };

  /// @return the cell's value; the empty one without the kind, the cell or a value.
  double Read(bool present, int row, int col, int id) const;
  void AddHeight(int row, int col, double z, double weight);
  void AddMinimum(int row, int col, double z);
  void AddMaximum(int row, int col, double z);
  /// Takes over an extreme of the cell with its place, unless that is known and outside the rectangle.
  void StoreExtreme(Extreme& extreme, double z, int row, int col, double dx, double dy) const;

  struct Heights;
  Heights GetHeights() const;
  double ReportedEmptyArea() const;
  void Report() const;
  void WriteFigures(CFile& file) const;
  void ShowFigures() const;

  bool showResults_ = false;
  BaseVAKMessage* messageLog_ = nullptr;
  double emptyArea_ = 0.0;
  double usedArea_ = 0.0;
  double zSum_ = 0.0;  // of height times area; nothing reads it
  double hitArea_ = 0.0;
  double hitZSum_ = 0.0;
  double hitSquareSum_ = 0.0;
  int cellsWithDeviation_ = 0;
  double deviationSquareSum_ = 0.0;
  double durationSum_ = 0.0;
  Extreme minimum_;
  Extreme maximum_;
  Page rect_;
  bool rectSet_ = false;
  long latestTime_ = 0;
  std::vector<int> extraIds_;
  std::vector<double> extraValues_;  // one for one
  DtmAccess* access_ = nullptr;
  Kinds kinds_{};
  double cellArea_ = 0.0;
  bool finished_ = false;
  PolyClipLine polygon_;
  std::wstring clipName_;
  CFile* file_ = nullptr;
  bool writeHeader_ = false;
};

}  // namespace vak
