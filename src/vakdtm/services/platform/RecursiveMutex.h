#pragma once
#include <mutex>
namespace vak {
using RecursiveMutex = std::recursive_mutex;
}  // namespace vak
