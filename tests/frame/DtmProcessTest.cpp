#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/frame/DtmProcess.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/jobs/ProgressSink.h"

#include "frame/WalkLog.h"
#include "support/QuietModel.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

/// Writes the calls that it gets into a text that outlives it, its own letter before each.
class Told final : public DtmProcessor {
 public:
  Told(char letter, std::string& heard) : letter_(letter), heard_(heard) {}
  ~Told() override { Note('~'); }
  Told(const Told&) = delete;
  Told& operator=(const Told&) = delete;

  bool Init(DtmAccess& /*access*/) override { return Note('I'); }
  bool Fini() override { return Note('F'); }
  bool ProcessArea(int /*row*/, int /*col*/, double& /*area*/) override { return Note('A'); }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return Note('C') && answer; }

  bool answer = true;

 private:
  bool Note(char what) {
    heard_ += {letter_, what, ' '};
    return true;
  }

  char letter_;
  std::string& heard_;
};

class DtmProcessTest : public testing::Test {
 protected:
  DtmProcessTest() {
    const DtmManager::create_params params{1, 1.0, {dVAL, iNUM}};
    model_ = CreateShared(folder_.WideFile("a.dtm"), params);
    Sound(*model_, 0.5, 0.5, -1);
    Sound(*model_, 2.5, 0.5, -2);
  }

  int AddStep(const Page* rect = nullptr, bool allCells = false, DtmExtentsProcessor* extents = nullptr) {
    return process_.AddProcessStep(model_.get(), 9460, rect, allCells, extents);
  }
  Told* Add(int step, char letter) {
    auto told = std::make_unique<Told>(letter, heard_);
    Told* const added = told.get();
    process_.AddProcessor(step, told.release());
    return added;
  }

  TestFolder folder_;
  SharedModel model_;
  std::string heard_;
  DtmProcess process_;
};

TEST_F(DtmProcessTest, StepsRunInOrderEachToItsEndAndAreDeletedThen) {
  EXPECT_EQ(AddStep(), 0);
  EXPECT_EQ(AddStep(), 1);
  Add(1, 'b');
  Add(0, 'a');
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI aA aC aA aC aF bI bA bC bA bC bF a~ b~ ");
}

TEST_F(DtmProcessTest, ThreeProcessorsOfOneStepAreOneGroup) {
  AddStep();
  for (const char letter : {'a', 'b', 'c'}) Add(0, letter);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI bI cI aA bA cA aC bC cC aA bA cA aC bC cC cF bF aF c~ b~ a~ ");
}

TEST_F(DtmProcessTest, StepWithARectangleWalksItAlsoWhereThereIsNoArea) {
  const Page rect(0.5, 0.5, 2.25, 0.75);
  AddStep(&rect);
  Add(0, 'a');
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI aA aC aA aC aA aC aF a~ ");
}

TEST_F(DtmProcessTest, InvalidRectangleIsNoLimit) {
  const Page none;
  AddStep(&none);
  Add(0, 'a');
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI aA aC aA aC aF a~ ");
}

TEST_F(DtmProcessTest, AllCellsOfExtentsThatAnEarlierStepFindsAreWalkedAndTheRectangleIsNot) {
  // Deleted with its step, but not before the job has ended.
  auto found = std::make_unique<DtmExtentsProcessor>(dVAL);
  const Page rect(0.5, 0.5, 0.75, 0.75);
  AddStep();
  AddStep(&rect, true, found.get());
  process_.AddProcessor(0, found.release());
  process_.SetAllowParallel(1, true);
  Add(1, 'a');
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI aC aC aC aF a~ ");
}

TEST_F(DtmProcessTest, SecondStartRunsNoSteps) {
  AddStep();
  Add(0, 'a');
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  const std::string heard = heard_;
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, heard);
  EXPECT_EQ(AddStep(), 0) << "the list is empty";
}

