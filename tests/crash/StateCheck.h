#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmVerifier.h"

#include "crash/Survey.h"

namespace vak::test {

/// What can be wrong with a file after a crash.
enum class Loss {
  kNotOpened,      ///< it can't be opened
  kNotWrittenOut,  ///< the writing out said that it was done, and something wasn't on the disk
  kForeignArea,    ///< an area at a place that was never surveyed
  kAreaMissing,    ///< an area that was on the disk isn't there, or can't be read
  kForeignValue,   ///< a value of another cell, block or area
  kOldValue,       ///< a value from before the last writing out
  kDamagedValue,   ///< in an area that was on the disk, bytes that no cell was ever given
  kPhantomValue,   ///< the same in an area that wasn't on the disk yet
  kBlockedArea,    ///< an area that wasn't on the disk yet, and now can't be read or put into
  kFault,          ///< the verifier finds what is no missing or stale index
  kLaterWork,      ///< a further survey doesn't come out right
  kRepair,         ///< repairing changes what could be read before
  kStaleRange      ///< an area's Z range stays narrower than its cells, which went out before the index
};

inline const char* NameOf(Loss loss) {
  static constexpr std::array kNames{"not opened", "not written out", "foreign area",  "area missing", "foreign value",
                                     "old value",  "damaged value",   "phantom value", "blocked area", "fault",
                                     "later work", "repair",          "stale range"};
  return kNames[static_cast<std::size_t>(loss)];
}

/// What a model holds, as far as it can be read.
struct Contents {
  struct Area {
    bool isThere = false;
    bool isReadable = false;
    std::vector<ByteList> blocks;
    std::vector<std::int64_t> positions;  ///< of the blocks' first cells
  };
  std::vector<Area> areas = std::vector<Area>(kMostAreas);
  bool hasForeignArea = false;
};

inline Contents ReadContents(DtmFile& file, const GridShape& shape) {
  Contents contents;
  for (int i = 0; DtmArea* area = file.GetArea(i); ++i) {
    const int number = AreaAt(shape, area->BottomLeftRow(), area->BottomLeftCol());
    if (number < 0) {
      contents.hasForeignArea = true;
      continue;
    }
    Contents::Area& read = contents.areas[static_cast<std::size_t>(number)];
    read.isThere = read.isReadable = true;
    for (const int id : shape.blocks) {
      DtmDataBlock* const block = area->OpenDataBlock(id);
      if (!block) {
        read.isReadable = false;
        break;
      }
      const auto* const cells = reinterpret_cast<const std::uint8_t*>(block->CellData());
      read.blocks.emplace_back(cells, cells + block->BlockSize());
      {
        const std::scoped_lock lock(area->Mutex());
        read.positions.push_back(block->BlockPosition());
      }
      block->Close();
    }
  }
  return contents;
}

/// Looks at one state of a disk after a crash.
class StateCheck {
 public:
  using Report = std::function<void(Loss, const std::string&)>;

  /// @param mark    the last writing out that was done before the crash; null: none. @param events  of the recording
  /// that had happened at most.
  StateCheck(const Truth& truth, const Truth::Mark* mark, std::size_t events)
      : shape_(truth.Shape()),
        allowed_(truth.Since(mark, events)),
        isOnDisk_(mark != nullptr),
        safeEnd_(mark ? truth.SafeEnd(*mark) : 0) {}

  /// @param cut  offset at which a write broke off in the middle, or -1. Sectors may always have come one by one.
  void Run(const ByteList& bytes, std::int64_t cut, bool worksOn, const Report& report) const {
    auto memory = std::make_shared<MemoryFile>();
    memory->bytes = bytes;
    memory->canShorten = shape_.canShorten;
    Contents contents;
    {
      DtmFile file(new MemoryStream(memory), false);
      if (!file.Open()) {
        if (isOnDisk_) report(Loss::kNotOpened, "");
        return;
      }
      if (file.AreaSize() != shape_.areaSize || file.NumBlockIds() != static_cast<int>(shape_.blocks.size())) {
        report(Loss::kNotOpened, "other settings");
        return;
      }
      contents = ReadContents(file, shape_);
      // Nothing was changed, so nothing may be written: closing would otherwise mend what is to be looked at.
    }
    CheckContents(contents, cut, report);
    if (isOnDisk_) Verify(bytes, report);
    if (worksOn && isOnDisk_) Repair(bytes, contents, report);
    if (worksOn) WorkOn(memory, contents, report);
  }

