#include "vakdtm/services/tiff/GeoKeys.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <geotiff.h>
#include <geovalues.h>
#include <numbers>
#include <string_view>
#include <utility>
#include <vector>

#include "vakdtm/services/geodesy/GeoCoordSysDescription.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

using Kind = GeoCoordSysDescription::Kind;

/// A number of the register as a key can hold it: the rest of its range is for private use.
bool IsCode(int code) { return code > 0 && code < KvUserDefined; }

constexpr double kRadiansInDegree = std::numbers::pi / 180;

int CodeOr(int code, int otherwise) { return IsCode(code) ? code : otherwise; }

constexpr double kMetresInFathom = 1.8288;

struct NamedUnit {
  std::wstring_view name;
  int code;
  double size;
};

constexpr std::array kNamedUnits{NamedUnit{L"metre", Linear_Meter, 1.0},
                                 NamedUnit{L"m", Linear_Meter, 1.0},
                                 NamedUnit{L"foot", Linear_Foot, 0.3048},
                                 NamedUnit{L"ft", Linear_Foot, 0.3048},
                                 NamedUnit{L"us survey foot", Linear_Foot_US_Survey, 1200.0 / 3937.0},
                                 NamedUnit{L"ftus", Linear_Foot_US_Survey, 1200.0 / 3937.0}};

/// A foot of 12/39.37 m is the same unit however its size was rounded; the two feet are further apart.
bool SameSize(double a, double b) { return std::fabs(a - b) <= 1e-10 * std::fabs(a); }

/// The unit with its number, also where the system came without it.
GeoUnit WithCode(GeoUnit unit) {
  for (const NamedUnit& each : kNamedUnits) {
    if (unit.code == 0 && SameSize(each.size, unit.size)) unit.code = each.code;
  }
  return unit;
}

/// The unit of x and y: that of a system in a unit that projects don't have, else the one that the project names, else
/// the system's.
GeoUnit LinearUnit(const GeoCoordSysDescription& system, const std::wstring& name) {
  const auto small = [](wchar_t letter) { return letter >= L'A' && letter <= L'Z' ? letter - L'A' + L'a' : letter; };
  GeoUnit unit = WithCode(system.unit);
  const auto isSystems = [&](const NamedUnit& each) { return SameSize(each.size, system.unit.size); };
  if (std::none_of(kNamedUnits.begin(), kNamedUnits.end(), isSystems)) return unit;
  for (const NamedUnit& each : kNamedUnits) {
    const bool named = std::equal(each.name.begin(), each.name.end(), name.begin(), name.end(),
                                  [&](wchar_t a, wchar_t b) { return a == small(b); });
    if (!named || isSystems(each)) continue;
    unit.size = each.size;
    unit.code = each.code;
  }
  return unit;
}

struct SizedUnit {
  int code;
  double size;
};

/// A degree whose way of writing is left open; those that tell it are the numbers before.
constexpr int kPlainDegree = 9122;

constexpr std::array kAngles{SizedUnit{Angular_Degree, kRadiansInDegree},
                             SizedUnit{Angular_Grad, std::numbers::pi / 200}, SizedUnit{Angular_Radian, 1.0},
                             SizedUnit{Angular_Arc_Minute, kRadiansInDegree / 60},
                             SizedUnit{Angular_Arc_Second, kRadiansInDegree / 3600}};

/// Whether a unit is degrees written in some way, with minutes or letters. Coordinates in an image are plain numbers.
bool IsWayOfWriting(const GeoUnit& unit) {
  return unit.code >= Angular_DMS && unit.code < kPlainDegree && SameSize(unit.size, kRadiansInDegree);
}

/// The number of an angle's unit, also where the system came without it: readers take one without for degrees.
int AngleCode(const GeoUnit& unit) {
  if (IsCode(unit.code) && !IsWayOfWriting(unit)) return unit.code;
  const auto* const found = std::find_if(kAngles.begin(), kAngles.end(),
                                         [&](const SizedUnit& each) { return SameSize(each.size, unit.size); });
  return found != kAngles.end() ? found->code : KvUserDefined;
}

// ---- methods of projection

struct NamedParameter {
  int code;
  std::wstring_view name;
};

