#pragma once

#include <atomic>
#include <memory>
#include <set>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/repair/SPIKE.h"
#include "vakdtm/services/color/Color.h"
#include "vakdtm/services/color/ColorShade.h"
#include "vakdtm/services/device/Pen.h"
#include "vakdtm/services/device/PixelRect.h"
#include "vakdtm/services/geometry/Page.h"

namespace vak {

class CDC;
class ColorTable;
class CoordinateSystem;
class DtmMultiProcessor;

/// Paints a grid model onto a device, a filled rectangle a cell, as a walker shows the cells: nothing is kept between
/// them, and the picture grows as the walk goes on. `DrawModel` chooses the walker.
///
/// A value becomes a colour through a `ColorTable`. On top of that, as far as asked for: shading by a sun, a view of
/// slopes, marks that other processors put on cells, spikes, and frames around areas. Where several cells fall on a
/// pixel, only those on a grid of steps are painted, each for those beside it. Rows and columns of pixels go with the
/// model's, turned upside down.
///
/// The setters come first, then the walk; afterwards the object may be set up and used again. It owns none of what it
/// is given but its share of the spikes. Runs on the thread that owns the device; it can't be run in parallel.
/// `SetStop` alone may be called by others.
class DtmDrawProcessor : public DtmProcessor {
 public:
  DtmDrawProcessor();
  ~DtmDrawProcessor() override;

  /// What is drawn on. All three are kept by address and have to outlive the walk.
  /// @param system  of the device's pixels. @param view  in model units; nothing is painted beyond it.
  void SetDrawInfo(CDC* device, const CoordinateSystem& system, const Page& view);

  /// What is drawn. @param block  kind of value; 0: none. @param table  has to outlive the walk.
  void SetCellInfo(int block, const ColorTable* table);

  /// @param marks  called for every area and cell that is drawn; what it leaves of a cell's weight, when above 0, marks
  ///               the cell. Null: no marks. One whose `Init` answers false is forgotten.
  /// @param color  of marks and frames. @param frameAreas  whether areas with data are framed, below their cells.
  void SetMarkInfo(DtmMultiProcessor* marks, Color color, bool frameAreas);

  /// @param spikes      shared, not copied; must not be written to during a walk. Empty, or null: no spikes are shown.
  /// @param color       of the spikes when the others keep their colours.
  /// @param keepOthers  false: spikes are red and all other cells with a value green.
  void SetSpikeInfo(std::shared_ptr<std::set<SPIKE>> spikes, Color color, bool keepOthers);

  /// A sun stands in one of eight directions, whichever is nearest. A sun in the north-west (from 292.5 to 337.5
  /// degrees) lights the model from the south-west.
  /// @param azimuth,elevation  degrees. @param heightFactor  by which slopes are exaggerated.
  void SetSunIllumination(bool on, double azimuth, double elevation, double heightFactor);

  /// Colours by the slope at a cell (`DtmAccess::GetGradientValue`) in place of its value.
  void SetGradientMode(bool on) { gradientMode_ = on; }

  /// The table is asked for value x factor + offset. Not so for times and slopes.
  void SetPresentationUnitFactor(double factor) { unitFactor_ = factor; }
  void SetPresentationUnitOffset(double offset) { unitOffset_ = offset; }

  /// Ends the walk with false at the next area or cell. Stays until it is taken back. Any thread may call.
  void SetStop(bool stop) { stop_.exchange(stop); }

  /// @return false when there is nothing to draw, or nothing to draw with or on; the device is as it was then.
  bool Init(DtmAccess& access) override;
  /// Gives the device back its pen and background colour. @return the marks' `Fini`, or true without marks.
  bool Fini() override;
  bool ProcessArea(int row, int col, double& weight) override;
  bool ProcessCell(int row, int col, double& weight) override;

 protected:
  /// The value of a cell, for subclasses to supply another one. @return false for a cell that can't be read or has no
  /// value: `value` is the empty one then, or a value to say that there is one, but nothing to be told by it.
  virtual bool GetCellValue(int row, int col, double& value);
  /// The height of a cell: the block's value when it is a height, else the mean. @return false without one.
  bool GetCellValueZ(int row, int col, double& value);

  /// Whether cells for which `GetCellValue` answered false with a value are painted in the colour for no value.
  void SetShowNoDesign(bool show) { showNoDesign_ = show; }
  void SetNoValueColor(Color color) { noValueColor_ = color; }

  DtmAccess* Access() const { return access_; }
  int Block() const { return block_; }
  CDC* Device() const { return device_; }
  const CoordinateSystem* System() const { return system_; }
  const Page* View() const { return view_; }

 private:
  bool HasDevice() const { return device_ != nullptr && system_ != nullptr && view_ != nullptr; }
  void FindSteps();
  void DrawFrame(const Page& area);
  void DrawMarkStroke(int row, int col);
  /// @param marked  gets whether a stroke is still due. @return false when the cell is done.
  bool MarkCell(int row, int col, double weight, const PixelRect& rect, bool& marked);
  /// @return false when the cell is done, without a stroke.
  bool PaintCell(int row, int col, const PixelRect& rect);
  /// @return whether the cell was painted as a spike or as none.
  bool PaintSpike(int row, int col, const PixelRect& rect);
  /// @param ok  whether `value` is one that the table can be asked for.
  Color FindColor(int row, int col, double value, bool ok);
  Color FindGradientColor(int row, int col);
  Color Shade(int row, int col, double value, bool ok, Color color);
  bool FindSlope(int row, int col, double z, double& slope);
  bool GetNeighbourZ(int row, int col, int rowSteps, int colSteps, double& value);

  CDC* device_ = nullptr;
  const CoordinateSystem* system_ = nullptr;
  const Page* view_ = nullptr;
  int block_ = 0;
  const ColorTable* table_ = nullptr;
  DtmMultiProcessor* marks_ = nullptr;
  Color markColor_ = 250;
  Pen pen_;
  bool smallCells_ = false;
  bool frameAreas_ = false;
  double unitOffset_ = 0.0;
  Color backgroundBefore_ = 0;
  Pen penBefore_;
  DtmAccess* access_ = nullptr;  // null outside a walk
  double cellSize_ = 0.0;        // metres
  double areaSide_ = 0.0;        // metres
  double areaSurface_ = 0.0;     // square metres
  int rowStep_ = 1;              // cells that a rectangle stands for, upwards
  int colStep_ = 1;              // and to the right
  bool areaPartlyVisible_ = true;
  double endOfToday_ = 0.0;   // seconds since 1970
  double rowDistance_ = 0.0;  // metres between painted neighbours
  double colDistance_ = 0.0;
  double diagonalDistance_ = 0.0;
  bool sunOn_ = false;
  double sunElevation_;  // radians
  double ambientLight_ = 0.0;
  double heightFactor_ = 1.0;
  int sunSector_ = 3;
  bool blockIsZ_ = true;
  double unitFactor_ = 1.0;
  std::atomic<bool> stop_{false};
  std::shared_ptr<std::set<SPIKE>> spikes_;  // never null
  Color spikeColor_ = 0;
  bool spikesKeepOthers_ = false;
  bool gradientMode_ = false;
  bool showNoDesign_ = false;
  Color noValueColor_ = 12899809;
  ColorShades shades_;
};

}  // namespace vak
