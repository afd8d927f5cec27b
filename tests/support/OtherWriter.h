#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

namespace vak::test {

/// Cells per side of the areas of its models.
constexpr int kSpan = 8;

/// A model that another process has open to write.
class OtherWriter {
 public:
  OtherWriter(const std::wstring& path, bool create)
      : file_(std::make_unique<DtmFile>(new HugeFileStream(path.c_str(), create, true), create)) {
    if (create) file_->SetAreaSize(kSpan);
    if (!file_->Open()) throw std::runtime_error("the other writer can't open");
  }
  ~OtherWriter() { file_->Close(); }
  OtherWriter(const OtherWriter&) = delete;
  OtherWriter& operator=(const OtherWriter&) = delete;

  DtmFile& File() { return *file_; }
  void Set(int row, int col, double value) {
    if (!DtmAccess(file_.get()).SetDoubleValue(row, col, dVAL, value, true)) throw std::runtime_error("not set");
  }
  void Clear(int row, int col) { DtmAccess(file_.get()).MakeCellEmpty(row, col); }
  void Publish() {
    if (!file_->SyncWrite()) throw std::runtime_error("the other writer can't write");
  }

 private:
  std::unique_ptr<DtmFile> file_;
};

inline double Get(DtmAccess& access, int row, int col) {
  double value = 0;
  return access.GetDoubleValue(row, col, dVAL, value) ? value : EmptyDouble();
}

/// What a process that opens the file now finds in a cell.
inline double InTheFile(const std::wstring& path, int row, int col) {
  DtmFile file(new HugeFileStream(path.c_str(), false, false), false);
  EXPECT_TRUE(file.Open());
  DtmAccess access(&file);
  return Get(access, row, col);
}

}  // namespace vak::test
