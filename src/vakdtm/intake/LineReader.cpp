#include "vakdtm/intake/LineReader.h"

#include <algorithm>
#include <stdio.h>

namespace vak {

LineReader::LineReader(std::FILE* stream, std::size_t blockSize)
    : stream_(stream),
      blockSize_(std::max(blockSize, kLongestPiece)),
      block_(std::make_unique<char[]>(blockSize_ + kPadding)),
      at_(block_.get()),
      end_(block_.get()) {
  StartAt(std::max<std::int64_t>(ftello(stream_), 0));
}

std::int64_t LineReader::Size() {
  const off_t present = ftello(stream_);
  if (present < 0 || fseeko(stream_, 0, SEEK_END) != 0) return -1;
  const off_t size = ftello(stream_);
  if (fseeko(stream_, present, SEEK_SET) != 0) failed_ = ended_ = true;
  return size;
}

bool LineReader::Rewind() {
  if (fseeko(stream_, 0, SEEK_SET) != 0) return false;
  std::clearerr(stream_);
  StartAt(0);
  return true;
}

void LineReader::StartAt(std::int64_t position) {
  at_ = end_ = block_.get();
  blockPosition_ = position;
  lineNumber_ = 0;
  lineBegins_ = true;
  ended_ = false;
  failed_ = false;
}

// Reached once a block, when what is left of it holds no whole piece.
bool LineReader::TakeAcrossBlocks(std::string_view& line) {
  if (!ended_) {
    Refill();
    if (TakeLine(line)) return true;
  }
  if (failed_ || at_ == end_) return false;
  HandOut(static_cast<std::size_t>(end_ - at_), line);
  return true;
}

// Moves what is left, less than a piece, to the block's start and reads behind it.
void LineReader::Refill() {
  const auto left = static_cast<std::size_t>(end_ - at_);
  blockPosition_ = Position();
  std::memmove(block_.get(), at_, left);
  const std::size_t wanted = blockSize_ - left;
  const std::size_t count = std::fread(block_.get() + left, 1, wanted, stream_);
  at_ = block_.get();
  end_ = at_ + left + count;
  ended_ = count < wanted;
  failed_ = ended_ && std::ferror(stream_) != 0;
}

}  // namespace vak
