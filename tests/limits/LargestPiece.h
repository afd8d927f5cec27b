#pragma once

#include <atomic>
#include <cstddef>

namespace vak::test {

/// Whoever asks for more bytes than this at once gets none.
extern std::atomic<std::size_t> largestPiece;

/// Memory comes in pieces up to a size, for a scope.
class PiecesUpTo {
 public:
  explicit PiecesUpTo(std::size_t size) : before_(largestPiece.exchange(size)) {}
  ~PiecesUpTo() { largestPiece = before_; }
  PiecesUpTo(const PiecesUpTo&) = delete;
  PiecesUpTo& operator=(const PiecesUpTo&) = delete;

 private:
  std::size_t before_;
};

}  // namespace vak::test
