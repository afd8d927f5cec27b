#pragma once

#include <cstdint>
#include <vector>

#include "vakdtm/services/files/DataStream.h"
#include "vakdtm/store/ChunkWalk.h"
#include "vakdtm/store/DtmBlockId.h"

namespace vak {

/// What a grid file fixes for all its areas, in the `attr` chunk behind the magic. A plain value; nothing is checked
/// before `IsUsable` is asked.
struct GridSettings {
  double cellSize = 1.0;                  ///< metres
  int areaSize = 64;                      ///< cells per side of an area
  std::vector<int> blockIds{dVAL, iNUM};  ///< in the order in which every area holds them; an id may stand twice
  std::int64_t start = 0;                 ///< offset of the `attr` chunk that says so
  std::int64_t end = 0;                   ///< offset behind that chunk

  /// Whether a model can have these: cell size finite and above 0, area size at least 1, some block, areas that fit 31
  /// bits.
  bool IsUsable() const;
  /// Bytes that the cells of a block take; 0 for a data-type letter that isn't known. Requires: usable.
  int BlockSize(int id) const;
  /// Body length of an area that holds the blocks and nothing else; -1 when it doesn't fit 31 bits.
  std::int64_t SmallestBody() const;
  /// The largest row or column that a cell may have, and the smallest negated: area and neighbours fit the type.
  /// Requires: usable.
  int LargestAllowed() const;
  /// Whether an area may have its bottom-left cell here: on the lattice, and some cell of it allowed. Requires:
  /// usable.
  bool IsAreaPlace(int row, int col) const;
};

/// Reads the settings of a file whose magic has been looked at. The first `attr` on the top level counts, and in it the
/// first chunk of each kind; what else is there is passed over.
/// @param missing  gets, unless it is null, the tag of the chunk that isn't there or is too short (`attr`, `csiz`,
/// `asiz`, `bids`).
/// @return false when one is missing; `settings` is untouched then. True says nothing of the values: ask `IsUsable`.
bool ReadGridSettings(StreamWindow& window, GridSettings& settings, std::int32_t* missing = nullptr);

}  // namespace vak