TEST_F(DtmProcessTest, FailingStepEndsTheJob) {
  AddStep();
  AddStep();
  Add(0, 'a')->answer = false;
  Add(1, 'b');
  EXPECT_EQ(process_.DoModal(), ProcessThread::kFailed);
  EXPECT_EQ(heard_, "aI aA aC a~ b~ ");
}

TEST_F(DtmProcessTest, StepWithoutAProcessorFails) {
  const Page rect(0, 0, 1, 1);
  DtmExtentsProcessor extents(0);
  for (const bool allCells : {false, true}) {
    for (const Page* limit : {static_cast<const Page*>(nullptr), &rect}) {
      DtmProcess process;
      process.AddProcessStep(model_.get(), 0, limit, allCells, &extents);
      process.SetAllowParallel(0, true);
      EXPECT_EQ(process.DoModal(), ProcessThread::kFailed);
    }
  }
}

TEST_F(DtmProcessTest, StepWithoutAModelFails) {
  process_.AddProcessStep(nullptr, 0, nullptr, false, nullptr);
  Add(0, 'a');
  EXPECT_EQ(process_.DoModal(), ProcessThread::kFailed);
  EXPECT_EQ(heard_, "aI a~ ");
}

TEST_F(DtmProcessTest, JobThatIsNotStartedGivesBackWhatItHolds) {
  const int before = model_->OpenCount();
  {
    DtmProcess process;
    process.AddProcessStep(model_.get(), 0, nullptr, false, nullptr);
    process.AddProcessor(0, std::make_unique<Told>('a', heard_).release());
    EXPECT_EQ(model_->OpenCount(), before + 1);
    process.AddProcessStep(model_.get(), 0, nullptr, false, nullptr);
    EXPECT_EQ(model_->OpenCount(), before + 2);
  }
  EXPECT_EQ(model_->OpenCount(), before);
  EXPECT_EQ(heard_, "a~ ");
}

/// Notes how often its model is open when it goes.
class Counting final : public DtmProcessor {
 public:
  Counting(DtmUpdateFile& model, int& count) : model_(model), count_(count) {}
  ~Counting() override { count_ = model_.OpenCount(); }
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;

  bool Init(DtmAccess& /*access*/) override { return true; }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return true; }

 private:
  DtmUpdateFile& model_;
  int& count_;
};

TEST_F(DtmProcessTest, ProcessorGoesBeforeTheAccessThatItHasSeen) {
  const int before = model_->OpenCount();
  for (const bool start : {false, true}) {
    SCOPED_TRACE(start ? "by its walker" : "by a job that isn't started");
    int atEnd = 0;
    {
      DtmProcess process;
      process.AddProcessStep(model_.get(), 0, nullptr, false, nullptr);
      process.AddProcessor(0, std::make_unique<Counting>(*model_, atEnd).release());
      if (start) {
        EXPECT_EQ(process.DoModal(), ProcessThread::kDone);
      }
    }
    EXPECT_EQ(atEnd, before + 1);
    EXPECT_EQ(model_->OpenCount(), before);
  }
}

/// Wants no row.
class Rowless final : public DtmProcessor {
 public:
  bool Init(DtmAccess& /*access*/) override { return true; }
  bool InitRow(int /*row*/, int /*colBegin*/, int /*colEnd*/) override { return false; }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return false; }
};

TEST_F(DtmProcessTest, NoProcessorAddedToAStepLeavesTheOneItHasAlone) {
  AddStep();
  process_.AddProcessor(0, std::make_unique<Rowless>().release());
  process_.AddProcessor(0, nullptr);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone) << "in a group it would be asked for cells";
}

TEST_F(DtmProcessTest, ModelStaysOpenForTheJob) {
  const std::wstring name = folder_.WideFile("a.dtm");
  AddStep();
  Add(0, 'a');
  model_.reset();
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI aA aC aA aC aF a~ ");
  model_ = OpenShared(name, false);
  ASSERT_NE(model_, nullptr) << "the job has closed it";
  EXPECT_EQ(model_->OpenCount(), 1);
}

