// Soundings on their way from a survey file to the grid.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quarro::survey {

// Georeferenced soundings as a structure of arrays of equal length, in the order of the file.
struct Soundings {
  std::vector<double> easting_m;
  std::vector<double> northing_m;
  std::vector<float> depth_m;    // positive down
  std::vector<float> sigma_v_m;  // vertical, 1 sigma, > 0
  std::vector<float> sigma_h_m;  // horizontal, 1 sigma along one axis, > 0

  std::size_t size() const { return depth_m.size(); }
  void Clear();
};

// A ping as the file gives it: one position and a run of beams.
struct Ping {
  double time_s = 0.0;         // since 1970-01-01 UTC
  double longitude_deg = 0.0;  // of the ship, WGS84; easting in metres when the chunk is projected
  double latitude_deg = 0.0;   // of the ship, WGS84; northing in metres when the chunk is projected
  double heading_deg = 0.0;    // clockwise from true north
  std::uint32_t first_beam = 0;
  std::uint32_t beam_count = 0;
  // The file does not tell where its beams are: an array or its scale factors are missing or bad.
  // The beams stand in the chunk as not-a-number and are refused as kIncomplete.
  bool incomplete = false;
};

// A run of pings, their beams end to end as a structure of arrays.
struct PingChunk {
  bool projected = false;  // positions are projected metres, not degrees
  std::vector<Ping> pings;
  std::vector<float> depth_m;
  std::vector<float> across_m;         // starboard positive
  std::vector<float> along_m;          // forward positive
  std::vector<float> sigma_v_m;        // 1 sigma; not a number where the file tells none
  std::vector<float> sigma_h_m;        // 1 sigma along one axis; not a number where it tells none
  std::vector<std::uint8_t> unusable;  // nonzero: flagged in the file, by beam or by ping

  std::size_t beams() const { return depth_m.size(); }
  void Clear();
};

// Why a beam that was not flagged gives no sounding.
enum class Refusal : std::uint8_t {
  kIncomplete,  // its ping lacks a depth, across-track or along-track array, or has bad scale
                // factors
  kNotFinite,   // a value that is not finite, a depth of exactly 0 (the files' mark of a beam
                // without detection) or one that no place on Earth has, see kDeepest_m
  kPosition,    // the ship's position lies outside the globe, or its heading outside [0, 360]
  kZone,        // too far from the grid's zone for the projection to stay accurate
  kUncertain,   // its horizontal uncertainty is wider than a cell of the grid
};
inline constexpr std::size_t kRefusals = 5;
// Beyond these no echosounder measures, so that such a value is damage. Heights above the chart
// datum (negative depths) are as good as depths.
inline constexpr float kDeepest_m = 12000.0F;
inline constexpr float kWidest_m = 50000.0F;  // of an across- or along-track offset
const char* RefusalText(Refusal reason);      // "beyond the grid's projection zone"

// What became of every beam of a line. read = flagged + the refused + offered.
struct BeamAccount {
  std::uint64_t pings = 0;
  std::uint32_t soundings_per_ping = 0;  // greatest beam count of a ping
  std::uint64_t read = 0;
  std::uint64_t flagged = 0;
  std::array<std::uint64_t, kRefusals> refused{};
  std::uint64_t offered = 0;
  std::uint64_t used = 0;

  std::uint64_t Refused() const;  // the sum over all reasons
};

}  // namespace quarro::survey
