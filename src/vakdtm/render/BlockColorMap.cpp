#include "vakdtm/render/BlockColorMap.h"

#include "vakdtm/store/DtmBlockId.h"

namespace vak {

std::string_view DefaultColorMap(int blockId) {
  switch (blockId) {
    case iNUM:
    case uFCT:
      return "hits";
    case dSDV:
      return "deviation";
    case tTIM:
    case fDUR:
      return "time";
    case dTVU:
    case dTHU:
      return "uncertainty";
    case fXMN:
    case fYMN:
    case fXMX:
    case fYMX:
      return "difference";
    default:
      return "depth";
  }
}

}  // namespace vak
