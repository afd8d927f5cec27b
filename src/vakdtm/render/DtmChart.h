#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "vakdtm/render/ChartContour.h"
#include "vakdtm/render/ChartLayout.h"
#include "vakdtm/render/DtmValueSample.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

namespace vak {

class CDC;
class CoordinateSystem;
class DtmAccess;
class DtmProcessor;

/// What a chart of a grid model is to be like.
struct ChartSettings {
  int block = 0;  ///< kind of value
  /// Name of a built-in table; empty: the one that suits the kind.
  std::string colors;
  /// A table that is taken as it is, in place of a built-in one, in the unit of heights shown.
  std::optional<ColorTable> table;
  /// Where the colours of a built-in table begin and end, low below high; none: at the middle 99 per cent of the cells
  /// painted.
  struct Range {
    double low = 0;
    double high = 0;
  };
  std::optional<Range> range;
  bool isSlope = false;  ///< colours by the slope of the mean heights
  struct Sun {
    double azimuth = 45;    ///< degrees
    double elevation = 45;  ///< degrees
    double factor = 3;      ///< by which slopes are exaggerated
  };
  std::optional<Sun> sun;
  Page rect;             ///< what to show, m; invalid: all cells with a value
  PolyClipLine polygon;  ///< limits it to cells whose centre lies in it; without rings: doesn't
  bool frameAreas = false;
  int width = 1600;  ///< of the picture, pixels
  bool isBare = false;
  bool hasLegend = false;
  bool hasScaleBar = false;
  std::wstring title;
  double lengthFactor = 1;  ///< from metres to the unit in which coordinates are shown
  std::wstring lengthUnit = L"m";
  double heightFactor = 1;  ///< the same of heights
  std::wstring heightUnit = L"m";
};

/// A whole chart of a grid model on any device: cells, contours, and what a chart has around them.
///
/// `Look` comes first, then `Paint` as often as one likes. Costs what its pixels cost: cells are read as
/// the drawing reads them. For one thread at a time; `Stop` and `Progress` may be called by others.
class DtmChart {
 public:
  /// Why there is no chart.
  enum class Fault {
    kNone,
    kStopped,
    kNoValue,     ///< no cell has a value there
    kNoneShown,   ///< cells have, but none of them stands for a pixel
    kTooNarrow,   ///< there is no room for all of it; or, when bare, the picture would be too high
    kNoMemory,    ///< for the picture of the cells
    kUnreadable,  ///< the walk over the model failed, or the contours did
  };

  /// @param access  of the model; has to outlive this.
  DtmChart(DtmAccess& access, ChartSettings settings);
  ~DtmChart();

  DtmChart(const DtmChart&) = delete;
  DtmChart& operator=(const DtmChart&) = delete;

  /// Finds the data and the range of colours. @param measure  of the device that is drawn on later, or one like it.
  Fault Look(const TextMeasure& measure);

  /// What contours are of: the heights that are shown, or the mean heights where something else is.
  int ContourBlock() const;
  /// What they are limited to: what can be seen, in the polygon; without rings: nothing. Behind `Look`.
  PolyClipLine ContourPolygon() const;
  /// The range that levels of contours make sense in, as heights are shown: that of the cells painted, but for spikes
  /// that stand out by more than the range of all others. Behind `Look`.
  Fault FindContourRange(double& lowest, double& highest);
  /// The table of colours, and how large the picture is and where everything goes. Behind `Look`.
  const ColorTable& Table() const { return table_; }
  const ChartLayout& Layout() const { return layout_; }

  /// Paints all of it onto a device of the layout's size. A device with dots per inch of its own is no hindrance: a
  /// pixel is a pixel.
  /// @param contours  asked for once, when the cells are there; empty: none.
  Fault Paint(CDC& device, const ContourSource& contours = {});

  /// Ends `Look` and `Paint` early, now and later.
  void Stop() { running_ = false; }
  /// How far `Look` or `Paint` is with the cells, 0 to 1.
  double Progress() const { return progress_; }

 private:
  Fault FindView();
  bool Arrange(const TextMeasure& measure);
  Fault TakeSample(DtmValueSample& sample);
  bool MakeTable();
  std::wstring LegendTitle() const;
  double UnitFactor() const;
  const Page& PaintedPart() const;
  Fault PaintCells(CDC& device);
  Fault PaintContours(CDC& device, const ContourSource& contours);
  bool Walk(DtmProcessor& processor, const CoordinateSystem& system, bool needsAreas);

  DtmAccess& access_;
  const ChartSettings settings_;
  std::atomic<bool> running_{true};
  std::atomic<double> progress_{0};
  Page data_;
  ColorTable table_;
  double low_ = 0;  // ends of the table
  double high_ = 1;
  ChartLayout layout_;
  std::unique_ptr<DtmValueSample> sample_;
};

}  // namespace vak
