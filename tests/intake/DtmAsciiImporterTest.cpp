#include <atomic>
#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "vakdtm/intake/DtmAsciiImporter.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmRectUpdater.h"

#include "support/AtEachSounding.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

/// What an importer is made with.
struct How {
  bool clearFirst = false;
  bool backup = false;
  bool negate = false;
  PolyClipLine* polygon = nullptr;
};

/// Moves by 200 ms whenever it is read, so that every rectangle is announced.
class HurryingClock final : public Clock {
 public:
  std::uint32_t Milliseconds() const override { return milliseconds_.fetch_add(200) + 200; }
  long long Seconds() const override { return 0; }

 private:
  mutable std::atomic<std::uint32_t> milliseconds_{2000000};
};

/// An open model of 1 m cells, and importers of texts into it.
struct Importing {
  Importing() : scope(clock) {
    clock.SetMilliseconds(1000000);
    clock.SetSeconds(5000);
    const DtmManager::create_params params{8, 1.0, {iNUM, dVAL, dMIN, dMAX, tTIM}};
    model = CreateShared(folder.WideFile("a.dtm"), params);
    if (!model) throw std::runtime_error("no model");
  }

  std::unique_ptr<DtmAsciiImporter> Importer(const std::string& text, const How& how = {}) {
    std::FILE* const source = std::fopen(folder.Write("source.xyz", text).c_str(), "rb");
    if (!source) throw std::runtime_error("no source");
    auto importer =
        std::make_unique<DtmAsciiImporter>(model.get(), source, how.polygon, how.clearFirst, how.backup, how.negate);
    importer->SetTally(&tally);
    return importer;
  }
  bool Run(const std::string& text, const How& how = {}) { return Importer(text, how)->Process(); }

  double At(double x, double y, int id = dVAL) { return ValueAt(*model, x, y, id); }
  bool IsEmptyAt(double x, double y) { return IsEmptyValue(At(x, y)); }

  void ExpectCounts(int taken, int skipped, int refused, int notANumber) const {
    EXPECT_EQ(tally.Taken(), taken);
    EXPECT_EQ(tally.Skipped(), skipped);
    EXPECT_EQ(tally.Refused(), refused);
    EXPECT_EQ(tally.NotANumber(), notANumber);
    EXPECT_EQ(tally.Lines(), taken + skipped + refused + notANumber);
  }

  TestFolder folder;
  ManualClock clock;
  ScopedClock scope;
  SharedModel model;
  ImportTally tally{8};
};

// ---- Formats

