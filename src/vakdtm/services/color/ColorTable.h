#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/services/color/Color.h"

namespace vak {

class FileObject;

/// One class of a colour table: the values from `lower` up to the lower bound of the next class.
struct ColorClass {
  double lower = 0;
  Color color = 0;  // at the lower bound
  Color upper = 0;  // towards the upper bound; as `color` where the class has one colour
  std::wstring name;

  bool operator==(const ColorClass&) const = default;
};

/// Classes of values with a colour and a name each: how numbers become colours on a picture, and words in a list.
///
/// The classes lie side by side, by rising lower bound; a value belongs to the class with the highest lower bound that
/// isn't above it. The last class ends at the table's upper bound, which belongs to it, or has no end. Within a class
/// the colour may run from one to another, in equal shares of red, green and blue.
///
/// A plain value: a copy stands alone. Several threads may read one at once.
class ColorTable {
 public:
  /// A table, and a file, with more classes than this is refused.
  static constexpr std::size_t kMostClasses = 1 << 16;

  /// The colour of a value. Below the first class and above the table's end: the colour set for there, else that of the
  /// table's end nearest to it; for what isn't a number the colour set for it, else black, which is also what an empty
  /// table gives.
  Color GetColor(double value) const;

  /// The name of the class that holds the value; empty when none does, or it has no name.
  std::wstring GetName(double value) const;

  /// Replaces all by classes of equal width over a range, running from blue at `min` over cyan, green and yellow to red
  /// at `max`, or from black to white.
  /// @param steps     how many classes, 1 to `kMostClasses`; there are fewer where doubles are too coarse for so many.
  /// @param colored   true: blue to red. False: black to white.
  /// @param reversed  the two ends change places.
  /// @return false for bounds that aren't finite and for another count; nothing has changed then.
  bool SetRange(double min, double max, int steps, bool colored, bool reversed);

  /// Replaces all by classes of equal width over a range, each of one colour; the first of them is `first` and the last
  /// is `second`. Hue, saturation and lightness run evenly between them, the hue without passing through 0; a grey has
  /// the other's hue.
  /// @param low,high  may fall: `first` then belongs to the higher values. Equal: one class with the colour `first`.
  bool SetRange(double low, double high, int steps, Color first, Color second);

  /// Replaces all by classes of equal width over a range, each of one colour: those of the first half run from `first`
  /// to `middle`, those of the second from `middle` to `last`, in equal shares of red, green and blue.
  /// @param low,high  as `SetRange`.
  /// @return false as `SetRange`.
  bool SetRangeRGB3(double low, double high, int steps, Color first, Color middle, Color last);

  /// Replaces all by the given classes.
  /// @param classes  by strictly rising lower bound, all finite, `kMostClasses` at most. Of the colours the lowest
  /// three bytes count.
  /// @param end      the upper bound of the last class, finite, not below its lower bound; none: it has no end.
  /// @return false when they aren't so; nothing has changed then.
  bool SetClasses(std::vector<ColorClass> classes, std::optional<double> end);

  const std::vector<ColorClass>& Classes() const { return classes_; }
  std::optional<double> End() const { return end_; }

  /// The colours outside the classes; none: see `GetColor`.
  void SetBelowColor(std::optional<Color> color);
  void SetAboveColor(std::optional<Color> color);
  void SetNoValueColor(std::optional<Color> color);

  /// Reads a table from its section of a settings text; a file without that section is read as a colour palette of the
  /// mapping world, a `.cpt`. docs/files.md has both forms. What `FileSave` wrote reads back to an equal table.
  /// @return false when it can't be understood; `LastError` says why, and nothing else has changed.
  bool FileOpen(const FileObject& file);

  /// Reads the text of a `.cpt` file. @return as `FileOpen`.
  bool ReadCpt(std::string_view text);

  /// Writes the table into its section of a settings text, in place of what was in it.
  /// @return false when the text didn't take it.
  bool FileSave(FileObject& file) const;

  /// Why the last `FileOpen` or `ReadCpt` answered false; empty when it answered true.
  const std::wstring& LastError() const { return lastError_; }

  /// Whether two tables give the same for every value.
  bool operator==(const ColorTable& other) const;

  /// Black or white, whichever reads better on a colour: by the contrast of luminances that accessible texts are held
  /// to.
  static Color GetContrastColor(Color color);

  /// @param hue         gets degrees, 0 up to 360; 0 for a grey.
  /// @param saturation  gets 0 to 1.
  /// @param lightness   gets 0 to 1.
  static void RGBtoHSL(Color color, double& hue, double& saturation, double& lightness);

  /// @param hue  degrees, any. The other two are cut to 0 to 1. What is no number counts as 0.
  static Color HSLtoRGB(double hue, double saturation, double lightness);

 private:
  bool ReadSettings(const FileObject& file);
  bool Refuse(std::wstring why);
  /// @param colorAt  gives the colour of a class by its place among them, 0 for the first and 1 for the last.
  template <typename ColorAt>
  bool SetEvenClasses(double low, double high, int steps, ColorAt colorAt);
  /// The class that holds a value; null when none does.
  const ColorClass* Holder(double value) const;

  std::vector<ColorClass> classes_;  // by rising lower bound
  std::optional<double> end_;
  double classesPerUnit_ = 0;  // of value, were all classes of one width: a guess at a value's class
  std::optional<Color> below_, above_, noValue_;
  std::wstring lastError_;
};

}  // namespace vak
