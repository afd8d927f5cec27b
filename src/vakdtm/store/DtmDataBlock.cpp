#include "vakdtm/store/DtmDataBlock.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <limits>
#include <mutex>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

namespace vak {
namespace {

// Other threads read and update resident cells while they go to the file or come from it, so no system call may touch
// them: they pass through a scratch buffer, copied cell by cell, in pieces that bound its size.
constexpr std::size_t kScratchSize = std::size_t{1} << 18;

template <typename T>
void LoadCells(const std::byte* cells, std::byte* out, std::size_t bytes) {
  const T* from = reinterpret_cast<const T*>(cells);
  for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
    const T value = LoadCell(from + i);
    std::memcpy(out + i * sizeof(T), &value, sizeof(T));
  }
}

template <typename T>
void StoreCells(std::byte* cells, const std::byte* in, std::size_t bytes) {
  T* to = reinterpret_cast<T*>(cells);
  for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
    T value;
    std::memcpy(&value, in + i * sizeof(T), sizeof(T));
    StoreCell(to + i, value);
  }
}

void LoadCells(int bytesPerCell, const std::byte* cells, std::byte* out, std::size_t bytes) {
  if (bytesPerCell == 8) return LoadCells<std::uint64_t>(cells, out, bytes);
  if (bytesPerCell == 4) return LoadCells<std::uint32_t>(cells, out, bytes);
  LoadCells<std::uint8_t>(cells, out, bytes);
}

void StoreCells(int bytesPerCell, std::byte* cells, const std::byte* in, std::size_t bytes) {
  if (bytesPerCell == 8) return StoreCells<std::uint64_t>(cells, in, bytes);
  if (bytesPerCell == 4) return StoreCells<std::uint32_t>(cells, in, bytes);
  StoreCells<std::uint8_t>(cells, in, bytes);
}

template <typename T, typename Take>
void ForEachValue(const std::byte* cells, int bytes, Take take) {
  const T* from = reinterpret_cast<const T*>(cells);
  const int count = bytes / static_cast<int>(sizeof(T));
  for (int i = 0; i < count; ++i) {
    const T value = LoadCell(from + i);
    if (!IsEmptyValue(value)) take(value);
  }
}

}  // namespace

DtmDataBlock::DtmDataBlock(DtmArea* area, int id, int blockSize) : area_(area), id_(id), size_(blockSize) {}

void DtmDataBlock::SetBlockPosition(DataStream* stream, long long position) {
  stream_ = stream;
  position_ = position;
}

void DtmDataBlock::FillCells() {
  const std::scoped_lock lock(area_->Mutex());
  std::array<std::byte, 8> fill{};
  fill.fill(static_cast<std::byte>(FillByte()));
  const int width = BytesPerCell();
  if (width == 0) return;
  for (int at = 0; at < size_; at += width) {
    StoreCells(width, cells_.get() + at, fill.data(), static_cast<std::size_t>(width));
  }
}

void DtmDataBlock::MakeEmpty() {
  const std::scoped_lock lock(area_->Mutex());
  if (cells_) {
    FillCells();
    PutFlags(kModified | kEmpty);
  } else if (!IsEmpty()) {
    // Were the cells left in the file and the area kept for what comes into its other blocks, they would be back after
    // the next opening.
    state_.fetch_or(stream_ ? kEmpty | kStale : kEmpty, std::memory_order_relaxed);
  }
}

bool DtmDataBlock::Open() {
  const std::scoped_lock lock(area_->Mutex());
  if (!cells_) {
    // Nobody else sees these cells before the lock is given back, so they are filled without ceremony.
    auto cells = std::make_unique_for_overwrite<std::byte[]>(static_cast<std::size_t>(size_));
    if (IsInFileOnly()) {
      const StreamLock streamLock(*stream_);
      if (!ReadPlace(0, cells.get(), static_cast<std::size_t>(size_))) return false;
      PutFlags(0);
    } else {
      std::memset(cells.get(), FillByte(), static_cast<std::size_t>(size_));
      PutFlags((state_.load(std::memory_order_relaxed) & kStale) | kEmpty);
    }
    cells_ = std::move(cells);
  }
  openCount_.fetch_add(1, std::memory_order_acq_rel);
  return true;
}

bool DtmDataBlock::ReadCells(int cell, int count, std::byte* out) {
  const int width = BytesPerCell();
  const std::int64_t begin = std::int64_t{cell} * width;
  const auto bytes = static_cast<std::size_t>(count) * static_cast<std::size_t>(width);
  if (IsInFileOnly()) {
    const StreamLock streamLock(*stream_);
    return ReadPlace(begin, out, bytes);
  }
  if (cells_) {
    LoadCells(width, cells_.get() + begin, out, bytes);
  } else {
    std::memset(out, FillByte(), bytes);
  }
  return true;
}

void DtmDataBlock::Close() {
  if (openCount_.fetch_sub(1, std::memory_order_acq_rel) > 1) return;
  const std::scoped_lock lock(area_->Mutex());
  Release();
}

void DtmDataBlock::Release() {
  // Between the count going down and the lock being taken, another thread may have opened the block again.
  if (openCount_.load(std::memory_order_acquire) >= 1 || !cells_) return;
  if (IsModified()) {
    if (!stream_) return;  // the only copy
    if (!area_->SyncWrite()) area_->GetDtmFile()->SetLostData();
    ClearModified();
  }
  cells_.reset();
}

