#pragma once

#include <memory>
#include <string>

#include "LineFormat.h"
#include "LineOutput.h"
#include "UnfinishedSet.h"

struct VakDtmLineModule;

namespace vak {

/// Finds and loads the command's module for GDAL's formats: beside the command, or where it is installed.
/// @return the module, which stays until the end of the process; null with what is wrong and what to do about it.
const VakDtmLineModule* LoadLineModule(std::string& error, std::string& remedy);

/// Writes polylines to a file of one of GDAL's formats, through the module.
class GdalOutput final : public LineOutput {
 public:
  /// @param module,format  outlive this.
  GdalOutput(const VakDtmLineModule& module, const LineFormat& format) : module_(module), format_(format) {}
  ~GdalOutput() override;

  bool Open(const LineFileSettings& settings) override;
  bool Write(const LineShape& line) override;
  bool Complete() override;
  bool Commit() override;

  const std::string& Name() const override { return name_; }
  std::string Error() const override { return error_; }
  std::string Remedy() const override { return remedy_; }
  std::string Warning() const override { return warning_; }

 private:
  bool FailWith(int error);
  bool FailInModule();
  void Release();

  const VakDtmLineModule& module_;
  const LineFormat& format_;
  std::string name_;
  UnfinishedSet files_;
  void* writer_ = nullptr;  // the module's
  std::string error_;
  std::string remedy_;
  std::string warning_;
};

}  // namespace vak
