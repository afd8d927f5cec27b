#include "vakdtm/services/geodesy/ProjDescription.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <numbers>
#include <proj.h>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

using Kind = GeoCoordSysDescription::Kind;

/// By how much of itself a unit's size may differ from the register's, which rounds some.
constexpr double kSameUnit = 1e-9;

constexpr double kDegreesInRadian = 180.0 / std::numbers::pi;

std::wstring Text(const char* text) { return text != nullptr ? FromUtf8(text) : std::wstring(); }

/// @return 0 for what isn't in the EPSG register.
int EpsgCode(const char* authority, const char* code) {
  if (authority == nullptr || code == nullptr || std::strcmp(authority, "EPSG") != 0) return 0;
  const char* const end = code + std::strlen(code);
  int number = 0;
  const auto [last, fault] = std::from_chars(code, end, number);
  return fault == std::errc() && last == end && number > 0 ? number : 0;
}

bool IsGeographic(const PJ* system) {
  const PJ_TYPE type = proj_get_type(system);
  return type == PJ_TYPE_GEOGRAPHIC_2D_CRS || type == PJ_TYPE_GEOGRAPHIC_3D_CRS;
}

/// In how far things have to agree: which of longitude and latitude comes first makes no difference to models.
PJ_COMPARISON_CRITERION Criterion(const PJ* object) {
  return IsGeographic(object) ? PJ_COMP_EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS : PJ_COMP_EQUIVALENT;
}

/// Where the two axes of a plane go, in PROJ's words.
struct AxisDirections {
  std::string first;
  std::string second;

  bool Are(std::string_view a, std::string_view b) const { return first == a && second == b; }
};

/// Whether coordinates of a plane, once the one to the east comes first, go to the east and to the north.
bool GoEastAndNorth(const AxisDirections& axes, Kind kind) {
  if (axes.Are("east", "north") || axes.Are("north", "east")) return true;
  // At a pole both axes leave it to the same side, and PROJ tells by their names which one is the easting.
  if (kind == Kind::kProjected) return axes.Are("north", "north") || axes.Are("south", "south");
  if (kind != Kind::kLocal) return false;
  const auto isOpen = [](const std::string& axis) {
    return axis != "west" && axis != "south" && axis != "down" && axis != "displayLeft" && axis != "displayDown";
  };
  return axes.first != axes.second && isOpen(axes.first) && isOpen(axes.second);
}

/// Takes a system apart, piece by piece.
class Describer {
 public:
  Describer(PJ_CONTEXT* context, GeoCoordSysDescription& to) : context_(context), to_(to) {}

  bool Describe(const PJ* system, std::wstring& fault) {
    const PjOwner plain = Unbound(system);
    to_.name = Text(proj_get_name(plain.get()));
    if (proj_get_type(plain.get()) != PJ_TYPE_COMPOUND_CRS) return DescribePlane(plain.get(), fault);
    const PjOwner plane(proj_crs_get_sub_crs(context_, plain.get(), 0));
    const PjOwner heights(proj_crs_get_sub_crs(context_, plain.get(), 1));
    if (!plane || !heights) return Refuse(L"a compound with a part missing", fault);
    const PjOwner plainPlane = Unbound(plane.get());
    if (!DescribePlane(plainPlane.get(), fault)) return false;
    DescribeHeights(Unbound(heights.get()));
    return true;
  }

 private:
  static bool Refuse(const wchar_t* what, std::wstring& fault) {
    fault = what;
    return false;
  }

  /// The system without the shift to WGS84 that it brings with it, which is noted.
  PjOwner Unbound(const PJ* system) {
    if (proj_get_type(system) != PJ_TYPE_BOUND_CRS) return PjOwner(proj_clone(context_, system));
    const PjOwner shift(proj_crs_get_coordoperation(context_, system));
    std::array<double, 7> values{};
    if (shift && proj_coordoperation_get_towgs84_values(context_, shift.get(), values.data(),
                                                        static_cast<int>(values.size()), 0) != 0) {
      to_.toWgs84.assign(values.begin(), values.end());
    }
    return PjOwner(proj_get_source_crs(context_, system));
  }

  /// Whether a thing is what the register has under a number.
  bool IsRegistered(const PJ* object, int code, std::initializer_list<PJ_CATEGORY> categories) {
    for (const PJ_CATEGORY category : categories) {
      const PjOwner found(
          proj_create_from_database(context_, "EPSG", std::to_string(code).c_str(), category, 0, nullptr));
      if (found && proj_is_equivalent_to_with_ctx(context_, object, found.get(), Criterion(object)) != 0) return true;
    }
    return false;
  }

  /// A text may give a number to what it defines otherwise than the register does: such a number doesn't count.
  GeoNameAndCode NameAndCode(const PJ* object, std::initializer_list<PJ_CATEGORY> categories) {
    if (object == nullptr) return {};
    GeoNameAndCode read{Text(proj_get_name(object)),
                        EpsgCode(proj_get_id_auth_name(object, 0), proj_get_id_code(object, 0))};
    if (read.code != 0 && !IsRegistered(object, read.code, categories)) read.code = 0;
    return read;
  }

