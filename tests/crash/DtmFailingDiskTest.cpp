// A disk that fails at any one call, or from one on: answers, and what is left in the file.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "vakdtm/store/DtmVerifier.h"

#include "crash/FailingStream.h"
#include "crash/StateCheck.h"
#include "crash/Survey.h"
#include "support/LongForm.h"

namespace vak::test {
namespace {

/// A model on a failing disk, worked on as long as it goes, and what has to be in it.
class ShakySurvey {
 public:
  using Fail = std::function<void(const std::string&)>;

  ShakySurvey(GridShape shape, std::shared_ptr<FailingDisk> disk, Fail fail)
      : shape_(std::move(shape)), disk_(std::move(disk)), fail_(std::move(fail)), cells_(kMostAreas) {}

  bool Create() {
    file_ = std::make_unique<DtmFile>(new FailingStream(disk_), true);
    file_->SetAreaSize(shape_.areaSize);
    file_->ClearBlockIds();
    for (const int id : shape_.blocks) file_->AddBlockId(id);
    if (!file_->Open() && (disk_->failures == 0 || !Healed([&] { return file_->Open(); }))) {
      fail_("can't be created");
      return false;
    }
    access_ = std::make_unique<DtmAccess>(file_.get());
    access_->SetCacheSize(1);
    return true;
  }

  void Put(int area, int every = 1) {
    ++moment_;
    ForEachCell(area, [&](int cell, int row, int col) {
      if (cell % every != 0) return;
      for (int block = 0; block < Blocks(); ++block) {
        const int id = shape_.blocks[static_cast<std::size_t>(block)];
        const double value = CellCode::Value(id, CellCode::Of(moment_, area, block, cell));
        if (access_->SetDoubleValue(row, col, id, value, id == dVAL)) Take(area, block, cell, moment_);
      }
    });
  }

  void Empty(int area) {
    ForEachCell(area, [&](int cell, int row, int col) {
      if (!access_->MakeCellEmpty(row, col)) return;
      for (int block = 0; block < Blocks(); ++block) Take(area, block, cell, 0);
    });
    Leave();
  }

  void CheckEmpty(int area) {
    if (DtmArea* const found = file_->GetArea(RowOf(shape_, area), ColOf(shape_, area), false)) found->CheckEmpty();
  }

  void Leave() {
    access_ = std::make_unique<DtmAccess>(file_.get());
    access_->SetCacheSize(1);
    NoteLost();
  }

  /// True is only answered when all is on the disk.
  void Sync() {
    const int failures = disk_->failures;
    const bool done = file_->SyncWrite();
    NoteLost();
    if (!done && disk_->failures == failures) fail_("false from SyncWrite without a reason");
    if (done) Compare(disk_->durable, "after true from SyncWrite");
  }

  /// The model is closed, and read from the disk again.
  void Reopen(bool byWalk) {
    if (byWalk) Leave();
    access_.reset();
    file_->Close();
    NoteLost();
    if (!mayHaveLost_) Compare(disk_->bytes, "after a close that told of no loss");
    if (byWalk) SpoilIndex(disk_->bytes);
    file_ = std::make_unique<DtmFile>(new FailingStream(disk_), false);
    if (!file_->Open() && !Healed([&] { return file_->Open(); })) {
      fail_("can't be opened again");
      file_.reset();
      return;
    }
    Leave();
  }

  bool IsOpen() const { return file_ != nullptr; }

  /// The disk is well again: nothing may be missing that was accepted, and all has to go out now.
  void Finish() {
    disk_->Heal();
    if (!file_) return;
    Leave();
    CompareMemory();
    if (!file_->SyncWrite()) fail_("can't be written out on a disk that is well again");
    NoteLost();
    Compare(disk_->durable, "written out at the end");
    access_.reset();
    file_->Close();
    NoteLost();
    Compare(disk_->bytes, "at the end");
    Verify();
    Compare(Walked(), "at the end, by walk");
  }

 private:
  int Blocks() const { return static_cast<int>(shape_.blocks.size()); }

  template <typename Each>
  void ForEachCell(int area, Each each) {
    for (int cell = 0; cell < shape_.Cells(); ++cell) {
      each(cell, RowOf(shape_, area) + cell / shape_.areaSize, ColOf(shape_, area) + cell % shape_.areaSize);
    }
  }

  template <typename Try>
  bool Healed(Try again) {
    disk_->Heal();
    return again();
  }

  void NoteLost() { mayHaveLost_ = mayHaveLost_ || file_->HasLostData(); }

