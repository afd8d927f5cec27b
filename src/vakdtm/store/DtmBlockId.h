#pragma once

#include <string>

namespace vak {

/// A kind of cell value that a grid model can record: one row of a closed table of 30.
///
/// The block id is four characters, the letter of the data type in the high byte: `dVAL` is 0x6456414C. A grid file may
/// list ids that the table doesn't know; such an id is invalid here, though its letter still gives cell width and fill
/// byte (`DtmDataBlock::GetBlockInfo`). A value; copies are free. All operations may be called from any thread.
class DtmBlockId {
 public:
  /// The row with this block id, invalid when there is none.
  explicit DtmBlockId(int id) { SetToBlockId(id); }

  void SetToBlockId(int id);
  /// Invalid outside 0 to 29.
  void SetFromIndex(int index);
  void SetFromAttribute(int attribute);
  /// Case counts: "VAL" is `dVAL`, "val" nothing.
  void SetFromMnemonic(const std::wstring& mnemonic);
  /// The first row with this attribute: four backscatter kinds share "BssCellColorTable".
  void SetFromColorTableAttribute(const std::wstring& attribute);

  bool operator!() const { return index_ < 0; }
  bool IsValid() const { return index_ >= 0; }

  // On an invalid object numbers are 0, flags false, texts empty, and the index is -1.
  int BlockId() const;
  int BlockIndex() const { return index_; }
  int AttributeNumber() const;
  /// The letter: c, d, f, i, t or u.
  char DataType() const;
  /// Whether the value is a height.
  bool IsZ() const;
  /// Whether users are spared this kind in lists (offsets within the cell).
  bool IsHidden() const;
  /// The kind of unit the applications show it in: 4 height, 0 none. Passed through, never acted on.
  int UnitType() const;
  /// Display name in the language of the resources.
  std::wstring BlockName() const;
  std::wstring Mnemonic() const;
  std::wstring ColorTableAttribute() const;
  std::wstring ColorTableName() const;

  static int NumBlockIds();

 private:
  int index_ = -1;
};

/// A block id of four characters, the data-type letter first.
constexpr int MakeBlockId(const char (&letters)[5]) {
  unsigned int id = 0;
  for (int i = 0; i < 4; ++i) id = (id << 8) | static_cast<unsigned char>(letters[i]);
  return static_cast<int>(id);
}

constexpr int dVAL = MakeBlockId("dVAL");
constexpr int iNUM = MakeBlockId("iNUM");
constexpr int dSDV = MakeBlockId("dSDV");
constexpr int dMIN = MakeBlockId("dMIN");
constexpr int dMAX = MakeBlockId("dMAX");
constexpr int tTIM = MakeBlockId("tTIM");
constexpr int fBKS = MakeBlockId("fBKS");
constexpr int fIMP = MakeBlockId("fIMP");
constexpr int fRGH = MakeBlockId("fRGH");
constexpr int fPHI = MakeBlockId("fPHI");
constexpr int fVLM = MakeBlockId("fVLM");
constexpr int fICP = MakeBlockId("fICP");
constexpr int fFUT = MakeBlockId("fFUT");
constexpr int fPIP = MakeBlockId("fPIP");
constexpr int cOIL = MakeBlockId("cOIL");
constexpr int iPRI = MakeBlockId("iPRI");
constexpr int iBAK = MakeBlockId("iBAK");
constexpr int iLNE = MakeBlockId("iLNE");
constexpr int fXMN = MakeBlockId("fXMN");
constexpr int fYMN = MakeBlockId("fYMN");
constexpr int fXMX = MakeBlockId("fXMX");
constexpr int fYMX = MakeBlockId("fYMX");
constexpr int fDUR = MakeBlockId("fDUR");
constexpr int dTVU = MakeBlockId("dTVU");
constexpr int dTHU = MakeBlockId("dTHU");
constexpr int fFBS = MakeBlockId("fFBS");
constexpr int fLBS = MakeBlockId("fLBS");
constexpr int fNBS = MakeBlockId("fNBS");
constexpr int fXBS = MakeBlockId("fXBS");
constexpr int uFCT = MakeBlockId("uFCT");

}  // namespace vak
