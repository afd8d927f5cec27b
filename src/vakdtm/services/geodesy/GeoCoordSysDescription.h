#pragma once

#include <string>
#include <vector>

namespace vak {

/// A thing of geodesy by its name and its number in the EPSG register; 0 when it isn't in there. What has a number is
/// what the register has under it, whatever a text gave to it.
struct GeoNameAndCode {
  std::wstring name;
  int code = 0;
};

/// A unit with its size: metres of a length, radians of an angle.
struct GeoUnit : GeoNameAndCode {
  double size = 1.0;
};

/// A parameter of a map projection.
struct GeoParameter : GeoNameAndCode {
  enum class Kind { kLength, kAngle, kScale };

  Kind kind = Kind::kScale;
  double value = 0;  ///< metres, degrees or unity
};

/// What a coordinate system is made of, for those who write it into files. A plain value.
struct GeoCoordSysDescription {
  enum class Kind {
    kLocal,       ///< x and y of no known place: an engineering system
    kGeographic,  ///< x is longitude and y is latitude
    kProjected    ///< x and y are in a plane onto which longitude and latitude are projected
  };

  Kind kind = Kind::kLocal;
  std::wstring name;      ///< of the whole, heights included
  bool isSolid = false;   ///< whether heights above the ellipsoid belong to the system itself
  GeoNameAndCode system;  ///< of the horizontal part
  GeoUnit unit;           ///< of x and y: a length, but with `kGeographic`

  // Of `kGeographic` and `kProjected`.
  GeoNameAndCode geographic;
  GeoNameAndCode datum;
  GeoNameAndCode ellipsoid;
  double semiMajorAxis = 0;      ///< metres
  double inverseFlattening = 0;  ///< 0: a sphere
  GeoNameAndCode primeMeridian;
  double primeMeridianLongitude = 0;  ///< degrees east of Greenwich
  GeoUnit angularUnit;
  std::vector<double> toWgs84;  ///< seven parameters of the shift to WGS84 where the system brings its own, else none

  // Of `kProjected`.
  GeoNameAndCode projection;
  GeoNameAndCode method;
  std::vector<GeoParameter> parameters;

  // The heights.
  bool hasVertical = false;
  GeoNameAndCode vertical;
  GeoNameAndCode verticalDatum;
  GeoUnit verticalUnit;
  bool verticalIsDown = false;  ///< whether they are depths
};

}  // namespace vak