  /// A system's name and number, the latter found by what it is made of where it doesn't say it.
  GeoNameAndCode SystemNameAndCode(const PJ* system) {
    GeoNameAndCode read = NameAndCode(system, {PJ_CATEGORY_CRS});
    if (read.code == 0) read.code = FindCode(system);
    return read;
  }

  GeoNameAndCode DatumNameAndCode(const PJ* system) {
    PjOwner datum(proj_crs_get_datum_ensemble(context_, system));
    if (!datum) datum.reset(proj_crs_get_datum(context_, system));
    return NameAndCode(datum.get(), {PJ_CATEGORY_DATUM, PJ_CATEGORY_DATUM_ENSEMBLE});
  }

  bool LookAtAxes(const PJ* plane, std::wstring& fault) {
    const PjOwner axes(proj_crs_get_coordinate_system(context_, plane));
    const auto direction = [&](int axis) -> std::string {
      const char* text = nullptr;
      const bool has = axes && proj_cs_get_axis_info(context_, axes.get(), axis, nullptr, nullptr, &text, nullptr,
                                                     nullptr, nullptr, nullptr) != 0;
      return has && text != nullptr ? text : "";
    };
    const AxisDirections found{direction(0), direction(1)};
    if (GoEastAndNorth(found, to_.kind)) return true;
    fault = L"a system whose axes point " + FromUtf8(found.first) + L" and " + FromUtf8(found.second) +
            L", where x of a model goes east and y north";
    return false;
  }

  bool DescribePlane(const PJ* plane, std::wstring& fault) {
    switch (proj_get_type(plane)) {
      case PJ_TYPE_PROJECTED_CRS:
        to_.kind = Kind::kProjected;
        break;
      case PJ_TYPE_GEOGRAPHIC_2D_CRS:
      case PJ_TYPE_GEOGRAPHIC_3D_CRS:
        to_.kind = Kind::kGeographic;
        break;
      case PJ_TYPE_ENGINEERING_CRS:
        to_.kind = Kind::kLocal;
        break;
      case PJ_TYPE_GEOCENTRIC_CRS:
        return Refuse(L"an earth-centred system", fault);
      case PJ_TYPE_VERTICAL_CRS:
        return Refuse(L"a system of heights alone", fault);
      default:
        return Refuse(L"no system of coordinates in the plane", fault);
    }
    if (!LookAtAxes(plane, fault)) return false;
    if (to_.kind == Kind::kProjected) DescribeProjection(plane);
    to_.system = to_.kind == Kind::kLocal ? NameAndCode(plane, {PJ_CATEGORY_CRS}) : SystemNameAndCode(plane);
    to_.isSolid = proj_get_type(plane) == PJ_TYPE_GEOGRAPHIC_3D_CRS;
    to_.unit = UnitOfAxis(plane);
    if (to_.kind != Kind::kLocal) DescribeGeographic(plane);
    return true;
  }

  /// Puts the register's system in the place of the same one: it has the numbers of its parts, which a text may lack.
  void TakeRegistered(PjOwner& system, int code) {
    if (code == 0) return;
    PjOwner registered(
        proj_create_from_database(context_, "EPSG", std::to_string(code).c_str(), PJ_CATEGORY_CRS, 0, nullptr));
    if (registered) system = std::move(registered);
  }

  void DescribeGeographic(const PJ* plane) {
    PjOwner geographic(proj_crs_get_geodetic_crs(context_, plane));
    if (!geographic) return;
    to_.geographic = SystemNameAndCode(geographic.get());
    TakeRegistered(geographic, to_.geographic.code);
    to_.angularUnit = UnitOfAxis(geographic.get());
    to_.datum = DatumNameAndCode(geographic.get());
    const PjOwner ellipsoid(proj_get_ellipsoid(context_, geographic.get()));
    to_.ellipsoid = NameAndCode(ellipsoid.get(), {PJ_CATEGORY_ELLIPSOID});
    if (ellipsoid) {
      double semiMinor = 0;
      int computed = 0;
      proj_ellipsoid_get_parameters(context_, ellipsoid.get(), &to_.semiMajorAxis, &semiMinor, &computed,
                                    &to_.inverseFlattening);
    }
    const PjOwner meridian(proj_get_prime_meridian(context_, geographic.get()));
    to_.primeMeridian = NameAndCode(meridian.get(), {PJ_CATEGORY_PRIME_MERIDIAN});
    double factor = 0;
    const char* unit = nullptr;
    if (meridian && proj_prime_meridian_get_parameters(context_, meridian.get(), &to_.primeMeridianLongitude, &factor,
                                                       &unit) != 0) {
      to_.primeMeridianLongitude = Degrees(to_.primeMeridianLongitude, factor, unit);
    }
  }