TEST_F(DtmProcessTest, OfCopiesOneRunsTheSteps) {
  AddStep();
  Add(0, 'a');
  DtmProcess copy(process_);
  DtmProcess assigned;
  assigned = copy;
  EXPECT_EQ(copy.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI aA aC aA aC aF a~ ");
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(assigned.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI aA aC aA aC aF a~ ");
}

TEST_F(DtmProcessTest, ProcessorForAStepThatIsNotThereIsDeleted) {
  Add(0, 'a');
  Add(-1, 'b');
  AddStep();
  process_.AddProcessor(0, nullptr);
  process_.SetAllowStop(7, false);
  process_.SetAllowParallel(-7, true);
  EXPECT_EQ(heard_, "a~ b~ ");
  EXPECT_EQ(process_.DoModal(), ProcessThread::kFailed);
}

TEST_F(DtmProcessTest, StepsGoToAThreadOfTheCaller) {
  AddStep();
  Add(0, 'a');
  {
    ProcessThread thread(L"", nullptr, false, nullptr, false);
    process_.Init(&thread);
    process_.Init(nullptr);
    EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
    EXPECT_EQ(heard_, "");
    EXPECT_EQ(thread.DoModal(), ProcessThread::kDone);
  }
  EXPECT_EQ(heard_, "aI aA aC aA aC aF a~ ");
}

TEST_F(DtmProcessTest, NoThreadLeavesTheStepsWhereTheyAre) {
  AddStep();
  Add(0, 'a');
  process_.Init(nullptr);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(heard_, "aI aA aC aA aC aF a~ ");
}

/// Stops the job at its first cell.
class Stopping final : public DtmProcessor {
 public:
  Stopping(ProcessThread& thread, int& cells) : thread_(thread), cells_(cells) {}
  bool Init(DtmAccess& /*access*/) override { return true; }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override {
    thread_.Stop();
    ++cells_;
    return true;
  }

 private:
  ProcessThread& thread_;
  int& cells_;
};

TEST_F(DtmProcessTest, StopEndsTheStepsThatAllowIt) {
  const Page rect(0.25, 0.25, 2.75, 0.75);
  DtmExtentsProcessor extents(dVAL);
  DtmAccess access(model_.get());
  ASSERT_TRUE(extents.ProcessAllCells(access));
  struct Case {
    const Page* rect;
    bool allCells;
    int cells;
  };
  for (const Case& one : {Case{nullptr, false, 2}, Case{&rect, false, 3}, Case{nullptr, true, 3}}) {
    for (const bool allow : {true, false}) {
      ProcessThread thread(L"", nullptr, false, nullptr, false);
      int cells = 0;
      DtmProcess process;
      process.AddProcessStep(model_.get(), 0, one.rect, one.allCells, &extents);
      process.AddProcessor(0, std::make_unique<Stopping>(thread, cells).release());
      if (!allow) process.SetAllowStop(0, false);
      process.Init(&thread);
      EXPECT_EQ(thread.DoModal(), allow ? ProcessThread::kStopped : ProcessThread::kDone);
      EXPECT_EQ(cells, allow ? 1 : one.cells);
    }
  }
}

/// Has a long way to go, and tells the world when it is deleted.
class Loud final : public DtmProcessor {
 public:
  ~Loud() override { std::fputs("deleted", stderr); }
  bool Init(DtmAccess& /*access*/) override { return true; }
  bool ProcessArea(int /*row*/, int /*col*/, double& area) override {
    area = 0;
    return true;
  }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return true; }
};

TEST_F(DtmProcessTest, JobThatStillRunsWhenTheProcessEndsIsStoppedFirst) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto leave = [this] {
    const Page wide(0, 0, 4e4, 4e4);
    AddStep(&wide);
    process_.AddProcessor(0, std::make_unique<Loud>().release());
    if (process_.StartThread(nullptr, false) != nullptr) std::exit(0);
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "^deleted$");
}

