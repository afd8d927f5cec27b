#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "vakdtm/store/DtmBlockId.h"

/// Cell values in memory: reading and writing them while other threads look on, and the marker of an empty cell.
namespace vak {

/// Reads a cell that another thread may be updating: the old value or the new one, never a torn one.
template <typename T>
T LoadCell(const T* cell) {
  // atomic_ref takes no const object in C++20; a load changes nothing.
  return std::atomic_ref<T>(*const_cast<T*>(cell)).load(std::memory_order_relaxed);
}

/// Writes a cell that other threads may be reading. Requires: area lock held, or the caller works alone.
template <typename T>
void StoreCell(T* cell, T value) {
  std::atomic_ref<T>(*cell).store(value, std::memory_order_relaxed);
}

/// The marker of a `d` or `f` cell without a value: all bits set, one particular not-a-number.
inline double EmptyDouble() { return std::bit_cast<double>(~std::uint64_t{0}); }
inline float EmptyFloat() { return std::bit_cast<float>(~std::uint32_t{0}); }

/// By the bits: a not-a-number with any other pattern is a value.
inline bool IsEmptyValue(double value) { return std::bit_cast<std::uint64_t>(value) == ~std::uint64_t{0}; }
inline bool IsEmptyValue(float value) { return std::bit_cast<std::uint32_t>(value) == ~std::uint32_t{0}; }

/// Reads a cell of a block as a double, as `DtmAccess::GetDoubleValue` does.
/// @param cells  of the block, in the width of the letter of its id.
/// @return false, with `value` as it came, for an unknown letter.
inline bool LoadAsDouble(const std::byte* cells, int id, int cell, double& value) {
  switch (static_cast<char>(id >> 24)) {
    case 'd':
      value = LoadCell(reinterpret_cast<const double*>(cells) + cell);
      return true;
    case 'f': {
      const float stored = LoadCell(reinterpret_cast<const float*>(cells) + cell);
      value = IsEmptyValue(stored) ? EmptyDouble() : static_cast<double>(stored);
      return true;
    }
    case 'c': {
      const unsigned char stored = LoadCell(reinterpret_cast<const unsigned char*>(cells) + cell);
      value = stored == 0 ? EmptyDouble() : stored;
      return true;
    }
    case 'i':
    case 't': {
      const std::int32_t stored = LoadCell(reinterpret_cast<const std::int32_t*>(cells) + cell);
      value = stored == 0 ? EmptyDouble() : stored;
      return true;
    }
    case 'u': {
      const std::uint32_t stored = LoadCell(reinterpret_cast<const std::uint32_t*>(cells) + cell);
      value = stored == 0 ? EmptyDouble() : id == uFCT ? std::popcount(stored) : stored;
      return true;
    }
    default:
      return false;
  }
}

/// Where the Z range of an area starts before anything was seen.
constexpr float kNoLowestZ = std::numeric_limits<float>::max();
constexpr float kNoHighestZ = -std::numeric_limits<float>::max();

}  // namespace vak
