#include "vakdtm/services/platform/PlainLocale.h"

#include <locale.h>

namespace vak {
namespace {

locale_t Plain() {
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  return plain;
}

}  // namespace

PlainLocale::PlainLocale() : former_(uselocale(Plain())) {}

PlainLocale::~PlainLocale() { uselocale(static_cast<locale_t>(former_)); }

}  // namespace vak