class Listener final : public ProgressSink {
 public:
  void Begin(const JobProgress& progress) override { title = progress.title; }
  void Show(const JobProgress& progress) override { step = progress.step; }
  bool WantsStop() override { return false; }
  void End(bool /*done*/) override {}

  std::wstring title = L"none";
  std::wstring step;
};

TEST_F(DtmProcessTest, ModalJobTellsTheStepsName) {
  const auto listener = std::make_shared<Listener>();
  AddStep();
  Add(0, 'a');
  const auto former = InstallProgressSink(listener);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  InstallProgressSink(former);
  EXPECT_EQ(listener->title, L"");
  EXPECT_EQ(listener->step, L"Z Average");
}

/// Raises every cell.
class Raising final : public DtmProcessor {
 public:
  bool Init(DtmAccess& access) override {
    access_ = &access;
    return true;
  }
  bool ProcessCell(int row, int col, double& /*area*/) override {
    return access_->SetDoubleValue(row, col, dVAL, 5.0, true);
  }

 private:
  DtmAccess* access_ = nullptr;
};

/// Raises three cells, 100 and 26 milliseconds apart, and notes what has been handed to the model behind each.
class Slow final : public DtmProcessor {
 public:
  Slow(QuietModel& quiet, std::vector<double>& handed) : quiet_(quiet), handed_(handed) {}
  bool Init(DtmAccess& access) override {
    access_ = &access;
    return true;
  }
  bool ProcessCell(int row, int col, double& /*area*/) override {
    constexpr std::array<std::uint32_t, 3> kWaits = {0, 100, 26};
    quiet_.clock.AdvanceMilliseconds(kWaits.at(handed_.size()));
    if (!access_->SetDoubleValue(row, col, dVAL, 5.0, true)) return false;
    Page rect;
    bool flag = false;
    handed_.push_back(quiet_.model->GetUpdateRect(rect, flag) ? rect.right() : 0.0);
    return true;
  }

 private:
  QuietModel& quiet_;
  std::vector<double>& handed_;
  DtmAccess* access_ = nullptr;
};

TEST(DtmProcessViews, ChangesAreHandedOnEvery125Milliseconds) {
  QuietModel quiet;
  ASSERT_TRUE(Sound(*quiet.model, 0.25, 0.25, -1));
  quiet.Announce();
  const Page rect(0.1, 0.1, 1.4, 0.2);
  std::vector<double> handed;
  DtmProcess process;
  process.AddProcessStep(quiet.model.get(), 0, &rect, false, nullptr);
  process.AddProcessor(0, std::make_unique<Slow>(quiet, handed).release());
  EXPECT_EQ(process.DoModal(), ProcessThread::kDone);
  // The first at once, the second not yet; with the third all, and the model announces it then, too.
  EXPECT_EQ(handed, (std::vector{0.5, 0.5, 0.0}));
  ASSERT_GE(quiet.listener->heard.size(), 1U);
  EXPECT_EQ(quiet.listener->heard.front().rect.right(), 1.5);
}

TEST(DtmProcessViews, ChangesOfAStepReachTheModelsViews) {
  QuietModel quiet;
  ASSERT_TRUE(Sound(*quiet.model, 1.25, 1.25, -1));
  quiet.Announce();
  ASSERT_FALSE(quiet.HasRect());
  const Page rect(1.0, 1.0, 1.49, 1.49);
  DtmProcess process;
  process.AddProcessStep(quiet.model.get(), 0, &rect, false, nullptr);
  process.AddProcessor(0, std::make_unique<Raising>().release());
  EXPECT_EQ(process.DoModal(), ProcessThread::kDone);
  ASSERT_EQ(quiet.listener->heard.size(), 1U);
  const Page& told = quiet.listener->heard.front().rect;
  EXPECT_TRUE(told.left() == 1.0 && told.bottom() == 1.0 && told.right() == 1.5 && told.top() == 1.5);
  EXPECT_EQ(ValueAt(*quiet.model, 1.25, 1.25), 5.0);
}

}  // namespace
}  // namespace vak::test