  std::vector<int>& Moments(int area, int block, int cell) {
    auto& blocks = cells_[static_cast<std::size_t>(area)];
    if (blocks.empty()) {
      blocks.assign(shape_.blocks.size(),
                    std::vector<std::vector<int>>(static_cast<std::size_t>(shape_.Cells()), std::vector<int>{0}));
    }
    return blocks[static_cast<std::size_t>(block)][static_cast<std::size_t>(cell)];
  }
  void Take(int area, int block, int cell, int moment) { Moments(area, block, cell).push_back(moment); }

  /// The last value accepted; once cells were given up, any that was.
  bool IsRight(const std::uint8_t* at, int area, int block, int cell) {
    const int id = shape_.blocks[static_cast<std::size_t>(block)];
    const auto width = static_cast<std::size_t>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id)));
    const std::vector<int>& moments = Moments(area, block, cell);
    const auto matches = [&](int moment) {
      return std::memcmp(CellCode::Bytes(id, moment, area, block, cell).data(), at, width) == 0;
    };
    return mayHaveLost_ ? std::any_of(moments.begin(), moments.end(), matches) : matches(moments.back());
  }

  void CompareContents(const Contents& contents, bool mayBeUnreadable, const std::string& when) {
    if (contents.hasForeignArea) fail_(when + ": an area that was never put into");
    for (int area = 0; area < kMostAreas; ++area) {
      const Contents::Area& read = contents.areas[static_cast<std::size_t>(area)];
      if (cells_[static_cast<std::size_t>(area)].empty() || (mayBeUnreadable && read.isThere && !read.isReadable))
        continue;
      for (int block = 0; block < Blocks(); ++block) {
        const int id = shape_.blocks[static_cast<std::size_t>(block)];
        const auto width = static_cast<std::size_t>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(id)));
        for (int cell = 0; cell < shape_.Cells(); ++cell) {
          const auto empty = CellCode::Bytes(id, 0, area, block, cell);
          const std::uint8_t* const at = read.isReadable ? read.blocks[static_cast<std::size_t>(block)].data() +
                                                               static_cast<std::size_t>(cell) * width
                                                         : empty.data();
          if (IsRight(at, area, block, cell)) continue;
          fail_(when + ": area " + std::to_string(area) +
                (read.isThere ? read.isReadable ? "" : " unreadable" : " gone") + ", block " + std::to_string(block) +
                ", cell " + std::to_string(cell));
          return;
        }
      }
    }
  }

  void Compare(const ByteList& bytes, const std::string& when) {
    DtmFile file(new MemoryStream(bytes), false);
    if (!file.Open()) {
      if (!mayHaveLost_) fail_(when + ": can't be opened");
      return;
    }
    CompareContents(ReadContents(file, shape_), false, when);
  }

  void CompareMemory() { CompareContents(ReadContents(*file_, shape_), true, "in memory"); }

  ByteList Walked() const {
    ByteList bytes = disk_->bytes;
    SpoilIndex(bytes);
    return bytes;
  }

  static void SpoilIndex(ByteList& bytes) {
    const auto header = static_cast<std::size_t>(grid::kHeaderSize);
    if (bytes.size() < header) return;
    const auto* const tail = reinterpret_cast<const std::byte*>(bytes.data() + bytes.size() - header);
    if (grid::IsIndexTag(grid::LoadHeader(tail).tag)) bytes.back() ^= 0xFF;
  }

  /// Space that was given up on the way stays in the file.
  void Verify() {
    if (!shape_.canShorten) return;  // what was behind the end of such a file stays there
    MemoryStream stream(disk_->bytes);
    DtmVerifier verifier(stream);
    verifier.SetFaultSink([&](const DtmFault& fault) {
      if (fault.kind != DtmFaultKind::kHole) fail_("verifier: " + fault.Text());
    });
    verifier.Verify();
  }

  GridShape shape_;
  std::shared_ptr<FailingDisk> disk_;
  Fail fail_;
  TimeStands time_{1'000'000};
  std::vector<std::vector<std::vector<std::vector<int>>>> cells_;  // area, block, cell: moments accepted
  bool mayHaveLost_ = false;
  int moment_ = 0;
  std::unique_ptr<DtmFile> file_;
  std::unique_ptr<DtmAccess> access_;
};

/// Some of everything.
void Work(ShakySurvey& survey) {
  if (!survey.Create()) return;
  const std::vector<std::function<void()>> steps = {
      [&] {
        for (int area = 0; area < 6; ++area) survey.Put(area);
      },
      [&] { survey.Sync(); },
      [&] {
        survey.Put(1, 2);
        survey.Put(6, 3);
        survey.Sync();
      },
      [&] {
        survey.Empty(1);
        survey.Empty(6);
        survey.CheckEmpty(2);
        survey.Put(5, 3);
        survey.Sync();
      },
      [&] {
        survey.Put(1, 4);
        survey.Sync();
      },
      [&] { survey.Reopen(false); },
      [&] {
        survey.Put(2, 2);
        survey.Put(7);
        survey.Empty(0);
        survey.Sync();
      },
      [&] {
        survey.Put(3, 3);
        survey.Reopen(true);
      },
      [&] {
        survey.Put(3, 2);
        survey.Put(8, 2);
        survey.CheckEmpty(4);
        survey.Sync();
      },
      [&] {
        survey.Empty(7);
        survey.Empty(8);
        survey.Reopen(false);
      },
      [&] { survey.Put(8, 2); },
  };
  for (const auto& step : steps) {
    if (survey.IsOpen()) step();
  }
  survey.Finish();
}

