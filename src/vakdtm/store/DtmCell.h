#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "vakdtm/store/DtmDataBlock.h"

namespace vak {

/// Typed pointer to one cell of a block, for processors that work on blocks directly.
///
/// For callers that hold the area lock or work alone on the model: a plain reference, no protection against other
/// threads. The block must be resident and held open for as long as the pointer is used, and after a change the caller
/// says `SetModified` on it. T is the cell type of the block's letter: c unsigned char, d double, f float, i int,
/// t std::int32_t, u unsigned int.
template <typename T>
class DtmCell {
  static_assert(std::is_same_v<T, unsigned char> || std::is_same_v<T, std::int32_t> ||
                std::is_same_v<T, unsigned int> || std::is_same_v<T, float> || std::is_same_v<T, double>);

 public:
  /// @param cell  index within the area, `DtmArea::CalcCell`; not checked.
  DtmCell(DtmDataBlock* block, int cell)
      : cell_(reinterpret_cast<T*>(block->CellData() + static_cast<std::size_t>(cell) * sizeof(T))) {}

  T& operator*() const { return *cell_; }

 private:
  T* cell_;
};

}  // namespace vak
