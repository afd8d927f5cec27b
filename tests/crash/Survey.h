#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

#include "crash/DiskRecording.h"
#include "support/TestGrid.h"

namespace vak::test {

/// What a model of the tests is made of.
struct GridShape {
  int areaSize = 16;
  std::vector<int> blocks{dVAL, iNUM};
  bool canShorten = true;

  int Cells() const { return areaSize * areaSize; }
};

/// Areas have numbers; these are their bottom-left cells, on both sides of the origin.
constexpr int kAreasInARow = 8;
constexpr int kMostAreas = 64;
inline int RowOf(const GridShape& shape, int area) { return shape.areaSize * (area / kAreasInARow - 2); }
inline int ColOf(const GridShape& shape, int area) { return shape.areaSize * (area % kAreasInARow - 3); }
/// -1 for a place that no area of the tests has.
inline int AreaAt(const GridShape& shape, int row, int col) {
  const int up = row / shape.areaSize + 2;
  const int right = col / shape.areaSize + 3;
  if (up < 0 || right < 0 || right >= kAreasInARow) return -1;
  const int area = up * kAreasInARow + right;
  return area < kMostAreas && RowOf(shape, area) == row && ColOf(shape, area) == col ? area : -1;
}

/// A value says in its digits when and where it was put. Moments count from 1; 0 is "empty".
class CellCode {
 public:
  static constexpr int kMostMoments = 250;

  static std::uint32_t Of(int moment, int area, int block, int cell) {
    return static_cast<std::uint32_t>(((moment * kMostAreas + area) * 4 + block) * 256 + cell);
  }

  /// What a cursor is to be given for it.
  static double Value(int id, std::uint32_t code) {
    // A third has no byte that many values share, so that halves of two never make up a third one.
    return DtmDataBlock::GetDataType(id) == 'd' ? code / 3.0 : code;
  }

  /// The cell's bytes; how many they are is the block's matter.
  static std::array<std::uint8_t, 8> Bytes(int id, int moment, int area, int block, int cell) {
    std::array<std::uint8_t, 8> bytes{};
    const char letter = DtmDataBlock::GetDataType(id);
    if (moment == 0) {
      bytes.fill(static_cast<std::uint8_t>(DtmDataBlock::GetFillByte(letter)));
      return bytes;
    }
    const double value = Value(id, Of(moment, area, block, cell));
    if (letter == 'd') {
      std::memcpy(bytes.data(), &value, 8);
    } else if (letter == 'f') {
      const auto narrow = static_cast<float>(value);
      std::memcpy(bytes.data(), &narrow, 4);
    } else {
      const auto whole = static_cast<std::int32_t>(value);
      std::memcpy(bytes.data(), &whole, 4);
    }
    return bytes;
  }
};

/// Everything that was ever put into a model, cell by cell and block by block, and when it was on the disk.
class Truth {
 public:
  struct Mark {
    std::size_t events = 0;      ///< of the recording when the writing out was done
    std::uint64_t step = 0;      ///< of the truth
    std::int64_t areasEnd = 0;   ///< offset behind the last area then
    std::int64_t lowestEnd = 0;  ///< the same when all emptied areas were gone and no new one was there yet
  };

  explicit Truth(const GridShape& shape) : shape_(shape), cells_(kMostAreas) {}

  const GridShape& Shape() const { return shape_; }
  const std::vector<Mark>& Marks() const { return marks_; }

  void Put(int area, int block, int cell, int moment, std::size_t events) {
    auto& blocks = cells_[static_cast<std::size_t>(area)];
    if (blocks.empty()) {
      blocks.assign(shape_.blocks.size(), std::vector<std::vector<Step>>(static_cast<std::size_t>(shape_.Cells()),
                                                                         std::vector<Step>{{0, 0, 0}}));
    }
    blocks[static_cast<std::size_t>(block)][static_cast<std::size_t>(cell)].push_back({++step_, events, moment});
  }
  void SayIsOnDisk(std::size_t events, std::int64_t areasEnd, std::int64_t lowestEnd) {
    marks_.push_back({events, ++step_, areasEnd, std::min(areasEnd, lowestEnd)});
  }

  /// What the cells may hold: for each area (none for one that was never put into), block and cell the moments.
  using Allowed = std::vector<std::vector<std::vector<std::vector<int>>>>;

  /// How far the areas reach that neither a crash nor the writing out that it cut off may touch in any way but by
  /// moving an area into a hole.
  std::int64_t SafeEnd(const Mark& mark) const {
    const auto next = std::find_if(marks_.begin(), marks_.end(), [&](const Mark& one) { return one.step > mark.step; });
    return next == marks_.end() ? mark.areasEnd : std::min(mark.areasEnd, next->lowestEnd);
  }

