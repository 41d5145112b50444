// What holds of every survey line that a reader takes, whatever its bytes.
#include "fuzz/survey_line.h"

#include <cmath>

#include "fuzz/harness.h"
#include "gridding/core/binning.h"
#include "gridding/survey/georeference.h"

namespace quarro::fuzz {
namespace {

constexpr int kZone = 20;
constexpr float kCell_m = 32.0F;

void CheckShape(const survey::PingChunk& chunk) {
  const std::size_t beams = chunk.beams();
  Require(chunk.across_m.size() == beams && chunk.along_m.size() == beams &&
              chunk.sigma_v_m.size() == beams && chunk.sigma_h_m.size() == beams &&
              chunk.unusable.size() == beams,
          "the arrays of a chunk are of one length");
  std::size_t next = 0;
  for (const survey::Ping& ping : chunk.pings) {
    Require(ping.first_beam == next, "the beams of pings lie end to end");
    next += ping.beam_count;
  }
  Require(next == beams, "every beam is of a ping");
}

void CheckSoundings(const survey::Soundings& soundings) {
  Require(soundings.easting_m.size() == soundings.size() &&
              soundings.northing_m.size() == soundings.size() &&
              soundings.sigma_v_m.size() == soundings.size() &&
              soundings.sigma_h_m.size() == soundings.size(),
          "the arrays of soundings are of one length");
  for (std::size_t i = 0; i < soundings.size(); ++i) {
    Require(std::isfinite(soundings.easting_m[i]) && std::isfinite(soundings.northing_m[i]),
            "a sounding's position is finite");
    Require(std::abs(soundings.depth_m[i]) <= survey::kDeepest_m && soundings.depth_m[i] != 0.0F,
            "a sounding's depth is one on Earth");
    Require(soundings.sigma_v_m[i] > 0.0F && std::isfinite(soundings.sigma_v_m[i]) &&
                soundings.sigma_h_m[i] > 0.0F && std::isfinite(soundings.sigma_h_m[i]),
            "a sounding's uncertainties are positive and finite");
  }
}

}  // namespace

void ReadAndPlace(survey::LineReader& reader) {
  static survey::Georeferencer georeferencer(kZone, {});
  static core::Binner binner((core::Lattice(kCell_m)));
  survey::PingChunk chunk;
  survey::BeamAccount account;
  survey::Soundings soundings;
  while (reader.Next(chunk, account)) {
    CheckShape(chunk);
    soundings.Clear();
    georeferencer.Place(chunk, soundings, account);
    CheckSoundings(soundings);
    std::uint64_t too_uncertain = 0;
    const core::BinnedChunk& binned = binner.Bin(soundings, too_uncertain);
    Require(binned.soundings.size() + too_uncertain == soundings.size(),
            "every sounding has a cell or is counted as too uncertain");
  }
  Require(account.read == account.flagged + account.Refused() + account.offered,
          "every beam is accounted for");
  (void)reader.Remark();
}

}  // namespace quarro::fuzz
