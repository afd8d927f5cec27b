#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "vakdtm/services/color/Color.h"

namespace vak {

/// The colour filter of the whole process: every colour that marks, frames, pens and texts ask for passes through it,
/// so that an application can have them suit a dark screen, a night watch or a colour-blind user. Colours of values
/// don't: they mean something.
///
/// Gives what it is given until a filter is installed. One object a process; any thread may call any operation. A
/// filter is called on the thread that draws, by several at once when several draw.
class ColorControl {
 public:
  /// @param wanted  the colour asked for. @param flag  passed on from `GetColor`. @return the colour to use.
  using Filter = std::function<Color(Color wanted, bool flag)>;

  static ColorControl& Instance();

  ColorControl(const ColorControl&) = delete;
  ColorControl& operator=(const ColorControl&) = delete;

  /// The colour to use for a wanted one. @param flag  for the filter; drawings give false.
  Color GetColor(Color wanted, bool flag) const;

  /// Replaces the filter; an empty one gives every colour as it comes. A call of the former one may still be under way
  /// when this returns.
  void SetFilter(Filter filter);

 private:
  ColorControl() = default;

  mutable std::mutex mutex_;
  std::shared_ptr<const Filter> filter_;  // guarded by mutex_; null: none
};

/// The colour that a drawing uses for a wanted one.
inline Color Filtered(Color wanted) { return ColorControl::Instance().GetColor(wanted, false); }

}  // namespace vak
