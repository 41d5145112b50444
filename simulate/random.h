// Random numbers that depend on what they are for and on nothing else, so that a survey is the same
// whatever the number of threads and the order of the work.
#pragma once

#include <cstdint>

namespace quarro::simulate {

// What the numbers are for. Of a beam, one number for each.
enum class Purpose : std::uint64_t {
  kDepth,
  kAcross,
  kAlong,
  kFlagged,
  kSpike,
  kSpikeSize,
  kSpikeSide,
  // Of a line: one number for each of its gaps or bursts.
  kGapPing,
  kBurstPing,
  kBurstBeam,
  // Of the survey: one for each rock.
  kRockAlong,
  kRockAcross,
};

// The standard normal deviate below which lies a part `probability` of the distribution, within
// (0, 1); good to 15 digits (Wichura's algorithm AS 241).
double NormalQuantile(double probability);

// The random numbers of one ping, or of what a line or a survey has as a whole. A value.
class PingRandom {
 public:
  PingRandom(std::uint64_t seed, std::uint64_t line, std::uint64_t ping);
  static PingRandom OfLine(std::uint64_t seed, std::uint64_t line) { return {seed, line, kWhole}; }
  static PingRandom OfSurvey(std::uint64_t seed) { return {seed, kWhole, kWhole}; }

  // In (0, 1), never its ends.
  double Uniform(std::uint64_t beam, Purpose purpose) const;
  // Of mean 0 and variance 1.
  double Normal(std::uint64_t beam, Purpose purpose) const {
    return NormalQuantile(Uniform(beam, purpose));
  }

 private:
  static constexpr std::uint64_t kWhole = ~std::uint64_t{0};  // no ping or line

  std::uint64_t key_;
};

}  // namespace quarro::simulate