/// The parameters of the methods below as the register calls them, for systems that come without its numbers.
constexpr std::array kParameters{NamedParameter{8801, L"Latitude of natural origin"},
                                 NamedParameter{8802, L"Longitude of natural origin"},
                                 NamedParameter{8805, L"Scale factor at natural origin"},
                                 NamedParameter{8806, L"False easting"},
                                 NamedParameter{8807, L"False northing"},
                                 NamedParameter{8811, L"Latitude of projection centre"},
                                 NamedParameter{8812, L"Longitude of projection centre"},
                                 NamedParameter{8813, L"Azimuth of initial line"},
                                 NamedParameter{8813, L"Azimuth at projection centre"},
                                 NamedParameter{8814, L"Angle from Rectified to Skew Grid"},
                                 NamedParameter{8815, L"Scale factor on initial line"},
                                 NamedParameter{8815, L"Scale factor at projection centre"},
                                 NamedParameter{8816, L"Easting at projection centre"},
                                 NamedParameter{8817, L"Northing at projection centre"},
                                 NamedParameter{8821, L"Latitude of false origin"},
                                 NamedParameter{8822, L"Longitude of false origin"},
                                 NamedParameter{8823, L"Latitude of 1st standard parallel"},
                                 NamedParameter{8824, L"Latitude of 2nd standard parallel"},
                                 NamedParameter{8826, L"Easting at false origin"},
                                 NamedParameter{8827, L"Northing at false origin"},
                                 NamedParameter{8832, L"Latitude of standard parallel"},
                                 NamedParameter{8833, L"Longitude of origin"}};

int CodeOf(const GeoParameter& parameter) {
  if (parameter.code != 0) return parameter.code;
  const auto* const found = std::find_if(kParameters.begin(), kParameters.end(),
                                         [&](const NamedParameter& each) { return each.name == parameter.name; });
  return found != kParameters.end() ? found->code : 0;
}

/// A parameter, by its number in the EPSG register, and the key that holds it.
struct ParameterKey {
  int parameter;
  int key;
};

/// A method, by its number in the register or its name where it has none, and what it is to the format.
struct Method {
  int code;
  std::wstring_view name;
  int transformation;
  std::vector<ParameterKey> keys;
};

const std::vector<ParameterKey>& NaturalOrigin() {
  static const std::vector<ParameterKey> keys{{8801, ProjNatOriginLatGeoKey},
                                              {8802, ProjNatOriginLongGeoKey},
                                              {8805, ProjScaleAtNatOriginGeoKey},
                                              {8806, ProjFalseEastingGeoKey},
                                              {8807, ProjFalseNorthingGeoKey}};
  return keys;
}

const std::vector<ParameterKey>& Centre() {
  static const std::vector<ParameterKey> keys{{8801, ProjCenterLatGeoKey},
                                              {8802, ProjCenterLongGeoKey},
                                              {8806, ProjFalseEastingGeoKey},
                                              {8807, ProjFalseNorthingGeoKey}};
  return keys;
}

/// Of cones with two standard parallels, by either of the names that the register has for their origin.
const std::vector<ParameterKey>& FalseOriginAsNatural() {
  static const std::vector<ParameterKey> keys{{8801, ProjNatOriginLatGeoKey}, {8802, ProjNatOriginLongGeoKey},
                                              {8806, ProjFalseEastingGeoKey}, {8807, ProjFalseNorthingGeoKey},
                                              {8821, ProjNatOriginLatGeoKey}, {8822, ProjNatOriginLongGeoKey},
                                              {8823, ProjStdParallel1GeoKey}, {8824, ProjStdParallel2GeoKey},
                                              {8826, ProjFalseEastingGeoKey}, {8827, ProjFalseNorthingGeoKey}};
  return keys;
}

