#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "vakdtm/services/device/ImageDevice.h"

namespace vak {

/// How long a PNG file is up to where chunks about the whole picture stand: signature and header.
inline constexpr std::size_t kPngHeaderLength = 8 + 25;

/// The check sum of a chunk, over its kind and its data: the CRC of ISO 3309, reversed, 0xEDB88320.
std::uint32_t PngCheck(std::string_view bytes);

/// The chunk of a picture's resolution, in whole pixels a metre, both ways the same.
std::string PngResolution(double dotsPerInch);

/// The chunks of notes, in international text, not packed.
/// @return false for a key that PNG doesn't know as one; `chunks` is untouched then.
bool PngNotes(std::span<const PictureNote> notes, std::string& chunks);

}  // namespace vak
