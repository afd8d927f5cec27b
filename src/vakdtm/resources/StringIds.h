#pragma once

namespace vak::resources {

/// Names for the ids of texts that aren't asked for by a number from elsewhere. The names of the block kinds and the
/// two messages about files in use (9477, 19302) keep their plain numbers.
enum StringId : int {
  kStatsClippingPolygon = 20001,
  kStatsUsedCells = 20002,
  kStatsUsedArea = 20003,
  kStatsEmptyArea = 20004,
  kStatsMinimum = 20005,
  kStatsMaximum = 20006,
  kStatsAverage = 20007,
  kStatsDeviation = 20008,
  kStatsCellsDeviation = 20009,
  kStatsTotalHits = 20010,
  kStatsLatestTime = 20011,
  kStatsNoValue = 20012,  // stands for a missing value
  kStatsTitle = 20013,    // of the message box
  kSquareSuffix = 20014,  // behind a unit of length it makes the unit of area
  kUnknownFileFormat = 20021,
  kUpdateError = 20022,  // the model, its backup
};

}  // namespace vak::resources