  void DescribeProjection(const PJ* plane) {
    const PjOwner projection(proj_crs_get_coordoperation(context_, plane));
    if (!projection) return;
    to_.projection = NameAndCode(projection.get(), {PJ_CATEGORY_COORDINATE_OPERATION});
    const char* name = nullptr;
    const char* authority = nullptr;
    const char* code = nullptr;
    if (proj_coordoperation_get_method_info(context_, projection.get(), &name, &authority, &code) != 0) {
      to_.method = {Text(name), EpsgCode(authority, code)};
    }
    const int count = proj_coordoperation_get_param_count(context_, projection.get());
    for (int index = 0; index < count; ++index) {
      GeoParameter parameter;
      double value = 0;
      double factor = 1;
      const char* unit = nullptr;
      const char* category = nullptr;
      if (proj_coordoperation_get_param(context_, projection.get(), index, &name, &authority, &code, &value, nullptr,
                                        &factor, &unit, nullptr, nullptr, &category) == 0) {
        continue;
      }
      parameter.name = Text(name);
      parameter.code = EpsgCode(authority, code);
      const std::string_view kind = category != nullptr ? category : "";
      if (kind == "linear") {
        parameter.kind = GeoParameter::Kind::kLength;
        parameter.value = value * factor;
      } else if (kind == "angular") {
        parameter.kind = GeoParameter::Kind::kAngle;
        parameter.value = Degrees(value, factor, unit);
      } else {
        parameter.value = value * factor;
      }
      to_.parameters.push_back(std::move(parameter));
    }
  }

  void DescribeHeights(PjOwner heights) {
    to_.hasVertical = true;
    to_.vertical = SystemNameAndCode(heights.get());
    TakeRegistered(heights, to_.vertical.code);
    to_.verticalDatum = DatumNameAndCode(heights.get());
    to_.verticalUnit = UnitOfAxis(heights.get());
    const PjOwner axes(proj_crs_get_coordinate_system(context_, heights.get()));
    const char* direction = nullptr;
    to_.verticalIsDown = axes &&
                         proj_cs_get_axis_info(context_, axes.get(), 0, nullptr, nullptr, &direction, nullptr, nullptr,
                                               nullptr, nullptr) != 0 &&
                         direction != nullptr && std::strcmp(direction, "down") == 0;
  }

  /// What is given in degrees stays as it is, to the last bit.
  static double Degrees(double value, double radians, const char* unit) {
    const bool degrees = unit != nullptr && std::strcmp(unit, "degree") == 0;
    return degrees ? value : value * radians * kDegreesInRadian;
  }

  GeoUnit UnitOfAxis(const PJ* system) {
    const PjOwner axes(proj_crs_get_coordinate_system(context_, system));
    const char* name = nullptr;
    const char* authority = nullptr;
    const char* code = nullptr;
    double size = 1;
    if (!axes || proj_cs_get_axis_info(context_, axes.get(), 0, nullptr, nullptr, nullptr, &size, &name, &authority,
                                       &code) == 0) {
      return {};
    }
    GeoUnit unit;
    unit.name = Text(name);
    unit.size = size;
    unit.code = EpsgCode(authority, code);
    double registered = 0;
    if (unit.code != 0 &&
        (proj_uom_get_info_from_database(context_, authority, code, nullptr, &registered, nullptr) == 0 ||
         std::fabs(registered - size) > kSameUnit * std::fabs(size))) {
      unit.code = 0;
    }
    return unit;
  }

  /// The number of a system that was described in words. @return 0 when the register has no such system.
  int FindCode(const PJ* system) {
    int* confidence = nullptr;
    PJ_OBJ_LIST* const found = proj_identify(context_, system, "EPSG", nullptr, &confidence);
    int code = 0;
    for (int index = 0; index < proj_list_get_count(found) && code == 0; ++index) {
      const PjOwner candidate(proj_list_get(context_, found, index));
      // The register's systems that are out of use have the same parameters as the one that took their place.
      if (!candidate || proj_is_deprecated(candidate.get()) != 0) continue;
      if (proj_is_equivalent_to_with_ctx(context_, system, candidate.get(), Criterion(system)) != 0) {
        code = EpsgCode(proj_get_id_auth_name(candidate.get(), 0), proj_get_id_code(candidate.get(), 0));
      }
    }
    proj_list_destroy(found);
    proj_int_list_destroy(confidence);
    return code;
  }

  PJ_CONTEXT* context_;
  GeoCoordSysDescription& to_;
};

}  // namespace

void DestroyPj::operator()(PJconsts* object) const { proj_destroy(object); }

bool DescribeSystem(pj_ctx* context, const PJconsts* system, GeoCoordSysDescription& description, std::wstring& fault) {
  GeoCoordSysDescription read;
  if (!Describer(context, read).Describe(system, fault)) return false;
  description = std::move(read);
  return true;
}

}  // namespace vak
