#include "vakdtm/services/text/StringTable.h"

namespace vak {

std::wstring LoadString(int /*id*/) { return {}; }

}  // namespace vak
