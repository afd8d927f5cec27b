#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace vak {

class DtmArea;
class DtmFile;

/// What one pass of writing out does to the places of areas: emptied ones give their space back, and the file's last
/// area moves into the hole; ones without a place go to the end.
///
/// Moves are gathered and carried out together, since each of their steps has to be on the disk before the next one:
/// no index believed any more; the holes no areas; the cells in the holes; the holes areas again, by their tags alone.
/// A walk finds a moved area at its old place until it finds it at the new one. Holds the file lock while it lives, so
/// that nobody adds an area while the end of the file moves.
class AreaMoves {
 public:
  /// Of what had to be done: all, all that can be, or not even that.
  enum class Done { kAll, kPart, kFailed };

  explicit AreaMoves(DtmFile& file);
  /// Carries out what is planned.
  ~AreaMoves();
  AreaMoves(const AreaMoves&) = delete;
  AreaMoves& operator=(const AreaMoves&) = delete;

  /// Gives the space of an emptied area back. It stays in the model as a shell.
  Done Remove(DtmArea& area);
  /// Writes an area without a place behind the last one.
  Done Append(DtmArea& area);
  /// Has everything planned so far on the disk. @return false when that failed: what was to be moved stays in memory
  /// and is to be appended by a later pass.
  bool CarryOut();

 private:
  struct Placed {
    std::int64_t position;
    DtmArea* area;
  };
  struct Move {
    DtmArea* area;
    std::int64_t hole;  // position of the body
  };

  void FindPlaced();
  bool DropEmptyAreasBehind(std::int64_t hole);
  Done KeepInPlace(DtmArea& area, Done otherwise);
  Done RemoveLast(DtmArea& area);
  bool TagHoles(std::int32_t tag);
  bool WriteMoved();
  void GiveUp();

  DtmFile& file_;
  const std::unique_lock<std::recursive_mutex> fileLock_;
  bool placedKnown_ = false;
  std::vector<Placed> placed_;         // areas with a place, ascending
  std::vector<Move> moves_;            // planned
  std::vector<std::int64_t> vacated_;  // places that have no area any more, or won't have
  std::int64_t end_ = -1;              // where the file is to end; -1: where it does
  std::int64_t inMemory_ = 0;          // bytes of areas whose only copy to be written is in memory
};

}  // namespace vak
