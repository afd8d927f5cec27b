#include "vakdtm/services/geodesy/ProjCoordSys.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <list>
#include <memory>
#include <numbers>
#include <proj.h>
#include <proj_experimental.h>
#include <string_view>
#include <type_traits>
#include <utility>

#include "vakdtm/services/geodesy/ProjDescription.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

/// Longitude, latitude in degrees and height above the ellipsoid.
constexpr const char* kWgs84 = "EPSG:4979";

// Degrees.
constexpr double kPole = 90;
constexpr double kHalfCircle = 180;
constexpr double kRounding = 1e-9;  // some 0.1 mm

/// Whether longitude and latitude are such, in a unit of so many radians. PROJ takes anything for an angle.
bool IsOnGlobe(double longitude, double latitude, double radians) {
  const double degrees = radians * kHalfCircle / std::numbers::pi;
  return std::fabs(latitude * degrees) <= kPole + kRounding &&
         std::fabs(longitude * degrees) <= 2 * kHalfCircle + kRounding;
}

/// PROJ as one thread has it: silent, and without the network.
class ProjContext {
 public:
  ProjContext() : context_(proj_context_create()) {
    proj_log_func(context_.get(), this, [](void* self, int level, const char* text) {
      if (level == PJ_LOG_ERROR) static_cast<ProjContext*>(self)->lastMessage_ = text;
    });
    proj_context_set_enable_network(context_.get(), 0);
    // "+init=epsg:28992", as older programs write it.
    proj_context_use_proj4_init_rules(context_.get(), 1);
  }

  ProjContext(const ProjContext&) = delete;
  ProjContext& operator=(const ProjContext&) = delete;

  PJ_CONTEXT* Get() const { return context_.get(); }

  /// What PROJ last complained about, without the name of its function in front.
  std::string TakeMessage() {
    std::string message = std::exchange(lastMessage_, {});
    if (const std::size_t colon = message.find(": "); message.starts_with("proj_") && colon != std::string::npos) {
      message.erase(0, colon + 2);
    }
    return message;
  }

 private:
  struct Destroy {
    void operator()(PJ_CONTEXT* context) const { proj_context_destroy(context); }
  };

  std::string lastMessage_;
  std::unique_ptr<PJ_CONTEXT, Destroy> context_;
};

/// The way of one system to WGS84, for one thread; null when there is none.
PjOwner MakeTransformation(const ProjContext& context, const std::string& text) {
  const PjOwner plane(proj_create(context.Get(), text.c_str()));
  const PjOwner target(proj_create(context.Get(), kWgs84));
  if (!plane || !target) return nullptr;
  // A plane system would pass heights through as they are.
  PjOwner source(proj_crs_promote_to_3D(context.Get(), nullptr, plane.get()));
  if (!source) source.reset(proj_clone(context.Get(), plane.get()));
  constexpr const char* kOptions[] = {"ALLOW_BALLPARK=NO", nullptr};
  const PjOwner way(proj_create_crs_to_crs_from_pj(context.Get(), source.get(), target.get(), nullptr, kOptions));
  if (!way) return nullptr;
  return PjOwner(proj_normalize_for_visualization(context.Get(), way.get()));
}

/// The transformations that a thread has used last.
class TransformationsOfThread {
 public:
  PJ* Get(std::uint64_t number, const std::string& text) {
    const auto found =
        std::find_if(kept_.begin(), kept_.end(), [&](const Kept& each) { return each.system == number; });
    if (found != kept_.end()) {
      kept_.splice(kept_.begin(), kept_, found);
    } else {
      kept_.push_front({number, MakeTransformation(context_, text)});
      if (kept_.size() > kMost) kept_.pop_back();
    }
    return kept_.front().way.get();
  }

 private:
  static constexpr std::size_t kMost = 8;
  struct Kept {
    std::uint64_t system;
    PjOwner way;
  };

  ProjContext context_;  // goes after what is made with it
  std::list<Kept> kept_;
};

std::uint64_t NextNumber() {
  static std::atomic<std::uint64_t> next{0};
  return next.fetch_add(1, std::memory_order_relaxed);
}

constexpr std::string_view kBlanks = " \t\r\n";

std::string Trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

/// A definition of PROJ, which is a system only when it says so.
bool IsDefinition(const std::string& text) {
  return text.find("proj=") != std::string::npos || text.find("init=") != std::string::npos;
}

std::string TextForProj(const std::string& text) {
  if (IsNumber(text)) return "EPSG:" + text;
  const bool structured = text.find_first_of("[{") != std::string::npos;
  if (!structured && IsDefinition(text) && text.find("type=crs") == std::string::npos) return text + " +type=crs";
  return text;
}

bool SameLetters(std::string_view a, std::string_view b) {
  const auto small = [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter - 'A' + 'a' : letter; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char left, char right) { return small(left) == small(right); });
}

/// A name that isn't exactly a system's would be taken for one that is somehow like it.
bool IsVagueName(const std::string& text, const PJ* system) {
  return text.find_first_of(":=[{+") == std::string::npos && !SameLetters(text, proj_get_name(system));
}

/// The register by the name that older programs open as a file, and a number.
bool IsRegisterInit(std::string_view value) {
  const std::size_t end = std::min(value.find_first_of(" \t\r\n+\"]}"), value.size());
  constexpr std::string_view kRegister = "epsg:";
  return end > kRegister.size() && SameLetters(value.substr(0, kRegister.size()), kRegister) &&
         IsNumber(std::string(value.substr(kRegister.size(), end - kRegister.size())));
}