const std::vector<GridShape>& Shapes() {
  static const std::vector<GridShape> shapes = {{4, {dVAL, iNUM}, true}, {2, {dVAL}, true}, {4, {dVAL, iNUM}, false}};
  return shapes;
}

std::shared_ptr<FailingDisk> NewDisk(const GridShape& shape) {
  auto disk = std::make_shared<FailingDisk>();
  disk->canShorten = shape.canShorten;
  return disk;
}

/// What goes wrong, with the number of times and the first fault that brings it about.
class Troubles {
 public:
  void Add(const std::string& what, const std::string& where) {
    auto& [count, first] = met_[what];
    if (count++ == 0) first = where;
  }
  std::string Text() const {
    std::ostringstream text;
    for (const auto& [what, many] : met_)
      text << "\n  " << what << ": " << many.first << " times, first " << many.second;
    return text.str();
  }
  bool IsEmpty() const { return met_.empty(); }

 private:
  std::map<std::string, std::pair<int, std::string>> met_;
};

TEST(DtmFailingDisk, WithoutAFaultAllOfTheWorkGoesWell) {
  for (const GridShape& shape : Shapes()) {
    Troubles troubles;
    ShakySurvey survey(shape, NewDisk(shape), [&](const std::string& what) { troubles.Add(what, ""); });
    Work(survey);
    EXPECT_TRUE(troubles.IsEmpty()) << troubles.Text();
  }
}

TEST(DtmFailingDisk, NoCallThatFailsLosesAnythingThatWasAccepted) {
  static constexpr std::array kNames{"read", "write", "seek", "change of size", "sync"};
  int runs = 0;
  for (const GridShape& shape : Shapes()) {
    SCOPED_TRACE("areas of " + std::to_string(shape.areaSize) + (shape.canShorten ? "" : ", no cutting"));
    const auto counted = NewDisk(shape);
    {
      ShakySurvey survey(shape, counted, [](const std::string&) {});
      Work(survey);
    }
    for (int kind = 0; kind < FailingDisk::kKinds; ++kind) {
      for (const bool forGood : {false, true}) {
        for (const bool halfway : {false, true}) {
          if (halfway && kind != FailingDisk::kRead && kind != FailingDisk::kWrite) continue;
          if (halfway && forGood && LongForm(0, 1) == 0) continue;
          Troubles troubles;
          for (std::int64_t number = 0; number < counted->calls[static_cast<std::size_t>(kind)];
               number += LongForm(1, 1, 3)) {
            const auto disk = NewDisk(shape);
            disk->kind = static_cast<FailingDisk::Kind>(kind);
            disk->number = number;
            disk->forGood = forGood;
            disk->halfway = halfway;
            ShakySurvey survey(shape, disk,
                               [&](const std::string& what) { troubles.Add(what, std::to_string(number)); });
            Work(survey);
            ++runs;
          }
          EXPECT_TRUE(troubles.IsEmpty()) << kNames[static_cast<std::size_t>(kind)] << (forGood ? " and all later" : "")
                                          << (halfway ? ", halfway" : "") << troubles.Text();
        }
      }
    }
  }
  std::printf("%d runs\n", runs);
}

TEST(DtmFailingDisk, ShortOfSpaceAtAnySizeLosesNothingThatWasAccepted) {
  for (const GridShape& shape : Shapes()) {
    const auto counted = NewDisk(shape);
    {
      ShakySurvey survey(shape, counted, [](const std::string&) {});
      Work(survey);
    }
    Troubles troubles;
    const auto largest = static_cast<std::int64_t>(counted->bytes.size()) * 2;
    for (std::int64_t room = 0; room < largest; room += LongForm(13, 1, 41)) {
      const auto disk = NewDisk(shape);
      disk->room = room;
      ShakySurvey survey(shape, disk, [&](const std::string& what) { troubles.Add(what, std::to_string(room)); });
      Work(survey);
    }
    EXPECT_TRUE(troubles.IsEmpty()) << troubles.Text();
  }
}

/// A reader of a model that another process writes, on a disk that fails for the reader alone.
class ShakyReader {
 public:
  ShakyReader(const GridShape& shape, std::shared_ptr<FailingDisk> disk, ShakySurvey::Fail fail)
      : shape_(shape), disk_(std::move(disk)), fail_(std::move(fail)) {}

