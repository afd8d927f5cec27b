#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "vakdtm/intake/DatedSoundingScanner.h"
#include "vakdtm/intake/LineReader.h"
#include "vakdtm/intake/SoundingScanner.h"

namespace vak {

/// One piece of text, a line or what may be taken of it at once, scanned.
struct SoundingLine {
  enum class Kind : std::uint8_t {
    kSounding,    ///< three finite numbers
    kNotANumber,  ///< x and y finite; z isn't a number, or is any and the line holds the text that stands for that
    kNotParsed    ///< anything else
  };

  double x = 0;
  double y = 0;
  double z = 0;
  std::int64_t number = 0;    ///< of the physical line, from 1
  std::int64_t position = 0;  ///< in the stream, behind the piece
  std::size_t textBegin = 0;  ///< in the batch's text
  std::size_t textSize = 0;
  Kind kind = Kind::kNotParsed;
  ScannedDate date;  ///< of a dated text
};

/// What a line is whose numbers, found in it or taken over from another, are these.
/// @param marker  whether it holds the text that stands for a height that isn't a number.
SoundingLine::Kind JudgeNumbers(const ScannedSounding& sounding, bool marker);

/// Lines that follow one another.
struct SoundingBatch {
  std::vector<SoundingLine> lines;
  std::string text;

  bool IsFull() const;
  void Clear();
  void Add(const ScannedSounding& sounding, SoundingLine::Kind kind, std::int64_t number, std::int64_t position,
           std::string_view line);

  std::string_view TextOf(const SoundingLine& line) const {
    return std::string_view(text).substr(line.textBegin, line.textSize);
  }
};

/// Reads and scans a text on a thread of its own, a batch ahead of the one who uses the soundings, so that parsing and
/// inserting go on at the same time. Memory is that of two batches.
///
/// Nobody else may use what is read while this is there. `Next` is for one thread.
class SoundingAhead {
 public:
  /// Adds lines to an empty batch until that is full. Called by the thread alone.
  /// @return false when there are no more.
  using FillBatch = std::function<bool(SoundingBatch&)>;

  explicit SoundingAhead(FillBatch fill);
  /// Takes a text without dates; a line that doesn't yield three numbers is `kNotParsed`.
  SoundingAhead(LineReader& lines, SoundingScanner scanner);
  /// Stops reading and waits for the thread.
  ~SoundingAhead();
  SoundingAhead(const SoundingAhead&) = delete;
  SoundingAhead& operator=(const SoundingAhead&) = delete;

  /// @return the next lines, valid until the next call; null behind the last one.
  const SoundingBatch* Next();

 private:
  void Run();

  FillBatch fill_;         // used by the thread alone
  SoundingBatch used_;     // with the one who called Next
  SoundingBatch waiting_;  // guarded by mutex_
  bool full_ = false;      // guarded by mutex_: waiting_ is to be taken
  bool ended_ = false;     // guarded by mutex_: nothing comes after waiting_
  bool stop_ = false;      // guarded by mutex_
  std::mutex mutex_;
  std::condition_variable changed_;
  std::thread thread_;  // the last member: it uses all others
};

}  // namespace vak