bool DtmDataBlock::WriteCells(DataStream* stream) const {
  const auto total = static_cast<std::size_t>(size_);
  std::byte* const scratch = area_->GetDtmFile()->Scratch(std::min(total, kScratchSize));
  for (std::size_t done = 0; done < total;) {
    const std::size_t piece = std::min(total - done, kScratchSize);
    if (cells_) {
      LoadCells(BytesPerCell(), cells_.get() + done, scratch, piece);
    } else {
      std::memset(scratch, FillByte(), piece);
    }
    if (!stream->Write(scratch, piece)) return false;
    done += piece;
  }
  return true;
}

bool DtmDataBlock::ReadPlace(std::int64_t begin, std::byte* out, std::size_t count) {
  if (!stream_->Seek(position_ + begin, DataStream::kFromStart) || !stream_->Read(out, count)) return false;
  // Where another process writes, a removed area's place may have become another area's or the index's before this one
  // hears of it. It goes over the beginning first, so a beginning that still is there speaks for the cells just read.
  return !area_->GetDtmFile()->IsFollowing() || area_->IsStillThere();
}

bool DtmDataBlock::SyncWrite() {
  const std::scoped_lock lock(area_->Mutex());
  if (!stream_) return false;
  if (!NeedsWriting() || (IsModified() && !cells_)) return true;
  const StreamLock streamLock(*stream_);
  if (area_->GetDtmFile()->IsFollowing()) return false;  // the place may have become another's
  if (!stream_->Seek(position_, DataStream::kFromStart)) return false;
  if (!WriteCells(stream_)) return false;
  area_->GetDtmFile()->NoteCellsWritten();
  ClearModified();
  return true;
}

bool DtmDataBlock::SyncRead() {
  const std::scoped_lock lock(area_->Mutex());
  if (!stream_) return false;
  if (cells_) {
    const StreamLock streamLock(*stream_);
    const auto total = static_cast<std::size_t>(size_);
    std::byte* const scratch = area_->GetDtmFile()->Scratch(total);
    if (!ReadPlace(0, scratch, total)) return false;
    StoreCells(BytesPerCell(), cells_.get(), scratch, total);
  }
  PutFlags(0);
  return true;
}

bool DtmDataBlock::MakeUnwritten() {
  const std::scoped_lock lock(area_->Mutex());
  const bool holdsData = !IsEmpty();
  if (holdsData && !Open()) return false;
  stream_ = nullptr;
  position_ = -1;
  PutFlags(holdsData ? kModified : kEmpty);
  if (holdsData) Close();  // modified and without a place: the cells stay
  return true;
}

bool DtmDataBlock::WriteBlock(DataStream* stream) {
  if (stream_ || !Open()) return false;
  std::array<std::byte, grid::kHeaderSize> header{};
  grid::StoreHeader(header.data(), {id_, size_});
  bool written = stream->Write(header.data(), header.size());
  const std::int64_t position = stream->Position();
  written = written && WriteCells(stream);
  if (written) {
    SetBlockPosition(stream, position);
    ClearModified();
  }
  Close();
  return written;
}

bool DtmDataBlock::TakePlace(DataStream* stream) {
  if (stream_) return false;
  const std::int64_t position = stream->Position() + grid::kHeaderSize;
  if (!stream->Seek(position + size_, DataStream::kFromStart)) return false;
  SetBlockPosition(stream, position);
  ClearModified();
  return true;
}

void DtmDataBlock::FindMinMax(float& lo, float& hi) const {
  if (IsEmpty()) return;
  if (DataType() == 'd') {
    double lowest = std::numeric_limits<double>::max();
    double highest = -std::numeric_limits<double>::max();
    bool any = false;
    ForEachValue<double>(cells_.get(), size_, [&](double value) {
      any = true;
      if (value < lowest) lowest = value;
      if (value > highest) highest = value;
    });
    if (!any) return;
    lo = std::min(lo, static_cast<float>(lowest));
    hi = std::max(hi, static_cast<float>(highest));
  } else if (DataType() == 'f') {
    ForEachValue<float>(cells_.get(), size_, [&](float value) {
      if (value < lo) lo = value;
      if (value > hi) hi = value;
    });
  }
}

bool DtmDataBlock::HoldsOnlyFill() const {
  const auto fill = static_cast<std::byte>(FillByte());
  return std::all_of(cells_.get(), cells_.get() + size_, [&](const std::byte& cell) {
    return static_cast<std::byte>(LoadCell(reinterpret_cast<const std::uint8_t*>(&cell))) == fill;
  });
}

int DtmDataBlock::GetBytesPerCell(char letter) {
  switch (letter) {
    case 'c':
      return 1;
    case 'd':
      return 8;
    case 'f':
    case 'i':
    case 't':
    case 'u':
      return 4;
    default:
      return 0;
  }
}

int DtmDataBlock::GetFillByte(char letter) { return letter == 'd' || letter == 'f' ? 0xFF : 0; }

bool DtmDataBlock::GetBlockInfo(int id, int& bytesPerCell, int& fillByte) {
  const char letter = GetDataType(id);
  bytesPerCell = GetBytesPerCell(letter);
  if (bytesPerCell == 0) return false;
  fillByte = GetFillByte(letter);
  return true;
}

}  // namespace vak
