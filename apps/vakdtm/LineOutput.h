#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "LineFormat.h"

namespace vak {

/// A polyline as it goes to a file.
struct LineShape {
  double level = 0;
  double length = 0;  ///< m, in the plane or, with z, in space
  bool closed = false;
  std::vector<double> x;
  std::vector<double> y;
  std::vector<double> z;  ///< as many as x where lines have a height of their own; else empty
};

/// What is to be known of a file of polylines before the first one.
struct LineFileSettings {
  std::string path;            ///< "-" is standard output, where the format allows it
  std::string name;            ///< what the lines are: "contours"
  std::string crs;             ///< "EPSG:25831", or empty
  bool hasZ = false;           ///< whether lines have a height of their own
  std::vector<double> levels;  ///< all levels that there may be
};

/// A file of polylines that appears under its name when it is complete: without `Commit` nothing is left of it, and
/// what was there stays as it was. After a failure `Error` says what happened. For one thread at a time.
class LineOutput {
 public:
  virtual ~LineOutput() = default;

  LineOutput(const LineOutput&) = delete;
  LineOutput& operator=(const LineOutput&) = delete;

  /// To be called once. @return false when the file can't be made.
  [[nodiscard]] virtual bool Open(const LineFileSettings& settings) = 0;

  /// Appends a polyline, of finite numbers.
  [[nodiscard]] virtual bool Write(const LineShape& line) = 0;

  /// Writes what is missing, whatever time that takes, so that `Commit` has nothing left but to put it in its place.
  [[nodiscard]] virtual bool Complete() = 0;

  /// Puts the file in its place. @return false when that failed; what was there is as it was.
  [[nodiscard]] virtual bool Commit() = 0;

  /// @return the target for messages.
  [[nodiscard]] virtual const std::string& Name() const = 0;
  /// @return what failed, as "no space left on the device".
  [[nodiscard]] virtual std::string Error() const = 0;
  /// @return what to do about it.
  [[nodiscard]] virtual std::string Remedy() const = 0;
  /// Whether the reader of a pipe has gone, which is no cause for a message.
  [[nodiscard]] virtual bool ReaderGone() const { return false; }
  /// @return what the user should know of a file that was written; mostly empty.
  [[nodiscard]] virtual std::string Warning() const { return {}; }

 protected:
  LineOutput() = default;
};

}  // namespace vak
