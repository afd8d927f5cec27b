#pragma once

#include <string_view>
#include <vector>

#include "vakdtm/services/color/Color.h"

namespace vak {

class ColorTable;

/// How many classes the built-in tables have.
constexpr int kColorMapClasses = 256;

/// The names of the built-in tables: "depth", "difference", "hits", "deviation", "time", "uncertainty", "slope".
///
/// Each but "difference" runs in equal steps of perceived lightness from one end to the other (that of the Oklab colour
/// space), so that it reads in grey and by those who see fewer colours; the hue is there to tell near values apart.
///
/// | Name          | low values             | high values       | shows                                             |
/// |---------------|------------------------|-------------------|---------------------------------------------------|
/// | "depth"       | dark violet            | pale sand         | heights, upwards positive: dark is deep           |
/// | "difference"  | blue                   | red               | what is below and above 0, which is nearly white  |
/// | "hits"        | pale yellow            | dark blue         | counts                                            |
/// | "deviation"   | pale                   | dark wine red     | spread                                            |
/// | "time"        | pale green             | dark violet       | ages: what is new is light                        |
/// | "uncertainty" | pale                   | dark brown        | uncertainties                                     |
/// | "slope"       | pale green             | black             | gradients: what is flat stands out from the paper |
const std::vector<std::string_view>& ColorMapNames();

/// Whether a built-in table has this name.
bool IsColorMap(std::string_view name);

/// The colour of a built-in table at a place in it. @param share  0 is its low end, 1 its high end; cut to that, and
/// what is no number counts as 0. Black for an unknown name.
Color ColorMapColor(std::string_view name, double share);

/// Makes a built-in table over a range of values, of `kColorMapClasses` classes of equal width.
/// @param low,high  finite. May fall: the low end's colours then belong to the higher values. Equal: one class in the
///                  middle colour. "difference" is laid out evenly to both sides of 0 as far as the further of the two,
///                  so that 0 has the middle colour and equal differences are equally strong.
/// @return false, with nothing changed, for an unknown name and for bounds that aren't finite.
bool MakeColorTable(std::string_view name, double low, double high, ColorTable& table);

}  // namespace vak