  /// The last writing out that was done when the recording had this many events, null when none was.
  const Mark* MarkAt(std::size_t events) const {
    const Mark* last = nullptr;
    for (const Mark& mark : marks_) {
      if (mark.events <= events) last = &mark;
    }
    return last;
  }

  /// What was on the disk at a mark (null: nothing), and all that came until the recording had this many events.
  Allowed Since(const Mark* mark, std::size_t events) const {
    const std::uint64_t from = mark ? mark->step : 0;
    Allowed allowed(cells_.size());
    for (std::size_t area = 0; area < cells_.size(); ++area) {
      allowed[area].resize(cells_[area].size());
      for (std::size_t block = 0; block < cells_[area].size(); ++block) {
        for (const std::vector<Step>& steps : cells_[area][block]) {
          std::vector<int> moments;
          for (const Step& step : steps) {
            if (step.number <= from) moments.clear();
            if (step.events <= events) moments.push_back(step.moment);
          }
          allowed[area][block].push_back(std::move(moments));
        }
      }
    }
    return allowed;
  }

 private:
  struct Step {
    std::uint64_t number = 0;
    std::size_t events = 0;
    int moment = 0;
  };

  GridShape shape_;
  std::vector<std::vector<std::vector<std::vector<Step>>>> cells_;  // area, block, cell
  std::vector<Mark> marks_;
  std::uint64_t step_ = 0;
};

/// A model over a recording disk, worked on as a survey would, and the truth about it. What goes wrong throws.
class Survey {
 public:
  explicit Survey(GridShape shape) : truth_(shape), disk_(std::make_shared<DiskRecording>()) {
    disk_->canShorten = shape.canShorten;
    file_ = std::make_unique<DtmFile>(new RecordingStream(disk_), true);
    file_->SetAreaSize(shape.areaSize);
    file_->ClearBlockIds();
    for (const int id : shape.blocks) file_->AddBlockId(id);
    Require(file_->Open());
    access_ = std::make_unique<DtmAccess>(file_.get());
  }
  /// Goes on with a file that a crash has left.
  Survey(const GridShape& shape, ByteList left) : truth_(shape), disk_(std::make_shared<DiskRecording>()) {
    disk_->canShorten = shape.canShorten;
    disk_->first = disk_->now = std::move(left);
    Open();
  }
  ~Survey() {
    access_.reset();
    if (file_) file_->Close();
  }
  Survey(const Survey&) = delete;
  Survey& operator=(const Survey&) = delete;

  /// What the cells hold is the truth from now on. @param allowed  what they may hold. @return false when a cell holds
  /// something else.
  bool TakeOver(const Truth::Allowed& allowed, int lastMoment) {
    const GridShape& shape = truth_.Shape();
    for (int area = 0; area < kMostAreas; ++area) {
      if (!file_->GetArea(RowOf(shape, area), ColOf(shape, area), false)) continue;
      for (int block = 0; block < static_cast<int>(shape.blocks.size()); ++block) {
        for (int cell = 0; cell < shape.Cells(); ++cell) {
          const int moment = FindMoment(area, block, cell, allowed[static_cast<std::size_t>(area)]);
          if (moment < 0) return false;
          truth_.Put(area, block, cell, moment, 0);
        }
      }
    }
    Leave();
    moment_ = lastMoment;
    truth_.SayIsOnDisk(0, 0, 0);
    return true;
  }

  const Truth& GetTruth() const { return truth_; }
  const DiskRecording& Disk() const { return *disk_; }
  int LastMoment() const { return moment_; }
  DtmFile& File() { return *file_; }
  DtmAccess& Access() { return *access_; }

  /// Puts new values into one in `every` cells of an area, into all blocks.
  void Put(int area, int every = 1) {
    ++moment_;
    Require(moment_ < CellCode::kMostMoments - 10);
    const GridShape& shape = truth_.Shape();
    for (int cell = moment_ % every; cell < shape.Cells(); cell += every) {
      for (int block = 0; block < static_cast<int>(shape.blocks.size()); ++block) {
        const int id = shape.blocks[static_cast<std::size_t>(block)];
        truth_.Put(area, block, cell, moment_, disk_->events.size());
        Require(access_->SetDoubleValue(RowOf(shape, area) + cell / shape.areaSize,
                                        ColOf(shape, area) + cell % shape.areaSize, id,
                                        CellCode::Value(id, CellCode::Of(moment_, area, block, cell)), id == dVAL));
      }
    }
  }
  void PutAll(int from, int to, int every = 1) {
    for (int area = from; area < to; ++area) Put(area, every);
  }

