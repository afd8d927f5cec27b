#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <time.h>
#include <vector>

#include "vakdtm/analysis/DtmTotalProcessor.h"
#include "vakdtm/services/files/OutputFile.h"
#include "vakdtm/services/files/memfile.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/jobs/BaseVAKMessage.h"
#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/text/CVakUnitCnv.h"
#include "vakdtm/services/text/LocaleSeparators.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

/// What came out of a report, in order.
using Journal = std::vector<std::string>;

class CollectingSink final : public MessageSink {
 public:
  void ShowMessage(MessageIcon icon, const std::wstring& title, const std::wstring& text) override {
    EXPECT_EQ(icon, MessageIcon::kInformation);
    EXPECT_EQ(title, L"Cell Info Results");
    boxes.push_back(text);
    if (journal) journal->emplace_back("box");
  }
  Journal* journal = nullptr;
  std::vector<std::wstring> boxes;
};

class CollectingLog final : public BaseVAKMessage {
 public:
  void LogMessage(int kind, const std::wstring& text, int level, const std::wstring& source, bool showTime,
                  int code) override {
    EXPECT_EQ(kind, 1);
    EXPECT_EQ(level, 1);
    EXPECT_EQ(source, L"");
    EXPECT_TRUE(showTime);
    EXPECT_EQ(code, 0);
    lines.push_back(text);
    if (journal) journal->emplace_back("log");
  }
  Journal* journal = nullptr;
  std::vector<std::wstring> lines;
};

class JournalFile final : public CFile {
 public:
  explicit JournalFile(Journal& journal) : journal_(journal) {}
  bool Write(const void* /*from*/, unsigned /*count*/) override {
    journal_.emplace_back("file");
    return true;
  }

 private:
  Journal& journal_;
};

/// What of a process a report depends on, with a point and a comma, metres and universal time at first. Everything is
/// as it was afterwards.
class DtmTotalProcessorReport : public testing::Test {
 protected:
  DtmTotalProcessorReport() {
    SetLocaleSeparators(LocaleSeparators{L".", L","});
    SetCurrentProjectDefinition({});
    setenv("TZ", "UTC0", 1);
    tzset();
    InstallMessageSink(sink_);
  }
  ~DtmTotalProcessorReport() override {
    InstallMessageSink(nullptr);
    unsetenv("TZ");
    tzset();
    SetCurrentProjectDefinition({});
    SetLocaleSeparators(std::nullopt);
  }

  /// Reports on the cells of the bottom row, up to column 3.
  void Report(DtmTotalProcessor total) {
    ASSERT_TRUE(total.Init(grid_.Access()));
    for (int col = 0; col < 4; ++col) {
      double weight = 4.0;
      ASSERT_TRUE(total.ProcessCell(0, col, weight));
    }
    ASSERT_TRUE(total.Fini());
  }