/// Whether a parameter names the file that there never is, as web maps have it.
bool IsNoFile(std::string_view parameter) {
  constexpr std::string_view kGrids = "grids=";
  constexpr std::string_view kNone = "@null";
  constexpr std::string_view kBetween = "\",\"";  // the name of a parameter and its text
  std::size_t value = kGrids.size();
  if (!parameter.starts_with(kGrids)) {
    const std::size_t end = parameter.find(kBetween);
    if (end == std::string_view::npos) return false;
    value = end + kBetween.size();
  }
  const std::string_view text = parameter.substr(value);
  if (!text.starts_with(kNone)) return false;
  return text.size() == kNone.size() || text[kNone.size()] == ' ' || text[kNone.size()] == '"';
}

/// Texts come from files of others, and PROJ opens whatever they name, some while it reads them: a pipe would never
/// end.
/// @param text  as it was given, and as PROJ has read it, since there are several forms in which it can be said.
bool NamesFile(std::string_view text) {
  for (const std::string_view key : {"init=", "PARAMETERFILE[", "grids=", "file=", "model=", "catalog="}) {
    for (std::size_t at = text.find(key); at != std::string_view::npos; at = text.find(key, at + 1)) {
      const std::string_view parameter = text.substr(at);
      if (!IsNoFile(parameter) && !(key == "init=" && IsRegisterInit(parameter.substr(key.size())))) return true;
    }
  }
  return false;
}

/// What PROJ reads of a text but doesn't heed.
bool HasSteps(std::string_view text) {
  return text.find("+step") != std::string_view::npos || text.find("proj=pipeline") != std::string_view::npos;
}

/// The beginning of a long text, in one line, for a message.
std::wstring Quoted(const std::string& text) {
  constexpr std::size_t kMost = 60;
  std::wstring shown = FromUtf8(text).substr(0, kMost);
  std::replace_if(shown.begin(), shown.end(), [](wchar_t each) { return each < L' '; }, L' ');
  return L"'" + shown + (text.size() > kMost ? L"...'" : L"'");
}

}  // namespace

ProjCoordSys::ProjCoordSys(std::wstring definition, std::string projText, GeoCoordSysDescription description)
    : definition_(std::move(definition)),
      projText_(std::move(projText)),
      description_(std::move(description)),
      number_(NextNumber()) {}

std::shared_ptr<ProjCoordSys> ProjCoordSys::FromText(const std::wstring& text, std::wstring& error) {
  const std::string given = Trimmed(ToUtf8(text));
  if (given.empty()) {
    error = L"an empty text is no coordinate system";
    return nullptr;
  }
  if (given.find('\0') != std::string::npos) {
    error = Quoted(given) + L" is no coordinate system";
    return nullptr;
  }
  if (NamesFile(given)) {
    error = Quoted(given) + L" names a file, and systems are read from their texts alone";
    return nullptr;
  }
  if (HasSteps(given)) {
    error = Quoted(given) + L" is no coordinate system, but steps of a conversion";
    return nullptr;
  }
  ProjContext context;
  const std::string projText = TextForProj(given);
  const PjOwner system(proj_create(context.Get(), projText.c_str()));
  if (!system) {
    const std::string message = context.TakeMessage();
    error = Quoted(given) + L" is no coordinate system" + (message.empty() ? L"" : L": " + FromUtf8(message));
    return nullptr;
  }
  if (proj_is_crs(system.get()) == 0) {
    error = Quoted(given) + L" is no coordinate system, but something else of geodesy";
    return nullptr;
  }
  if (IsVagueName(projText, system.get())) {
    error = Quoted(given) + L" is no coordinate system";
    return nullptr;
  }
  const char* const wkt = proj_as_wkt(context.Get(), system.get(), PJ_WKT2_2019, nullptr);
  if (wkt != nullptr && NamesFile(wkt)) {
    error = Quoted(given) + L" names a file, and systems are read from their texts alone";
    return nullptr;
  }
  GeoCoordSysDescription description;
  std::wstring kind;
  if (!DescribeSystem(context.Get(), system.get(), description, kind)) {
    error = Quoted(given) + L" is " + kind;
    return nullptr;
  }
  return std::shared_ptr<ProjCoordSys>(new ProjCoordSys(FromUtf8(given), projText, std::move(description)));
}

bool ProjCoordSys::GetProjectionName(std::wstring& name) const {
  if (description_.kind == GeoCoordSysDescription::Kind::kLocal) return false;
  name = description_.projection.name.empty() ? description_.system.name : description_.projection.name;
  return true;
}

bool ProjCoordSys::ConvertToWGS84(double x, double y, double z, double& latitude, double& longitude, double& height,
                                  int /*flags*/) const {
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z)) return false;
  if (description_.kind == GeoCoordSysDescription::Kind::kGeographic && !IsOnGlobe(x, y, description_.unit.size)) {
    return false;
  }
  static thread_local TransformationsOfThread transformations;
  PJ* const way = transformations.Get(number_, projText_);
  if (way == nullptr) return false;
  const PJ_COORD at = proj_trans(way, PJ_FWD, proj_coord(x, y, z, HUGE_VAL));
  if (!std::isfinite(at.xyz.x) || !std::isfinite(at.xyz.y) || !std::isfinite(at.xyz.z) ||
      std::fabs(at.xyz.y) > kPole + kRounding) {
    proj_errno_reset(way);
    return false;
  }
  longitude = std::fabs(at.xyz.x) > kHalfCircle ? std::remainder(at.xyz.x, 2 * kHalfCircle) : at.xyz.x;
  latitude = std::clamp(at.xyz.y, -kPole, kPole);
  height = at.xyz.z;
  return true;
}

}  // namespace vak