TEST(DtmAsciiImporter, LinesPartedByCommasOrByBlanksAreTaken) {
  const struct {
    const char* name;
    const char* text;
  } cases[] = {
      {"commas", "1.5,2.5,-3\n4.5,5.5,-6\n"},
      {"commas and blanks behind them", "1.5, 2.5,\t-3\n4.5, 5.5, -6\n"},
      {"blanks", "1.5 2.5 -3\n4.5   5.5 -6\n"},
      {"tabs", "1.5\t2.5\t-3\n 4.5\t5.5\t-6\n"},
      {"carriage returns", "1.5,2.5,-3\r\n4.5,5.5,-6\r\n"},
      {"no newline at the end", "1.5,2.5,-3\n4.5,5.5,-6"},
      {"further columns", "1.5,2.5,-3,17,x\n4.5,5.5,-6,18,y\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Importing importing;
    EXPECT_TRUE(importing.Run(c.text));
    EXPECT_EQ(importing.At(1.5, 2.5), -3.0);
    EXPECT_EQ(importing.At(4.5, 5.5), -6.0);
    importing.ExpectCounts(2, 0, 0, 0);
  }
}

TEST(DtmAsciiImporter, AFileWithTwoHeadingLinesAndThenCommaLinesImports) {
  Importing importing;
  EXPECT_TRUE(importing.Run("Survey of 1, 2 and 3 May\nx,y,z\n1.5,2.5,-3\n"));
  EXPECT_EQ(importing.At(1.5, 2.5), -3.0);
  importing.ExpectCounts(1, 2, 0, 0);
}

TEST(DtmAsciiImporter, TheFirstLineThatScansFixesTheFormatOfTheWholeFile) {
  Importing commas;
  EXPECT_TRUE(commas.Run("heading\n1.5,2.5,-3\n4.5 5.5 -6\n"));
  EXPECT_TRUE(commas.IsEmptyAt(4.5, 5.5));
  commas.ExpectCounts(1, 2, 0, 0);
  Importing blanks;
  EXPECT_TRUE(blanks.Run("4.5 5.5 -6\n1.5,2.5,-3\n"));
  EXPECT_TRUE(blanks.IsEmptyAt(1.5, 2.5));
  EXPECT_EQ(blanks.At(4.5, 5.5), -6.0);
  blanks.ExpectCounts(1, 1, 0, 0);
}

TEST(DtmAsciiImporter, DetectFormatTellsTheFormatAndTheFirstSounding) {
  const struct {
    const char* name;
    const char* text;
    bool found;
    SoundingFormat format;
  } cases[] = {
      {"commas", "head\n1,2,3\n", true, SoundingFormat::kComma},
      {"blanks", "head\n1 2 3\n", true, SoundingFormat::kBlank},
      {"none", "head\n1;2;3\n", false, SoundingFormat::kComma},
      {"nothing", "", false, SoundingFormat::kComma},
  };
  const TestFolder folder;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(folder.Write("t", c.text).c_str(), "rb"),
                                                               std::fclose);
    LineReader lines(file.get());
    SoundingFormat format = SoundingFormat::kBlank;
    ScannedSounding first;
    EXPECT_EQ(DtmAsciiImporter::DetectFormat(lines, format, &first), c.found);
    EXPECT_EQ(format, c.format);
    EXPECT_EQ(first.z, c.found ? 3.0 : 0.0);
  }
}

TEST(DtmAsciiImporter, AFileInWhichNoLineMatchesImportsNothingAndIsTrue) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1;2;3\nabc\n\n"));
  EXPECT_EQ(importing.model->NumAreas(), 0);
  importing.ExpectCounts(0, 3, 0, 0);
}

TEST(DtmAsciiImporter, AnEmptyFileIsTrue) {
  Importing importing;
  const auto importer = importing.Importer("");
  EXPECT_TRUE(importer->Process());
  EXPECT_EQ(importer->GetProgress(), 0.0);
  EXPECT_EQ(importer->LinesTaken(), 0);
}

TEST(DtmAsciiImporter, ALongLineIsCutAt255CharactersAndItsTailIsALineOfItsOwn) {
  Importing importing;
  std::string line = "1.5,2.5,-3";
  line.resize(255, ' ');
  EXPECT_TRUE(importing.Run(line + "4.5,5.5,-6\n" + line.substr(0, 254) + "4.5,5.5,-6\n"));
  EXPECT_EQ(importing.At(1.5, 2.5, iNUM), 2.0);
  EXPECT_EQ(importing.At(4.5, 5.5, iNUM), 1.0) << "the second tail lacks its first digit";
  EXPECT_EQ(importing.At(0.5, 5.5, iNUM), 1.0) << "and is .5,5.5,-6";
  importing.ExpectCounts(4, 0, 0, 0);
}

// ---- The steps of a line

TEST(DtmAsciiImporter, LinesThatDoNotScanAreSkippedAndLeaveNoTrace) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n4.5,5.5\n\n# note\n4.5,x,-1\n"));
  EXPECT_EQ(importing.At(1.5, 2.5, iNUM), 1.0);
  EXPECT_TRUE(importing.IsEmptyAt(4.5, 5.5));
  EXPECT_TRUE(importing.IsEmptyAt(4.5, 2.5));
  importing.ExpectCounts(1, 4, 0, 0);
}

TEST(DtmAsciiImporter, NumbersThatAreNotFiniteMakeALineThatDoesNotScan) {
  Importing importing;
  EXPECT_TRUE(
      importing.Run("1.5,2.5,-3\ninf,2.5,-3\n1.5,-inf,-3\nnan,2.5,-3\n1.5,nan,-3\n1.5,2.5,inf\n1.5,2.5,1e999\n"
                    "-nan,2.5,1\n"));
  EXPECT_EQ(importing.At(1.5, 2.5, iNUM), 1.0);
  importing.ExpectCounts(1, 7, 0, 0);
}

