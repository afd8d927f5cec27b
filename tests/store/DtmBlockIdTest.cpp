#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmDataBlock.h"

namespace vak::test {
namespace {

struct Row {
  const char* letters;
  int id;
  int attribute;
  const wchar_t* name;
  const wchar_t* mnemonic;
  bool isZ;
  bool isHidden;
  int unit;
  const wchar_t* attributeOfColors;
  const wchar_t* colors;
};

// The whole table, by hand. The ids are the four letters as numbers, the first in the high byte.
const std::vector<Row>& Table() {
  static const std::vector<Row> table = {
      {"dVAL", 0x6456414C, 1, L"Z Average", L"VAL", true, false, 4, L"ColorTableName", L"Default"},
      {"iNUM", 0x694E554D, 2, L"Hit Count", L"NUM", false, false, 4, L"HitsCellColorTable", L"HitCount"},
      {"dSDV", 0x64534456, 3, L"Z Standard Deviation", L"SDV", false, false, 4, L"SDCellColorTable",
       L"StandardDeviation"},
      {"dMIN", 0x644D494E, 4, L"Z Minimum (Deepest)", L"MIN", true, false, 4, L"MinCellColorTable", L"Default"},
      {"dMAX", 0x644D4158, 5, L"Z Maximum (Highest)", L"MAX", true, false, 4, L"MaxCellColorTable", L"Default"},
      {"tTIM", 0x7454494D, 6, L"Time", L"TIM", false, false, 0, L"TimeCellColorTable", L"Time"},
      {"fBKS", 0x66424B53, 7, L"Backscatter", L"BSS", false, false, 0, L"BssCellColorTable", L"Backscatter"},
      {"fIMP", 0x66494D50, 8, L"Impedance", L"AVOIMP", false, false, 0, L"ImpCellColorTable", L"Impedance"},
      {"fRGH", 0x66524748, 9, L"Roughness", L"AVOROU", false, false, 0, L"RoughCellColorTable", L"Roughness"},
      {"fPHI", 0x66504849, 10, L"Phi", L"AVOPHI", false, false, 0, L"PhiCellColorTable", L"phi[bottom-type]"},
      {"fVLM", 0x66564C4D, 11, L"Volume", L"AVOVOL", false, false, 0, L"VolCellColorTable", L"Volume"},
      {"fICP", 0x66494350, 12, L"Intercept", L"AVOINT", false, false, 0, L"IntCellColorTable", L"Intercept"},
      {"fFUT", 0x66465554, 13, L"FLT factor", L"AVOFLT", false, false, 0, L"FLTCellColorTable", L"FltFactor"},
      {"fPIP", 0x66504950, 14, L"Point Phi", L"AVOPIP", false, false, 0, L"PhiPointCellColorTable",
       L"phi[bottom-type]"},
      {"cOIL", 0x634F494C, 15, L"Heavy Oil", L"OIL", false, false, 0, L"OilCellColorTable", L"Default"},
      {"iPRI", 0x69505249, 16, L"Backscatter mosaic cell priority", L"PRI", false, false, 0, L"CellPriorityColorTable",
       L"Default"},
      {"iBAK", 0x6942414B, 17, L"Backscatter mosaic cell char value", L"CBSS", false, false, 0,
       L"CellCharBssColorTable", L"Default"},
      {"iLNE", 0x694C4E45, 18, L"Backscatter mosaic cell line", L"CLINE", false, false, 0, L"CellLineColorTable",
       L"Default"},
      {"fXMN", 0x66584D4E, 19, L"Z Minimum X Offset", L"XMIN", false, true, 0, L"XOffMinCellColorTable", L"Default"},
      {"fYMN", 0x66594D4E, 20, L"Z Minimum Y Offset", L"YMIN", false, true, 0, L"YOffMinCellColorTable", L"Default"},
      {"fXMX", 0x66584D58, 21, L"Z Maximum X Offset", L"XMAX", false, true, 0, L"XOffMaxCellColorTable", L"Default"},
      {"fYMX", 0x66594D58, 22, L"Z Maximum Y Offset", L"YMAX", false, true, 0, L"YOffMaxCellColorTable", L"Default"},
      {"fDUR", 0x66445552, 23, L"Duration", L"DUR", false, false, 0, L"DurationColorTable", L"Duration"},
      {"dTVU", 0x64545655, 24, L"Total Vert. Uncertainty Average", L"TVU", false, false, 0, L"TVUCellColorTable",
       L"TotalVertUncert"},
      {"dTHU", 0x64544855, 25, L"Total Hor. Uncertainty Average", L"THU", false, false, 0, L"THUCellColorTable",
       L"TotalHorUncert"},
      {"fFBS", 0x66464253, 26, L"First Backscatter", L"FBSS", false, false, 0, L"BssCellColorTable", L"Backscatter"},
      {"fLBS", 0x664C4253, 27, L"Last Backscatter", L"LBSS", false, false, 0, L"BssCellColorTable", L"Backscatter"},
      {"fNBS", 0x664E4253, 28, L"Min Backscatter", L"NBSS", false, false, 0, L"BssCellColorTable", L"Backscatter"},
      {"fXBS", 0x66584253, 29, L"Max Backscatter", L"XBSS", false, false, 0, L"BssCellColorTable", L"Backscatter"},
      {"uFCT", 0x75464354, 30, L"File Count", L"FCT", false, false, 0, L"FileCountColorTable", L"FileCount"},
  };
  return table;
}

constexpr int kInts = std::numeric_limits<int>::max();

DtmBlockId FromIndex(int index) {
  DtmBlockId id(0);
  id.SetFromIndex(index);
  return id;
}

TEST(DtmBlockId, TableHasThirtyRowsInThisOrder) {
  ASSERT_EQ(DtmBlockId::NumBlockIds(), 30);
  ASSERT_EQ(Table().size(), 30u);
  for (int index = 0; index < 30; ++index) {
    const Row& row = Table()[static_cast<std::size_t>(index)];
    SCOPED_TRACE(row.letters);
    const DtmBlockId id = FromIndex(index);
    EXPECT_TRUE(id.IsValid());
    EXPECT_FALSE(!id);
    EXPECT_EQ(id.BlockIndex(), index);
    EXPECT_EQ(id.BlockId(), row.id);
    EXPECT_EQ(id.AttributeNumber(), row.attribute);
    EXPECT_EQ(id.DataType(), row.letters[0]);
    EXPECT_EQ(id.Mnemonic(), row.mnemonic);
    EXPECT_EQ(id.IsZ(), row.isZ);
    EXPECT_EQ(id.IsHidden(), row.isHidden);
    EXPECT_EQ(id.UnitType(), row.unit);
    EXPECT_EQ(id.ColorTableAttribute(), row.attributeOfColors);
    EXPECT_EQ(id.ColorTableName(), row.colors);
  }
}

TEST(DtmBlockId, NamesComeFromTheStringTable) {
  for (int index = 0; index < 30; ++index) {
    EXPECT_EQ(FromIndex(index).BlockName(), Table()[static_cast<std::size_t>(index)].name) << index;
  }
}

TEST(DtmBlockId, IdsAreFourLettersWithTheDataTypeInTheHighByte) {
  for (const Row& row : Table()) {
    SCOPED_TRACE(row.letters);
    const std::string letters = row.letters;
    int id = 0;
    for (const char letter : letters) id = id * 256 + letter;
    EXPECT_EQ(row.id, id);
    EXPECT_EQ(DtmDataBlock::GetDataType(row.id), letters[0]);
  }
}

TEST(DtmBlockId, ConstantsHaveTheValuesOfTheTable) {
  const int constants[] = {dVAL, iNUM, dSDV, dMIN, dMAX, tTIM, fBKS, fIMP, fRGH, fPHI, fVLM, fICP, fFUT, fPIP, cOIL,
                           iPRI, iBAK, iLNE, fXMN, fYMN, fXMX, fYMX, fDUR, dTVU, dTHU, fFBS, fLBS, fNBS, fXBS, uFCT};
  for (std::size_t i = 0; i < 30; ++i) EXPECT_EQ(constants[i], Table()[i].id) << Table()[i].letters;
}

TEST(DtmBlockId, EveryRowIsFoundByIdAttributeAndMnemonic) {
  for (int index = 0; index < 30; ++index) {
    const Row& row = Table()[static_cast<std::size_t>(index)];
    SCOPED_TRACE(row.letters);
    EXPECT_EQ(DtmBlockId(row.id).BlockIndex(), index);
    DtmBlockId id(0);
    id.SetToBlockId(row.id);
    EXPECT_EQ(id.BlockIndex(), index);
    id.SetFromIndex(-1);
    id.SetFromAttribute(row.attribute);
    EXPECT_EQ(id.BlockIndex(), index);
    id.SetFromIndex(-1);
    id.SetFromMnemonic(row.mnemonic);
    EXPECT_EQ(id.BlockIndex(), index);
  }
}

TEST(DtmBlockId, ColorTableAttributeFindsItsFirstRow) {
  for (int index = 0; index < 30; ++index) {
    const Row& row = Table()[static_cast<std::size_t>(index)];
    SCOPED_TRACE(row.letters);
    DtmBlockId id(0);
    id.SetFromColorTableAttribute(row.attributeOfColors);
    const bool sharesColors = index >= 25 && index <= 28;
    EXPECT_EQ(id.BlockIndex(), sharesColors ? 6 : index);
  }
}

TEST(DtmBlockId, BackscatterColorTableGivesIndexSixNever25To28) {
  DtmBlockId id(0);
  id.SetFromColorTableAttribute(L"BssCellColorTable");
  EXPECT_EQ(id.BlockIndex(), 6);
  id.SetFromColorTableAttribute(L"bsscellcolortable");
  EXPECT_FALSE(id.IsValid());
}

TEST(DtmBlockId, IndexOutsideTheTableIsInvalid) {
  EXPECT_FALSE(FromIndex(30).IsValid());
  EXPECT_FALSE(FromIndex(-1).IsValid());
  EXPECT_FALSE(FromIndex(kInts).IsValid());
  EXPECT_FALSE(FromIndex(-kInts - 1).IsValid());
  EXPECT_EQ(FromIndex(29).BlockId(), uFCT);
}

TEST(DtmBlockId, MnemonicIsCaseSensitive) {
  DtmBlockId id(0);
  id.SetFromMnemonic(L"val");
  EXPECT_TRUE(!id);
  id.SetFromMnemonic(L"VAL");
  EXPECT_EQ(id.BlockIndex(), 0);
  id.SetFromMnemonic(L"VA");
  EXPECT_TRUE(!id);
  id.SetFromMnemonic(L"");
  EXPECT_TRUE(!id);
}

TEST(DtmBlockId, InvalidAnswersZeroFalseAndEmpty) {
  const DtmBlockId id(0x12345678);
  EXPECT_TRUE(!id);
  EXPECT_FALSE(id.IsValid());
  EXPECT_EQ(id.BlockIndex(), -1);
  EXPECT_EQ(id.BlockId(), 0);
  EXPECT_EQ(id.AttributeNumber(), 0);
  EXPECT_EQ(id.DataType(), '\0');
  EXPECT_FALSE(id.IsZ());
  EXPECT_FALSE(id.IsHidden());
  EXPECT_EQ(id.UnitType(), 0);
  EXPECT_EQ(id.BlockName(), L"");
  EXPECT_EQ(id.Mnemonic(), L"");
  EXPECT_EQ(id.ColorTableAttribute(), L"");
  EXPECT_EQ(id.ColorTableName(), L"");
}

TEST(DtmBlockId, FailedSearchMakesAValidOneInvalid) {
  DtmBlockId id(dVAL);
  id.SetToBlockId(1);
  EXPECT_EQ(id.BlockIndex(), -1);
  for (const int attribute : {0, 31, -1}) {
    id.SetFromIndex(3);
    id.SetFromAttribute(attribute);
    EXPECT_EQ(id.BlockIndex(), -1) << attribute;
  }
}

TEST(DtmBlockId, CopiesAreValues) {
  DtmBlockId one(dMIN);
  const DtmBlockId two = one;
  one.SetFromIndex(0);
  EXPECT_EQ(two.BlockId(), dMIN);
  EXPECT_EQ(one.BlockId(), dVAL);
}

TEST(DtmBlockId, SizeIsThatOfOneIndex) { EXPECT_EQ(sizeof(DtmBlockId), sizeof(std::int32_t)); }

TEST(DtmDataBlock, WidthAndFillByteFollowTheLetter) {
  struct Case {
    char letter;
    int width;
    int fill;
  };
  const Case cases[] = {{'c', 1, 0}, {'d', 8, 0xFF}, {'f', 4, 0xFF}, {'i', 4, 0}, {'t', 4, 0}, {'u', 4, 0}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.letter);
    EXPECT_EQ(DtmDataBlock::GetBytesPerCell(one.letter), one.width);
    EXPECT_EQ(DtmDataBlock::GetFillByte(one.letter), one.fill);
    const int id = (one.letter << 24) | 0x414243;
    int width = -7;
    int fill = -7;
    EXPECT_TRUE(DtmDataBlock::GetBlockInfo(id, width, fill));
    EXPECT_EQ(width, one.width);
    EXPECT_EQ(fill, one.fill);
  }
  for (int letter = 0; letter < 256; ++letter) {
    if (std::string("cdfitu").find(static_cast<char>(letter)) != std::string::npos) continue;
    SCOPED_TRACE(letter);
    EXPECT_EQ(DtmDataBlock::GetBytesPerCell(static_cast<char>(letter)), 0);
    EXPECT_EQ(DtmDataBlock::GetFillByte(static_cast<char>(letter)), 0);
    int width = -7;
    int fill = -7;
    const auto id = static_cast<int>((static_cast<unsigned>(letter) << 24) | 0x414243U);
    EXPECT_FALSE(DtmDataBlock::GetBlockInfo(id, width, fill));
    EXPECT_EQ(width, 0);
    EXPECT_EQ(fill, -7) << "left untouched";
    EXPECT_EQ(DtmDataBlock::GetDataType(id), static_cast<char>(letter));
  }
}

TEST(DtmDataBlock, IdThatTheTableDoesntKnowStillHasWidthAndFillByte) {
  const int id = MakeBlockId("dXYZ");
  EXPECT_FALSE(DtmBlockId(id).IsValid());
  int width = 0;
  int fill = 0;
  EXPECT_TRUE(DtmDataBlock::GetBlockInfo(id, width, fill));
  EXPECT_EQ(width, 8);
  EXPECT_EQ(fill, 255);
}

}  // namespace
}  // namespace vak::test