 private:
  void CheckContents(const Contents& contents, std::int64_t cut, const Report& report) const {
    if (contents.hasForeignArea) report(Loss::kForeignArea, "");
    for (int area = 0; area < kMostAreas; ++area) {
      const Contents::Area& read = contents.areas[static_cast<std::size_t>(area)];
      const bool wasOnDisk = WasOnDisk(area);
      if (read.isReadable) {
        CheckCells(area, read, wasOnDisk, cut, report);
      } else if (wasOnDisk && !MayBeEmpty(area)) {
        report(Loss::kAreaMissing, "area " + std::to_string(area) + (read.isThere ? " can't be read" : ""));
      } else if (read.isThere) {
        report(Loss::kBlockedArea, "area " + std::to_string(area));
      }
    }
  }

  const std::vector<std::vector<std::vector<int>>>& AllowedIn(int area) const {
    return allowed_[static_cast<std::size_t>(area)];
  }

  bool WasOnDisk(int area) const {
    for (const auto& block : AllowedIn(area)) {
      for (const auto& moments : block) {
        if (moments.front() != 0) return true;
      }
    }
    return false;
  }

  bool MayBeEmpty(int area) const {
    for (const auto& block : AllowedIn(area)) {
      for (const auto& moments : block) {
        if (std::find(moments.begin(), moments.end(), 0) == moments.end()) return false;
      }
    }
    return true;
  }

