#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>

#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/text/VakFormatter.h"

namespace vak {
namespace {

VakFormatter FormatterIn(LengthUnit unit, int coordinateDecimals, int heightDecimals) {
  ProjectDefinition project;
  project.SetUnitCnv({unit, unit, unit});
  EXPECT_TRUE(project.SetCoordinateDecimals(coordinateDecimals) && project.SetHeightDecimals(heightDecimals));
  return VakFormatter(std::make_shared<const ProjectDefinition>(project));
}

TEST(VakFormatter, MetresWithThreeDecimalsAsBuilt) {
  const VakFormatter formatter;
  EXPECT_EQ(formatter.FormatXCoordinate(512345.6786), L"512345.679");
  EXPECT_EQ(formatter.FormatYCoordinate(-0.0004), L"0.000");
  EXPECT_EQ(formatter.FormatDepth(-12.5, false, true), L"-12.500");
  EXPECT_EQ(formatter.FormatDepth(-12.5, true, true), L"-12.500 m");
  EXPECT_EQ(formatter.FormatValue(4, -12.5, true, true, -1), L"-12.500 m");
  EXPECT_EQ(formatter.FormatValue(5, 12.5, true, true, -1), L"12.50 m\u00B3");
}

TEST(VakFormatter, ConvertsToTheProjectsUnitAndItsDecimals) {
  const VakFormatter formatter = FormatterIn(LengthUnit::kFoot, 2, 1);
  EXPECT_EQ(formatter.FormatXCoordinate(3048), L"10000.00");
  EXPECT_EQ(formatter.FormatYCoordinate(0.3048), L"1.00");
  EXPECT_EQ(formatter.FormatDepth(-30.48, false, true), L"-100.0");
  EXPECT_EQ(formatter.FormatDepth(-30.48, true, true), L"-100.0 ft");
  EXPECT_EQ(formatter.FormatDepth(-30.48, true, false), L"-30.5 ft");
  EXPECT_EQ(FormatterIn(LengthUnit::kUsSurveyFoot, 6, 0).FormatXCoordinate(0.3048), L"0.999998");
  EXPECT_EQ(FormatterIn(LengthUnit::kUsSurveyFoot, 6, 0).FormatDepth(1200, true, true), L"3937 ftUS");
}

TEST(VakFormatter, AskedDecimalsGoBeforeTheProjects) {
  const VakFormatter formatter;
  EXPECT_EQ(formatter.FormatValue(1, 2.5, false, true, 0), L"2");
  EXPECT_EQ(formatter.FormatValue(1, 2.5, true, true, 5), L"2.50000 m");
}

TEST(VakFormatter, KindWithoutAUnitHasNone) { EXPECT_EQ(VakFormatter().FormatValue(7, 2.5, true, true, -1), L"2.500"); }

TEST(VakFormatter, NumbersThatAreNoneComeOutAsSuch) {
  const VakFormatter formatter = FormatterIn(LengthUnit::kFoot, 3, 3);
  EXPECT_EQ(formatter.FormatDepth(std::nan(""), false, true), L"nan");
  EXPECT_EQ(formatter.FormatXCoordinate(-std::numeric_limits<double>::infinity()), L"-inf");
  EXPECT_EQ(formatter.FormatXCoordinate(std::numeric_limits<double>::max()), L"inf");
  EXPECT_EQ(VakFormatter().FormatXCoordinate(1e300).size(), 301u + 4u);
}

TEST(VakFormatter, KeepsToTheProjectThatWasCurrentWhenItWasBuilt) {
  const auto before = DataSearch::GetDataSearch().GetProjectDefinition();
  const VakFormatter early;
  ProjectDefinition feet;
  feet.SetUnitCnv({LengthUnit::kFoot, LengthUnit::kFoot, LengthUnit::kFoot});
  SetCurrentProjectDefinition(feet);
  const VakFormatter late;
  EXPECT_EQ(early.FormatDepth(0.3048, true, true), L"0.305 m");
  EXPECT_EQ(late.FormatDepth(0.3048, true, true), L"1.000 ft");
  EXPECT_EQ(DataSearch::GetDataSearch().GetProjectDefinition()->GetUnitCnv().GetUnitMnem(4), L"ft");
  SetCurrentProjectDefinition(*before);
  EXPECT_EQ(late.FormatDepth(0.3048, true, true), L"1.000 ft");
}

}  // namespace
}  // namespace vak
