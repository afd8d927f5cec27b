#include <algorithm>
#include <clocale>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/text/CVakCsvString.h"
#include "vakdtm/services/text/FormatDouble.h"
#include "vakdtm/services/text/LocaleSeparators.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/services/text/VakFormatter.h"

#include "support/RunCommand.h"
#include "support/TestLocale.h"
#include "support/Worker.h"

namespace vak {
namespace {

void Print(const std::wstring& text) { std::printf("%s\n", ToUtf8(text).c_str()); }

/// What a user sees of numbers: the marks, a line of a list, and three texts that no locale may change.
void PrintNumbers() {
  LocaleSeparators separators{L"unread", L"unread"};
  std::printf(ReadUserSeparators(separators) ? "read\n" : "not read\n");
  Print(separators.decimal + L' ' + separators.list);
  CVakCsvString line;
  line.SetItem(0, L"v1.2; north");
  line.Set(1, FormatDouble(-1234567.891, 2, 0));
  line.Set(2, line.AdjustToLocalDecimal(L"42"));
  Print(line.GetString());
  Print(FormatDouble(-1234567.891, 2, 0));
  const VakFormatter formatter;
  Print(formatter.FormatXCoordinate(1234567.8916) + L' ' + formatter.FormatValue(4, -12.5, true, true, -1));
  ColorTable table;
  FileObject file;
  table.SetRange(-2.5, 2.5, 2, true, false);
  const bool same = table.FileSave(file) && table.FileOpen(file);
  std::printf("%s", same ? file.GetText().c_str() : "not the same\n");
}

const test::Worker kNumbers("numbers", [](const test::Worker::Words& arguments) {
  // A host application that sets all of its locale, as many do first of all.
  if (!arguments.empty() && std::setlocale(LC_ALL, "") == nullptr) return 1;
  char shown[16];
  std::snprintf(shown, sizeof shown, "%.1f", 0.5);
  std::printf("%s\n", shown);
  PrintNumbers();
  return 0;
});

std::string OutputOf(const std::vector<std::string>& words) {
  test::RunCommand run(words);
  EXPECT_EQ(run.Wait().status, 0) << run.Wait().err;
  return run.Wait().out;
}

// From here on no locale may show.
const std::string kFixedTexts =
    "-1234567.89\n"
    "1234567.892 -12.500 m\n"
    "[COLORTABLE]\nClasses=2\nEnd=2.5\n1=-2.5,#0000ff,,\n2=0,#ff0000,,\n";

TEST(LocaleSeparators, UserWithADecimalCommaSeesItInListsAndNowhereElse) {
  const test::TestLocale german("de_DE");
  const std::string numbers = "read\n, ;\n\"v1.2; north\";-1234567,89;42\n" + kFixedTexts;
  EXPECT_EQ(OutputOf(german.Line(kNumbers.Line({}))), "0.5\n" + numbers);
  // The host's own printf has a comma now; the library's texts are the same.
  EXPECT_EQ(OutputOf(german.Line(kNumbers.Line({"host"}))), "0,5\n" + numbers);
}

TEST(LocaleSeparators, DecimalMarkMayBeAnyCharacter) {
  const auto arabic = test::TestLocale::OfDecimalPoint("<U066B>");
  EXPECT_EQ(OutputOf(arabic.Line(kNumbers.Line({}))),
            "0.5\nread\n\u066B ;\n\"v1.2; north\";-1234567\u066B89;42\n" + kFixedTexts);
}

TEST(LocaleSeparators, PointGoesWithACommaBetweenItems) {
  // The last two aren't there.
  for (const char* locale : {"LC_ALL=C", "LC_ALL=C.UTF-8", "LC_NUMERIC=POSIX", "LANG=C", "LANG=nowhere LC_ALL=C",
                             "LC_ALL=nowhere", "LANG=xx_XX.UTF-8"}) {
    SCOPED_TRACE(locale);
    std::vector<std::string> words = {"/usr/bin/env", "-i"};
    const std::string settings = locale;
    for (std::size_t at = 0; at <= settings.size();) {
      const std::size_t end = std::min(settings.find(' ', at), settings.size());
      words.push_back(settings.substr(at, end - at));
      at = end + 1;
    }
    for (const std::string& word : kNumbers.Line({})) words.push_back(word);
    EXPECT_EQ(OutputOf(words), "0.5\nread\n. ,\nv1.2; north,-1234567.89,42\n" + kFixedTexts);
  }
}

TEST(LocaleSeparators, SetOnesCountUntilTheyAreTakenBack) {
  SetLocaleSeparators(LocaleSeparators{L"'", L"|"});
  EXPECT_EQ(GetLocaleSeparators(), (LocaleSeparators{L"'", L"|"}));
  LocaleSeparators user;
  EXPECT_TRUE(ReadUserSeparators(user));  // the environment's, whatever is set
  SetLocaleSeparators({});
  EXPECT_EQ(GetLocaleSeparators(), user);
}

TEST(LocaleSeparators, EveryPointBecomesTheMark) {
  EXPECT_EQ(ReplaceDecimalPoint(L"1.5", {L",", L";"}), L"1,5");
  EXPECT_EQ(ReplaceDecimalPoint(L"1.2.3.", {L",", L";"}), L"1,2,3,");
  EXPECT_EQ(ReplaceDecimalPoint(L"1.5", {L".", L","}), L"1.5");
  EXPECT_EQ(ReplaceDecimalPoint(L"..", {L"..", L","}), L"....");  // what was put in isn't looked at again
  EXPECT_EQ(ReplaceDecimalPoint(L".1.", {L"", L","}), L"1");
  EXPECT_EQ(ReplaceDecimalPoint(L"", {}), L"");
}

}  // namespace
}  // namespace vak