TEST(DtmAsciiImporter, ALineWhereNoCellCanLieIsRefusedAndTheRunGoesOn) {
  Importing importing;
  // Allowed are rows and columns up to 2^31 - 1 - 2 * 8.
  EXPECT_TRUE(
      importing.Run("1e300,2.5,-3\n1.5,-1e300,-3\n2147483631.5,0.5,-1\n2147483632.5,0.5,-1\n"
                    "-2147483631,0.5,-1\n-2147483631.5,0.5,-1\n1.5,2.5,-3\n"));
  EXPECT_EQ(importing.At(1.5, 2.5), -3.0);
  EXPECT_EQ(importing.At(2147483631.5, 0.5), -1.0);
  EXPECT_EQ(importing.At(-2147483630.5, 0.5, iNUM), 1.0);
  importing.ExpectCounts(3, 0, 4, 0);
}

TEST(DtmAsciiImporter, NegateFlipsTheSignBit) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,3\n2.5,2.5,-4\n3.5,2.5,0.0\n4.5,2.5,-0.0\n", {.negate = true}));
  EXPECT_EQ(importing.At(1.5, 2.5), -3.0);
  EXPECT_EQ(importing.At(2.5, 2.5), 4.0);
  EXPECT_EQ(importing.At(3.5, 2.5), 0.0);
  EXPECT_TRUE(std::signbit(importing.At(3.5, 2.5)));
  EXPECT_FALSE(std::signbit(importing.At(4.5, 2.5)));
}

TEST(DtmAsciiImporter, WithoutClearingSoundingsOfACellAddUp) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n1.6,2.4,-5\n"));
  EXPECT_EQ(importing.At(1.5, 2.5, iNUM), 2.0);
  EXPECT_EQ(importing.At(1.5, 2.5), -4.0);
}

TEST(DtmAsciiImporter, WithClearingTheLastLineOfACellWins) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,-9\n3.5,2.5,-1\n"));
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n1.6,2.4,-5\n", {.clearFirst = true}));
  EXPECT_EQ(importing.At(1.5, 2.5, iNUM), 1.0);
  EXPECT_EQ(importing.At(1.5, 2.5), -5.0);
  EXPECT_EQ(importing.At(1.5, 2.5, dMIN), -5.0);
  EXPECT_EQ(importing.At(3.5, 2.5), -1.0) << "cells without a line keep what they have";
}

TEST(DtmAsciiImporter, ClearingTakesTheFloorOfNegativeCoordinates) {
  Importing importing;
  EXPECT_TRUE(importing.Run("-0.5,-0.5,-1\n0.5,0.5,-2\n"));
  EXPECT_TRUE(importing.Run("-0.25,-0.75,-3\n", {.clearFirst = true}));
  EXPECT_EQ(importing.At(-0.5, -0.5), -3.0);
  EXPECT_EQ(importing.At(0.5, 0.5), -2.0);
}

TEST(DtmAsciiImporter, ALineWithTheMarkerIsCountedAndNotInserted) {
  const struct {
    const char* name;
    const char* line;
  } cases[] = {
      {"as z", "1.0,2.0,-nan\n"},
      {"behind an infinite z", "1.0,2.0,inf,-nan\n"},
      {"with brackets behind", "1.0,2.0,-nan(ind)\n"},
      {"in a column behind", "1.0,2.0,-3.0,-nan\n"},
      {"in a word behind", "1.0,2.0,-3.0 see-nancy\n"},
      {"not-a-number without the sign", "1.0,2.0,nan\n"},
      {"in capitals", "1.0,2.0,-NAN\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Importing importing;
    const auto importer = importing.Importer(std::string("1.5,2.5,-3\n") + c.line);
    EXPECT_TRUE(importer->Process());
    EXPECT_EQ(importer->LinesTaken(), 2);
    EXPECT_EQ(importing.At(1.5, 2.5, iNUM), 1.0);
    importing.ExpectCounts(1, 0, 0, 1);
  }
}

TEST(DtmAsciiImporter, WithClearingAMarkerLineEmptiesItsCellAndInsertsNothing) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.0,2.0,-3\n5.5,5.5,-6\n"));
  EXPECT_TRUE(importing.Run("1.0,2.0,-nan\n", {.clearFirst = true}));
  EXPECT_TRUE(importing.IsEmptyAt(1.0, 2.0));
  EXPECT_EQ(importing.At(5.5, 5.5), -6.0);
}

