#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "vakdtm/intake/DtmAsciiTimeImporter.h"
#include "vakdtm/intake/DtmImportException.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/AtEachSounding.h"
#include "support/FaultyText.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

/// Another time zone for its lifetime.
class TimeZone {
 public:
  explicit TimeZone(const char* name) {
    if (const char* former = std::getenv("TZ")) former_ = former;
    setenv("TZ", name, 1);
    tzset();
  }
  ~TimeZone() {
    if (former_.empty()) {
      unsetenv("TZ");
    } else {
      setenv("TZ", former_.c_str(), 1);
    }
    tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::string former_;
};

class MessagesOfAScope final : public MessageSink {
 public:
  void ShowMessage(MessageIcon icon, const std::wstring& /*title*/, const std::wstring& text) override {
    icons.push_back(icon);
    texts.push_back(text);
  }
  std::vector<MessageIcon> icons;
  std::vector<std::wstring> texts;
};

/// Messages of its lifetime.
class Messages {
 public:
  Messages() : former_(InstallMessageSink(sink_)) {}
  ~Messages() { InstallMessageSink(former_); }
  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;
  const MessagesOfAScope& operator*() const { return *sink_; }

 private:
  std::shared_ptr<MessagesOfAScope> sink_ = std::make_shared<MessagesOfAScope>();
  std::shared_ptr<MessageSink> former_;
};

struct How {
  bool clearFirst = false;
  bool backup = false;
  bool negate = false;
  PolyClipLine* polygon = nullptr;
};

constexpr long long kNow = 5000;
constexpr double kThirdOfJuly2015 = 1435874400.0 + 7200.0;  // in UTC; two hours earlier in a summer of Central Europe

/// An open model of 1 m cells, and texts imported into it.
struct DtmAsciiTimeImporterTest : testing::Test {
  DtmAsciiTimeImporterTest() : scope(clock), zone("UTC0") {
    clock.SetMilliseconds(1000000);
    clock.SetSeconds(kNow);
    model = CreateShared(folder.WideFile("a.dtm"), {8, 1.0, {iNUM, dVAL, dMIN, dMAX, tTIM}});
    if (!model) throw std::runtime_error("no model");
  }

  DtmAsciiTimeImporter& Importer(const std::string& text, const How& how = {}) {
    importer.reset();
    source = std::make_unique<TextFile>(std::fopen(folder.Write("source.txt", text).c_str(), "rb"));
    importer = std::make_unique<DtmAsciiTimeImporter>(model.get(), source.get(), how.polygon, how.clearFirst,
                                                      how.backup, how.negate);
    importer->SetTally(&tally);
    return *importer;
  }
  /// The same for a source that may fail.
  DtmAsciiTimeImporter& Importer(FaultyText& text) {
    importer.reset();
    source = std::make_unique<TextFile>(text.Open());
    importer = std::make_unique<DtmAsciiTimeImporter>(model.get(), source.get(), nullptr, false, false, false);
    return *importer;
  }
  bool Run(const std::string& text, const How& how = {}) { return Importer(text, how).Process(); }

  double At(double x, double y, int id = dVAL) { return ValueAt(*model, x, y, id); }
  bool IsEmptyAt(double x, double y) { return IsEmptyValue(At(x, y)); }

