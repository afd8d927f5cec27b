#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"
#include "vakdtm/store/GridSettings.h"

#include "support/MemoryStream.h"

namespace vak::test {

/// Bytes written out by hand: hexadecimal pairs, blanks between them as one likes, and from ';' to the end of a line a
/// remark. Throws on anything else.
std::vector<std::uint8_t> Hex(std::string_view text);

/// Bytes as people read them: offset, sixteen pairs, the characters that print; one line for each sixteen bytes.
std::string HexDump(const std::vector<std::uint8_t>& bytes);

/// The clock of the whole process stands at this second.
class TimeStands {
 public:
  explicit TimeStands(long long seconds) : scope_(clock_) { At(seconds); }
  void At(long long seconds) { clock_.SetSeconds(seconds); }

 private:
  ManualClock clock_;
  ScopedClock scope_;
};

/// A grid model in memory with one cursor on it, in verbs. What goes wrong in the making or reopening throws: a test
/// whose model isn't there is no test.
class TestGrid {
 public:
  /// A new model, open.
  explicit TestGrid(const GridSettings& settings = {.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}});
  /// A model of these bytes, open.
  explicit TestGrid(std::vector<std::uint8_t> bytes);
  ~TestGrid();

  TestGrid(const TestGrid&) = delete;
  TestGrid& operator=(const TestGrid&) = delete;

  DtmFile& File() { return *file_; }
  DtmAccess& Access() { return *access_; }
  MemoryFile& Memory() { return *memory_; }
  const std::shared_ptr<MemoryFile>& Shared() const { return memory_; }
  const std::vector<std::uint8_t>& Bytes() const { return memory_->bytes; }
  /// The area that holds a cell, null when there is none.
  DtmArea* Area(int row, int col) { return file_->GetArea(row, col, false); }

  bool Sound(double x, double y, double z, long long time = 0) {
    return access_->InsertValue(x, y, z, time, nullptr, nullptr, 0);
  }
  bool Set(int row, int col, int id, double value) { return access_->SetDoubleValue(row, col, id, value, true); }
  bool Clear(int row, int col) { return access_->MakeCellEmpty(row, col); }
  /// A cell's value; the empty one where there is none.
  double Get(int row, int col, int id = dVAL);

  /// Sets `dVAL` of the cells of a drawing: numbers with blanks between, '.' for a cell left alone, the highest row
  /// first, the lowest line being row 0 and the leftmost number column 0.
  void Draw(std::string_view drawing);

  /// Gives up the cursor's areas, writing what they hold, and takes a new cursor.
  void Leave();
  /// The last close of the model: everything is written. The stream is gone afterwards, the bytes stay.
  void Close();
  void Open();
  void Reopen() {
    Close();
    Open();
  }
  /// The same, but with the index made useless in between, so that the chunks are walked.
  void ReopenByWalk();

  // These close the model first if it is open.
  void CutTail(std::size_t count);
  void FlipByte(std::size_t at);

 private:
  std::shared_ptr<MemoryFile> memory_;
  std::unique_ptr<DtmFile> file_;
  std::unique_ptr<DtmAccess> access_;
};

/// The index that a file ends with.
std::vector<grid::IndexEntry> TakeIndex(const std::vector<std::uint8_t>& bytes);
/// Puts an index of these entries in the place of the one that a file ends with.
void PutIndex(std::vector<std::uint8_t>& bytes, const std::vector<grid::IndexEntry>& entries);

/// Whether these bytes open as a model.
bool Opens(const std::vector<std::uint8_t>& bytes);

}  // namespace vak::test
