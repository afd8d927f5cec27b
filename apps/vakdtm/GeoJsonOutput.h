#pragma once

#include <string>

#include "LineOutput.h"
#include "ResultFile.h"

namespace vak {

/// Writes polylines as GeoJSON, one feature a line of text, as they come: nothing is held but a buffer.
///
/// Numbers are the shortest text that reads back to the same double, whatever the locale. A coordinate system is
/// written in the form of the 2008 edition, since the present one knows degrees alone and says nothing for a plane.
class GeoJsonOutput final : public LineOutput {
 public:
  bool Open(const LineFileSettings& settings) override;
  bool Write(const LineShape& line) override;
  bool Complete() override;
  bool Commit() override { return file_.Commit(); }

  const std::string& Name() const override { return file_.Name(); }
  std::string Error() const override { return file_.Error(); }
  std::string Remedy() const override;
  bool ReaderGone() const override { return file_.ReaderGone(); }

 private:
  ResultFile file_;
  std::string text_;
  bool first_ = true;
};

}  // namespace vak
