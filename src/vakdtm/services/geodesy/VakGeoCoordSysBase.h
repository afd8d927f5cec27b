#pragma once

#include <memory>
#include <string>

#include "vakdtm/services/geodesy/GeoCoordSysDescription.h"

namespace vak {

/// The geodetic system of a project: what the x, y and z of its models mean on the earth.
///
/// x goes to the east and y to the north: longitude and latitude, in degrees or whatever the system has, where it isn't
/// projected; round a pole the two directions of the projection's plane. z is a height, or a depth where the system has
/// depths. In which order the system itself has its axes makes no difference.
///
/// A system never changes. Any number of threads may ask one; each makes a transformation of its own at its first
/// conversion, which takes from some 20 ms to 0.3 s by the system, and keeps those of the 8 systems that it asked last
/// until it ends. So a thread that asks more systems in turn pays that at each.
class VakGeoCoordSysBase {
 public:
  virtual ~VakGeoCoordSysBase() = default;

  VakGeoCoordSysBase(const VakGeoCoordSysBase&) = delete;
  VakGeoCoordSysBase& operator=(const VakGeoCoordSysBase&) = delete;

  /// Makes a system of a text: a number of the EPSG register as "EPSG:32614" or "32614", another register's
  /// ("ESRI:54009"), a compound as "EPSG:28992+5709", WKT, a definition of PROJ ("+proj=utm +zone=14 +datum=WGS84") or
  /// PROJJSON. Nothing is fetched over the network, and no file is opened that a text names: texts come with the
  /// projects of others. A number makes a system in a millisecond or so, words in up to 0.3 s.
  /// @param error  unless null gets one sentence that says why the text is no system.
  /// @return null when it is none, one whose coordinates aren't in the plane (an earth-centred one, say), one whose
  /// axes go another way than to the east and the north (EPSG:2053 counts to the west and the south: a model in it
  /// would be mirrored), or one that names a file.
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

  /// Converts grid coordinates to WGS84, by the best way from the one datum to the other that the register has and that
  /// needs nothing that isn't installed. Where the best of all needs a file of corrections that isn't there, the next
  /// one is taken without a word: metres then, not centimetres (EPSG:27700: 2 m in place of 3 cm; EPSG:26714: 7 m).
  /// Heights that need a file for their geoid are never converted without.
  /// @param x,y,z  in the system's units; z of a system without heights counts as a height above its ellipsoid.
  /// @param latitude,longitude  get degrees, to the north and to the east, from -90 to 90 and from -180 to 180.
  /// @param height  gets metres above the ellipsoid of WGS84.
  /// @param flags   0.
  /// @return false, with nothing changed, when there is no way: a system whose datum nobody has tied to WGS84 (a local
  /// one, another planet's, an ellipsoid given without a datum), a place outside of the projection or of the globe (a
  /// latitude beyond 90 degrees, a longitude beyond 360), heights whose file isn't installed.
  virtual bool ConvertToWGS84(double x, double y, double z, double& latitude, double& longitude, double& height,
                              int flags) const = 0;

  /// Of what the system is made.
  virtual GeoCoordSysDescription Describe() const = 0;

 protected:
  VakGeoCoordSysBase() = default;
};

}  // namespace vak