  /// What the file got.
  std::string Written() const {
    const auto bytes = file_.Bytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  /// A model with all that a report can tell.
  void Fill() {
    grid_.Draw("-10 -12.5 -11");
    const std::vector<double> hits = {3, 1, 2};
    for (int col = 0; col < 3; ++col) {
      grid_.Set(0, col, iNUM, hits[static_cast<std::size_t>(col)]);
      grid_.Set(0, col, dSDV, 0.5);
      grid_.Set(0, col, tTIM, 1435926890 + col);
    }
  }

  TestGrid grid_{GridSettings{.cellSize = 2.0, .areaSize = 4, .blockIds = {dVAL, iNUM, dSDV, tTIM}}};
  std::shared_ptr<CollectingSink> sink_ = std::make_shared<CollectingSink>();
  CollectingLog log_;
  memfile file_;
};

/// A square with this side, from the origin.
PolyClipLine Square(double side) {
  PolyClipLine polygon;
  for (const Point& corner : {Point{0, 0}, Point{side, 0}, Point{side, side}, Point{0, side}}) polygon.AddElem(corner);
  return polygon;
}

TEST_F(DtmTotalProcessorReport, ABoxHasALineForEachFigure) {
  Fill();
  Report(DtmTotalProcessor(true, L"", nullptr, false));
  // Squares: 4 (0.25) + 300 + 2 (0.25) + 156.25 + 3 (0.25) + 242 = 700.5; mean -64.5 / 6.
  EXPECT_THAT(sink_->boxes, testing::ElementsAre(L"Used cells: \t\t3\n"
                                                 L"Used area: \t\t12.00 m\u00b2\n"
                                                 L"Empty area:\t\t4.00 m\u00b2\n"
                                                 L"\n"
                                                 L"Z minimum(Deepest):\t-12.500 m\n"
                                                 L"Z maximum(Highest):\t-10.000 m\n"
                                                 L"Z average: \t\t-10.750 m\n"
                                                 L"Z standard deviation: \t1.194 m\n"
                                                 L"\n"
                                                 L"Cells Z standard deviation: \t0.500 m\n"
                                                 L"\n"
                                                 L"Total hit count:\t\t6\n"
                                                 L"Latest time:\t\t2015-07-03 12:34:52"));
}

TEST_F(DtmTotalProcessorReport, AClipNameComesFirstAndTheLogHasEveryLine) {
  Fill();
  DtmTotalProcessor total(true, L"harbour \u00e4", nullptr, false);
  total.SetMessageLog(&log_);
  Report(total);
  const std::vector<std::wstring> lines = {L"Clipping polygon:\t\tharbour \u00e4",
                                           L"Used cells: \t\t3",
                                           L"Used area: \t\t12.00 m\u00b2",
                                           L"Empty area:\t\t4.00 m\u00b2",
                                           L"Z minimum(Deepest):\t-12.500 m",
                                           L"Z maximum(Highest):\t-10.000 m",
                                           L"Z average: \t\t-10.750 m",
                                           L"Z standard deviation: \t1.194 m",
                                           L"Cells Z standard deviation: \t0.500 m",
                                           L"Total hit count:\t\t6",
                                           L"Latest time:\t\t2015-07-03 12:34:52"};
  EXPECT_EQ(log_.lines, lines);
  ASSERT_EQ(sink_->boxes.size(), 1U);
  EXPECT_EQ(sink_->boxes[0].find(L"Clipping polygon:\t\tharbour \u00e4\nUsed cells: \t\t3\n"), 0U);
}

TEST_F(DtmTotalProcessorReport, AMissingValueIsADash) {
  Report(DtmTotalProcessor(true, L"", nullptr, false));
  EXPECT_THAT(sink_->boxes, testing::ElementsAre(L"Used cells: \t\t0\n"
                                                 L"Used area: \t\t0.00 m\u00b2\n"
                                                 L"Empty area:\t\t16.00 m\u00b2\n"
                                                 L"\n"
                                                 L"Z minimum(Deepest):\t-\n"
                                                 L"Z maximum(Highest):\t-\n"
                                                 L"Z average: \t\t-\n"
                                                 L"Z standard deviation: \t-\n"
                                                 L"\n"
                                                 L"Cells Z standard deviation: \t-\n"
                                                 L"\n"
                                                 L"Total hit count:\t\t0\n"
                                                 L"Latest time:\t\t-"));
}

TEST_F(DtmTotalProcessorReport, AFileGetsALineUnderHeadingsAndNoBoxIsShown) {
  Fill();
  DtmTotalProcessor total(false, L"harbour \u00e4", &file_, true);
  total.SetMessageLog(&log_);
  Report(total);
  EXPECT_EQ(Written(),
            "Clipping polygon:,Used cells: ,Used area:  m\xc2\xb2,Empty area: m\xc2\xb2,Z minimum(Deepest): m,"
            "Z maximum(Highest): m,Z average:  m,Z standard deviation:  m,Cells Z standard deviation:  m,"
            "Total hit count:,Latest time:\n"
            "harbour \xc3\xa4,3,12.00,4.00,-12.500,-10.000,-10.750,1.194,0.500,6,2015-07-03 12:34:52\n");
  EXPECT_THAT(sink_->boxes, testing::IsEmpty());
  EXPECT_THAT(log_.lines, testing::IsEmpty());
}

TEST_F(DtmTotalProcessorReport, FileComesBeforeLogAndLogBeforeBox) {
  Fill();
  Journal journal;
  JournalFile file(journal);
  sink_->journal = log_.journal = &journal;
  DtmTotalProcessor total(true, L"harbour", &file, true);
  total.SetMessageLog(&log_);
  Report(total);
  Journal expected = {"file", "file"};
  expected.insert(expected.end(), 11, "log");
  expected.emplace_back("box");
  EXPECT_EQ(journal, expected);
}

TEST_F(DtmTotalProcessorReport, ATabBetweenTheItemsStaysThoughTheHeadingsHaveNone) {
  Fill();
  SetLocaleSeparators(LocaleSeparators{L".", L"\t"});
  Report(DtmTotalProcessor(false, L"", &file_, true));
  EXPECT_EQ(Written(),
            "Clipping polygon:\tUsed cells: \tUsed area:  m\xc2\xb2\tEmpty area: m\xc2\xb2\tZ minimum(Deepest): m\t"
            "Z maximum(Highest): m\tZ average:  m\tZ standard deviation:  m\tCells Z standard deviation:  m\t"
            "Total hit count:\tLatest time:\n"
            "\t3\t12.00\t4.00\t-12.500\t-10.000\t-10.750\t1.194\t0.500\t6\t2015-07-03 12:34:52\n");
}

TEST_F(DtmTotalProcessorReport, ANameIsNoNumberWhateverTheLocale) {
  Fill();
  SetLocaleSeparators(LocaleSeparators{L",", L";"});
  Report(DtmTotalProcessor(false, L"v1.2", &file_, false));
  EXPECT_EQ(Written().find("v1.2;3;12,00;"), 0U) << Written();
}

TEST_F(DtmTotalProcessorReport, AnOverlapTooSmallToShowKeepsItsSignInTheBox) {
  Fill();
  DtmTotalProcessor total(true, L"", &file_, false);
  total.SetClippingPolygon(Square(std::sqrt(11.999)));
  Report(total);
  EXPECT_EQ(Written().find(",3,12.00,0.00,"), 0U) << Written();
  ASSERT_EQ(sink_->boxes.size(), 1U);
  EXPECT_NE(sink_->boxes[0].find(L"Empty area:\t\t-0.00 m\u00b2\n"), std::wstring::npos);
}

TEST_F(DtmTotalProcessorReport, AHeightThatIsNoNumberIsShownAsNone) {
  grid_.Draw("-10 . -11");
  grid_.Set(0, 1, dVAL, std::nan("3"));
  Report(DtmTotalProcessor(true, L"", &file_, false));
  EXPECT_EQ(Written(), ",3,12.00,4.00,-11.000,-10.000,nan,nan,,3,\n");
  ASSERT_EQ(sink_->boxes.size(), 1U);
  EXPECT_NE(sink_->boxes[0].find(L"Z average: \t\tnan m\nZ standard deviation: \tnan m\n"), std::wstring::npos);
}

TEST_F(DtmTotalProcessorReport, AMissingValueLeavesItsItemEmpty) {
  Report(DtmTotalProcessor(false, L"", &file_, false));
  EXPECT_EQ(Written(), ",0,0.00,16.00,,,,,,0,\n");
}

TEST_F(DtmTotalProcessorReport, AUsersDecimalCommaStandsInTheListAndNotInTheBox) {
  Fill();
  SetLocaleSeparators(LocaleSeparators{L",", L";"});
  Report(DtmTotalProcessor(true, L"", &file_, true));
  EXPECT_EQ(Written(),
            "Clipping polygon:;Used cells: ;Used area:  m\xc2\xb2;Empty area: m\xc2\xb2;Z minimum(Deepest): m;"
            "Z maximum(Highest): m;Z average:  m;Z standard deviation:  m;Cells Z standard deviation:  m;"
            "Total hit count:;Latest time:\n"
            ";3;12,00;4,00;-12,500;-10,000;-10,750;1,194;0,500;6;2015-07-03 12:34:52\n");
  ASSERT_EQ(sink_->boxes.size(), 1U);
  EXPECT_NE(sink_->boxes[0].find(L"12.00 m\u00b2"), std::wstring::npos);
}

TEST_F(DtmTotalProcessorReport, HeightsAreInTheProjectsUnitAndSurfacesAsTheyAre) {
  Fill();
  ProjectDefinition project;
  project.SetUnitCnv(CVakUnitCnv(LengthUnit::kFoot, LengthUnit::kFoot, LengthUnit::kFoot));
  project.SetHeightDecimals(1);
  SetCurrentProjectDefinition(project);
  Report(DtmTotalProcessor(true, L"", &file_, true));
  EXPECT_NE(Written().find("Used area:  ft\xc2\xb2,"), std::string::npos);
  EXPECT_NE(Written().find("\n,3,12.00,4.00,-41.0,-32.8,-35.3,3.9,1.6,6,"), std::string::npos) << Written();
  ASSERT_EQ(sink_->boxes.size(), 1U);
  EXPECT_NE(sink_->boxes[0].find(L"Used area: \t\t12.00 ft\u00b2\n"), std::wstring::npos);
  EXPECT_NE(sink_->boxes[0].find(L"Z average: \t\t-35.3 ft\n"), std::wstring::npos);
}

TEST_F(DtmTotalProcessorReport, WithAPolygonTheEmptyAreaIsWhatOfItIsNotUsed) {
  Fill();
  DtmTotalProcessor total(true, L"", &file_, false);
  total.SetClippingPolygon(Square(10.0));
  ASSERT_TRUE(total.Init(grid_.Access()));
  for (int col = 0; col < 4; ++col) {
    double weight = 4.0;
    total.ProcessCell(0, col, weight);
  }
  EXPECT_EQ(total.EmptyArea(), 4.0);
  EXPECT_EQ(total.UnusedArea(), 88.0);
  total.Fini();
  {
    const DtmTotalProcessor copy(total);
  }  // which reports
  EXPECT_EQ(Written().find(",3,12.00,88.00,"), 0U) << Written();
  ASSERT_EQ(sink_->boxes.size(), 1U);
  EXPECT_NE(sink_->boxes[0].find(L"Empty area:\t\t88.00 m\u00b2\n"), std::wstring::npos);
}

TEST_F(DtmTotalProcessorReport, CellsAreCountedInWholeOnes) {
  Fill();
  {
    DtmTotalProcessor total(true, L"", &file_, false);
    ASSERT_TRUE(total.Init(grid_.Access()));
    double weight = 3.99;
    total.ProcessCell(0, 1, weight);
    total.Fini();
  }
  EXPECT_EQ(Written(), ",0,3.99,0.00,-12.500,-12.500,-12.500,,,1,2015-07-03 12:34:51\n");
  EXPECT_EQ(sink_->boxes.at(0).find(L"Used cells: \t\t0\nUsed area: \t\t3.99 m\u00b2\n"), 0U);
}

TEST_F(DtmTotalProcessorReport, AWalkThatDidNotEndIsNotReported) {
  Fill();
  {
    const DtmTotalProcessor never(true, L"", &file_, true);
  }
  {
    DtmTotalProcessor stopped(true, L"", &file_, true);
    ASSERT_TRUE(stopped.Init(grid_.Access()));
    double weight = 4.0;
    stopped.ProcessCell(0, 0, weight);
  }
  {
    DtmTotalProcessor second(true, L"", &file_, true);
    ASSERT_TRUE(second.ProcessAllCells(grid_.Access()));
    ASSERT_TRUE(second.Init(grid_.Access()));  // stopped in its second walk
  }
  EXPECT_EQ(Written(), "");
  EXPECT_THAT(sink_->boxes, testing::IsEmpty());
}

TEST_F(DtmTotalProcessorReport, NobodyWhoAskedForNothingGetsAny) {
  Fill();
  {
    DtmTotalProcessor total;
    total.SetMessageLog(&log_);
    ASSERT_TRUE(total.ProcessAllCells(grid_.Access()));
  }
  EXPECT_THAT(log_.lines, testing::IsEmpty());
  EXPECT_THAT(sink_->boxes, testing::IsEmpty());
}

TEST_F(DtmTotalProcessorReport, AFullDiskShowsInTheFile) {
  Fill();
  OutputFile full;
  ASSERT_TRUE(full.Open(L"/dev/full"));
  Report(DtmTotalProcessor(false, L"", &full, true));
  EXPECT_FALSE(full.Close());
}

}  // namespace
}  // namespace vak
