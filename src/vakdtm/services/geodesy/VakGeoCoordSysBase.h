#pragma once

#include <memory>
#include <string>

#include "vakdtm/services/geodesy/GeoCoordSysDescription.h"

namespace vak {

/// The geodetic system of a project: what the x, y and z of its models mean on the earth.
///
/// x goes to the east and y to the north (longitude and latitude, in degrees or whatever the system has, where it isn't
/// projected), z is a height.
///
/// A system never changes. Any number of threads may ask one; each has a transformation of its own, which takes some
/// 20 ms to make at its first conversion and is then kept until the thread ends.
class VakGeoCoordSysBase {
 public:
  virtual ~VakGeoCoordSysBase() = default;

  VakGeoCoordSysBase(const VakGeoCoordSysBase&) = delete;
  VakGeoCoordSysBase& operator=(const VakGeoCoordSysBase&) = delete;

  /// Makes a system of a text: a number of the EPSG register as "EPSG:32614" or "32614", another register's
  /// ("ESRI:54009"), a compound as "EPSG:28992+5709", WKT, a definition of PROJ ("+proj=utm +zone=14 +datum=WGS84") or
  /// PROJJSON. Nothing is fetched over the network.
  /// @param error  unless null gets one sentence that says why the text is no system.
  /// @return null when it is none, or one whose coordinates aren't in the plane (an earth-centred one, say).
  static std::shared_ptr<VakGeoCoordSysBase> FromText(const std::wstring& text, std::wstring* error = nullptr);

  /// A system of no known place on the earth, in metres: its coordinates can't be converted. `FromText` makes it of
  /// "LOCAL" or "LOCAL:NAME".
  static std::shared_ptr<VakGeoCoordSysBase> MakeLocal(const std::wstring& name = {});

  /// The text that the system was made of; what `FromText` makes of it is the same system.
  virtual std::wstring GetDefinition() const = 0;

  /// @param name  gets the projection's name, "UTM zone 14N"; of a system without one, what it is.
  /// @return false, with `name` untouched, when it has none.
  virtual bool GetProjectionName(std::wstring& name) const = 0;

  /// The ellipsoid's name, "GRS 1980"; empty when there is none.
  virtual std::wstring GetEllipsoidName() const = 0;

  /// Converts grid coordinates to WGS84.
  /// @param x,y,z  in the system's units; z of a system without heights counts as a height above its ellipsoid.
  /// @param latitude,longitude  get degrees, to the north and to the east.
  /// @param height  gets metres above the ellipsoid of WGS84.
  /// @param flags   0.
  /// @return false, with nothing changed, when there is no way: a local system, a place outside of the projection, a
  /// transformation that needs a grid file that isn't installed (it is never done without: that is off by 100 m).
  virtual bool ConvertToWGS84(double x, double y, double z, double& latitude, double& longitude, double& height,
                              int flags) const = 0;

  /// Of what the system is made.
  virtual GeoCoordSysDescription Describe() const = 0;

 protected:
  VakGeoCoordSysBase() = default;
};

}  // namespace vak