  /// Empties an area cell by cell, as a cleaning tool does; it is known to be empty afterwards.
  void Empty(int area) {
    const GridShape& shape = truth_.Shape();
    for (int cell = 0; cell < shape.Cells(); ++cell) {
      for (int block = 0; block < static_cast<int>(shape.blocks.size()); ++block) {
        truth_.Put(area, block, cell, 0, disk_->events.size());
      }
      Require(access_->MakeCellEmpty(RowOf(shape, area) + cell / shape.areaSize,
                                     ColOf(shape, area) + cell % shape.areaSize));
    }
    Leave();
  }
  void EmptyAll(std::initializer_list<int> areas) {
    for (const int area : areas) Empty(area);
  }

  void Leave() { access_ = std::make_unique<DtmAccess>(file_.get()); }

  /// A pass of writing out, in another second than the one before.
  void Sync() {
    time_.At(seconds_ += 3);
    SyncInTheSameSecond();
  }
  void SyncInTheSameSecond() {
    const std::int64_t lowest = LowestEnd();
    Require(file_->SyncWrite());
    truth_.SayIsOnDisk(disk_->events.size(), AreasEnd(), lowest);
  }

  void Close() {
    time_.At(seconds_ += 3);
    access_.reset();
    const std::int64_t lowest = LowestEnd();
    file_->Close();
    Require(!file_->HasLostData());
    file_.reset();
    DtmFile after(new MemoryStream(disk_->now), false);
    Require(after.Open());
    truth_.SayIsOnDisk(disk_->events.size(), AreasEnd(after), lowest);
  }
  void Open() {
    file_ = std::make_unique<DtmFile>(new RecordingStream(disk_), false);
    Require(file_->Open());
    Leave();
  }
  void Reopen() {
    Close();
    Open();
  }
  /// The same with the index made useless in between.
  void ReopenByWalk() {
    Close();
    RecordingStream stream(disk_);
    const std::uint8_t junk = disk_->now.back() ^ 0xFF;
    Require(stream.Seek(-1, DataStream::kFromEnd) && stream.Write(&junk, 1) && stream.Sync());
    Open();
    Require(file_->OpenedBy() == DtmOpenedBy::kWalk);
  }

 private:
  static void Require(bool done) {
    if (!done) throw std::runtime_error("the work on the model went wrong");
  }

  /// @return -1 when the cell holds none of what it may.
  int FindMoment(int area, int block, int cell, const std::vector<std::vector<std::vector<int>>>& allowed) {
    const GridShape& shape = truth_.Shape();
    const int id = shape.blocks[static_cast<std::size_t>(block)];
    double value = 0;
    if (allowed.empty() || !access_->GetDoubleValue(RowOf(shape, area) + cell / shape.areaSize,
                                                    ColOf(shape, area) + cell % shape.areaSize, id, value)) {
      return -1;
    }
    for (const int moment : allowed[static_cast<std::size_t>(block)][static_cast<std::size_t>(cell)]) {
      const double wanted = moment == 0 ? EmptyDouble() : CellCode::Value(id, CellCode::Of(moment, area, block, cell));
      if (std::bit_cast<std::uint64_t>(wanted) == std::bit_cast<std::uint64_t>(value)) return moment;
    }
    return -1;
  }

  static std::int64_t HeaderSize(const DtmFile& file) {
    return grid::kMagicSize + grid::FileAttributesSize(file.NumBlockIds());
  }

  static std::int64_t AreasEnd(const DtmFile& file) {
    std::int64_t end = HeaderSize(file);
    for (int i = 0; const DtmArea* area = file.GetArea(i); ++i) {
      if (area->IsWritten()) end = std::max<std::int64_t>(end, area->BlockPosition() + file.SmallestBody());
    }
    return end;
  }
  std::int64_t AreasEnd() const { return AreasEnd(*file_); }

  std::int64_t LowestEnd() const {
    std::int64_t end = HeaderSize(*file_);
    for (int i = 0; DtmArea* area = file_->GetArea(i); ++i) {
      if (area->IsWritten() && !area->IsEmpty()) end += grid::kHeaderSize + file_->SmallestBody();
    }
    return end;
  }

  Truth truth_;
  std::shared_ptr<DiskRecording> disk_;
  TimeStands time_{1'000'000};
  long long seconds_ = 1'000'000;
  int moment_ = 0;
  std::unique_ptr<DtmFile> file_;
  std::unique_ptr<DtmAccess> access_;
};

}  // namespace vak::test