  TestFolder folder;
  ManualClock clock;
  ScopedClock scope;
  TimeZone zone;
  SharedModel model;
  ImportTally tally{8};
  std::unique_ptr<TextFile> source;
  std::unique_ptr<DtmAsciiTimeImporter> importer;
};

// ---- Formats and dates

TEST_F(DtmAsciiTimeImporterTest, DayComesBeforeMonthInEveryFormat) {
  const struct {
    const char* name;
    const char* text;
  } cases[] = {
      {"commas", "1.5,2.5,-3,03-07-2015\n"},
      {"blanks", "1.5 2.5 -3 03-07-2015\n"},
      {"tabs and a carriage return", "1.5\t2.5\t-3\t3-7-2015\r\n"},
      {"a column behind", "1.5,2.5,-3,3-7-2015 12:00,x\n"},
      {"no newline", "1.5, 2.5, -3, 3- 7- 2015"},
      {"a byte order mark",
       "\xEF\xBB\xBF"
       "1.5,2.5,-3,03-07-2015\n"},
      {"two digits of the month alone", "1.5,2.5,-3,3-07-20150\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Run("2.5,2.5,1,1-1-2000\n");
    EXPECT_TRUE(Run(c.text, {.clearFirst = true}));
    EXPECT_EQ(At(1.5, 2.5), -3.0);
    EXPECT_EQ(At(1.5, 2.5, tTIM), kThirdOfJuly2015);
  }
}

TEST_F(DtmAsciiTimeImporterTest, WideTextOfEitherByteOrderIsReadToo) {
  for (const bool big : {false, true}) {
    SCOPED_TRACE(big ? "high byte first" : "low byte first");
    std::string utf16 = big ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : std::string("1.5,2.5,-3,03-07-2015\n2.5,2.5,-4,04-07-2015\n")) {
      utf16 += big ? std::string{'\0', c} : std::string{c, '\0'};
    }
    EXPECT_TRUE(Run("1.5,2.5,7,1-1-2000\n2.5,2.5,7,1-1-2000\n", {.clearFirst = true}));
    EXPECT_TRUE(Run(utf16, {.clearFirst = true}));
    EXPECT_EQ(At(1.5, 2.5, tTIM), kThirdOfJuly2015);
    EXPECT_EQ(At(2.5, 2.5), -4.0);
    EXPECT_EQ(importer->GetProgress(), 1.0);
  }
}

TEST_F(DtmAsciiTimeImporterTest, TimeIsMidnightLocalTimeWithSummerTimeLeftToTheSystem) {
  const TimeZone zoneOfTest("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_TRUE(Run("1.5,2.5,-3,03-07-2015\n2.5,2.5,-3,03-01-2015\n"));
  EXPECT_EQ(At(1.5, 2.5, tTIM), kThirdOfJuly2015 - 7200.0);
  EXPECT_EQ(At(2.5, 2.5, tTIM), 1420243200.0 - 3600.0);
}

TEST_F(DtmAsciiTimeImporterTest, UndatedTextTakesTheTimeOfImport) {
  for (const char* text : {"1.5,2.5,-3\n", "1.5 2.5 -3\n", "1.5,2.5,-3,2015-07-03\n", "1.5 2.5 -3 4 5\n"}) {
    SCOPED_TRACE(text);
    EXPECT_TRUE(Run(text, {.clearFirst = true}));
    EXPECT_EQ(At(1.5, 2.5, tTIM), static_cast<double>(kNow));
  }
}

TEST_F(DtmAsciiTimeImporterTest, FirstLineAloneFixesTheFormat) {
  EXPECT_TRUE(Run("1.5,2.5,-3\n2.5,2.5,-4,03-07-2015\n"));
  EXPECT_EQ(At(2.5, 2.5, tTIM), static_cast<double>(kNow)) << "an undated file stays undated";
}

TEST_F(DtmAsciiTimeImporterTest, FileWithHeadingsEndsUpWithUnknownFileFormat) {
  const Messages messages;
  EXPECT_FALSE(Run("Survey of 1, 2 and 3 May\nx,y,z\n1.5,2.5,-3\n"));
  EXPECT_THAT((*messages).texts, testing::ElementsAre(L"Unknown file format"));
  EXPECT_THAT((*messages).icons, testing::ElementsAre(MessageIcon::kError));
  EXPECT_EQ(model->NumAreas(), 0);
}

TEST_F(DtmAsciiTimeImporterTest, EmptyFileAnswersFalseWithoutAWord) {
  const Messages messages;
  EXPECT_FALSE(Run(""));
  EXPECT_FALSE(Run("\xEF\xBB\xBF"));
  EXPECT_THAT((*messages).texts, testing::IsEmpty());
  EXPECT_EQ(importer->GetProgress(), 0.0);
}

TEST_F(DtmAsciiTimeImporterTest, DateThatNoSoundingCanHaveLeavesByException) {
  for (const char* date :
       {"31-12-1969", "03-00-2015", "03-13-2015", "00-07-2015", "32-07-2015", "-1-7-2015", "3--7-2015", "3-7--215"}) {
    SCOPED_TRACE(date);
    try {
      Run(std::string("1.5,2.5,-3,03-07-2015\n2.5,2.5,-4,") + date + "\n3.5,2.5,-5,03-07-2015\n", {.clearFirst = true});
      ADD_FAILURE() << "nothing was thrown";
    } catch (const DtmImportException& fault) {
      EXPECT_EQ(fault.Code(), 0x80004005u);
      EXPECT_EQ(fault.Line(), 2);
    }
    EXPECT_EQ(At(1.5, 2.5), -3.0) << "the lines before it stay";
    EXPECT_TRUE(IsEmptyAt(2.5, 2.5));
    EXPECT_TRUE(IsEmptyAt(3.5, 2.5));
    EXPECT_FALSE(importer->InsertFailed());
  }
}

TEST_F(DtmAsciiTimeImporterTest, DayThatItsMonthDoesNotHaveIsTheOneBehindItsEnd) {
  EXPECT_TRUE(Run("1.5,2.5,-3,31-06-2015\n2.5,2.5,-3,01-07-2015\n"));
  EXPECT_EQ(At(1.5, 2.5, tTIM), At(2.5, 2.5, tTIM));
}

TEST_F(DtmAsciiTimeImporterTest, FirstLineBeyondTheTimesOfAModelIsTold) {
  const struct {
    const char* name;
    const char* text;
    std::int64_t line;
  } cases[] = {
      {"none", "1.5,2.5,-3,19-01-2038\n", 0},
      {"the second", "1.5,2.5,-3,19-01-2038\n2.5,2.5,-3,20-01-2038\n3.5,2.5,-3,01-01-2100\n", 2},
      {"one that isn't inserted", "1.5,2.5,-3,20-01-2038,#QNAN\n1e20,2.5,-3,20-01-2038\n1.5,2.5,-3,21-01-2038\n", 3},
      {"no dates", "1.5,2.5,-3\n", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_TRUE(Run(c.text));
    EXPECT_EQ(importer->FirstLineBeyondTime(), c.line);
  }
}

TEST_F(DtmAsciiTimeImporterTest, MidnightBefore1970InUtcIsATimeToo) {
  const TimeZone zoneOfTest("CET-1");
  EXPECT_TRUE(Run("1.5,2.5,-3,01-01-1970\n"));
  EXPECT_EQ(At(1.5, 2.5), -3.0);
}

TEST_F(DtmAsciiTimeImporterTest, DateThatTheSystemKnowsNoTimeOfLeavesByException) {
  // Midnight is a second before 1970 in UTC, which is how the C library says that it fails.
  const TimeZone zoneOfTest("AAA-00:00:01");
  try {
    Run("1.5,2.5,-3,02-01-1970\n2.5,2.5,-3,01-01-1970\n");
    ADD_FAILURE() << "nothing was thrown";
  } catch (const DtmImportException& fault) {
    EXPECT_EQ(fault.Code(), 0x80070057u);
    EXPECT_EQ(fault.Line(), 2);
    EXPECT_STREQ(fault.what(), "the system knows no time of 1-1-1970");
  }
  EXPECT_EQ(At(1.5, 2.5), -3.0);
  EXPECT_TRUE(IsEmptyAt(2.5, 2.5));
}

TEST_F(DtmAsciiTimeImporterTest, FaultOfADateIsToldInAdvance) {
  std::string fault = "none";
  EXPECT_FALSE(DtmAsciiTimeImporter::FindFault({1, 1, 1970}, fault));
  EXPECT_EQ(fault, "none");
  EXPECT_TRUE(DtmAsciiTimeImporter::FindFault({7, 13, 2015}, fault));
  EXPECT_EQ(fault, "no sounding can be of 7-13-2015");
}

TEST_F(DtmAsciiTimeImporterTest, FirstAndLastDayGoThrough) {
  EXPECT_TRUE(Run("1.5,2.5,-3,01-01-1970\n2.5,2.5,-3,31-12-2037\n"));
  EXPECT_EQ(At(2.5, 2.5, tTIM), 2145830400.0);
  EXPECT_EQ(At(1.5, 2.5, iNUM), 1.0);
}

// ---- The steps of a line

TEST_F(DtmAsciiTimeImporterTest, BlankLineInADatedFileInsertsThePrecedingSoundingOnceMore) {
  EXPECT_TRUE(Run("1.5,2.5,-3,03-07-2015\n\n4.5,2.5,-5,03-07-2015\n"));
  EXPECT_EQ(At(1.5, 2.5, iNUM), 2.0);
  EXPECT_EQ(At(4.5, 2.5, iNUM), 1.0);
  EXPECT_EQ(importer->LinesTaken(), 3);
  EXPECT_EQ(importer->LinesIncomplete(), 1);
  EXPECT_EQ(tally.Taken(), 3);
}

TEST_F(DtmAsciiTimeImporterTest, LineKeepsWhatItLacksFromTheLineBeforeIt) {
  EXPECT_TRUE(
      Run("1.5,2.5,-3,03-07-2015\n"
          "4.5\n"            // x alone: (4.5, 2.5, -3)
          "6.5,6.5,-7\n"     // no date: that of the first line
          "7.5,6.5,-7,04\n"  // a day alone: 4 July 2015
          "note\n"));        // all of the line before
  EXPECT_EQ(At(4.5, 2.5), -3.0);
  EXPECT_EQ(At(6.5, 6.5), -7.0);
  EXPECT_EQ(At(6.5, 6.5, tTIM), kThirdOfJuly2015);
  EXPECT_EQ(At(7.5, 6.5, tTIM), kThirdOfJuly2015 + 86400.0);
  EXPECT_EQ(At(7.5, 6.5, iNUM), 2.0);
  EXPECT_EQ(importer->LinesIncomplete(), 4);
}

TEST_F(DtmAsciiTimeImporterTest, BlankLineInAnUndatedFileDoesSoToo) {
  EXPECT_TRUE(Run("1.5 2.5 -3\n \n"));
  EXPECT_EQ(At(1.5, 2.5, iNUM), 2.0);
}

TEST_F(DtmAsciiTimeImporterTest, LongLineArrivesInTwoReads) {
  std::string line = "1.5,2.5,-3,03-07-2015 \xC3\xA9";  // 24 characters, 25 bytes
  line.resize(256, ' ');
  EXPECT_TRUE(Run(line + "4.5,5.5,-6,04-07-2015\n"));
  EXPECT_EQ(At(1.5, 2.5, iNUM), 1.0);
  EXPECT_EQ(At(4.5, 5.5, tTIM), kThirdOfJuly2015 + 86400.0);
  EXPECT_EQ(importer->CurrentLine(), 1);
  EXPECT_TRUE(Run(line.substr(0, 255) + "4.5,5.5,-6,04-07-2015\n"));
  EXPECT_EQ(At(0.5, 5.5, iNUM), 1.0) << "the tail lacks its first digit, and is .5,5.5,-6";
}

TEST_F(DtmAsciiTimeImporterTest, PointOutsideThePolygonNeitherEmptiesItsCellNorCounts) {
  EXPECT_TRUE(Run("1.5,2.5,-3,03-07-2015\n7.5,2.5,-4,03-07-2015\n"));
  tally = ImportTally(8);
  auto polygon = std::make_unique<PolyClipLine>();
  for (const Point corner : {Point(0, 0), Point(5, 0), Point(5, 5), Point(0, 5), Point(0, 0)}) polygon->AddElem(corner);
  EXPECT_TRUE(
      Run("1.5,2.5,-5,03-07-2015\n7.5,2.5,-6,31-12-1969\n\n", {.clearFirst = true, .polygon = polygon.release()}));
  EXPECT_EQ(At(1.5, 2.5), -5.0);
  EXPECT_EQ(At(7.5, 2.5), -4.0);
  EXPECT_EQ(importer->LinesTaken(), 1);
  EXPECT_EQ(tally.OutsidePolygon(), 2) << "the blank line has the numbers of the one outside";
  EXPECT_EQ(tally.Lines(), 3);
}

TEST_F(DtmAsciiTimeImporterTest, MarkerLineIsCountedAndNotInserted) {
  for (const char* line : {"1.5,2.5,1.#QNAN,03-07-2015\n", "1.5,2.5,-3,03-07-2015 #QNAN\n", "1.5,2.5,nan,03-07-2015\n",
                           "1.5,2.5,-1.#QNAN\n", "1.5,2.5,-3,31-12-1969,#QNAN\n", "1.5,2.5,inf,#QNAN\n"}) {
    SCOPED_TRACE(line);
    tally = ImportTally(8);
    EXPECT_TRUE(Run("1.5,2.5,-3,03-07-2015\n"));
    EXPECT_TRUE(Run(std::string("4.5,4.5,-1,03-07-2015\n") + line, {.clearFirst = true}));
    EXPECT_TRUE(IsEmptyAt(1.5, 2.5)) << "its cell was emptied";
    EXPECT_EQ(importer->LinesTaken(), 2);
    EXPECT_EQ(tally.NotANumber(), 1);
  }
}

TEST_F(DtmAsciiTimeImporterTest, MarkerOfTheOtherImporterIsNone) {
  EXPECT_TRUE(Run("1.5,2.5,-3,03-07-2015 -nan\n"));
  EXPECT_EQ(At(1.5, 2.5), -3.0);
  EXPECT_TRUE(Run("2.5,2.5,-3,03-07-2015 #QNA\n3.5,2.5,-3,03-07-2015 QNAN #QNBN\n")) << "nor is a part of it";
  EXPECT_EQ(At(2.5, 2.5), -3.0);
  EXPECT_EQ(At(3.5, 2.5), -3.0);
}

TEST_F(DtmAsciiTimeImporterTest, NegateFlipsTheSignBit) {
  EXPECT_TRUE(Run("1.5,2.5,3,03-07-2015\n3.5,2.5,0.0,03-07-2015\n", {.negate = true}));
  EXPECT_EQ(At(1.5, 2.5), -3.0);
  EXPECT_TRUE(std::signbit(At(3.5, 2.5)));
}

TEST_F(DtmAsciiTimeImporterTest, PlacesWithoutACellAreLeftOutAndTheRunGoesOn) {
  EXPECT_TRUE(Run("1.5,2.5,-3,03-07-2015\n1e20,2.5,-3,03-07-2015\ninf,2.5,-3,03-07-2015\n4.5,2.5,-3,03-07-2015\n"));
  EXPECT_EQ(At(4.5, 2.5), -3.0);
  EXPECT_EQ(tally.Refused(), 1);
  EXPECT_EQ(tally.Skipped(), 1);
}

TEST_F(DtmAsciiTimeImporterTest, ManyLinesComeInOrderWithTheirDates) {
  std::string text;
  for (int i = 0; i < 20000; ++i) {
    text += std::to_string(i % 50) + ".5 2.5 " + std::to_string(i) + " " + std::to_string(1 + i % 28) + "-07-2015\n";
  }
  EXPECT_TRUE(Run(text, {.clearFirst = true}));
  for (int col = 0; col < 50; ++col) {
    const int last = 19950 + col;
    EXPECT_EQ(At(col + 0.5, 2.5), last);
    EXPECT_EQ(At(col + 0.5, 2.5, tTIM), kThirdOfJuly2015 + 86400.0 * (last % 28 - 2));
  }
  EXPECT_EQ(tally.Taken(), 20000);
}

// ---- Stopping and failing

TEST_F(DtmAsciiTimeImporterTest, StopBeforeTheRunTakesNoLine) {
  Importer("1.5,2.5,-3,03-07-2015\n").Stop();
  EXPECT_FALSE(importer->Process());
  EXPECT_TRUE(IsEmptyAt(1.5, 2.5));
}

TEST_F(DtmAsciiTimeImporterTest, StopEndsTheRunBeforeTheNextLineAndKeepsWhatWasInserted) {
  Importer("1.5,2.5,-3,03-07-2015\n2.5,2.5,-4,03-07-2015\n3.5,2.5,-5,03-07-2015\n");
  const AtEachSounding stop(*model, [this](int) { importer->Stop(); });
  EXPECT_FALSE(importer->Process());
  EXPECT_EQ(importer->LinesTaken(), 1);
  EXPECT_FALSE(importer->InsertFailed());
  EXPECT_EQ(At(1.5, 2.5), -3.0);
  EXPECT_TRUE(IsEmptyAt(2.5, 2.5));
}

TEST_F(DtmAsciiTimeImporterTest, SourceThatStandsElsewhereIsReadFromItsStart) {
  Importer("1.5,2.5,-3,03-07-2015\n2.5,2.5,-4\n");
  std::string_view line;
  ASSERT_TRUE(source->ReadLine(line, 255));
  EXPECT_TRUE(importer->Process());
  EXPECT_EQ(At(1.5, 2.5, tTIM), kThirdOfJuly2015) << "the first line says that the text is dated";
  EXPECT_EQ(At(2.5, 2.5, tTIM), kThirdOfJuly2015);
}

TEST_F(DtmAsciiTimeImporterTest, SourceThatCannotBeReadToItsEndAnswersFalse) {
  const std::string first = "1.5,2.5,-3,03-07-2015\n";
  FaultyText text(first + "2.5,2.5,-4,03-07-2015\n");
  text.failsAt = first.size() + 5;
  EXPECT_FALSE(Importer(text).Process());
  EXPECT_FALSE(importer->InsertFailed());
  EXPECT_EQ(At(1.5, 2.5), -3.0) << "what stands before it stays";
  EXPECT_TRUE(IsEmptyAt(2.5, 2.5));
}

TEST_F(DtmAsciiTimeImporterTest, SourceThatCannotSeekIsNotRead) {
  for (const bool end : {false, true}) {
    SCOPED_TRACE(end ? "to its end" : "to its start");
    FaultyText text("1.5,2.5,-3,03-07-2015\n");
    (end ? text.hasNoEnd : text.hasNoStart) = true;
    EXPECT_FALSE(Importer(text).Process());
    EXPECT_TRUE(IsEmptyAt(1.5, 2.5));
  }
}

TEST_F(DtmAsciiTimeImporterTest, SourceStaysTheCallers) {
  EXPECT_TRUE(Run("1.5,2.5,-3,03-07-2015\n"));
  importer.reset();
  ASSERT_TRUE(source->SeekToBegin());
  std::string_view line;
  EXPECT_TRUE(source->ReadLine(line, 255));
}

TEST_F(DtmAsciiTimeImporterTest, SoundingThatCannotBeStoredEndsTheRunAndNamesTheBackup) {
  EXPECT_TRUE(Run("1.5,2.5,-3,03-07-2015\n"));
  model->Sync();
  for (const bool backup : {false, true}) {
    SCOPED_TRACE(backup);
    const Messages messages;
    Importer("2.5,2.5,-4,03-07-2015\n100.5,2.5,-5,03-07-2015\n3.5,2.5,-6,03-07-2015\n", {.backup = backup});
    {
      const FullDisk full(static_cast<rlim_t>(model->FileSize()));
      EXPECT_FALSE(importer->Process());
    }
    EXPECT_TRUE(importer->InsertFailed());
    EXPECT_EQ(importer->CurrentLine(), 2);
    EXPECT_TRUE(IsEmptyAt(3.5, 2.5));
    const std::wstring path = model->FileName();
    const std::wstring text =
        L"Error occured during DTM update.\nPlease close acquisition and replace the active DTM file:\n" + path +
        L"\nby its backup:\n" + path.substr(0, path.size() - 3) + L"bk1";
    EXPECT_EQ((*messages).texts, backup ? std::vector{text} : std::vector<std::wstring>());
    EXPECT_EQ(folder.Has("a.bk1"), backup);
  }
}

}  // namespace
}  // namespace vak::test
