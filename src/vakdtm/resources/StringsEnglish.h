#pragma once

#include <array>

#include "vakdtm/resources/StringIds.h"

namespace vak::resources {

/// A text of the string table.
struct StringEntry {
  int id;
  const wchar_t* text;
};

/// The English texts, by rising id. "%s" is where a caller puts a name.
inline constexpr std::array kStringsEnglish{
    StringEntry{9460, L"Z Average"},
    StringEntry{9461, L"Hit Count"},
    StringEntry{9462, L"Z Standard Deviation"},
    StringEntry{9463, L"Z Minimum (Deepest)"},
    StringEntry{9464, L"Z Maximum (Highest)"},
    StringEntry{9465, L"Time"},
    StringEntry{
        9477,
        L"Cannot update grid model.\nPlease exit Acquisition and replace the active grid model file:\n%s\nby its "
        L"backup:\n%s"},
    StringEntry{9487, L"Backscatter"},
    StringEntry{9488, L"Impedance"},
    StringEntry{9489, L"Roughness"},
    StringEntry{9490, L"Phi"},
    StringEntry{9491, L"Volume"},
    StringEntry{9492, L"Intercept"},
    StringEntry{9493, L"FLT factor"},
    StringEntry{9494, L"Heavy Oil"},
    StringEntry{19275, L"Point Phi"},
    StringEntry{19276, L"Backscatter mosaic cell priority"},
    StringEntry{19277, L"Backscatter mosaic cell char value"},
    StringEntry{19278, L"Backscatter mosaic cell line"},
    StringEntry{19287, L"Z Minimum X Offset"},
    StringEntry{19288, L"Z Minimum Y Offset"},
    StringEntry{19289, L"Duration"},
    StringEntry{19290, L"Z Maximum X Offset"},
    StringEntry{19291, L"Z Maximum Y Offset"},
    StringEntry{19296, L"Total Vert. Uncertainty Average"},
    StringEntry{19297, L"Total Hor. Uncertainty Average"},
    StringEntry{19298, L"First Backscatter"},
    StringEntry{19299, L"Last Backscatter"},
    StringEntry{19300, L"Min Backscatter"},
    StringEntry{19301, L"Max Backscatter"},
    StringEntry{
        19302,
        L"The action can't be completed because the file is open in a grid model layer.\n\nClose the file and try "
        L"again.\n\n'%s'"},
    StringEntry{19307, L"File Count"},
    StringEntry{kStatsClippingPolygon, L"Clipping polygon:\t\t"},
    StringEntry{kStatsUsedCells, L"Used cells: \t\t"},
    StringEntry{kStatsUsedArea, L"Used area: \t\t"},
    StringEntry{kStatsEmptyArea, L"Empty area:\t\t"},
    StringEntry{kStatsMinimum, L"Z minimum(Deepest):\t"},
    StringEntry{kStatsMaximum, L"Z maximum(Highest):\t"},
    StringEntry{kStatsAverage, L"Z average: \t\t"},
    StringEntry{kStatsDeviation, L"Z standard deviation: \t"},
    StringEntry{kStatsCellsDeviation, L"Cells Z standard deviation: \t"},
    StringEntry{kStatsTotalHits, L"Total hit count:\t\t"},
    StringEntry{kStatsLatestTime, L"Latest time:\t\t"},
    StringEntry{kStatsNoValue, L"-"},
    StringEntry{kStatsTitle, L"Cell Info Results"},
    StringEntry{kSquareSuffix, L"\u00B2"},
    StringEntry{kUnknownFileFormat, L"Unknown file format"},
    StringEntry{
        kUpdateError,
        L"Error occured during DTM update.\nPlease close acquisition and replace the active DTM file:\n%s\nby its "
        L"backup:\n%s"},
};

}  // namespace vak::resources