const std::vector<Method>& Methods() {
  static const std::vector<ParameterKey> oblique{
      {8811, ProjCenterLatGeoKey},          {8812, ProjCenterLongGeoKey},    {8813, ProjAzimuthAngleGeoKey},
      {8814, ProjRectifiedGridAngleGeoKey}, {8815, ProjScaleAtCenterGeoKey}, {8806, ProjFalseEastingGeoKey},
      {8807, ProjFalseNorthingGeoKey},      {8816, ProjFalseEastingGeoKey},  {8817, ProjFalseNorthingGeoKey}};
  static const std::vector<ParameterKey> parallel{{8823, ProjStdParallel1GeoKey},
                                                  {8801, ProjNatOriginLatGeoKey},
                                                  {8802, ProjNatOriginLongGeoKey},
                                                  {8806, ProjFalseEastingGeoKey},
                                                  {8807, ProjFalseNorthingGeoKey}};
  static const std::vector<ParameterKey> cylinder{{8823, ProjStdParallel1GeoKey},
                                                  {8801, ProjCenterLatGeoKey},
                                                  {8802, ProjCenterLongGeoKey},
                                                  {8806, ProjFalseEastingGeoKey},
                                                  {8807, ProjFalseNorthingGeoKey}};
  static const std::vector<ParameterKey> stereographic{{8801, ProjCenterLatGeoKey},
                                                       {8802, ProjCenterLongGeoKey},
                                                       {8805, ProjScaleAtNatOriginGeoKey},
                                                       {8806, ProjFalseEastingGeoKey},
                                                       {8807, ProjFalseNorthingGeoKey}};
  static const std::vector<ParameterKey> world{
      {8802, ProjCenterLongGeoKey}, {8806, ProjFalseEastingGeoKey}, {8807, ProjFalseNorthingGeoKey}};
  static const std::vector<ParameterKey> cone{
      {8821, ProjFalseOriginLatGeoKey}, {8822, ProjFalseOriginLongGeoKey},    {8823, ProjStdParallel1GeoKey},
      {8824, ProjStdParallel2GeoKey},   {8826, ProjFalseOriginEastingGeoKey}, {8827, ProjFalseOriginNorthingGeoKey}};
  static const std::vector<ParameterKey> pole{
      {8801, ProjNatOriginLatGeoKey},         {8832, ProjNatOriginLatGeoKey},
      {8802, ProjStraightVertPoleLongGeoKey}, {8833, ProjStraightVertPoleLongGeoKey},
      {8805, ProjScaleAtNatOriginGeoKey},     {8806, ProjFalseEastingGeoKey},
      {8807, ProjFalseNorthingGeoKey}};
  static const std::vector<Method> methods{
      {9807, L"Transverse Mercator", CT_TransverseMercator, NaturalOrigin()},
      {9804, L"Mercator (variant A)", CT_Mercator, NaturalOrigin()},
      {9805, L"Mercator (variant B)", CT_Mercator, parallel},
      {9801, L"Lambert Conic Conformal (1SP)", CT_LambertConfConic_1SP, NaturalOrigin()},
      {9802, L"Lambert Conic Conformal (2SP)", CT_LambertConfConic_2SP, cone},
      // The same as the one above, but for a factor that has no key.
      {1051, L"Lambert Conic Conformal (2SP Michigan)", CT_LambertConfConic_2SP, cone},
      {0, L"Stereographic", CT_Stereographic, stereographic},
      {9809, L"Oblique Stereographic", CT_ObliqueStereographic, NaturalOrigin()},
      {9812, L"Hotine Oblique Mercator (variant A)", CT_ObliqueMercator, oblique},
      {9815, L"Hotine Oblique Mercator (variant B)", CT_HotineObliqueMercatorAzimuthCenter, oblique},
      {9810, L"Polar Stereographic (variant A)", CT_PolarStereographic, pole},
      {9829, L"Polar Stereographic (variant B)", CT_PolarStereographic, pole},
      {9822, L"Albers Equal Area", CT_AlbersEqualArea, FalseOriginAsNatural()},
      {1119, L"Equidistant Conic", CT_EquidistantConic, FalseOriginAsNatural()},
      {9820, L"Lambert Azimuthal Equal Area", CT_LambertAzimEqualArea, Centre()},
      {0, L"Azimuthal Equidistant", CT_AzimuthalEquidistant, Centre()},
      {9832, L"Modified Azimuthal Equidistant", CT_AzimuthalEquidistant, Centre()},
      {0, L"Miller Cylindrical", CT_MillerCylindrical, Centre()},
      {9806, L"Cassini-Soldner", CT_CassiniSoldner, NaturalOrigin()},
      {9818, L"American Polyconic", CT_Polyconic, NaturalOrigin()},
      {9811, L"New Zealand Map Grid", CT_NewZealandMapGrid, NaturalOrigin()},
      {9840, L"Orthographic", CT_Orthographic, Centre()},
      {0, L"Gnomonic", CT_Gnomonic, Centre()},
      {1028, L"Equidistant Cylindrical", CT_Equirectangular, cylinder},
      {9835, L"Lambert Cylindrical Equal Area", CT_CylindricalEqualArea, parallel},
      {0, L"Sinusoidal", CT_Sinusoidal, world},
      {0, L"Robinson", CT_Robinson, world},
      {0, L"Van Der Grinten", CT_VanDerGrinten, world}};
  return methods;
}

const Method* FindMethod(const GeoNameAndCode& method) {
  for (const Method& each : Methods()) {
    if (method.code != 0 ? each.code == method.code : each.name == method.name) return &each;
  }
  return nullptr;
}

