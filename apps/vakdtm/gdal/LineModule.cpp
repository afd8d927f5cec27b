#include "LineModule.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "GdalLineWriter.h"

namespace {

using vak::GdalLineWriter;

GdalLineWriter& WriterOf(void* writer) { return *static_cast<GdalLineWriter*>(writer); }
const GdalLineWriter& WriterOf(const void* writer) { return *static_cast<const GdalLineWriter*>(writer); }

/// Calls what may run out of memory: an exception doesn't cross the border between the module and the command.
template <typename Answer, typename Call>
Answer Guarded(Answer failed, const Call& call) {
  try {
    return call();
  } catch (const std::bad_alloc&) {
    return failed;
  } catch (const std::length_error&) {
    return failed;
  }
}

VakDtmCrs LookUpCrs(const char* crs, char* name, std::size_t nameSize) {
  return Guarded(kVakDtmCrsNoData, [&] {
    std::string text;
    const VakDtmCrs answer = GdalLineWriter::LookUpCrs(crs, text);
    std::snprintf(name, nameSize, "%s", text.c_str());
    return answer;
  });
}

void* Create(const VakDtmLineFile* file, char* error, std::size_t errorSize, int* errorNumber) {
  *errorNumber = ENOMEM;
  std::snprintf(error, errorSize, "%s", GdalLineWriter::kNoMemory);
  return Guarded(static_cast<void*>(nullptr), [&]() -> void* {
    std::string text;
    std::unique_ptr<GdalLineWriter> writer = GdalLineWriter::Create(*file, text, *errorNumber);
    if (!writer) std::snprintf(error, errorSize, "%s", text.c_str());
    return writer.release();
  });
}

int Write(void* writer, const VakDtmLine* line) {
  return Guarded(false, [&] { return WriterOf(writer).Write(*line); }) ? 1 : WriterOf(writer).NoteFailure();
}

int Finish(void* writer) {
  return Guarded(false, [&] { return WriterOf(writer).Finish(); }) ? 1 : WriterOf(writer).NoteFailure();
}

const char* Error(const void* writer) { return WriterOf(writer).Error().c_str(); }
int ErrorNumber(const void* writer) { return WriterOf(writer).ErrorNumber(); }
const char* Warning(const void* writer) { return WriterOf(writer).Warning().c_str(); }
void Release(void* writer) { const std::unique_ptr<GdalLineWriter> owned(static_cast<GdalLineWriter*>(writer)); }

}  // namespace

extern "C" __attribute__((visibility("default"))) const VakDtmLineModule* VakDtmGetLineModule(std::uint32_t version) {
  static constexpr VakDtmLineModule kModule = {
      kVakDtmLineModuleVersion, LookUpCrs, Create, Write, Finish, Error, ErrorNumber, Warning, Release};
  return version == kVakDtmLineModuleVersion ? &kModule : nullptr;
}
