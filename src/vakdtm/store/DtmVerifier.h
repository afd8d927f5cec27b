#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "vakdtm/services/files/DataStream.h"

namespace vak {

/// What can be wrong, doubtful or worth a word in a grid file.
enum class DtmFaultKind {
  // The header. None of these goes away by repairing.
  kMagic,               ///< the file doesn't begin as a grid model does
  kSettingMissing,      ///< `tag` isn't there or is cut off
  kSettingUnusable,     ///< no model can have this value of `tag`
  kSettingLength,       ///< `tag` is `found` bytes long, `wanted` count
  kSettingRepeated,     ///< a second `tag`
  kSettingLeftover,     ///< `found` bytes at the end of the settings are no chunk
  kBlockListedTwice,    ///< the block list names `tag` again
  kBlockUnknownLetter,  ///< the block list names `tag`, whose cells have no width
  kBlockUnknown,        ///< the block list names `tag`, which isn't in the table of kinds

  // Chunks on the top level. `next` is the offset at which the walk goes on, or the end of the areas.
  kTagZero,         ///< a header with tag 0
  kNegativeLength,  ///< a header with length `found`
  kBeyondEnd,       ///< a chunk of `found` bytes where only `wanted` are left
  kTrailingBytes,   ///< `found` bytes, too few for a header
  kHole,            ///< the place of an area that was being moved when its writer ended; costs nothing but space
  kUnknownChunk,    ///< a whole chunk with a `tag` that has no meaning here
  kHiddenArea,      ///< a chunk of `found` bytes with a sound area beginning inside, at `next`
  kStrayIndex,      ///< an index tag in front of the index
  kUnreadable,      ///< the stream doesn't give the bytes here

  // Areas. Row and column are those of the bottom-left cell where they are known.
  kAreaTag,         ///< the header of a sound area's body has this `tag`
  kAreaLength,      ///< the header says `found`, the body has `wanted` bytes
  kAreaAttributes,  ///< `tag` (`attr`, `blrw`, `blcl`) isn't there, or isn't where and as it should be
  kAreaPlace,       ///< row and column that no area can have
  kAreaRepeated,    ///< another area for a place; the first is at `next`
  kBlockMissing,    ///< block `tag` and, with it, `found` in all aren't there
  kBlockLength,     ///< block `tag` has `found` bytes, `wanted` are right
  kBlockTwice,      ///< block `tag` once more than it is listed
  kBlockOrder,      ///< block `tag` isn't in its turn
  kAreaLeftover,    ///< `found` bytes in an area that belong to no block of it

  // The index. `next` is the position that an entry gives.
  kNoIndex,          ///< the file ends without one
  kIndexTorn,        ///< an index begins here and doesn't end the file
  kIndexHead,        ///< the tail says that the index begins at `next`; there is no head that goes with it
  kIndexLength,      ///< `found` bytes of the index are no whole entry
  kOldIndex,         ///< the old form, without Z ranges
  kFiller,           ///< the file ends in filler, as a file that couldn't be cut
  kEntryPlace,       ///< row and column that no area can have
  kEntryNoArea,      ///< no area begins at the position
  kEntryWrongPlace,  ///< the area there has another row or column, `wanted` and `found`
  kEntryRepeated,    ///< an earlier entry names the same area
  kEntryUnsorted,    ///< a smaller position than the entry before
  kEntryTime,        ///< last written at `found`: before 1970, or in the future
  kEntryRange,       ///< a Z range that can't be one
  kAreaNotInIndex,   ///< no entry names this area
  kCellOutside       ///< `found` cells outside the Z range; row, column, value and block `tag` of the first
};

enum class DtmFaultSeverity {
  kNote,     ///< as it should be, though not usual
  kWarning,  ///< doubtful; the cells can be read
  kFault     ///< against the format
};

/// One thing found in a grid file.
struct DtmFault {
  DtmFaultKind kind = DtmFaultKind::kMagic;
  std::int64_t offset = 0;  ///< in the file, bytes
  int tag = 0;
  bool hasPlace = false;  ///< row and column are set
  int row = 0;
  int col = 0;
  // As the kind says.
  std::int64_t wanted = 0;
  std::int64_t found = 0;
  std::int64_t next = 0;
  double value = 0;
  double lowest = 0;
  double highest = 0;

