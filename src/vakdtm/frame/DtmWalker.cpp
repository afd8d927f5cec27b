#include "vakdtm/frame/DtmWalker.h"

#include <limits>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/store/DtmAccess.h"

namespace vak {

DtmWalker::DtmWalker(DtmAccess* access, DtmProcessor* processor, bool owns)
    : access_(access),
      processor_(processor),
      ownedAccess_(owns ? access : nullptr),
      ownedProcessor_(owns ? processor : nullptr) {}

DtmWalker::~DtmWalker() = default;

double DtmWalker::GetProgress() const {
  const std::int64_t total = Total();
  return total == 0 ? 0.0 : static_cast<double>(Done()) / static_cast<double>(total);
}

void DtmWalker::SetTotal(std::int64_t rows, std::int64_t cols) {
  constexpr std::int64_t kEnd = std::numeric_limits<std::int64_t>::max();
  total_.store(rows > 0 && cols > kEnd / rows ? kEnd : rows * cols, std::memory_order_relaxed);
}

DtmFile* DtmWalker::File() const { return access_ != nullptr ? access_->GetDtmFile() : nullptr; }

DtmFile* DtmWalker::Begin() {
  if (access_ == nullptr || processor_ == nullptr || !processor_->Init(*access_)) return nullptr;
  return File();
}

}  // namespace vak
