#include "vakdtm/services/geodesy/ProjCoordSys.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <list>
#include <memory>
#include <proj.h>
#include <proj_experimental.h>
#include <string_view>
#include <type_traits>

#include "vakdtm/services/geodesy/ProjDescription.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

struct DestroyPj {
  void operator()(PJ* object) const { proj_destroy(object); }
};
using PjOwner = std::unique_ptr<PJ, DestroyPj>;

/// Longitude, latitude in degrees and height above the ellipsoid.
constexpr const char* kWgs84 = "EPSG:4979";

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
  static thread_local TransformationsOfThread transformations;
  PJ* const way = transformations.Get(number_, projText_);
  if (way == nullptr) return false;
  const PJ_COORD at = proj_trans(way, PJ_FWD, proj_coord(x, y, z, HUGE_VAL));
  if (!std::isfinite(at.xyz.x) || !std::isfinite(at.xyz.y) || !std::isfinite(at.xyz.z)) {
    proj_errno_reset(way);
    return false;
  }
  longitude = at.xyz.x;
  latitude = at.xyz.y;
  height = at.xyz.z;
  return true;
}

}  // namespace vak
