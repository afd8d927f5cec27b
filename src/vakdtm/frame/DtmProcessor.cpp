#include "vakdtm/frame/DtmProcessor.h"

#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/frame/DtmLinearRectProcessor.h"
#include "vakdtm/frame/DtmRectProcessor.h"

namespace vak {

bool DtmProcessor::ProcessAllCells(DtmAccess& access) { return DtmCellProcessor(&access, this, false).Process(); }

bool DtmProcessor::ProcessRect(DtmAccess& access, const Page& rect) {
  return DtmRectProcessor(rect, &access, this, false).Process();
}

bool DtmProcessor::ProcessLinearRect(DtmAccess& access, const Page& rect) {
  return DtmLinearRectProcessor(rect, &access, this, false).Process();
}

}  // namespace vak
