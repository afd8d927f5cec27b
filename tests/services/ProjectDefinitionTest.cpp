#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

ProjectDefinition Read(const std::string& text) {
  const test::TestFolder folder;
  folder.Write("project.ini", text);
  FileObject file;
  ProjectDefinition project;
  std::wstring error;
  EXPECT_TRUE(file.FileOpen(folder.WideFile("project.ini")) && project.FileOpen(file, &error)) << text;
  EXPECT_EQ(error, L"");
  return project;
}

std::wstring ErrorOf(const std::string& text) {
  const test::TestFolder folder;
  folder.Write("project.ini", text);
  FileObject file;
  ProjectDefinition project;
  EXPECT_TRUE(project.SetHeightDecimals(7));
  const ProjectDefinition before = project;
  std::wstring error;
  EXPECT_TRUE(file.FileOpen(folder.WideFile("project.ini")));
  EXPECT_FALSE(project.FileOpen(file, &error)) << text;
  EXPECT_FALSE(project.FileOpen(file)) << text;
  EXPECT_EQ(project, before);
  return error;
}

TEST(ProjectDefinition, AsBuiltIsMetric) {
  const ProjectDefinition project;
  EXPECT_EQ(project.GetUnitCnv(), CVakUnitCnv());
  EXPECT_EQ(project.Decimals(1), 3);
  EXPECT_EQ(project.Decimals(4), 3);
  EXPECT_EQ(project.Decimals(5), 2);
  EXPECT_EQ(project.Decimals(99), 3);
}

TEST(ProjectDefinition, DecimalsOutsideTheirRangeAreRefused) {
  ProjectDefinition project;
  for (const int decimals : {-1, 16, 1 << 30}) {
    EXPECT_FALSE(project.SetCoordinateDecimals(decimals));
    EXPECT_FALSE(project.SetHeightDecimals(decimals));
    EXPECT_FALSE(project.SetVolumeDecimals(decimals));
  }
  EXPECT_EQ(project, ProjectDefinition());
  EXPECT_TRUE(project.SetCoordinateDecimals(0) && project.SetHeightDecimals(15));
  EXPECT_EQ(project.Decimals(1), 0);
  EXPECT_EQ(project.Decimals(4), 15);
}

TEST(ProjectDefinition, SystemUnitsHoldForAllThatNameNoOther) {
  const ProjectDefinition feet = Read("[UNITS]\nSystem Units=US Survey Foot\nHeight Decimals = 2\n");
  EXPECT_EQ(feet.GetUnitCnv(),
            CVakUnitCnv(LengthUnit::kUsSurveyFoot, LengthUnit::kUsSurveyFoot, LengthUnit::kUsSurveyFoot));
  EXPECT_EQ(feet.Decimals(1), 3);
  EXPECT_EQ(feet.Decimals(4), 2);
  const ProjectDefinition mixed = Read(
      "; a job\n[OTHER]\nHeight Units=Metre\n[UNITS]\nSystem Units = foot\nHeight Units=M\nVolume Units=FTUS\n"
      "Coordinate Decimals=0\nVolume Decimals=15\n");
  EXPECT_EQ(mixed.GetUnitCnv(), CVakUnitCnv(LengthUnit::kFoot, LengthUnit::kMetre, LengthUnit::kUsSurveyFoot));
  EXPECT_EQ(mixed.Decimals(1), 0);
  EXPECT_EQ(mixed.Decimals(5), 15);
  EXPECT_EQ(Read("[UNITS]\nSystem Units=Foot\nHeight Units=Metre\n").GetUnitCnv(),
            CVakUnitCnv(LengthUnit::kFoot, LengthUnit::kMetre, LengthUnit::kFoot))
      << "volumes have the project's unit, not that of heights";
  EXPECT_EQ(Read("[UNITS]\n"), ProjectDefinition());
}

TEST(ProjectDefinition, WhatCannotBeUnderstoodIsNamed) {
  EXPECT_EQ(ErrorOf(""), L"no section [UNITS]");
  EXPECT_EQ(ErrorOf("System Units=Foot\n"), L"no section [UNITS]");
  EXPECT_EQ(ErrorOf("[UNITS]\nSystem Units=Yard\n"), L"System Units: Metre, Foot or US Survey Foot wanted");
  EXPECT_EQ(ErrorOf("[UNITS]\nSystem Units=Foot\nHeight Units=\n"),
            L"Height Units: Metre, Foot or US Survey Foot wanted");
  EXPECT_EQ(ErrorOf("[UNITS]\nSystem Units=Foot\nVolume Units=Foot3\n"),
            L"Volume Units: Metre, Foot or US Survey Foot wanted");
  for (const std::string decimals : {"-1", "16", "2.5", "two", "", "99999999999999999999"}) {
    EXPECT_EQ(ErrorOf("[UNITS]\nHeight Decimals=" + decimals + "\n"), L"Height Decimals: 0 to 15 wanted") << decimals;
  }
}

