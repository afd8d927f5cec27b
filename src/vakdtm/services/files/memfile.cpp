#include "vakdtm/services/files/memfile.h"

#include <cstddef>
#include <new>
#include <stdexcept>

namespace vak {

bool memfile::Write(const void* from, unsigned count) {
  if (Failed()) return false;
  if (count == 0) return true;
  const auto* const begin = static_cast<const std::byte*>(from);
  // The vector's own language for "no memory" ends here.
  try {
    bytes_.insert(bytes_.end(), begin, begin + count);
  } catch (const std::bad_alloc&) {
    return Fail();
  } catch (const std::length_error&) {
    return Fail();
  }
  return true;
}

}  // namespace vak
