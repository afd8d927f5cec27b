#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vak {

// Wide text and UTF-8. A wide character is one Unicode code point.
//
// File names of the system are any bytes, so the way there and back loses nothing: a byte that belongs to no valid
// UTF-8 sequence (overlong forms, surrogates and values above U+10FFFF aren't valid) becomes the lone surrogate
// U+DC80 + (byte - 0x80), and such a surrogate becomes that byte again.
//
// (1) ToUtf8(FromUtf8(bytes)) == bytes, whatever the bytes.
// (2) FromUtf8(ToUtf8(text)) == text for every text of code points that are no surrogates.
// What does not hold: (2) for texts that hold surrogates; those beside U+DC80..U+DCFF, and values above U+10FFFF,
// become U+FFFD.

/// @return the wide text of UTF-8 bytes.
std::wstring FromUtf8(std::string_view bytes);

/// @return of how many bytes `FromUtf8` makes the first wide character of `bytes`, 1 to 4; 0 of none.
std::size_t FirstCharacterLength(std::string_view bytes);

/// @return the UTF-8 bytes of a wide text.
std::string ToUtf8(std::wstring_view text);

}  // namespace vak