TEST(DtmAsciiImporter, AMarkerInCapitalsBehindThreeNumbersIsNoMarker) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,-3,-NAN\n"));
  importing.ExpectCounts(1, 0, 0, 0);
}

TEST(DtmAsciiImporter, APointOutsideThePolygonNeitherEmptiesItsCellNorCounts) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n7.5,2.5,-4\n"));
  auto polygon = std::make_unique<PolyClipLine>();
  polygon->AddRing({{0, 0}, {5, 0}, {5, 5}, {0, 5}}, false);
  const auto importer = importing.Importer("1.5,2.5,5\n7.5,2.5,6\n7.5,2.5,-nan\n5,2.5,1\n0,0,7\nhead\n",
                                           {.clearFirst = true, .negate = true, .polygon = polygon.release()});
  EXPECT_TRUE(importer->Process());
  EXPECT_EQ(importing.At(1.5, 2.5), -5.0);
  EXPECT_EQ(importing.At(7.5, 2.5), -4.0) << "outside";
  EXPECT_TRUE(importing.IsEmptyAt(5.5, 2.5)) << "the right edge is outside";
  EXPECT_EQ(importing.At(0.5, 0.5), -7.0) << "the lower left corner is inside";
  EXPECT_EQ(importer->LinesTaken(), 2);
  EXPECT_EQ(importing.tally.OutsidePolygon(), 3);
  EXPECT_EQ(importing.tally.Lines(), 8) << "with those of the first run";
}

TEST(DtmAsciiImporter, EverySoundingIsStampedWithTheSecondOfItsImport) {
  Importing importing;
  const AtEachSounding later(*importing.model, [&](int count) { importing.clock.SetSeconds(5000 + 10 * count); });
  importing.model->FlushUpdateRect();
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n2.5,2.5,-3\n"));
  EXPECT_EQ(importing.At(1.5, 2.5, tTIM), 5000.0);
  EXPECT_EQ(importing.At(2.5, 2.5, tTIM), 5010.0);
}

TEST(DtmAsciiImporter, EverySoundingTellsTheModelItsCell) {
  Importing importing;
  RectListener listener(*importing.model);
  {
    const auto importer = importing.Importer("1.5,2.5,-3\n-1.5,6.5,-3\n");
    EXPECT_TRUE(importer->Process());
    ASSERT_EQ(listener.heard.size(), 1u);
    EXPECT_EQ(listener.heard[0].rect.left(), 1.0);
    EXPECT_EQ(listener.heard[0].rect.top(), 3.0);
  }
  ASSERT_EQ(listener.heard.size(), 2u) << "the end of the importer announces the rest";
  EXPECT_EQ(listener.heard[1].rect.left(), -2.0);
  EXPECT_EQ(listener.heard[1].rect.right(), -1.0);
}

// ---- Progress and stopping

TEST(DtmAsciiImporter, ProgressIsThePositionBehindTheLastLineOverTheSize) {
  Importing importing;
  const HurryingClock clock;
  const ScopedClock scope(clock);
  const auto importer = importing.Importer("1.5,2.5,-3\n2.5,2.5,-33\nnote\n3.5,2.5,-3\n");
  EXPECT_EQ(importer->GetProgress(), 0.0);
  std::vector<double> seen;
  const AtEachSounding look(*importing.model, [&](int) { seen.push_back(importer->GetProgress()); });
  EXPECT_TRUE(importer->Process());
  EXPECT_THAT(seen, testing::ElementsAre(0.0, 11.0 / 39.0, 28.0 / 39.0));
  EXPECT_EQ(importer->GetProgress(), 1.0);
  EXPECT_EQ(importer->CurrentLine(), 4);
}

