#include "vakdtm/store/SparseCells.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// Enough for a cell and its neighbours in the rows before and behind it, in two blocks.
constexpr std::size_t kPieces = 6;

/// What the system reads for a single byte.
constexpr int kPieceBytes = 4096;

}  // namespace

bool SparseCells::Read(DtmArea& area, int slot, int cell, std::byte* out) {
  const std::scoped_lock lock(area.Mutex());
  const int width = DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(area.GetDtmFile()->GetBlockId(slot)));
  const auto bytes = static_cast<std::size_t>(width);
  if (width == 0) return false;
  std::uint32_t changes = 0;  // as a block begins with
  if (!area.IsUntouched()) {
    DtmDataBlock* const block = area.FindDataBlockAt(slot);
    if (block == nullptr) return false;
    if (!block->IsInFileOnly()) return block->ReadCells(cell, 1, out);
    // Also taken by who opens the block, so that a piece read before may be read again for nothing, but is never stale.
    changes = block->NumChanges();
  }
  const std::uint32_t refreshes = area.NumRefreshes();
  for (const Piece& piece : pieces_) {
    if (piece.slot != slot || cell < piece.begin || cell >= piece.end) continue;
    if (piece.refreshes != refreshes || piece.changes != changes) continue;
    std::memcpy(out, piece.bytes.data() + static_cast<std::size_t>(cell - piece.begin) * bytes, bytes);
    return true;
  }
  const int size = area.AreaSize();
  const int row = cell / size * size;
  const int count = kPieceBytes / width;
  Piece& piece = Oldest();
  piece.slot = -1;
  piece.begin = row + (cell - row) / count * count;
  piece.end = std::min(piece.begin + count, row + size);
  piece.bytes.resize(static_cast<std::size_t>(piece.end - piece.begin) * bytes);
  if (!ReadPiece(area, slot, piece)) return false;
  piece.slot = slot;
  piece.refreshes = refreshes;
  piece.changes = changes;
  std::memcpy(out, piece.bytes.data() + static_cast<std::size_t>(cell - piece.begin) * bytes, bytes);
  return true;
}

bool SparseCells::ReadPiece(DtmArea& area, int slot, Piece& piece) {
  const int count = piece.end - piece.begin;
  if (area.IsUntouched()) {
    const DtmArea::Reading reading = area.ReadUntouched(slot, piece.begin, count, piece.bytes.data());
    if (reading != DtmArea::Reading::kElsewhere) return reading == DtmArea::Reading::kDone;
  }
  DtmDataBlock* const block = area.FindDataBlockAt(slot);
  return block != nullptr && block->ReadCells(piece.begin, count, piece.bytes.data());
}

void SparseCells::Clear() {
  for (Piece& piece : pieces_) piece.slot = -1;
  next_ = 0;
}

SparseCells::Piece& SparseCells::Oldest() {
  if (pieces_.size() < kPieces) return pieces_.emplace_back();
  Piece& oldest = pieces_[next_];
  next_ = (next_ + 1) % kPieces;
  return oldest;
}

}  // namespace vak
