#include "vakdtm/export/DtmAsciiPhiTextExporter.h"

#include "vakdtm/services/text/VakFormatter.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

bool DtmAsciiPhiTextExporter::ProcessCell(int row, int col, double& /*area*/) {
  double value = 0;
  if (!Access().GetDoubleValue(row, col, FirstBlockId(), value)) return false;
  if (IsEmptyValue(value)) return true;
  const VakFormatter formatter;
  double x = 0;
  double y = 0;
  Access().GetDtmFile()->CalcXY(row, col, x, y);
  return WriteLine(formatter.FormatXCoordinate(x) + L',' + formatter.FormatYCoordinate(y) + L',' +
                   formatter.FormatDepth(value, false, true) + L',' + types_.GetName(value));
}

}  // namespace vak
