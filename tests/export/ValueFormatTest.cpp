#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "vakdtm/export/ValueFormat.h"

namespace vak {
namespace {

std::string Print(const wchar_t* pattern, double value) {
  const ValueFormat format(pattern);
  if (!format.IsValid()) return "refused";
  std::string text = "|";
  format.Append(text, value);
  return text;
}

TEST(ValueFormat, PrintsTheValueWithTheTextAroundIt) {
  EXPECT_EQ(Print(L"%.3f ", -12.34567), "|-12.346 ");
  EXPECT_EQ(Print(L"%f", 2.0), "|2.000000");
  EXPECT_EQ(Print(L"%8.2f", 3.14159), "|    3.14");
  EXPECT_EQ(Print(L"%-8.2f;", 3.14159), "|3.14    ;");
  EXPECT_EQ(Print(L"%+08.1f", 3.14159), "|+00003.1");
  EXPECT_EQ(Print(L"% .0f", 2.5), "| 2");
  EXPECT_EQ(Print(L"%#.0f", 2.0), "|2.");
  EXPECT_EQ(Print(L"%.f", 2.0), "|2");
  EXPECT_EQ(Print(L"%lf", 0.5), "|0.500000");
  EXPECT_EQ(Print(L"100%% of %gm\u00b2 %%", 1e20), "|100% of 1e+20m\xc2\xb2 %");
  EXPECT_EQ(Print(L"%.255f", 0.5).size(), 258U);
  EXPECT_EQ(Print(L"%255g", 1.0).size(), 256U);
}

TEST(ValueFormat, RefusesWhatIsNoPatternForOneNumber) {
  const std::vector<const wchar_t*> patterns = {nullptr,
                                                L"",
                                                L"no number",
                                                L"%%",
                                                L"%",
                                                L"%.3",
                                                L"%.3f %",
                                                L"%n",
                                                L"%s",
                                                L"%.2s",
                                                L"%d",
                                                L"%ld",
                                                L"%x",
                                                L"%c",
                                                L"%p",
                                                L"%ls",
                                                L"%m",
                                                L"%Lf",
                                                L"%hf",
                                                L"%llf",
                                                L"%jf",
                                                L"%zf",
                                                L"%f%f",
                                                L"%.3f %n",
                                                L"%n%.3f",
                                                L"%*f",
                                                L"%.*f",
                                                L"%1$f",
                                                L"%1$*2$f",
                                                L"%'f",
                                                L"%If",
                                                L"%256f",
                                                L"%.256f",
                                                L"%999999999999f",
                                                L"%.4294967297f",
                                                L"%-.3-f",
                                                L"%5.3.2f",
                                                L"% 5 f",
                                                L"%b"};
  for (std::size_t i = 0; i < patterns.size(); ++i) EXPECT_EQ(Print(patterns[i], 1.0), "refused") << "pattern " << i;
}

TEST(ValueFormat, PrintsAsTheSystemDoes) {
  const std::vector<double> values = {0.0,
                                      -0.0,
                                      1.0,
                                      -1.5,
                                      2.5,
                                      0.125,
                                      1e-7,
                                      123456.789,
                                      -99999.9995,
                                      1e22,
                                      DBL_MAX,
                                      -DBL_MAX,
                                      DBL_MIN,
                                      5e-324,
                                      std::numeric_limits<double>::infinity(),
                                      -std::numeric_limits<double>::infinity(),
                                      std::nan("")};
  for (const char* pattern : {"%f", "%.0f", "%.1f", "%.3f", "%.17f", "%e", "%.0e", "%G", "%.10g", "%a", "%A", "%E",
                              "%F", "%#g", "%+.3f", "%012.3f", "%-12.3f|"}) {
    for (const double value : values) {
      std::vector<char> buffer(1000);
      std::snprintf(buffer.data(), buffer.size(), pattern, value);
      EXPECT_EQ(Print(std::wstring(pattern, pattern + std::char_traits<char>::length(pattern)).c_str(), value),
                "|" + std::string(buffer.data()))
          << pattern;
    }
  }
}

}  // namespace
}  // namespace vak
