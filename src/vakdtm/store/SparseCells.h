#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vak {

class DtmArea;

/// Cells of one area that are looked at without making their blocks resident: the last few pieces of rows that were
/// read from the file, since who looks at few cells of many areas looks along rows, and the system reads no less. An
/// area whose blocks were never needed stays so (`DtmArea::ReadUntouched`), and costs a read or two beside the cells'.
///
/// What is in memory wins: a block that is resident gives its cells, and a piece is forgotten once the cells of its
/// block may have changed since it was read, whoever changed them. A plain value; for one thread.
class SparseCells {
 public:
  /// @param slot  of the block, in the file's list. @param out  gets the cell, in the width of the block's letter; 8
  /// bytes at most. @return false when it can't be read, or the letter is unknown. Takes the area lock.
  bool Read(DtmArea& area, int slot, int cell, std::byte* out);

  /// To be called before another area's cells are read. Keeps its memory.
  void Clear();

 private:
  struct Piece {
    int slot = -1;  // none
    int begin = 0;  // cells
    int end = 0;
    std::uint32_t refreshes = 0;  // of the area, when it was read
    std::uint32_t changes = 0;    // of the block
    std::vector<std::byte> bytes;
  };

  static bool ReadPiece(DtmArea& area, int slot, Piece& piece);

  Piece& Oldest();

  std::vector<Piece> pieces_;
  std::size_t next_ = 0;  // the oldest, once there are all
};

}  // namespace vak