TEST(DtmAsciiImporter, AStopEndsTheRunBeforeTheNextLineAndKeepsWhatWasInserted) {
  Importing importing;
  const auto importer = importing.Importer("1.5,2.5,-3\n2.5,2.5,-3\n3.5,2.5,-3\n");
  const AtEachSounding stop(*importing.model, [&](int) { importer->Stop(); });
  EXPECT_FALSE(importer->Process());
  EXPECT_TRUE(importer->IsStopped());
  EXPECT_FALSE(importer->InsertFailed());
  EXPECT_EQ(importer->LinesTaken(), 1);
  EXPECT_EQ(importing.At(1.5, 2.5), -3.0);
  EXPECT_TRUE(importing.IsEmptyAt(2.5, 2.5));
}

TEST(DtmAsciiImporter, AStopBeforeTheRunTakesNoLine) {
  Importing importing;
  const auto importer = importing.Importer("1.5,2.5,-3\n");
  importer->Stop();
  EXPECT_FALSE(importer->Process());
  EXPECT_EQ(importing.model->NumAreas(), 0);
}

TEST(DtmAsciiImporter, AStopThatIsNotAllowedStopsNothing) {
  Importing importing;
  const auto importer = importing.Importer("1.5,2.5,-3\n");
  importer->SetAllowStop(false);
  importer->Stop();
  EXPECT_TRUE(importer->Process());
  EXPECT_EQ(importer->LinesTaken(), 1);
}

// ---- The source

TEST(DtmAsciiImporter, TheSourceIsItsOwnAndClosedAtItsEnd) {
  Importing importing;
  std::FILE* const source = std::fopen(importing.folder.Write("source.xyz", "1.5,2.5,-3\n").c_str(), "rb");
  ASSERT_NE(source, nullptr);
  const int descriptor = fileno(source);
  {
    DtmAsciiImporter importer(importing.model.get(), source, nullptr, false, false, false);
    EXPECT_TRUE(importer.Process());
    EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
  }
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST(DtmAsciiImporter, ASourceReadBeforeIsReadFromItsStart) {
  Importing importing;
  std::FILE* const source = std::fopen(importing.folder.Write("source.xyz", "1.5,2.5,-3\n2.5,2.5,-4\n").c_str(), "rb");
  ASSERT_NE(source, nullptr);
  ASSERT_EQ(std::fseek(source, 11, SEEK_SET), 0);
  DtmAsciiImporter importer(importing.model.get(), source, nullptr, false, false, false);
  EXPECT_TRUE(importer.Process());
  EXPECT_EQ(importing.At(1.5, 2.5), -3.0);
}

TEST(DtmAsciiImporter, ASourceThatCannotBeReadEndsTheRunWithFalse) {
  Importing importing;
  std::FILE* const folder = std::fopen(importing.folder.Path().c_str(), "rb");  // opens, and then reads nothing
  ASSERT_NE(folder, nullptr);
  DtmAsciiImporter importer(importing.model.get(), folder, nullptr, false, false, false);
  EXPECT_FALSE(importer.Process());
  EXPECT_TRUE(importer.ReadFailed());
  EXPECT_FALSE(importer.IsStopped());
  EXPECT_FALSE(importer.InsertFailed());
}

// ---- Backups

TEST(DtmAsciiImporter, WithoutBackupNothingIsCopied) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n"));
  EXPECT_FALSE(importing.folder.Has("a.bk1"));
}

TEST(DtmAsciiImporter, TheBackupIsMadeBeforeAnyLineIsRead) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n"));
  importing.model->Sync();
  const Bytes before = importing.folder.Content("a.dtm");
  const auto importer = importing.Importer("1.5,2.5,-3\n", {.backup = true});
  EXPECT_EQ(importing.folder.Content("a.bk1"), before);
  EXPECT_FALSE(importing.folder.Has("a.bk2")) << "there was no older one";
}