  void CheckCells(int area, const Contents::Area& read, bool wasOnDisk, std::int64_t cut, const Report& report) const {
    static const std::vector<int> kEmpty{0};
    for (std::size_t block = 0; block < shape_.blocks.size(); ++block) {
      const int id = shape_.blocks[block];
      const auto width = static_cast<std::size_t>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id)));
      for (int cell = 0; cell < shape_.Cells(); ++cell) {
        const std::uint8_t* const at = read.blocks[block].data() + static_cast<std::size_t>(cell) * width;
        const auto& moments = AllowedIn(area).empty() ? kEmpty : AllowedIn(area)[block][static_cast<std::size_t>(cell)];
        const Place place{area, static_cast<int>(block), cell};
        if (Matches(place, moments, at, 0, width)) continue;
        const std::int64_t position =
            read.positions[block] + static_cast<std::int64_t>(cell) * static_cast<std::int64_t>(width);
        const std::int64_t sector = (position + kSectorSize - 1) / kSectorSize * kSectorSize;
        if (MayTear(place, moments, at, width, sector - position) || MayTear(place, moments, at, width, cut - position))
          continue;
        ReportValue(place, id, at, wasOnDisk, report);
        return;
      }
    }
  }

  struct Place {
    int area, block, cell;
  };

  bool Matches(const Place& place, const std::vector<int>& moments, const std::uint8_t* at, std::size_t from,
               std::size_t to) const {
    const int id = shape_.blocks[static_cast<std::size_t>(place.block)];
    return std::any_of(moments.begin(), moments.end(), [&](int moment) {
      const auto bytes = CellCode::Bytes(id, moment, place.area, place.block, place.cell);
      return std::memcmp(bytes.data() + from, at + from, to - from) == 0;
    });
  }

  bool MayTear(const Place& place, const std::vector<int>& moments, const std::uint8_t* at, std::size_t width,
               std::int64_t split) const {
    if (split <= 0 || split >= static_cast<std::int64_t>(width)) return false;
    const auto middle = static_cast<std::size_t>(split);
    return Matches(place, moments, at, 0, middle) && Matches(place, moments, at, middle, width);
  }

  void ReportValue(const Place& place, int id, const std::uint8_t* at, bool wasOnDisk, const Report& report) const {
    double value = 0;
    if (DtmDataBlock::GetDataType(id) == 'd') {
      double stored = 0;
      std::memcpy(&stored, at, 8);
      value = stored * 3;
    } else if (DtmDataBlock::GetDataType(id) == 'f') {
      float stored = 0;
      std::memcpy(&stored, at, 4);
      value = stored;
    } else {
      std::int32_t stored = 0;
      std::memcpy(&stored, at, 4);
      value = stored;
    }
    std::ostringstream text;
    text << "area " << place.area << ", block " << place.block << ", cell " << place.cell << ": ";
    const double rounded = std::floor(value + 0.5);
    if (rounded >= CellCode::Of(1, 0, 0, 0) && rounded < (1 << 24)) {
      const auto code = static_cast<std::uint32_t>(rounded);
      const int moment = static_cast<int>(code / 256 / 4 / kMostAreas);
      const Place from{static_cast<int>(code / 256 / 4 % kMostAreas), static_cast<int>(code / 256 % 4),
                       static_cast<int>(code % 256)};
      const auto bytes = CellCode::Bytes(id, moment, from.area, from.block, from.cell);
      const auto width = static_cast<std::size_t>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id)));
      if (std::memcmp(bytes.data(), at, width) == 0) {
        text << "of moment " << moment << ", area " << from.area << ", block " << from.block << ", cell " << from.cell;
        const bool isOwn = from.area == place.area && from.block == place.block && from.cell == place.cell;
        report(isOwn ? Loss::kOldValue : Loss::kForeignValue, text.str());
        return;
      }
    }
    const auto bytes = CellCode::Bytes(id, 0, 0, 0, 0);
    const auto width = static_cast<std::size_t>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id)));
    if (std::memcmp(bytes.data(), at, width) == 0) {
      text << "empty";
      report(Loss::kOldValue, text.str());
      return;
    }
    text << value;
    report(wasOnDisk ? Loss::kDamagedValue : Loss::kPhantomValue, text.str());
  }

  void Verify(const ByteList& bytes, const Report& report) const {
    MemoryStream stream(bytes);
    DtmVerifier verifier(stream);
    verifier.SetFaultSink([&](const DtmFault& fault) {
      // Behind that lie the old index, areas that were given up or moved away, and new ones.
      if (IsOfACrash(fault) || fault.offset >= safeEnd_) return;
      report(Loss::kFault, fault.Text());
    });
    verifier.Verify();
  }

  /// A missing index, one that is older than the cells, or a hole into which an area was being moved.
  static bool IsOfACrash(const DtmFault& fault) {
    switch (fault.kind) {
      case DtmFaultKind::kNoIndex:
      case DtmFaultKind::kIndexTorn:
      case DtmFaultKind::kIndexHead:
      case DtmFaultKind::kFiller:
      case DtmFaultKind::kCellOutside:
      case DtmFaultKind::kHole:
        return true;
      default:
        return false;
    }
  }

  void Repair(const ByteList& bytes, const Contents& before, const Report& report) const {
    auto memory = std::make_shared<MemoryFile>();
    memory->bytes = bytes;
    memory->canShorten = shape_.canShorten;
    MemoryStream stream(memory);
    DtmRepairReport repaired;
    if (!DtmVerifier(stream).Repair(repaired)) return report(Loss::kRepair, "false");
    DtmFile file(new MemoryStream(memory), false);
    if (!file.Open()) return report(Loss::kRepair, "not opened");
    const Contents after = ReadContents(file, shape_);
    for (std::size_t area = 0; area < before.areas.size(); ++area) {
      if (!before.areas[area].isReadable || after.areas[area].blocks == before.areas[area].blocks) continue;
      return report(Loss::kRepair, "area " + std::to_string(area) + (after.areas[area].isThere ? " differs" : " gone"));
    }
  }

  /// A survey goes on with what the crash left: nothing of that may get lost, and the file is to be in order again.
  void WorkOn(const std::shared_ptr<MemoryFile>& memory, const Contents& before, const Report& report) const {
    Contents wanted = before;
    constexpr int kMoment = CellCode::kMostMoments - 5;
    const auto fail = [&](const std::string& text) { report(Loss::kLaterWork, text); };
    const TimeStands time(2'000'000);
    {
      DtmFile file(new MemoryStream(memory), false);
      if (!file.Open()) return fail("not opened");
      DtmAccess access(&file);
      // One that is there, and one that isn't.
      int there = -1;
      int missing = -1;
      for (int area = 0; area < kMostAreas; ++area) {
        const Contents::Area& read = before.areas[static_cast<std::size_t>(area)];
        if (read.isReadable && there < 0) there = area;
        if (!read.isThere && missing < 0) missing = area;
      }
      for (const int area : {there, missing}) {
        if (area >= 0 && !PutCells(access, area, kMoment, wanted)) return fail("a cell can't be set");
      }
      if (!file.SyncWrite()) return fail("can't be written out");
      access.SetDtmFile(nullptr);
      file.Close();
      if (file.HasLostData()) return fail("cells given up");
    }
    CompareWith(memory->bytes, wanted, "", fail);
    ByteList walked = memory->bytes;
    walked.back() ^= 0xFF;
    CompareWith(walked, wanted, "by walk: ", fail);
    if (!shape_.canShorten) return;  // what was behind the end of such a file stays there
    MemoryStream stream(memory->bytes);
    DtmVerifier verifier(stream);
    verifier.SetFaultSink([&](const DtmFault& fault) {
      if (fault.kind == DtmFaultKind::kCellOutside) {
        report(Loss::kStaleRange, fault.Text());
      } else if (fault.kind != DtmFaultKind::kHole) {
        fail("verifier: " + fault.Text());
      }
    });
    verifier.Verify();
  }

  bool PutCells(DtmAccess& access, int area, int moment, Contents& wanted) const {
    Contents::Area& target = wanted.areas[static_cast<std::size_t>(area)];
    target.isThere = target.isReadable = true;
    target.blocks.resize(shape_.blocks.size());
    for (int block = 0; block < static_cast<int>(shape_.blocks.size()); ++block) {
      const int id = shape_.blocks[static_cast<std::size_t>(block)];
      const auto width = static_cast<std::size_t>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id)));
      ByteList& cells = target.blocks[static_cast<std::size_t>(block)];
      if (cells.empty()) {
        cells.assign(static_cast<std::size_t>(shape_.Cells()) * width,
                     static_cast<std::uint8_t>(DtmDataBlock::GetFillByte(DtmDataBlock::GetDataType(id))));
      }
      for (int cell = 0; cell < shape_.Cells(); cell += 3) {
        const auto code = CellCode::Of(moment, area, block, cell);
        if (!access.SetDoubleValue(RowOf(shape_, area) + cell / shape_.areaSize,
                                   ColOf(shape_, area) + cell % shape_.areaSize, id, CellCode::Value(id, code),
                                   id == dVAL)) {
          return false;
        }
        const auto bytes = CellCode::Bytes(id, moment, area, block, cell);
        std::memcpy(cells.data() + static_cast<std::size_t>(cell) * width, bytes.data(), width);
      }
    }
    return true;
  }

  template <typename Fail>
  void CompareWith(const ByteList& bytes, const Contents& wanted, const std::string& how, const Fail& fail) const {
    DtmFile file(new MemoryStream(bytes), false);
    if (!file.Open()) return fail(how + "not opened again");
    const Contents after = ReadContents(file, shape_);
    for (int area = 0; area < kMostAreas; ++area) {
      const Contents::Area& was = wanted.areas[static_cast<std::size_t>(area)];
      const Contents::Area& is = after.areas[static_cast<std::size_t>(area)];
      if (was.isThere == is.isThere && was.isReadable == is.isReadable && (!is.isReadable || was.blocks == is.blocks))
        continue;
      return fail(how + "area " + std::to_string(area) +
                  (is.isThere ? is.isReadable ? " differs" : " unreadable" : " gone"));
    }
  }

  const GridShape& shape_;
  Truth::Allowed allowed_;
  bool isOnDisk_;
  std::int64_t safeEnd_;
};

}  // namespace vak::test
