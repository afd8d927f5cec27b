#pragma once

#include <cstddef>
#include <vector>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/geometry/PolyClipper.h"

namespace vak {

class DtmFile;

/// Limits what stands behind it in a `DtmMultiProcessor` to a polygon: it narrows the plan area, here the weight, of
/// areas and cells to the part that lies in the polygon, or outside it when inverted. It does nothing with the cells.
///
/// (1) Exact mode: the weight of a cell is the surface that it has in common with the polygon. Centre-point mode: a
/// cell counts with the weight that it came with, or not at all, by its centre. Areas are weighed exactly in both.
/// (2) A cell or area that no edge enters weighs exactly 0 or exactly its surface: cell size squared, side squared. An
/// edge enters when it reaches in by more than a few units in the last place of its coordinates. (3) The weight is
/// never negative unless inverted, and never above the surface as long as no rings overlap: those add up, so that an
/// area partly outside can count as wholly covered. (4) A polygon without rings limits nothing: what comes keeps its
/// weight. Inverted, what it came with is taken from its surface.
///
/// What it costs: a cell in an area that is wholly in or out, two tests; else a ring is cut to the area once, to each
/// row of the area once, and that to the cells, so that a cell's cost follows the vertices in its row and not the
/// ring's. A walker that shows no areas pays for a cut of the rings with each row. Nothing is allocated once the lists
/// have grown.
///
/// For one thread at a time; `Clone` gives another one its own.
class DtmPolyClipper : public DtmProcessor {
 public:
  /// @param polygon      copied.
  /// @param centrePoint  judge cells by their centre.
  /// @param inverted     cut away the inside.
  DtmPolyClipper(const PolyClipLine& polygon, bool centrePoint, bool inverted);

  DtmProcessor* Clone() override;

  /// @return false, which ends the walk, when the polygon isn't valid or there is no file.
  bool Init(DtmAccess& access) override;

  /// Sets the weight to what the polygon leaves of the whole area, whatever it was. The cells of another area may be
  /// shown only after this. @return true.
  bool ProcessArea(int row, int col, double& weight) override;

  /// @return true. The weight stays as it came in an area that is wholly inside, and in centre-point mode.
  bool ProcessCell(int row, int col, double& weight) override;

  virtual bool IsSelfIntersecting() { return polygon_.IsSelfIntersecting(); }

  /// Tests a position between cells by its point, whatever the mode: (row, col) is the centre of that cell, and
  /// fractions lie towards the next. Sets the weight to 0 or leaves it. @return true.
  bool PipFractionalCell(double row, double col, double& weight) {
    if (partlyCovered_) {
      TestPoint(row, col, weight);
    } else if (notCovered_) {
      weight = 0;
    }
    return true;
  }

  /// Replaces the polygon by one ring. To be called before a walk.
  /// @param xy     X and Y of each vertex in turn; read during the call only.
  /// @param count  of vertices; 0 or less leaves a polygon without rings.
  /// @return false, with nothing changed, when `xy` is null.
  bool Set2D(double* xy, int count);

  const Page& GetExtents() const { return extents_; }

 protected:
  DtmPolyClipper(const DtmPolyClipper& other) = default;
  DtmPolyClipper& operator=(const DtmPolyClipper& other) = default;

  const PolyClipLine& Polygon() const { return polygon_; }
  DtmFile* File() const { return file_; }
  double CellSize() const { return cellSize_; }

 private:
  /// A ring where an edge of it enters an area, a row of it and a cell.
  struct Ring {
    PolyClipper area;
    PolyClipper row;
    bool inRow = false;  // an edge enters the row
  };
  /// Rings, of which the first `count` are in use; the others keep their lists' memory.
  struct Rings {
    std::vector<Ring> list;
    std::size_t count = 0;
    int whole = 0;  // rings that cover all of the area; holes negative

    Ring& Add();
  };
  /// Surfaces of rings and holes, added up.
  class Weight;

  void TakeExtents();
  void CutArea(int row, int col, Weight& weight);
  void CutRow(int row);
  void CutRowOfArea(int row);
  void CutRowOfPolygon(int row);
  void WeighCell(int row, int col, Weight& weight);
  bool IsInArea(int row, int col) const;
  void TestPoint(double row, double col, double& weight) const;

  PolyClipLine polygon_;
  bool centrePoint_;
  bool inverted_;
  Page extents_;
  PolyClipper clipper_;
  bool partlyCovered_ = false;  // the cells of the current area need a test each
  bool notCovered_ = false;     // the current area lies wholly outside
  DtmFile* file_ = nullptr;
  double cellSize_ = 0;
  double areaSide_ = 0;
  double cellSurface_ = 0;
  double areaSurface_ = 0;

  int areaSize_ = 0;
  bool hasArea_ = false;  // `rings_` are those of the area at:
  int areaRow_ = 0;
  int areaCol_ = 0;
  Rings rings_;
  bool hasRow_ = false;  // they are cut to the row:
  int row_ = 0;
  int rowWhole_ = 0;  // rings that cover all of the row; holes negative
};

}  // namespace vak
