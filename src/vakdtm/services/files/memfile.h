#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "vakdtm/services/files/CFile.h"

namespace vak {

/// A file in memory that grows with what is written.
class memfile final : public CFile {  // NOLINT(readability-identifier-naming): the name that applications know
 public:
  memfile() = default;

  /// Costs a copy of the bytes, and now and then one of all that came before. @return false when there is no memory
  /// for them; what was there stays.
  bool Write(const void* from, unsigned count) override;

  /// All bytes, from the first to the last written; valid until the next write.
  std::span<const std::byte> Bytes() const { return bytes_; }

  std::size_t Size() const { return bytes_.size(); }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace vak