  void Follow(const ByteList& written) {
    disk_->bytes = written;
    const int failures = disk_->failures;
    const bool done = file_ ? file_->SyncRead(nullptr) : Open();
    if (disk_->failures == failures && !done) fail_("false without a reason");
    if (!file_) return;
    Compare(written, done ? failures : -1);
  }

  void Finish(const ByteList& written) {
    disk_->Heal();
    Follow(written);
  }

 private:
  bool Open() {
    auto file = std::make_unique<DtmFile>(new FailingStream(disk_), false);
    file->SetFollowing(true);
    if (!file->Open()) return false;
    file_ = std::move(file);
    access_ = std::make_unique<DtmAccess>(file_.get());
    access_->SetCacheSize(3);
    return true;
  }

  /// @param failures  that there had been before; if there are more now, cells may lag behind or be closed.
  void Compare(const ByteList& written, int failures) {
    DtmFile truth(new MemoryStream(written), false);
    if (!truth.Open()) return fail_("the writer's file can't be opened");
    DtmAccess wanted(&truth);
    for (int area = 0; area < kMostAreas; ++area) {
      for (int cell = 0; cell < shape_.Cells(); ++cell) {
        for (const int id : shape_.blocks) {
          const int row = RowOf(shape_, area) + cell / shape_.areaSize;
          const int col = ColOf(shape_, area) + cell % shape_.areaSize;
          double should = 0;
          double has = 0;
          wanted.GetDoubleValue(row, col, id, should);
          access_->GetDoubleValue(row, col, id, has);
          if (std::bit_cast<std::uint64_t>(should) == std::bit_cast<std::uint64_t>(has)) continue;
          const bool mayLag = disk_->failures != failures;
          const bool isOwn = IsEmptyValue(has) || IsOwn(has, area, id);
          if (mayLag && isOwn) continue;
          return fail_((isOwn ? "cells behind: area " : "cells of another area: area ") + std::to_string(area));
        }
      }
    }
  }

  /// Whether a value is one of an area, of whatever moment.
  static bool IsOwn(double value, int area, int id) {
    const auto code = static_cast<std::uint32_t>(DtmDataBlock::GetDataType(id) == 'd' ? value * 3 + 0.5 : value);
    return static_cast<int>(code / 256 / 4 % kMostAreas) == area;
  }

  GridShape shape_;
  std::shared_ptr<FailingDisk> disk_;
  ShakySurvey::Fail fail_;
  std::unique_ptr<DtmFile> file_;
  std::unique_ptr<DtmAccess> access_;
};

/// What a writer leaves after each of its passes: areas come, change, go and move.
std::vector<ByteList> WrittenFiles(const GridShape& shape) {
  std::vector<ByteList> files;
  Survey survey(shape);
  const auto sync = [&] {
    survey.Sync();
    files.push_back(survey.Disk().now);
  };
  survey.PutAll(0, 5);
  sync();
  survey.Put(1, 2);
  survey.Put(5);
  sync();
  survey.EmptyAll({0, 2});
  survey.Put(4, 3);
  sync();
  survey.Put(2, 2);
  survey.Put(6);
  sync();
  survey.Put(1);
  sync();
  return files;
}

TEST(DtmFailingDisk, ReaderFollowsAgainAfterAnyCallThatFailed) {
  for (const GridShape& shape : Shapes()) {
    if (!shape.canShorten) continue;  // such a file has no index to follow
    const std::vector<ByteList> files = WrittenFiles(shape);
    const auto follow = [&](const std::shared_ptr<FailingDisk>& disk, const ShakySurvey::Fail& fail) {
      ShakyReader reader(shape, disk, fail);
      for (const ByteList& file : files) reader.Follow(file);
      reader.Finish(files.back());
    };
    const auto counted = NewDisk(shape);
    follow(counted, [](const std::string& what) { ADD_FAILURE() << what << " on a good disk"; });
    for (const FailingDisk::Kind kind : {FailingDisk::kRead, FailingDisk::kSeek, FailingDisk::kSync}) {
      for (const bool forGood : {false, true}) {
        Troubles troubles;
        for (std::int64_t number = 0; number < counted->calls[kind]; ++number) {
          const auto disk = NewDisk(shape);
          disk->kind = kind;
          disk->number = number;
          disk->forGood = forGood;
          follow(disk, [&](const std::string& what) { troubles.Add(what, std::to_string(number)); });
        }
        EXPECT_TRUE(troubles.IsEmpty()) << "kind " << kind << (forGood ? " and all later" : "") << troubles.Text();
      }
    }
  }
}

}  // namespace
}  // namespace vak::test
