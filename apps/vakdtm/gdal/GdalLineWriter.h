#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "LineModule.h"

namespace vak {

/// Writes polylines to a file of one of GDAL's vector formats: one layer, a feature a polyline in the order in which
/// they come, with the fields `level`, `closed` and `length` where the format has fields. A drawing (DXF) has none:
/// there the level is the name of the layer, and, for lines without a Z, their elevation; closed lines are closed
/// entities.
///
/// The level field of a Shapefile is made wide enough for all levels that go into it together to read back to the same
/// double; a line of another level is refused. For one thread at a time.
class GdalLineWriter {
 public:
  static constexpr const char* kNoMemory = "there is not enough memory";

  /// @param crs  "EPSG:25831". @param name  that of the system, where it is known.
  static VakDtmCrs LookUpCrs(const char* crs, std::string& name);

  /// @return null, with one sentence in `error` and `errno` or 0 in `errorNumber`, when the file can't be made.
  static std::unique_ptr<GdalLineWriter> Create(const VakDtmLineFile& file, std::string& error, int& errorNumber);
  ~GdalLineWriter();

  GdalLineWriter(const GdalLineWriter&) = delete;
  GdalLineWriter& operator=(const GdalLineWriter&) = delete;

  [[nodiscard]] bool Write(const VakDtmLine& line);
  [[nodiscard]] bool Finish();

  /// Gives a failure that left no word its own: it was for lack of memory. @return 0.
  int NoteFailure();

  const std::string& Error() const { return error_; }
  int ErrorNumber() const { return errorNumber_; }
  const std::string& Warning() const { return warning_; }

 private:
  class Listening;

  /// Of a field of digits.
  struct FieldSize {
    int width = 1;
    int decimals = 1;  ///< without any, a reader would take them for whole numbers
  };

  static bool Widen(const double* levels, std::size_t count, FieldSize& size);
  static bool Fits(double level, const FieldSize& size);
  static FieldSize FindSize(const double* levels, std::size_t count);

  explicit GdalLineWriter(const VakDtmLineFile& file);
  bool Open(const VakDtmLineFile& file);
  bool MakeFile(bool hasIndex);
  bool AddFields();
  bool AddField(const char* name, int type, int width, int decimals);
  void* Fill(const VakDtmLine& line);
  bool HasRoomFor(double level);
  void SetLayer(void* feature, double level);
  /// Takes over what GDAL said. @return false, for what failed.
  bool Fail();
  void Close();
  void WatchForStop();
  static int IsStopped(void* writer);

  bool isDrawing_;
  bool isShapefile_;
  bool isDatabase_;
  bool isFlat_;
  bool hasZ_;
  const std::string driver_;
  const std::string name_;
  std::string path_;
  std::unique_ptr<void, void (*)(void*)> crs_;  // null without one
  int (*stopped_)();
  bool outOfMemory_ = false;
  void* dataset_ = nullptr;
  void* layer_ = nullptr;    // of the dataset
  void* feature_ = nullptr;  // filled again for each line
  void* ring_ = nullptr;     // the same for the closed lines of a drawing
  bool isEmpty_ = true;      // there was no line yet
  FieldSize levelSize_;      // of a Shapefile
  int levelField_ = -1;
  int closedField_ = -1;
  int lengthField_ = -1;
  int layerField_ = -1;
  bool hasLevel_ = false;  // there was a line; of
  double level_ = 0;
  std::string layerName_;
  std::vector<double> elevations_;
  std::string error_;
  std::string warning_;
  int errorNumber_ = 0;
};

}  // namespace vak
