#include "vakdtm/export/DtmAsciiExporter.h"

#include <utility>

#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/services/text/VakFormatter.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// A type of bottom, a kind that only some models have and the table of kinds doesn't.
constexpr int kPhiText = MakeBlockId("cPHT");

}  // namespace

DtmAsciiExporter::DtmAsciiExporter(int blockId, const wchar_t* path)
    : blockIds_{blockId}, separators_(GetLocaleSeparators()) {
  if (path) file_.Open(path);
}

std::wstring DtmAsciiExporter::AdjustToLocalDecimal(std::wstring text) const {
  // The quotes come before the marks change: they tell of the text as it was formatted.
  if (!separators_.list.empty() && text.find(separators_.list) != std::wstring::npos) text = L'"' + text + L'"';
  return ReplaceDecimalPoint(std::move(text), separators_);
}

bool DtmAsciiExporter::Init(DtmAccess& access) {
  if (!file_.IsOpen() || !access.GetDtmFile()) return false;
  access_ = &access;
  // That a heading can't be written shows with the first line, or when the file is closed.
  if (blockIds_.size() > 1) WriteLine(Header());
  return true;
}

std::wstring DtmAsciiExporter::Header() const {
  std::wstring line = L"X";
  const auto addColumn = [&](const wchar_t* name) {
    line += separators_.list;
    line += name;
  };
  addColumn(L"Y");
  for (const int id : blockIds_) {
    if (addMinMaxPos_ && id == dMIN) {
      addColumn(L"XMIN");
      addColumn(L"YMIN");
    }
    if (addMinMaxPos_ && id == dMAX) {
      addColumn(L"XMAX");
      addColumn(L"YMAX");
    }
    const DtmBlockId kind(id);
    addColumn(invert_ && kind.IsZ() ? L"(-)" : L"");
    line += kind.Mnemonic();
    if (id == kPhiText) addColumn(L"TYPE");
  }
  return line;
}

bool DtmAsciiExporter::ProcessCell(int row, int col, double& /*area*/) {
  const VakFormatter formatter;
  Position centre{};
  access_->GetDtmFile()->CalcXY(row, col, centre.x, centre.y);
  const double half = resample_ ? access_->GetDtmFile()->CellSize() / 2 : 0.0;
  const Position at{centre.x + half, centre.y + half};
  std::wstring line = AdjustToLocalDecimal(formatter.FormatXCoordinate(at.x)) + separators_.list +
                      AdjustToLocalDecimal(formatter.FormatYCoordinate(at.y));
  bool hasValue = false;
  for (const int id : blockIds_) {
    line += separators_.list;
    if (addMinMaxPos_ && id == dMIN) AppendPosition(line, formatter, row, col, fXMN, fYMN, centre);
    if (addMinMaxPos_ && id == dMAX) AppendPosition(line, formatter, row, col, fXMX, fYMX, centre);
    double value = 0;
    if (!ReadValue(row, col, id, at, value)) continue;
    hasValue = true;
    if (invert_ && DtmBlockId(id).IsZ()) value = -value;
    line += AdjustToLocalDecimal(formatter.FormatDepth(value, false, true));
    if (id == kPhiText) line += separators_.list + phi_.GetName(value);
  }
  return !hasValue || WriteLine(line);
}

void DtmAsciiExporter::AppendPosition(std::wstring& line, const VakFormatter& formatter, int row, int col, int xId,
                                      int yId, Position centre) const {
  double dx = 0;
  double dy = 0;
  const bool known = access_->GetDoubleValue(row, col, xId, dx) && !IsEmptyValue(dx) &&
                     access_->GetDoubleValue(row, col, yId, dy) && !IsEmptyValue(dy);
  // The separators stay where the position isn't known, so that the columns stay in their places.
  if (known) line += AdjustToLocalDecimal(formatter.FormatXCoordinate(centre.x + dx));
  line += separators_.list;
  if (known) line += AdjustToLocalDecimal(formatter.FormatYCoordinate(centre.y + dy));
  line += separators_.list;
}

bool DtmAsciiExporter::ReadValue(int row, int col, int id, Position at, double& value) const {
  const bool read = resample_ ? access_->GetInterpolatedValue(at.x, at.y, id, value, false)
                              : access_->GetDoubleValue(row, col, id, value);
  return read && !IsEmptyValue(value);
}

bool DtmAsciiExporter::WriteLine(const std::wstring& line) {
  const std::string text = ToUtf8(line) + '\n';
  return file_.Write(text.data(), static_cast<unsigned>(text.size()));
}

}  // namespace vak
