#include "vakdtm/services/geodesy/LocalCoordSys.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace vak {
namespace {

constexpr std::wstring_view kPrefix = L"LOCAL";

/// The number of the metre in the EPSG register.
constexpr int kMetreCode = 9001;

bool BeginsLocal(const std::wstring& text) {
  const auto capital = [](wchar_t letter) { return letter >= L'a' && letter <= L'z' ? letter - L'a' + L'A' : letter; };
  return text.size() >= kPrefix.size() && std::equal(kPrefix.begin(), kPrefix.end(), text.begin(),
                                                     [&](wchar_t a, wchar_t b) { return a == capital(b); });
}

}  // namespace

std::shared_ptr<LocalCoordSys> LocalCoordSys::FromText(const std::wstring& given) {
  constexpr const wchar_t* kBlanks = L" \t\r\n";
  const std::size_t begin = given.find_first_not_of(kBlanks);
  if (begin == std::wstring::npos) return nullptr;
  const std::wstring text = given.substr(begin, given.find_last_not_of(kBlanks) - begin + 1);
  if (!BeginsLocal(text)) return nullptr;
  if (text.size() == kPrefix.size()) return std::make_shared<LocalCoordSys>(std::wstring());
  if (text[kPrefix.size()] != L':') return nullptr;
  return std::make_shared<LocalCoordSys>(text.substr(kPrefix.size() + 1));
}

std::wstring LocalCoordSys::GetDefinition() const {
  return name_.empty() ? std::wstring(kPrefix) : std::wstring(kPrefix) + L":" + name_;
}

bool LocalCoordSys::GetProjectionName(std::wstring& /*name*/) const { return false; }

bool LocalCoordSys::ConvertToWGS84(double /*x*/, double /*y*/, double /*z*/, double& /*latitude*/,
                                   double& /*longitude*/, double& /*height*/, int /*flags*/) const {
  return false;
}

GeoCoordSysDescription LocalCoordSys::Describe() const {
  GeoCoordSysDescription description;
  description.kind = GeoCoordSysDescription::Kind::kLocal;
  description.name = name_.empty() ? L"Local" : name_;
  description.system.name = description.name;
  description.unit.name = L"metre";
  description.unit.code = kMetreCode;
  return description;
}

}  // namespace vak
