#include "vakdtm/export/DtmExport.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

static_assert(std::endian::native == std::endian::little, "numbers go out as they lie in memory");

template <typename T>
void Append(std::vector<char>& record, T value) {
  const std::size_t end = record.size();
  record.resize(end + sizeof(T));
  std::memcpy(record.data() + end, &value, sizeof(T));
}

/// @param cell  null for a cell that the model doesn't have: `empty` stands for it.
template <typename T>
void AppendCell(std::vector<char>& record, const std::byte* cell, T empty) {
  // By the bits, since a float on its way through a register may not keep those of a not-a-number.
  Append(record, cell ? LoadCell(reinterpret_cast<const T*>(cell)) : empty);
}

}  // namespace

bool DtmExport::Init(DtmAccess& access) {
  const DtmFile* const file = access.GetDtmFile();
  if (!out_ || !file) return false;
  access_ = &access;
  blockIds_.clear();
  record_.clear();
  Append(record_, static_cast<std::int32_t>(file->NumBlockIds()));
  for (int i = 0; i < file->NumBlockIds(); ++i) {
    blockIds_.push_back(file->GetBlockId(i));
    Append(record_, static_cast<std::int32_t>(blockIds_.back()));
  }
  out_->Write(record_.data(), static_cast<unsigned>(record_.size()));
  return true;
}

bool DtmExport::ProcessCell(int row, int col, double& /*area*/) {
  double z = 0;
  if (!access_->GetDoubleValue(row, col, dVAL, z) || IsEmptyValue(z)) return true;
  record_.clear();
  Append(record_, static_cast<std::int32_t>(row));
  Append(record_, static_cast<std::int32_t>(col));
  for (const int id : blockIds_) {
    const char letter = DtmDataBlock::GetDataType(id);
    if (letter == 'u') continue;
    const std::byte* const cell = access_->FindCell(row, col, id);
    switch (DtmDataBlock::GetBytesPerCell(letter)) {
      case 1:
        AppendCell(record_, cell, std::uint8_t{0});
        break;
      case 4:
        AppendCell(record_, cell, DtmDataBlock::GetFillByte(letter) == 0 ? std::uint32_t{0} : ~std::uint32_t{0});
        break;
      case 8:
        AppendCell(record_, cell, ~std::uint64_t{0});
        break;
      default:
        break;
    }
  }
  out_->Write(record_.data(), static_cast<unsigned>(record_.size()));
  return true;
}

}  // namespace vak