TEST(ProjectDefinition, SavedOpensAsAnEqualOneBesideWhatElseIsThere) {
  const test::TestFolder folder;
  const std::wstring path = folder.WideFile("project.ini");
  constexpr LengthUnit kUnits[] = {LengthUnit::kMetre, LengthUnit::kFoot, LengthUnit::kUsSurveyFoot};
  FileObject file;
  ASSERT_TRUE(file.SetString(L"VESSEL", L"Name", L"Tide"));
  std::mt19937 random(1);
  for (int round = 0; round < 50; ++round) {
    ProjectDefinition project;
    project.SetUnitCnv({kUnits[random() % 3], kUnits[random() % 3], kUnits[random() % 3]});
    ASSERT_TRUE(project.SetCoordinateDecimals(static_cast<int>(random() % 16)));
    ASSERT_TRUE(project.SetHeightDecimals(static_cast<int>(random() % 16)));
    ASSERT_TRUE(project.SetVolumeDecimals(static_cast<int>(random() % 16)));
    ASSERT_TRUE(project.FileSave(file));
    ProjectDefinition again;
    ASSERT_TRUE(again.FileOpen(file));
    ASSERT_EQ(again, project);
  }
  ASSERT_TRUE(file.FileSave(path));
  std::wstring name;
  EXPECT_TRUE(file.GetString(L"VESSEL", L"Name", name));
  EXPECT_EQ(name, L"Tide");
}

TEST(ProjectDefinition, CoordinateSystemIsSavedAndReadBack) {
  EXPECT_EQ(ProjectDefinition().GetGeoCoordSys(), nullptr);
  const ProjectDefinition read = Read("[GEODESY]\nCoordinate System=EPSG:28992\n");
  ASSERT_NE(read.GetGeoCoordSys(), nullptr);
  EXPECT_EQ(read.GetGeoCoordSys()->Describe().system.code, 28992);
  EXPECT_FALSE(read == ProjectDefinition());
  EXPECT_EQ(Read("[UNITS]\nSystem Units=Metre\n").GetGeoCoordSys(), nullptr);
  EXPECT_EQ(ErrorOf("[UNITS]\n[GEODESY]\nCoordinate System=EPSG:99999\n"),
            L"Coordinate System: 'EPSG:99999' is no coordinate system: crs not found");
  for (const std::wstring text :
       {L"LOCAL:Berth 7", L"EPSG:28992+5709", L"+proj=utm +zone=31 +ellps=intl",
        L"GEOGCS[\"a\",\n  DATUM[\"b\",SPHEROID[\"c\",6378137,298]],\n  PRIMEM[\"Greenwich\",0],"
        L"UNIT[\"degree\",0.0174532925199433]]"}) {
    ProjectDefinition project;
    project.SetGeoCoordSys(VakGeoCoordSysBase::FromText(text));
    ASSERT_NE(project.GetGeoCoordSys(), nullptr) << testing::PrintToString(text);
    FileObject file;
    ASSERT_TRUE(project.FileSave(file));
    ProjectDefinition again;
    ASSERT_TRUE(again.FileOpen(file));
    EXPECT_EQ(again, project);
    project.SetGeoCoordSys(nullptr);
    ASSERT_TRUE(project.FileSave(file) && again.FileOpen(file));
    EXPECT_EQ(again.GetGeoCoordSys(), nullptr) << "none is saved as none";
  }
}

TEST(ProjectDefinition, AttributesReadAsTheyAreSaved) {
  const ProjectDefinition project = Read("[UNITS]\nSystem Units=ftUS\n[GEODESY]\nCoordinate System=LOCAL\n");
  std::wstring value = L"as it was";
  EXPECT_FALSE(project.GetAttribute(UNITS_SECTION, L"No Units", value));
  EXPECT_FALSE(project.GetAttribute(L"NO SECTION", L"System Units", value));
  EXPECT_EQ(value, L"as it was");
  EXPECT_TRUE(project.GetAttribute(UNITS_SECTION, L"System Units", value));
  EXPECT_EQ(value, L"US Survey Foot");
  EXPECT_TRUE(project.GetAttribute(GEODESY_SECTION, L"Coordinate System", value));
  EXPECT_EQ(value, L"LOCAL");
}

}  // namespace
}  // namespace vak
