#pragma once

#include <memory>
#include <string>
#include <vector>

#include "LineModule.h"

namespace vak {

/// Writes polylines to a file of one of GDAL's vector formats: one layer, a feature a polyline in the order in which
/// they come, with the fields `level`, `closed` and `length` where the format has fields. A drawing (DXF) has none:
/// there the level is the name of the layer, and, for lines without a Z, their elevation.
///
/// A level field is made wide enough for all levels to read back to the same double. For one thread at a time.
class GdalLineWriter {
 public:
  /// @param crs  "EPSG:25831".
  static bool KnowsCrs(const char* crs);

  /// @return null, with one sentence in `error`, when the file can't be made.
  static std::unique_ptr<GdalLineWriter> Create(const VakDtmLineFile& file, std::string& error);
  ~GdalLineWriter();

  GdalLineWriter(const GdalLineWriter&) = delete;
  GdalLineWriter& operator=(const GdalLineWriter&) = delete;

  [[nodiscard]] bool Write(const VakDtmLine& line);
  [[nodiscard]] bool Finish();

  const std::string& Error() const { return error_; }
  int ErrorNumber() const { return errorNumber_; }
  const std::string& Warning() const { return warning_; }

 private:
  class Listening;

  explicit GdalLineWriter(const VakDtmLineFile& file);
  bool Open(const VakDtmLineFile& file);
  bool AddFields(const VakDtmLineFile& file);
  bool AddField(const char* name, int type, int width, int decimals);
  void SetFields(const VakDtmLine& line);
  void SetLayer(double level);
  /// Takes over what GDAL said. @return false, for what failed.
  bool Fail();
  void Close();

  bool isDrawing_;
  bool isShapefile_;
  bool isDatabase_;
  bool hasZ_;
  void* dataset_ = nullptr;
  void* layer_ = nullptr;    // of the dataset
  void* feature_ = nullptr;  // filled again for each line
  int levelField_ = -1;
  int closedField_ = -1;
  int lengthField_ = -1;
  int layerField_ = -1;
  double layerLevel_ = 0;
  std::string layerName_;
  std::vector<double> elevations_;
  std::string error_;
  std::string warning_;
  int errorNumber_ = 0;
};

}  // namespace vak