/// @return false when the format has no key for a parameter that matters.
bool AddParameters(const GeoCoordSysDescription& system, const Method& method, const GeoUnit& unit, GeoKeys& keys,
                   std::wstring& fault) {
  for (const GeoParameter& parameter : system.parameters) {
    const auto found = std::find_if(method.keys.begin(), method.keys.end(),
                                    [&](const ParameterKey& each) { return each.parameter == CodeOf(parameter); });
    if (found == method.keys.end()) {
      // What has no key counts as none to a reader.
      const double none = parameter.kind == GeoParameter::Kind::kScale ? 1.0 : 0.0;
      if (parameter.value == none) continue;
      fault = L"'" + parameter.name + L"' of the projection '" + system.method.name + L"'";
      return false;
    }
    keys.reals[found->key] = {parameter.kind == GeoParameter::Kind::kLength ? parameter.value / unit.size
                                                                            : parameter.value};
  }
  // The register's second form of it has no scale, and a reader takes what isn't there for what it likes.
  if (method.transformation == CT_PolarStereographic) keys.reals.try_emplace(ProjScaleAtNatOriginGeoKey, 1, 1.0);
  return true;
}

// ---- pieces of a system

/// Keys hold no zero byte, and a bar ends their text.
std::string KeyText(const std::wstring& name) {
  std::string text = ToUtf8(name);
  std::replace_if(text.begin(), text.end(), [](char each) { return each == '|' || each == '\0'; }, ' ');
  return text;
}

void AddAngularUnit(const GeoUnit& unit, GeoKeys& keys) {
  const int code = AngleCode(unit);
  keys.numbers[GeogAngularUnitsGeoKey] = code;
  if (code == KvUserDefined) keys.reals[GeogAngularUnitSizeGeoKey] = {unit.size};
}

GeoUnit Degree() {
  GeoUnit degree;
  degree.name = L"degree";
  degree.code = Angular_Degree;
  degree.size = kRadiansInDegree;
  return degree;
}

/// The unit of the keys that are angles.
GeoUnit AngularUnit(const GeoCoordSysDescription& system) {
  // A projection's angles are in it too: always degrees.
  return system.kind == Kind::kGeographic ? system.angularUnit : Degree();
}

/// The pieces of a geographic system: readers don't find all of the register's by their numbers.
void AddGeographicPieces(const GeoCoordSysDescription& system, GeoKeys& keys) {
  // In this form readers find the names again.
  keys.texts[GeogCitationGeoKey] =
      "GCS Name = " + KeyText(system.geographic.name) + "|Datum = " + KeyText(system.datum.name) +
      "|Ellipsoid = " + KeyText(system.ellipsoid.name) + "|Primem = " + KeyText(system.primeMeridian.name);
  keys.numbers[GeogGeodeticDatumGeoKey] = CodeOr(system.datum.code, KvUserDefined);
  keys.numbers[GeogEllipsoidGeoKey] = CodeOr(system.ellipsoid.code, KvUserDefined);
  keys.reals[GeogSemiMajorAxisGeoKey] = {system.semiMajorAxis};
  if (system.inverseFlattening != 0) {
    keys.reals[GeogInvFlatteningGeoKey] = {system.inverseFlattening};
  } else {
    keys.reals[GeogSemiMinorAxisGeoKey] = {system.semiMajorAxis};
  }
  keys.numbers[GeogPrimeMeridianGeoKey] = CodeOr(system.primeMeridian.code, KvUserDefined);
  const double degrees = AngularUnit(system).size / Degree().size;
  keys.reals[GeogPrimeMeridianLongGeoKey] = {system.primeMeridianLongitude / degrees};
  if (!system.toWgs84.empty()) keys.reals[GeogTOWGS84GeoKey] = system.toWgs84;
}

void AddLinearUnit(const GeoUnit& unit, GeoKeys& keys) {
  keys.numbers[ProjLinearUnitsGeoKey] = CodeOr(unit.code, KvUserDefined);
  if (!IsCode(unit.code)) keys.reals[ProjLinearUnitSizeGeoKey] = {unit.size};
}

/// @return false when the format can't say what heights they are; the keys have none then.
bool AddHeights(const GeoCoordSysDescription& system, GeoKeys& keys, std::wstring& fault) {
  if (!system.hasVertical) return true;
  GeoUnit unit = WithCode(system.verticalUnit);
  if (unit.code == 0 && SameSize(unit.size, kMetresInFathom)) unit.code = Linear_Fathom;
  const bool known = IsCode(system.vertical.code);
  // Keys have no place for a datum's name, for a unit's size, nor for which way heights go.
  if (!known && !IsCode(system.verticalDatum.code)) {
    fault = L"the heights: '" + system.verticalDatum.name + L"' isn't in the EPSG register";
  } else if (!known && !IsCode(unit.code)) {
    fault = L"the heights: their unit '" + system.verticalUnit.name + L"' isn't in the EPSG register";
  } else if (!known && system.verticalIsDown) {
    fault = L"the heights: they are depths that aren't in the EPSG register";
  } else {
    keys.revised = true;
    keys.numbers[VerticalCSTypeGeoKey] = CodeOr(system.vertical.code, KvUserDefined);
    keys.texts[VerticalCitationGeoKey] = KeyText(system.vertical.name);
    keys.numbers[VerticalDatumGeoKey] = CodeOr(system.verticalDatum.code, KvUserDefined);
    if (IsCode(unit.code)) keys.numbers[VerticalUnitsGeoKey] = unit.code;
    return true;
  }
  keys.texts[GTCitationGeoKey] = KeyText(system.system.name);
  return false;
}