  DtmFaultSeverity Severity() const;
  /// Whether `DtmVerifier::Repair` takes this away (what it can't keep of the area concerned goes with it).
  bool IsMendable() const;
  /// One line in English without the offset, as "block dVAL of the area at row 0, column 64 is missing".
  std::string Text() const;
};

/// What a verification came to.
struct DtmVerifyCounts {
  std::int64_t areas = 0;  ///< that a model can be made of: all blocks there, one area a place
  std::int64_t faults = 0;
  std::int64_t warnings = 0;
  std::int64_t notes = 0;
  std::int64_t mendable = 0;  ///< faults and warnings that repairing takes away
};

/// What a repair did.
struct DtmRepairReport {
  /// An area that was met and could not be kept.
  struct LostArea {
    std::int64_t offset = 0;  ///< of its chunk in the file as it was
    bool hasPlace = false;
    int row = 0;
    int col = 0;
    bool isRepeated = false;  ///< another area was taken for its place
  };

  bool changed = false;           ///< false: everything stood as it should
  std::int64_t kept = 0;          ///< areas
  std::int64_t moved = 0;         ///< of them, those that lie elsewhere now
  std::int64_t rewritten = 0;     ///< of them, those whose chunk had to be put in order
  std::int64_t bytesLeftOut = 0;  ///< between and behind the areas; the index isn't counted
  std::vector<LostArea> lost;
};

/// Checks every byte of a grid file's layout, and rebuilds a damaged file from the areas that are sound.
///
/// Works on the stream, not on an open model: a file that no longer opens can be looked at and often mended. Behind
/// something that is no chunk, and inside chunks that aren't what they say, further areas are looked for by the bytes
/// that every area's body begins with, so that one bad length doesn't hide what follows.
///
/// Time grows with the file; memory is some tens of bytes an area and a buffer, whatever the file says. For one thread;
/// the stream's lock is held during each operation. Nobody else may be writing the file.
class DtmVerifier {
 public:
  using FaultSink = std::function<void(const DtmFault&)>;
  /// Gets the part that is done, 0 to 1; answers whether to go on.
  using ProgressSink = std::function<bool(double)>;

  /// @param stream  not owned.
  explicit DtmVerifier(DataStream& stream) : stream_(stream) {}

  /// Who is told of each fault: chunk by chunk in the order of the file, then the entries of the index.
  void SetFaultSink(FaultSink sink) { faultSink_ = std::move(sink); }
  void SetProgressSink(ProgressSink sink) { progressSink_ = std::move(sink); }

  /// Walks the whole file: header, chunks, areas, the index against the areas, known Z ranges against the cells.
  /// Changes nothing.
  /// @return false when stopped; `Counts` then holds what was seen until then. Faults are no reason for false.
  bool Verify();

  const DtmVerifyCounts& Counts() const { return counts_; }
  /// Whether the header allowed the rest to be looked at. False: nothing behind it was, and `Repair` can't help.
  bool IsHeaderUsable() const { return headerUsable_; }

  /// Rebuilds the file in place: the sound areas move down, in order, until they lie back to back; a fresh index
  /// follows, with Z ranges worked out from the cells and last-written times kept where the old index is to be trusted.
  /// Areas whose blocks are all there in a chunk that is out of order are written afresh first, behind everything else.
  /// Of two sound areas for one place the one that the index names is kept, else the first. What can't be kept is lost
  /// from the file: copy it before.
  ///
  /// The progress sink may stop it as long as nothing has changed.
  /// @return false when stopped, when the header can't be used, or when a read or write failed. Before the first write
  /// nothing has changed; after a failed write the file is unfinished, and another repair takes up from there.
  bool Repair(DtmRepairReport& report);

 private:
  void Report(const DtmFault& fault);

  DataStream& stream_;
  FaultSink faultSink_;
  ProgressSink progressSink_;
  DtmVerifyCounts counts_;
  bool headerUsable_ = false;
};

}  // namespace vak
