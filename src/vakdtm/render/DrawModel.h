#pragma once

#include "vakdtm/services/geometry/Page.h"

namespace vak {

class CoordinateSystem;
class DtmAccess;
class DtmProcessor;

/// Walks the part of a model that a view shows, for a drawing, in the way that costs least: as long as cells are as
/// large as pixels, area by area, so that each area's blocks are loaded once; where several cells fall on a pixel,
/// only those that stand for the others, so that the cost follows the pixels and not the cells. The picture is the same
/// either way, pixel for pixel, but for the left column and the lowest row: there a cell may reach into the view whose
/// area lies outside, which walks by areas skip.
///
/// @param processor  a `DtmDrawProcessor`, or a `DtmMultiProcessor` whose last member is one (behind a polygon, say).
/// @param access     of the model; its cache has another size afterwards, or may have.
/// @param system     of the device that is drawn on: its scale decides.
/// @param view       in model units.
/// @param showAreas  whether `ProcessArea` is to be called where several cells fall on a pixel, too: for frames, marks
///                   and polygons.
/// @return as walks do: false when the processor's `Init` answered false, it was stopped, or its `Fini` answered false.
bool DrawModel(DtmProcessor& processor, DtmAccess& access, const CoordinateSystem& system, const Page& view,
               bool showAreas);

}  // namespace vak
