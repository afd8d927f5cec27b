#pragma once

#include <atomic>
#include <deque>
#include <vector>

#include "vakdtm/contour/Contour.h"

namespace vak {

class ContourList;

/// Makes contours of a surface, whatever that is. For one thread at a time.
class ContourCreator {
 public:
  ContourCreator() = default;
  ContourCreator(const ContourCreator&) = default;
  ContourCreator& operator=(const ContourCreator&) = default;
  virtual ~ContourCreator() = default;

  /// Makes the contours of a level and adds them to a list.
  /// @param running  true while the work may go on; another thread may lower it.
  /// @return how many were made; 0 also when nothing could be.
  virtual int AddLevel(double level, ContourList& out, const std::atomic<bool>& running) = 0;

  /// The same with several levels.
  virtual int AddLevels(const std::vector<double>& levels, ContourList& out, const std::atomic<bool>& running) = 0;

 protected:
  /// What the latest call made.
  const std::deque<Contour>& Contours() const { return contours_; }
  std::deque<Contour>& Contours() { return contours_; }

 private:
  std::deque<Contour> contours_;
};

}  // namespace vak