TEST(DtmAsciiImporter, TheBackupHoldsWhatTheModelHadNotWrittenYet) {
  Importing importing;
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n"));
  const auto importer = importing.Importer("1.5,2.5,-5\n", {.backup = true});
  const SharedModel backup = OpenShared(importing.folder.WideFile("a.bk1"), false);
  ASSERT_NE(backup, nullptr);
  EXPECT_EQ(backup->OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(ValueAt(*backup, 1.5, 2.5), -3.0);
}

TEST(DtmAsciiImporter, TwoGenerationsOfBackupsStandBesideTheModel) {
  Importing importing;
  std::vector<Bytes> states;
  for (int run = 0; run < 4; ++run) {
    importing.model->Sync();
    states.push_back(importing.folder.Content("a.dtm"));
    EXPECT_TRUE(importing.Run("1.5,2.5," + std::to_string(run) + "\n", {.backup = true}));
    EXPECT_EQ(importing.folder.Content("a.bk1"), states.back());
    if (run > 0) {
      EXPECT_EQ(importing.folder.Content("a.bk2"), states[states.size() - 2]);
    }
  }
  EXPECT_NE(states[2], states[3]);
}

// ---- Soundings that can't be stored

class CollectingSink final : public MessageSink {
 public:
  void ShowMessage(MessageIcon icon, const std::wstring& /*title*/, const std::wstring& text) override {
    icons.push_back(icon);
    texts.push_back(text);
  }
  std::vector<MessageIcon> icons;
  std::vector<std::wstring> texts;
};

/// Imports a line into an area that is there and then one into an area for which there is no room.
std::shared_ptr<CollectingSink> ImportOntoAFullDisk(Importing& importing, bool backup) {
  EXPECT_TRUE(importing.Run("1.5,2.5,-3\n"));
  importing.model->Sync();
  const auto sink = std::make_shared<CollectingSink>();
  const auto former = InstallMessageSink(sink);
  const auto importer = importing.Importer("# head\n2.5,2.5,-4\n100.5,2.5,-5\n3.5,2.5,-6\n", {.backup = backup});
  {
    const FullDisk full(static_cast<rlim_t>(importing.model->FileSize()));
    EXPECT_FALSE(importer->Process());
  }
  InstallMessageSink(former);
  EXPECT_TRUE(importer->InsertFailed());
  EXPECT_FALSE(importer->IsStopped());
  EXPECT_EQ(importer->CurrentLine(), 3);
  EXPECT_EQ(importing.At(2.5, 2.5), -4.0) << "what was inserted before stays";
  EXPECT_TRUE(importing.IsEmptyAt(3.5, 2.5)) << "and nothing follows";
  return sink;
}

TEST(DtmAsciiImporter, ASoundingThatCannotBeStoredEndsTheRunAndNamesTheBackup) {
  Importing importing;
  const auto sink = ImportOntoAFullDisk(importing, true);
  const std::wstring path = importing.model->FileName();
  EXPECT_THAT(sink->icons, testing::ElementsAre(MessageIcon::kError));
  EXPECT_THAT(sink->texts,
              testing::ElementsAre(
                  L"Cannot update grid model.\nPlease exit Acquisition and replace the active grid model file:\n" +
                  path + L"\nby its backup:\n" + path.substr(0, path.size() - 3) + L"bk1"));
}

TEST(DtmAsciiImporter, WithoutBackupASoundingThatCannotBeStoredEndsTheRunSilently) {
  Importing importing;
  EXPECT_THAT(ImportOntoAFullDisk(importing, false)->texts, testing::IsEmpty());
}

TEST(DtmAsciiImporter, AStopByTheUserShowsNoMessage) {
  Importing importing;
  const auto sink = std::make_shared<CollectingSink>();
  const auto former = InstallMessageSink(sink);
  const auto importer = importing.Importer("1.5,2.5,-3\n", {.backup = true});
  importer->Stop();
  EXPECT_FALSE(importer->Process());
  InstallMessageSink(former);
  EXPECT_THAT(sink->texts, testing::IsEmpty());
}

}  // namespace
}  // namespace vak::test
