#include "vakdtm/services/color/ColorControl.h"

#include <utility>

namespace vak {

ColorControl& ColorControl::Instance() {
  static ColorControl control;
  return control;
}

Color ColorControl::GetColor(Color wanted, bool flag) const {
  std::shared_ptr<const Filter> filter;
  {
    const std::scoped_lock lock(mutex_);
    filter = filter_;
  }
  return filter != nullptr ? (*filter)(wanted, flag) : wanted;
}

void ColorControl::SetFilter(Filter filter) {
  auto installed = filter ? std::make_shared<const Filter>(std::move(filter)) : nullptr;
  const std::scoped_lock lock(mutex_);
  filter_.swap(installed);
}

}  // namespace vak
