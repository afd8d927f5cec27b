#include "GdalOutput.h"

#include <cerrno>
#include <dlfcn.h>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Command.h"
#include "ResultFile.h"
#include "StopSignals.h"
#include "gdal/LineModule.h"

namespace vak {
namespace {

constexpr const char* kModule = "vakdtm_gdal.so";

std::filesystem::path CommandFolder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

/// What the loader says, without the path of the module in front.
std::string LoaderText(const std::string& path) {
  const char* const said = dlerror();
  std::string text = said ? said : "it cannot be loaded";
  if (text.starts_with(path + ": ")) text.erase(0, path.size() + 2);
  return text;
}

using Entry = const VakDtmLineModule* (*)(std::uint32_t);

const VakDtmLineModule* Load(const std::string& path, std::string& error, std::string& remedy) {
  // Never unloaded: GDAL and what it brings along aren't made for that.
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (!library) {
    error = "the module " + path + " cannot be loaded: " + LoaderText(path);
    remedy = "install the package libgdal32, or write .geojson";
    return nullptr;
  }
  const auto entry = reinterpret_cast<Entry>(dlsym(library, "VakDtmGetLineModule"));
  const VakDtmLineModule* const module = entry ? entry(kVakDtmLineModuleVersion) : nullptr;
  if (module && module->version == kVakDtmLineModuleVersion) return module;
  error = "the module " + path + " belongs to another version of the command";
  remedy = "install both from one build, or write .geojson";
  return nullptr;
}

/// What is wrong with a file beside the target.
std::string ObstacleText(const std::string& path, int error) {
  if (error == EEXIST) return path + " has that name in other letters, and would share its files";
  if (error == EISDIR) return path + ", a name that goes with it, is a folder";
  return path + ", a name that goes with it, is no regular file";
}

std::string Remedied(bool lacksRoom) {
  return lacksRoom ? "make room, or name another file with -o" : "name another file with -o";
}

/// What to do about a failure in GDAL.
/// @param number  `errno` of it, 0 when there is none.
std::string RemedyFor(const std::string& text, int number) {
  if (number == ENOMEM) return kMemoryRemedy;
  if (number != 0) return Remedied(IsLackOfRoom(number));
  // A database tells that much of what was amiss; in a file of one's own it is hardly ever anything but room.
  if (text.find("disk") != std::string::npos) return Remedied(true);
  if (text.find("GDAL_DATA") != std::string::npos) return "install the package gdal-data, or name another format";
  return "name another format, as .geojson";
}

}  // namespace

const VakDtmLineModule* LoadLineModule(std::string& error, std::string& remedy) {
  const std::filesystem::path beside = CommandFolder();
  const std::filesystem::path installed = (beside / VAKDTM_MODULES_FROM_COMMAND).lexically_normal();
  for (const std::filesystem::path& folder : {beside, installed}) {
    const std::string path = (folder / kModule).native();
    std::error_code code;
    if (std::filesystem::exists(path, code)) return Load(path, error, remedy);
  }
  error = "this format takes the module ";
  error += kModule;
  error += ", which is neither in " + beside.native() + " nor in " + installed.native();
  remedy = "install the package libgdal-dev and build and install the command again, or write .geojson";
  return nullptr;
}

GdalOutput::~GdalOutput() { Release(); }

bool GdalOutput::Open(const LineFileSettings& settings) {
  name_ = settings.path;
  if (!files_.Make(settings.path, format_)) return FailWith(errno);
  const std::string driver(format_.driver);
  const VakDtmLineFile file = {
      driver.c_str(),         files_.Path().c_str(),
      settings.name.c_str(),  settings.crs.empty() || !format_.keepsCrs ? nullptr : settings.crs.c_str(),
      settings.hasZ ? 1 : 0,  settings.levels.data(),
      settings.levels.size(), []() -> int { return StopRequested() ? 1 : 0; }};
  char error[1024] = {};
  int number = 0;
  writer_ = module_.create(&file, error, sizeof error, &number);
  if (writer_) return true;
  error_ = number != 0 ? WriteErrorText(number) : error;
  remedy_ = RemedyFor(error, number);
  files_.Abandon();
  return false;
}

bool GdalOutput::Write(const LineShape& line) {
  const VakDtmLine shape = {line.level,
                            line.length,
                            line.closed ? 1 : 0,
                            line.x.size(),
                            line.x.data(),
                            line.y.data(),
                            line.z.empty() ? nullptr : line.z.data()};
  return module_.write(writer_, &shape) != 0 || FailInModule();
}

bool GdalOutput::Complete() {
  if (module_.finish(writer_) == 0) return FailInModule();
  warning_ = module_.warning(writer_);
  Release();
  return true;
}

bool GdalOutput::Commit() { return files_.Commit() || FailWith(errno); }

bool GdalOutput::FailWith(int error) {
  if (!files_.Obstacle().empty()) {
    error_ = ObstacleText(files_.Obstacle(), error);
  } else if (error == EBUSY) {
    error_ = "somebody else has the folder locked";
  } else {
    error_ = error == EINVAL ? "it is no regular file" : WriteErrorText(error);
  }
  remedy_ = Remedied(IsLackOfRoom(error));
  files_.Abandon();
  return false;
}

bool GdalOutput::FailInModule() {
  const int number = module_.errorNumber(writer_);
  const std::string text = module_.error(writer_);
  error_ = number != 0 ? WriteErrorText(number) : text;
  remedy_ = RemedyFor(text, number);
  Release();
  files_.Abandon();
  return false;
}

void GdalOutput::Release() {
  if (writer_) module_.release(std::exchange(writer_, nullptr));
}

}  // namespace vak
