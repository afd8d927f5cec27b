#include "vakdtm/services/text/StringTable.h"

#include <algorithm>
#include <string>

#include "vakdtm/resources/StringsEnglish.h"

namespace vak {
namespace {

constexpr bool ById(const resources::StringEntry& a, const resources::StringEntry& b) { return a.id < b.id; }

constexpr bool RisesStrictly() {
  const auto& table = resources::kStringsEnglish;
  const auto notBelow = [](const auto& a, const auto& b) { return !ById(a, b); };
  return std::adjacent_find(table.begin(), table.end(), notBelow) == table.end();
}

static_assert(RisesStrictly(), "texts are found by halving");

}  // namespace

std::wstring LoadString(int id) {
  const auto& table = resources::kStringsEnglish;
  const auto* const found = std::lower_bound(table.begin(), table.end(), resources::StringEntry{id, L""}, ById);
  return found != table.end() && found->id == id ? found->text : L"";
}

}  // namespace vak
