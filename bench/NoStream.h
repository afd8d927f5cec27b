#pragma once

#include <algorithm>
#include <cstdint>

#include "vakdtm/services/files/DataStream.h"

namespace vak {

/// A file of which nothing is kept: the model is in memory, held there by whoever has its blocks open.
class NoStream final : public DataStream {
 public:
  bool Sync() override { return true; }
  bool Read(void* /*buffer*/, std::uint64_t /*count*/) override { return false; }
  bool Write(const void* /*buffer*/, std::uint64_t count) override {
    position_ += static_cast<std::int64_t>(count);
    size_ = std::max(size_, position_);
    return true;
  }
  bool Seek(std::int64_t offset, int origin) override {
    position_ = origin == kFromEnd ? size_ + offset : offset;
    return true;
  }
  std::int64_t Position() override { return position_; }
  bool SetSize(std::int64_t size) override {
    size_ = size;
    return true;
  }

 private:
  std::int64_t position_ = 0;
  std::int64_t size_ = 0;
};

}  // namespace vak
