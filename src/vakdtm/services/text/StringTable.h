#pragma once

#include <string>

namespace vak {

/// The text of a resource id in the language of the resources. Any thread may call it.
/// @return empty when there is no text of that id.
std::wstring LoadString(int id);

}  // namespace vak