/// What is said of any system.
GeoKeys NameAlone(const GeoCoordSysDescription& system) {
  GeoKeys keys;
  keys.numbers[GTModelTypeGeoKey] = KvUserDefined;
  keys.numbers[GTRasterTypeGeoKey] = RasterPixelIsArea;
  keys.texts[GTCitationGeoKey] = KeyText(system.name);
  return keys;
}

/// The projection with its parameters, in a unit that the system itself needn't have.
/// @return false when the format has no such projection; the keys are unchanged then.
bool AddOwnProjection(const GeoCoordSysDescription& system, const GeoUnit& unit, GeoKeys& keys, std::wstring& fault) {
  const Method* const method = FindMethod(system.method);
  if (method == nullptr) {
    fault = L"the projection '" + system.method.name + L"'";
    return false;
  }
  GeoKeys own = keys;
  if (!AddParameters(system, *method, unit, own, fault)) return false;
  own.numbers[ProjectedCSTypeGeoKey] = KvUserDefined;
  own.numbers[ProjectionGeoKey] = KvUserDefined;
  own.numbers[ProjCoordTransGeoKey] = method->transformation;
  own.texts[PCSCitationGeoKey] = KeyText(system.system.name);
  AddGeographicPieces(system, own);
  if (IsCode(own.numbers[GeographicTypeGeoKey])) own.texts[GeogCitationGeoKey] = KeyText(system.geographic.name);
  keys = std::move(own);
  return true;
}

}  // namespace

GeoKeys GeographicKeys(const GeoCoordSysDescription& system) {
  GeoKeys keys = NameAlone(system);
  if (system.kind == Kind::kLocal) return keys;
  keys.revised = system.isSolid;
  keys.numbers[GTModelTypeGeoKey] = system.kind == Kind::kProjected ? ModelTypeProjected : ModelTypeGeographic;
  AddAngularUnit(AngularUnit(system), keys);
  if (IsCode(system.geographic.code) && system.toWgs84.empty()) {
    keys.numbers[GeographicTypeGeoKey] = system.geographic.code;
    keys.texts[GeogCitationGeoKey] = KeyText(system.geographic.name);
    return keys;
  }
  keys.numbers[GeographicTypeGeoKey] = KvUserDefined;
  AddGeographicPieces(system, keys);
  return keys;
}

bool MakeGeoKeys(const GeoCoordSysDescription& system, const std::wstring& units, GeoKeys& keys, std::wstring& fault) {
  if (system.kind == Kind::kGeographic) {
    keys = GeographicKeys(system);
    return AddHeights(system, keys, fault);
  }
  const GeoUnit unit = LinearUnit(system, units);
  GeoKeys made = NameAlone(system);
  AddLinearUnit(unit, made);
  if (system.kind == Kind::kLocal) {
    keys = std::move(made);
    return true;
  }
  if (IsCode(system.system.code) && system.toWgs84.empty() && SameSize(unit.size, system.unit.size)) {
    // The number says it all: readers that find pieces as well put the system together from them.
    made.numbers[GTModelTypeGeoKey] = ModelTypeProjected;
    made.numbers[ProjectedCSTypeGeoKey] = system.system.code;
    made.texts[GeogCitationGeoKey] = KeyText(system.geographic.name);
    // There are no angles in these keys, and readers compare the unit with the register's.
    AddAngularUnit(SameSize(system.angularUnit.size, kRadiansInDegree) ? Degree() : system.angularUnit, made);
    made.revised = system.isSolid;
    keys = std::move(made);
    return AddHeights(system, keys, fault);
  }
  GeoKeys own = GeographicKeys(system);
  AddLinearUnit(unit, own);
  if (!AddOwnProjection(system, unit, own, fault)) {
    keys = std::move(made);
    return false;
  }
  keys = std::move(own);
  return AddHeights(system, keys, fault);
}

}  // namespace vak
