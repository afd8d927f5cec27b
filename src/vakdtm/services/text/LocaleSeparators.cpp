#include "vakdtm/services/text/LocaleSeparators.h"

#include <cstddef>
#include <langinfo.h>
#include <locale.h>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "vakdtm/services/jobs/Installed.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

Installed<const LocaleSeparators>& Chosen() {
  static Installed<const LocaleSeparators> chosen;
  return chosen;
}

struct LocaleCloser {
  void operator()(locale_t locale) const { freelocale(locale); }
};

}  // namespace

bool ReadUserSeparators(LocaleSeparators& separators) {
  std::unique_ptr<std::remove_pointer_t<locale_t>, LocaleCloser> locale(newlocale(LC_NUMERIC_MASK, "", locale_t{}));
  // A bare system is often told of a locale that it doesn't have; its programs then go on as in "C".
  if (!locale) locale.reset(newlocale(LC_NUMERIC_MASK, "C", locale_t{}));
  if (!locale) return false;
  std::wstring decimal = FromUtf8(nl_langinfo_l(RADIXCHAR, locale.get()));
  if (decimal.empty()) return false;
  separators.list = decimal == L"." ? L"," : L";";
  separators.decimal = std::move(decimal);
  return true;
}

LocaleSeparators GetLocaleSeparators() {
  if (const auto chosen = Chosen().Get()) return *chosen;
  LocaleSeparators separators;
  ReadUserSeparators(separators);
  return separators;
}

void SetLocaleSeparators(std::optional<LocaleSeparators> separators) {
  Chosen().Exchange(separators ? std::make_shared<const LocaleSeparators>(*std::move(separators)) : nullptr);
}

std::wstring ReplaceDecimalPoint(std::wstring text, const LocaleSeparators& separators) {
  if (separators.decimal == L".") return text;
  for (std::size_t at = 0; (at = text.find(L'.', at)) != std::wstring::npos; at += separators.decimal.size()) {
    text.replace(at, 1, separators.decimal);
  }
  return text;
}

}  // namespace vak
