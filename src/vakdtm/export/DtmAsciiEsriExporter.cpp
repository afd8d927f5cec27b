#include "vakdtm/export/DtmAsciiEsriExporter.h"

#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

void AppendLine(std::string& text, const char* name, const std::string& value) {
  text += name;
  text += ' ';
  text += value;
  text += '\n';
}

std::string Number(double value) {
  std::string text;
  AppendFixed(text, value, 6);
  return text;
}

/// How many cells lie between two, both counted. Two ints may lie further apart than an int can tell.
std::string Count(int lowest, int highest) { return std::to_string(static_cast<long long>(highest) - lowest + 1); }

}  // namespace

DtmAsciiEsriExporter::DtmAsciiEsriExporter(int blockId, DtmExtentsProcessor* extents, const wchar_t* noDataText,
                                           const wchar_t* valueFormat, bool corner, const wchar_t* path)
    : blockId_(blockId),
      extents_(extents),
      noDataText_(noDataText ? ToUtf8(noDataText) : std::string()),
      valueFormat_(valueFormat),
      corner_(corner) {
  if (path) file_.Open(path);
}

bool DtmAsciiEsriExporter::Init(DtmAccess& access) {
  if (!file_.IsOpen() || !extents_ || !valueFormat_.IsValid() || !access.GetDtmFile()) return false;
  access_ = &access;
  return Write(Header(access.GetDtmFile()->CellSize()));
}

std::string DtmAsciiEsriExporter::Header(double cellSize) const {
  const double back = corner_ ? cellSize / 2 : 0.0;  // from the centre of the lower left cell
  std::string text;
  AppendLine(text, "NCOLS", Count(extents_->MinCol(), extents_->MaxCol()));
  AppendLine(text, "NROWS", Count(extents_->MinRow(), extents_->MaxRow()));
  AppendLine(text, corner_ ? "XLLCORNER" : "XLLCENTER", Number((extents_->MinCol() + 0.5) * cellSize - back));
  AppendLine(text, corner_ ? "YLLCORNER" : "YLLCENTER", Number((extents_->MinRow() + 0.5) * cellSize - back));
  AppendLine(text, "CELLSIZE ", Number(cellSize));
  AppendLine(text, "NODATA_VALUE", noDataText_);
  return text;
}

bool DtmAsciiEsriExporter::ProcessCell(int row, int col, double& area) {
  item_.clear();
  double value = 0;
  // The empty pattern for an area is the mark of a cell outside the polygon.
  if (IsEmptyValue(area) || !access_->GetDoubleValue(row, col, blockId_, value) || IsEmptyValue(value)) {
    item_ += noDataText_;
    item_ += ' ';
  } else {
    valueFormat_.Append(item_, value);
  }
  if (col == extents_->MaxCol()) item_ += '\n';
  return Write(item_);
}

bool DtmAsciiEsriExporter::Write(const std::string& text) {
  return file_.Write(text.data(), static_cast<unsigned>(text.size()));
}

}  // namespace vak
