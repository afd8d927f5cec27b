#pragma once

#include <atomic>

#include "vakdtm/services/geometry/Page.h"

namespace vak {

class DtmAccess;

/// Finds the rectangle of the cells that have a value of a kind, edges of cells included, in model units.
///
/// Only the outermost areas are read, from each side inwards until no further one can reach out further: the cost
/// follows the border of a survey and not its surface.
/// @param limit    looks at areas that meet it only, and cuts the answer with it; invalid: no limit.
/// @param running  the search ends early when it reads false.
/// @return false, with `extents` unchanged, when no cell has one there or the search was ended.
bool FindDataExtents(DtmAccess& access, int block, const Page& limit, const std::atomic<bool>& running, Page& extents);

}  // namespace vak
