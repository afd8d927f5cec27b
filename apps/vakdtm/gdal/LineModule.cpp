#include "LineModule.h"

#include <cstdio>
#include <memory>
#include <string>

#include "GdalLineWriter.h"

namespace {

using vak::GdalLineWriter;

GdalLineWriter& WriterOf(void* writer) { return *static_cast<GdalLineWriter*>(writer); }
const GdalLineWriter& WriterOf(const void* writer) { return *static_cast<const GdalLineWriter*>(writer); }

int KnowsCrs(const char* crs) { return GdalLineWriter::KnowsCrs(crs) ? 1 : 0; }

void* Create(const VakDtmLineFile* file, char* error, std::size_t errorSize, int* errorNumber) {
  std::string text;
  std::unique_ptr<GdalLineWriter> writer = GdalLineWriter::Create(*file, text, *errorNumber);
  if (!writer) std::snprintf(error, errorSize, "%s", text.c_str());
  return writer.release();
}

int Write(void* writer, const VakDtmLine* line) { return WriterOf(writer).Write(*line) ? 1 : 0; }
int Finish(void* writer) { return WriterOf(writer).Finish() ? 1 : 0; }
const char* Error(const void* writer) { return WriterOf(writer).Error().c_str(); }
int ErrorNumber(const void* writer) { return WriterOf(writer).ErrorNumber(); }
const char* Warning(const void* writer) { return WriterOf(writer).Warning().c_str(); }
void Release(void* writer) { const std::unique_ptr<GdalLineWriter> owned(static_cast<GdalLineWriter*>(writer)); }

}  // namespace

extern "C" __attribute__((visibility("default"))) const VakDtmLineModule* VakDtmGetLineModule(std::uint32_t version) {
  static constexpr VakDtmLineModule kModule = {
      kVakDtmLineModuleVersion, KnowsCrs, Create, Write, Finish, Error, ErrorNumber, Warning, Release};
  return version == kVakDtmLineModuleVersion ? &kModule : nullptr;
}
