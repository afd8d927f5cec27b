#pragma once

#include <cstddef>
#include <cstdint>

/// What the command and its module for GDAL's vector formats say to each other: C types alone, so that neither depends
/// on what the other was built with. The module is a file of its own, loaded when such a format is asked for: GDAL is
/// large, and most who use the command never need it.
///
/// Texts are UTF-8. A writer belongs to one thread at a time.
extern "C" {

/// Raised with every change of what follows; a module of another version isn't used.
enum : std::uint32_t { kVakDtmLineModuleVersion = 3 };

/// What GDAL thinks of a coordinate system.
enum VakDtmCrs : int {
  kVakDtmCrsFits,
  kVakDtmCrsUnknown,
  kVakDtmCrsOfHeights,   ///< it has nothing but heights
  kVakDtmCrsGeocentric,  ///< its axes begin in the middle of the Earth
  kVakDtmCrsNoData       ///< nothing is known: the tables of coordinate systems aren't there
};

/// What is to be made.
struct VakDtmLineFile {
  const char* driver;    ///< GDAL's name of the format: "GPKG"
  const char* path;      ///< of the file to make, which isn't there yet
  const char* layer;     ///< the name of its one layer
  const char* crs;       ///< "EPSG:25831", or null
  int hasZ;              ///< whether lines have a Z of their own
  const double* levels;  ///< all levels that there may be, read while the writer is made
  std::size_t levelCount;
  /// Asked now and then, on the writer's thread: anything but 0 ends what is under way, which fails then. It may be
  /// asked until `release`.
  int (*stopped)();
};

/// A polyline. Read during the call only.
struct VakDtmLine {
  double level;
  double length;  ///< in the plane, or in space with Z
  int closed;
  std::size_t count;  ///< of vertices
  const double* x;
  const double* y;
  const double* z;  ///< null without Z
};

struct VakDtmLineModule {
  std::uint32_t version;
  /// Looks a coordinate system up. Writes its name, "NAP height", where it is known.
  VakDtmCrs (*lookUpCrs)(const char* crs, char* name, std::size_t nameSize);
  /// Makes the file. @return the writer, the caller's until `release`; null, with one sentence in `error`, and `errno`
  /// of what failed, 0 when there is none.
  void* (*create)(const VakDtmLineFile* file, char* error, std::size_t errorSize, int* errorNumber);
  /// @return 0 when it can't be written. Nothing more can be written after that.
  int (*write)(void* writer, const VakDtmLine* line);
  /// Closes the file. @return 0 when not all of it could be written.
  int (*finish)(void* writer);
  /// @return what failed, one sentence; empty when nothing has.
  const char* (*error)(const void* writer);
  /// @return `errno` of what failed, 0 when there is none.
  int (*errorNumber)(const void* writer);
  /// @return what the user should know of a file that could be written, one sentence; mostly empty.
  const char* (*warning)(const void* writer);
  /// Ends the writer, of a file that isn't finished too; what there is of it is for the caller to remove.
  void (*release)(void* writer);
};

/// The module's one entry. @return null for another version than its own.
const VakDtmLineModule* VakDtmGetLineModule(std::uint32_t version);
}
