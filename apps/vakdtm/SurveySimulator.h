#pragma once

#include <array>
#include <cstdint>

namespace vak {

/// A sounding in whole millimetres: easting, northing, and height, upwards positive.
struct SoundingMillimetres {
  std::int64_t x = 0;
  std::int64_t y = 0;
  std::int64_t z = 0;
};

/// A sounding in metres, rounded to millimetres: each value is the double nearest to its text with three decimals.
struct Sounding {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

/// Makes up a lifelike multibeam survey, one sounding after the other.
///
/// What it shows: a winding channel that widens seawards, with sand waves of several lengths, and a dredged trench
/// along it, with a flat bottom and even side slopes. The vessel works through it in reaches, each longer and wider
/// than the one before, on lines to and fro. A line is made of pings, a ping of beams across the swath; neighbouring
/// swaths overlap, but now and then a gap is left between them, or pings are lost. The vessel yaws and rolls and
/// doesn't quite keep its line. Depths carry centimetres of noise, more in the outer beams, and a few spikes of metres.
///
/// (1) Equal seed and hint give equal soundings in equal order, on every machine: only additions, multiplications,
///     divisions and roundings are used, which are exact to the bit.
/// (2) The first N soundings are the first N of any longer survey: the surveyed area follows the count.
/// (3) The density within the swaths is 2 to 3 soundings a square of the hint's side, whatever the count: all
/// horizontal
///     lengths but the noise scale with the hint. Relief is in metres for hints of 1 m and above and scales below, so
///     that slopes stay natural.
///
/// Coordinates start near easting 500,000 m and northing 5,800,000 m. Memory and the cost of a sounding are constant.
/// For one thread at a time.
class SurveySimulator {
 public:
  static constexpr double kLowestHint = 0.05;  ///< finer pings would fall on the same millimetres
  static constexpr double kHighestHint = 1000.0;

  struct Options {
    std::uint64_t seed = 1;
    std::uint64_t count = 0;    ///< soundings to make; 0 for a survey without end
    double cellSizeHint = 1.0;  ///< metres, kLowestHint to kHighestHint
  };

  explicit SurveySimulator(const Options& options);

  /// Makes the next sounding. @return false, with `sounding` as it was, when `count` of them have been made.
  [[nodiscard]] bool Next(Sounding& sounding);

  /// The same in whole millimetres; both count.
  [[nodiscard]] bool Next(SoundingMillimetres& sounding);

  /// @return soundings made so far.
  [[nodiscard]] std::uint64_t Made() const { return made_; }

 private:
  /// Uniform 64-bit numbers: Steele, Lea, Flood, "Fast splittable pseudorandom number generators", OOPSLA 2014
  /// (SplitMix64).
  class Random {
   public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t Bits();
    double Uniform();                         ///< 0 up to but without 1
    double Between(double low, double high);  ///< uniform
    double Normal();                          ///< mean 0, deviation 1, within 3.5
    bool Chance(double probability) { return Uniform() < probability; }

   private:
    std::uint64_t state_;
  };

  /// A place in the channel, in hints: `along` seawards from the landward end, `across` to the left of the axis.
  struct Place {
    double along = 0.0;
    double across = 0.0;
  };

  void StartReach();
  void StartLine();
  void StartPing();
  void NextBeam();
  void FindPing();
  [[nodiscard]] double Bed(const Place& place) const;
  [[nodiscard]] double Trench(const Place& place) const;
  [[nodiscard]] double HalfWidth(double along) const;

  Random random_;
  std::uint64_t count_;
  std::uint64_t made_ = 0;
  double hint_;    // metres
  double relief_;  // factor on heights

  std::array<double, 6> phases_ = {};  // of the bed's waves, turns

  // The reach: a rectangle of the channel.
  int reach_ = -1;
  double reachStart_ = 0.0;
  double reachEnd_ = 0.0;
  double reachHalfWidth_ = 0.0;

  // The line: a straight course through the reach.
  double lineAcross_ = 0.0;
  bool seawards_ = false;
  double lineLevel_ = 0.0;             // metres, what the tide correction is off by
  std::array<double, 4> motion_ = {};  // phases of the vessel's motion, turns

  // The ping: beams on a straight line, not quite across the course.
  double pingAlong_ = 0.0;  // where the line has got to
  int lostPings_ = 0;
  Place vessel_;
  Place side_;  // unit vector to starboard
  int beam_ = 0;
};

}  // namespace vak
