#include "SurveySimulator.h"

#include <algorithm>
#include <cmath>

namespace vak {
namespace {

// Lengths without a unit are in hints.
constexpr int kBeams = 64;
constexpr double kHalfSwath = 21.0;
constexpr double kPingSpacing = 0.66;
constexpr double kLineSpacing = 36.0;
constexpr double kGapLineSpacing = 48.0;
constexpr double kFirstReachLength = 110.0;
constexpr double kFirstReachHalfWidth = 55.0;
constexpr double kReachGrowth = 1.5;

constexpr double kEasting = 500000.0;    // metres
constexpr double kNorthing = 5800000.0;  // metres
// The channel's bearing: a right-angled triangle with whole sides, so that no sine has to be taken.
constexpr double kCosBearing = 12.0 / 13.0;
constexpr double kSinBearing = 5.0 / 13.0;

/// A smooth wave of period 1 between -1 and 1 that is a sine to a thousandth: 0 at 0, 1 at a quarter. The library's
/// sine may differ in its last bit from one system to the next.
double Wave(double turns) {
  constexpr double kRounder = 6755399441055744.0;  // 1.5 * 2^52: adding it rounds to a whole number
  const double t = turns - ((turns + kRounder) - kRounder);
  const double parabola = 8.0 * t * (1.0 - 2.0 * std::fabs(t));
  return parabola * (0.775 + 0.225 * std::fabs(parabola));
}

std::int64_t Millimetres(double metres) {
  return static_cast<std::int64_t>(metres * 1000.0 + (metres < 0.0 ? -0.5 : 0.5));
}

/// Sideways shift of the channel's axis: it winds.
double Winding(double along) { return 70.0 * Wave(along / 2700.0) + 9.0 * Wave(along / 610.0); }

}  // namespace

std::uint64_t SurveySimulator::Random::Bits() {
  state_ += 0x9E3779B97F4A7C15u;
  std::uint64_t z = state_;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

double SurveySimulator::Random::Uniform() { return static_cast<double>(Bits() >> 11) * 0x1p-53; }

double SurveySimulator::Random::Between(double low, double high) { return low + (high - low) * Uniform(); }

double SurveySimulator::Random::Normal() {
  // The sum of four uniform numbers of 16 bits, close to a normal one, and exact.
  const std::uint64_t bits = Bits();
  const std::uint64_t sum = (bits & 0xFFFF) + (bits >> 16 & 0xFFFF) + (bits >> 32 & 0xFFFF) + (bits >> 48);
  constexpr double kMean = 2.0 * 65535.0;
  constexpr double kDeviation = 37837.2;  // sqrt(4 * (65536^2 - 1) / 12)
  return (static_cast<double>(sum) - kMean) / kDeviation;
}

SurveySimulator::SurveySimulator(const Options& options)
    : random_(options.seed),
      count_(options.count),
      hint_(options.cellSizeHint),
      relief_(std::min(1.0, options.cellSizeHint)) {
  for (double& phase : phases_) phase = random_.Uniform();
  StartReach();
  FindPing();
}

bool SurveySimulator::Next(Sounding& sounding) {
  SoundingMillimetres whole;
  if (!Next(whole)) return false;
  sounding.x = static_cast<double>(whole.x) / 1000.0;
  sounding.y = static_cast<double>(whole.y) / 1000.0;
  sounding.z = static_cast<double>(whole.z) / 1000.0;
  return true;
}

bool SurveySimulator::Next(SoundingMillimetres& sounding) {
  if (count_ != 0 && made_ == count_) return false;
  // Beams lie closer together below the vessel.
  const double tau = (2.0 * beam_ + 1.0) / kBeams - 1.0;
  const double abeam = kHalfSwath * tau * (0.85 + 0.15 * tau * tau) + 0.12 * random_.Normal();
  const Place place{vessel_.along + abeam * side_.along, vessel_.across + abeam * side_.across};

  const double noise = (0.012 + 0.02 * tau * tau) * random_.Normal();
  double z = Bed(place) + lineLevel_ + noise;
  if (random_.Chance(6e-5))
    z += relief_ * (random_.Chance(0.7) ? random_.Between(0.8, 5.0) : random_.Between(-4.0, -0.8));

  const double across = place.across + Winding(place.along);
  sounding.x = Millimetres(kEasting + hint_ * (kCosBearing * place.along - kSinBearing * across));
  sounding.y = Millimetres(kNorthing + hint_ * (kSinBearing * place.along + kCosBearing * across));
  sounding.z = Millimetres(z);
  ++made_;
  NextBeam();
  return true;
}

void SurveySimulator::NextBeam() {
  if (++beam_ < kBeams) return;
  pingAlong_ += kPingSpacing;
  FindPing();
}

/// Goes on to the next ping that was recorded, over the ends of lines and reaches.
void SurveySimulator::FindPing() {
  for (;;) {
    if (pingAlong_ > reachEnd_ - reachStart_) {
      const double spacing = random_.Chance(0.15) ? kGapLineSpacing : kLineSpacing;
      lineAcross_ += spacing;
      if (lineAcross_ > reachHalfWidth_) {
        StartReach();
      } else {
        StartLine();
      }
    }
    if (lostPings_ == 0 && random_.Chance(0.001)) lostPings_ = static_cast<int>(random_.Between(3.0, 20.0));
    if (lostPings_ == 0) break;
    --lostPings_;
    pingAlong_ += kPingSpacing;
  }
  StartPing();
}

void SurveySimulator::StartReach() {
  ++reach_;
  const double length = reach_ == 0 ? kFirstReachLength : (reachEnd_ - reachStart_) * kReachGrowth;
  reachStart_ = reachEnd_;
  reachEnd_ = reachStart_ + length;
  reachHalfWidth_ = HalfWidth(reachStart_);
  lineAcross_ = -reachHalfWidth_ + 0.5 * kLineSpacing;
  StartLine();
}

void SurveySimulator::StartLine() {
  seawards_ = !seawards_;
  pingAlong_ = 0.0;
  lineLevel_ = relief_ * 0.012 * random_.Normal();
  for (double& phase : motion_) phase = random_.Uniform();
}

void SurveySimulator::StartPing() {
  const double drift = 1.1 * Wave(pingAlong_ / 160.0 + motion_[0]) + 0.4 * Wave(pingAlong_ / 47.0 + motion_[1]);
  const double roll = 0.5 * Wave(pingAlong_ / 6.1 + motion_[2]) * (1.0 + 0.5 * Wave(pingAlong_ / 71.0 + motion_[1]));
  const double yaw = 0.03 * Wave(pingAlong_ / 23.0 + motion_[3]) + 0.02 * Wave(pingAlong_ / 97.0 + motion_[0]);
  const double course = seawards_ ? 1.0 : -1.0;
  vessel_.along = seawards_ ? reachStart_ + pingAlong_ : reachEnd_ - pingAlong_;
  vessel_.across = lineAcross_ + drift + course * roll;
  // Small angles: the side's length is off by a thousandth at most.
  side_ = {course * yaw, -course};
  beam_ = 0;
}

double SurveySimulator::HalfWidth(double along) const {
  return kFirstReachHalfWidth * (1.0 + (kReachGrowth - 1.0) / kFirstReachLength * along);
}

/// Height of the sea bed, metres.
double SurveySimulator::Bed(const Place& place) const {
  const double t = place.across / HalfWidth(place.along);
  const double bank = std::min(t * t, 1.3);
  // Crests lie across the stream, bend, lean over seawards, and grow and fade in groups.
  const double bend = 0.2 * Wave(place.across / 170.0 + place.along / 1100.0 + phases_[3]) +
                      0.1 * Wave(place.across / 59.0 - place.along / 430.0 + phases_[4]) + 0.002 * place.across;
  const double shortTurns = place.along / 9.0 + 2.0 * bend + phases_[0];
  const double middleTurns = place.along / 34.0 + bend + phases_[1];
  const double longTurns = place.along / 260.0 + 0.3 * bend + phases_[2];
  const double group = 0.6 + 0.4 * Wave(place.along / 370.0 - place.across / 240.0 + phases_[5]);
  const double waves = group * (0.05 * Wave(shortTurns) + 0.42 * Wave(middleTurns + 0.1 * Wave(middleTurns))) +
                       0.45 * Wave(longTurns) + 0.25 * Wave(place.across / 190.0 + place.along / 900.0 + phases_[4]);
  const double bed = -12.0 + 6.5 * bank + waves * (1.2 - 0.8 * bank);
  return relief_ * std::min(bed, Trench(place));
}

/// Height of the trench's bottom and sides, metres before relief; what lies above the bed isn't there.
double SurveySimulator::Trench(const Place& place) const {
  const double halfWidth = HalfWidth(place.along);
  const double axis = 0.22 * std::min(halfWidth, 400.0) * (1.0 + 0.3 * Wave(place.along / 1900.0 + phases_[5]));
  const double halfBottom = std::min(0.17 * halfWidth, 45.0);
  const double beyond = std::fabs(place.across - axis) - halfBottom;
  return -16.5 + std::max(0.0, beyond) / 3.0;
}

}  // namespace vak
