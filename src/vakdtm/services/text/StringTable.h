#pragma once

#include <string>

namespace vak {

/// The text of a resource id, empty when unknown.
std::wstring LoadString(int id);

}  // namespace vak
