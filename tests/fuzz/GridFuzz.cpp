#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "support/MemoryStream.h"

// Takes any bytes for a grid model: reads every cell, updates and clears some, takes an area out, and opens the result
// again. Beyond what the sanitizers see, the cells of all areas that weren't touched have to come back bit for bit,
// whatever the index, the other areas and the bytes between them say.
namespace {

using vak::DtmAccess;
using vak::DtmArea;
using vak::DtmAreaPos;
using vak::DtmDataBlock;
using vak::DtmFile;
using vak::test::MemoryFile;
using vak::test::MemoryStream;

constexpr std::size_t kLargestInput = 1 << 15;
constexpr int kLargestWrittenBody = 1 << 16;  // beyond it an area would only cost time
constexpr int kAreasLookedAt = 64;
constexpr int kLargestEmptied = 4096;  // cells

/// The values of an area's blocks that can be read, as bits; an unreadable block has none.
using Cells = std::vector<std::vector<std::uint64_t>>;
using Picture = std::map<DtmAreaPos, Cells>;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

std::vector<std::uint64_t> ReadBlock(DtmAccess& access, const DtmArea& area, int id) {
  double value = 0;
  const int width = DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id));
  const bool readable = access.GetDoubleValue(area.BottomLeftRow(), area.BottomLeftCol(), id, value);
  Require(width > 0 || !readable, "a block without known cells is not readable");
  std::vector<std::uint64_t> bits;
  if (!readable) return bits;
  // The block's bytes lie in the input, which bounds the work.
  const int cells = area.AreaSize() * area.AreaSize();
  bits.reserve(static_cast<std::size_t>(cells));
  for (int cell = 0; cell < cells; ++cell) {
    int row = 0;
    int col = 0;
    area.CalcRowCol(cell, row, col);
    access.GetDoubleValue(row, col, id, value);
    bits.push_back(std::bit_cast<std::uint64_t>(value));
  }
  return bits;
}

Picture ReadAll(DtmFile& file) {
  Picture picture;
  DtmAccess access(&file);
  const int areas = std::min(file.NumAreas(), kAreasLookedAt);
  for (int i = 0; i < areas; ++i) {
    const DtmArea* const area = file.GetArea(i);
    Cells& cells = picture[DtmAreaPos(area)];
    Require(cells.empty(), "an area's place is given once");
    for (int b = 0; b < std::min(file.NumBlockIds(), 64); ++b) {
      cells.push_back(ReadBlock(access, *area, file.GetBlockId(b)));
    }
  }
  return picture;
}

void RequireKept(const Picture& before, const Picture& after, const std::set<DtmAreaPos>& touched) {
  if (after.size() >= static_cast<std::size_t>(kAreasLookedAt)) return;  // the order decides which ones are seen
  for (const auto& [pos, cells] : before) {
    if (touched.contains(pos)) continue;
    const bool anyData = std::any_of(cells.begin(), cells.end(), [](const auto& block) { return !block.empty(); });
    const auto found = after.find(pos);
    if (found == after.end()) {
      Require(!anyData, "an untouched area is still there");
      continue;
    }
    Require(!anyData || found->second == cells, "an untouched area keeps its cells");
  }
}

void Update(DtmFile& file, const DtmArea* area, std::set<DtmAreaPos>& touched) {
  DtmAccess access(&file);
  access.SetCacheSize(1);
  const float uncertainty = 0.25F;
  const auto sound = [&](int row, int col, double z) {
    double x = 0;
    double y = 0;
    file.CalcXY(row, col, x, y);
    int backRow = 0;
    int backCol = 0;
    file.CalcRowCol(x, y, backRow, backCol);
    touched.insert(DtmAreaPos(file.AreaSize(), backRow, backCol));
    (void)access.InsertValue(x, y, z, 1'000'000, &uncertainty, nullptr, 3);
    (void)access.SetValue(x, y, z + 1, 1'000'001, nullptr, &uncertainty, 4);
    (void)access.InsertValue(x, y, z - 1, 1'000'002, &uncertainty, &uncertainty, 5);
  };
  sound(0, 0, -10);
  sound(-1, -1, -11);
  touched.insert(DtmAreaPos(file.AreaSize(), 0, -1));
  for (int b = 0; b < std::min(file.NumBlockIds(), 8); ++b) {
    access.SetDoubleValue(0, -1, file.GetBlockId(b), 1.5, true);
    access.ClearCellData(0, 0, file.GetBlockId(b));
  }
  access.MakeCellEmpty(-1, -1);
  if (!area) return;
  const int row = area->BottomLeftRow();
  const int col = area->BottomLeftCol();
  touched.insert(DtmAreaPos(area));
  if (file.IsAllowed(row) && file.IsAllowed(col)) sound(row, col, -12);
  access.MakeCellEmpty(row, col);
}

/// Clears every cell, so that the area leaves the file and another one takes its place.
void EmptyArea(DtmFile& file, const DtmArea& area) {
  DtmAccess access(&file);
  const int cells = area.AreaSize() * area.AreaSize();
  for (int cell = 0; cell < std::min(cells, kLargestEmptied); ++cell) {
    int row = 0;
    int col = 0;
    area.CalcRowCol(cell, row, col);
    if (!access.MakeCellEmpty(row, col)) return;
  }
}

bool AreasAreSmall(const DtmFile& file) { return file.SmallestBody() <= kLargestWrittenBody; }

/// Reads all, then changes the file; a reader of the same bytes follows.
void Work(const std::shared_ptr<MemoryFile>& bytes, unsigned choice, Picture& before, std::set<DtmAreaPos>& touched) {
  DtmFile file(new MemoryStream(bytes), false);
  DtmFile reader(new MemoryStream(bytes), false);
  if (!file.Open()) return;
  Require(reader.Open(), "what opens once opens twice");
  before = ReadAll(file);
  Require(ReadAll(reader) == before, "two readers see the same");
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  Require(file.GetAreaExtents(x0, y0, x1, y1) == (file.NumAreas() > 0), "there are extents where there are areas");
  if (AreasAreSmall(file)) {
    const int areas = file.NumAreas();
    DtmArea* const area = areas > 0 ? file.GetArea(static_cast<int>(choice % static_cast<unsigned>(areas))) : nullptr;
    if ((choice & 0x100U) != 0 && area) {
      touched.insert(DtmAreaPos(area));
      EmptyArea(file, *area);
    } else {
      Update(file, area, touched);
    }
    file.SyncWrite();
    reader.SyncRead(nullptr);
    ReadAll(reader);
    RequireKept(before, ReadAll(file), touched);
  }
  file.Close();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLargestInput) return 0;
  auto bytes = std::make_shared<MemoryFile>();
  bytes->bytes.assign(data, data + size);
  // A sum over the bytes decides what is done, so that every kind of work meets every kind of file.
  unsigned choice = 0;
  for (std::size_t i = 0; i < size; ++i) choice = choice * 31 + data[i];
  choice ^= choice >> 16;
  for (int round = 0; round < 2; ++round) {
    Picture before;
    std::set<DtmAreaPos> touched;
    Work(bytes, choice, before, touched);
    DtmFile again(new MemoryStream(bytes), false);
    if (!again.Open()) {
      Require(before.empty(), "a model that held areas opens again");
      break;
    }
    RequireKept(before, ReadAll(again), touched);
    choice = (choice >> 5) ^ 0x100U;
  }
  return 0;
}
