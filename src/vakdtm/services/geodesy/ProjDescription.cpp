#include "vakdtm/services/geodesy/ProjDescription.h"

#include <array>
#include <charconv>
#include <cstring>
#include <memory>
#include <numbers>
#include <proj.h>
#include <string_view>

#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

using Kind = GeoCoordSysDescription::Kind;

struct DestroyPj {
  void operator()(PJ* object) const { proj_destroy(object); }
};
using PjOwner = std::unique_ptr<PJ, DestroyPj>;

constexpr double kDegreesInRadian = 180.0 / std::numbers::pi;

std::wstring Text(const char* text) { return text != nullptr ? FromUtf8(text) : std::wstring(); }

/// @return 0 for what isn't in the EPSG register.
int EpsgCode(const char* authority, const char* code) {
  if (authority == nullptr || code == nullptr || std::strcmp(authority, "EPSG") != 0) return 0;
  int number = 0;
  std::from_chars(code, code + std::strlen(code), number);
  return number;
}

GeoNameAndCode NameAndCode(const PJ* object) {
  if (object == nullptr) return {};
  return {Text(proj_get_name(object)), EpsgCode(proj_get_id_auth_name(object, 0), proj_get_id_code(object, 0))};
}

bool IsGeographic(const PJ* system) {
  const PJ_TYPE type = proj_get_type(system);
  return type == PJ_TYPE_GEOGRAPHIC_2D_CRS || type == PJ_TYPE_GEOGRAPHIC_3D_CRS;
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
    DescribeHeights(Unbound(heights.get()).get());
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

  bool DescribePlane(const PJ* plane, std::wstring& fault) {
    switch (proj_get_type(plane)) {
      case PJ_TYPE_PROJECTED_CRS:
        to_.kind = Kind::kProjected;
        DescribeProjection(plane);
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
    to_.system = NameAndCode(plane);
    if (to_.system.code == 0 && to_.kind != Kind::kLocal) to_.system.code = FindCode(plane);
    to_.isSolid = proj_get_type(plane) == PJ_TYPE_GEOGRAPHIC_3D_CRS;
    to_.unit = UnitOfAxis(plane);
    if (to_.kind != Kind::kLocal) DescribeGeographic(plane);
    return true;
  }

  void DescribeGeographic(const PJ* plane) {
    const PjOwner geographic(proj_crs_get_geodetic_crs(context_, plane));
    if (!geographic) return;
    to_.geographic = NameAndCode(geographic.get());
    if (to_.geographic.code == 0) to_.geographic.code = FindCode(geographic.get());
    to_.angularUnit = UnitOfAxis(geographic.get());
    PjOwner datum(proj_crs_get_datum_ensemble(context_, geographic.get()));
    if (!datum) datum.reset(proj_crs_get_datum(context_, geographic.get()));
    to_.datum = NameAndCode(datum.get());
    const PjOwner ellipsoid(proj_get_ellipsoid(context_, geographic.get()));
    to_.ellipsoid = NameAndCode(ellipsoid.get());
    if (ellipsoid) {
      double semiMinor = 0;
      int computed = 0;
      proj_ellipsoid_get_parameters(context_, ellipsoid.get(), &to_.semiMajorAxis, &semiMinor, &computed,
                                    &to_.inverseFlattening);
    }
    const PjOwner meridian(proj_get_prime_meridian(context_, geographic.get()));
    to_.primeMeridian = NameAndCode(meridian.get());
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
    to_.projection = NameAndCode(projection.get());
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

  void DescribeHeights(const PJ* heights) {
    to_.hasVertical = true;
    to_.vertical = NameAndCode(heights);
    PjOwner datum(proj_crs_get_datum_ensemble(context_, heights));
    if (!datum) datum.reset(proj_crs_get_datum(context_, heights));
    to_.verticalDatum = NameAndCode(datum.get());
    to_.verticalUnit = UnitOfAxis(heights);
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
    unit.code = EpsgCode(authority, code);
    unit.size = size;
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
      const auto criterion = IsGeographic(system) ? PJ_COMP_EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS : PJ_COMP_EQUIVALENT;
      if (proj_is_equivalent_to_with_ctx(context_, system, candidate.get(), criterion) != 0) {
        code = NameAndCode(candidate.get()).code;
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

bool DescribeSystem(pj_ctx* context, const PJconsts* system, GeoCoordSysDescription& description, std::wstring& fault) {
  GeoCoordSysDescription read;
  if (!Describer(context, read).Describe(system, fault)) return false;
  description = std::move(read);
  return true;
}

}  // namespace vak
