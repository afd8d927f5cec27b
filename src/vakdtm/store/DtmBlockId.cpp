#include "vakdtm/store/DtmBlockId.h"

#include <algorithm>
#include <array>

#include "vakdtm/services/text/StringTable.h"

namespace vak {
namespace {

struct Row {
  int id;
  int attribute;
  unsigned short nameResource;
  const wchar_t* mnemonic;
  bool isZ;
  const wchar_t* colorTableAttribute;
  bool isHidden;
  int unitType;
  const wchar_t* colorTableName;
};

// The order is part of the contract: an index into it is kept by applications. Rows that look odd (the plain
// "ColorTableName" of dVAL, the unit of iNUM, four kinds with one colour table) are as models in use expect them.
constexpr std::array<Row, 30> kRows = {{
    {dVAL, 1, 9460, L"VAL", true, L"ColorTableName", false, 4, L"Default"},
    {iNUM, 2, 9461, L"NUM", false, L"HitsCellColorTable", false, 4, L"HitCount"},
    {dSDV, 3, 9462, L"SDV", false, L"SDCellColorTable", false, 4, L"StandardDeviation"},
    {dMIN, 4, 9463, L"MIN", true, L"MinCellColorTable", false, 4, L"Default"},
    {dMAX, 5, 9464, L"MAX", true, L"MaxCellColorTable", false, 4, L"Default"},
    {tTIM, 6, 9465, L"TIM", false, L"TimeCellColorTable", false, 0, L"Time"},
    {fBKS, 7, 9487, L"BSS", false, L"BssCellColorTable", false, 0, L"Backscatter"},
    {fIMP, 8, 9488, L"AVOIMP", false, L"ImpCellColorTable", false, 0, L"Impedance"},
    {fRGH, 9, 9489, L"AVOROU", false, L"RoughCellColorTable", false, 0, L"Roughness"},
    {fPHI, 10, 9490, L"AVOPHI", false, L"PhiCellColorTable", false, 0, L"phi[bottom-type]"},
    {fVLM, 11, 9491, L"AVOVOL", false, L"VolCellColorTable", false, 0, L"Volume"},
    {fICP, 12, 9492, L"AVOINT", false, L"IntCellColorTable", false, 0, L"Intercept"},
    {fFUT, 13, 9493, L"AVOFLT", false, L"FLTCellColorTable", false, 0, L"FltFactor"},
    {fPIP, 14, 19275, L"AVOPIP", false, L"PhiPointCellColorTable", false, 0, L"phi[bottom-type]"},
    {cOIL, 15, 9494, L"OIL", false, L"OilCellColorTable", false, 0, L"Default"},
    {iPRI, 16, 19276, L"PRI", false, L"CellPriorityColorTable", false, 0, L"Default"},
    {iBAK, 17, 19277, L"CBSS", false, L"CellCharBssColorTable", false, 0, L"Default"},
    {iLNE, 18, 19278, L"CLINE", false, L"CellLineColorTable", false, 0, L"Default"},
    {fXMN, 19, 19287, L"XMIN", false, L"XOffMinCellColorTable", true, 0, L"Default"},
    {fYMN, 20, 19288, L"YMIN", false, L"YOffMinCellColorTable", true, 0, L"Default"},
    {fXMX, 21, 19290, L"XMAX", false, L"XOffMaxCellColorTable", true, 0, L"Default"},
    {fYMX, 22, 19291, L"YMAX", false, L"YOffMaxCellColorTable", true, 0, L"Default"},
    {fDUR, 23, 19289, L"DUR", false, L"DurationColorTable", false, 0, L"Duration"},
    {dTVU, 24, 19296, L"TVU", false, L"TVUCellColorTable", false, 0, L"TotalVertUncert"},
    {dTHU, 25, 19297, L"THU", false, L"THUCellColorTable", false, 0, L"TotalHorUncert"},
    {fFBS, 26, 19298, L"FBSS", false, L"BssCellColorTable", false, 0, L"Backscatter"},
    {fLBS, 27, 19299, L"LBSS", false, L"BssCellColorTable", false, 0, L"Backscatter"},
    {fNBS, 28, 19300, L"NBSS", false, L"BssCellColorTable", false, 0, L"Backscatter"},
    {fXBS, 29, 19301, L"XBSS", false, L"BssCellColorTable", false, 0, L"Backscatter"},
    {uFCT, 30, 19307, L"FCT", false, L"FileCountColorTable", false, 0, L"FileCount"},
}};

template <typename Matches>
int FindRow(Matches matches) {
  const auto* const row = std::find_if(kRows.begin(), kRows.end(), matches);
  return row == kRows.end() ? -1 : static_cast<int>(row - kRows.begin());
}

const Row* RowAt(int index) { return index < 0 ? nullptr : &kRows[static_cast<std::size_t>(index)]; }

}  // namespace

void DtmBlockId::SetToBlockId(int id) {
  index_ = FindRow([&](const Row& row) { return row.id == id; });
}

void DtmBlockId::SetFromIndex(int index) { index_ = index >= 0 && index < NumBlockIds() ? index : -1; }

void DtmBlockId::SetFromAttribute(int attribute) {
  index_ = FindRow([&](const Row& row) { return row.attribute == attribute; });
}

void DtmBlockId::SetFromMnemonic(const std::wstring& mnemonic) {
  index_ = FindRow([&](const Row& row) { return mnemonic == row.mnemonic; });
}

void DtmBlockId::SetFromColorTableAttribute(const std::wstring& attribute) {
  index_ = FindRow([&](const Row& row) { return attribute == row.colorTableAttribute; });
}

int DtmBlockId::BlockId() const { return IsValid() ? RowAt(index_)->id : 0; }
int DtmBlockId::AttributeNumber() const { return IsValid() ? RowAt(index_)->attribute : 0; }
char DtmBlockId::DataType() const { return IsValid() ? static_cast<char>(RowAt(index_)->id >> 24) : '\0'; }
bool DtmBlockId::IsZ() const { return IsValid() && RowAt(index_)->isZ; }
bool DtmBlockId::IsHidden() const { return IsValid() && RowAt(index_)->isHidden; }
int DtmBlockId::UnitType() const { return IsValid() ? RowAt(index_)->unitType : 0; }
std::wstring DtmBlockId::BlockName() const { return IsValid() ? LoadString(RowAt(index_)->nameResource) : L""; }
std::wstring DtmBlockId::Mnemonic() const { return IsValid() ? RowAt(index_)->mnemonic : L""; }

std::wstring DtmBlockId::ColorTableAttribute() const { return IsValid() ? RowAt(index_)->colorTableAttribute : L""; }

std::wstring DtmBlockId::ColorTableName() const { return IsValid() ? RowAt(index_)->colorTableName : L""; }

int DtmBlockId::NumBlockIds() { return static_cast<int>(kRows.size()); }

}  // namespace vak
