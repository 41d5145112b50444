// From pings and beams to projected soundings with their uncertainties.
#include "gridding/survey/georeference.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "gridding/survey/utm.h"

namespace quarro::survey {
namespace {

// The difference of two longitudes, the short way round.
double LongitudeDifference(double a_deg, double b_deg) {
  return std::remainder(a_deg - b_deg, 360.0);
}

bool IsPossible(float depth_m, float across_m, float along_m) {
  // Written so that what is not a number fails.
  return std::abs(depth_m) <= kDeepest_m && depth_m != 0.0F && std::abs(across_m) <= kWidest_m &&
         std::abs(along_m) <= kWidest_m;
}

// Beams of the ping that give soundings where the ping itself can be placed.
std::uint64_t PossibleBeams(const PingChunk& chunk, const Ping& ping) {
  std::uint64_t possible = 0;
  for (std::size_t i = ping.first_beam; i < std::size_t{ping.first_beam} + ping.beam_count; ++i) {
    const bool is_possible =
        chunk.unusable[i] == 0 && IsPossible(chunk.depth_m[i], chunk.across_m[i], chunk.along_m[i]);
    possible += is_possible ? 1 : 0;
  }
  return possible;
}

// The reason why no beam of the ping can be placed in any zone, if there is one.
std::optional<Refusal> RefusalInEveryZone(const PingChunk& chunk, const Ping& ping) {
  const double x = ping.longitude_deg;
  const double y = ping.latitude_deg;
  if (ping.incomplete) return Refusal::kIncomplete;
  if (!std::isfinite(x) || !std::isfinite(y)) return Refusal::kNotFinite;
  if (chunk.projected) {
    // No projected metre lies farther from the origin than the globe is round.
    constexpr double kFarthest_m = 4.0e7;
    if (std::abs(x) > kFarthest_m || std::abs(y) > kFarthest_m) return Refusal::kPosition;
    return std::nullopt;
  }
  const bool on_globe = std::abs(x) <= 180.0 && std::abs(y) <= 90.0;
  const bool heading_known = ping.heading_deg >= 0.0 && ping.heading_deg <= 360.0;
  if (!on_globe || !heading_known) return Refusal::kPosition;
  return std::nullopt;
}

bool IsTold(float sigma_m) { return sigma_m > 0.0F && sigma_m <= kDeepest_m; }

}  // namespace

int UtmZoneOf(double longitude_deg, double latitude_deg) {
  const double east_deg = longitude_deg - 360.0 * std::floor((longitude_deg + 180.0) / 360.0);
  const int zone = std::clamp(static_cast<int>(std::floor((east_deg + 180.0) / 6.0)) + 1, 1, 60);
  return latitude_deg < 0.0 ? -zone : zone;
}

int ZoneOfFirstSounding(const PingChunk& chunk) {
  if (chunk.projected) return 0;
  for (const Ping& ping : chunk.pings) {
    if (!RefusalInEveryZone(chunk, ping) && PossibleBeams(chunk, ping) > 0) {
      return UtmZoneOf(ping.longitude_deg, ping.latitude_deg);
    }
  }
  return 0;
}

struct Georeferencer::Impl {
  Impl(int utm_zone, const UncertaintyModel& uncertainty_model)
      : zone(utm_zone), model(uncertainty_model) {}

  // The reason why no beam of the ping can be placed, if there is one; else its frame.
  std::optional<Refusal> Locate(const PingChunk& chunk, const Ping& ping, LocalFrame& frame) const;
  void PlaceBeams(const PingChunk& chunk, const Ping& ping, const LocalFrame& frame, Soundings& out,
                  BeamAccount& account) const;
  // Accounts for the beams of a ping of which none is placed.
  static void Refuse(const PingChunk& chunk, const Ping& ping, Refusal reason,
                     BeamAccount& account);

  UtmZone zone;
  UncertaintyModel model;
};

std::optional<Refusal> Georeferencer::Impl::Locate(const PingChunk& chunk, const Ping& ping,
                                                   LocalFrame& frame) const {
  if (const auto refusal = RefusalInEveryZone(chunk, ping)) return refusal;
  const double x = ping.longitude_deg;
  const double y = ping.latitude_deg;
  if (chunk.projected) {
    frame = LocalFrame{};
    frame.origin = {x, y};
    return std::nullopt;
  }
  if (std::abs(LongitudeDifference(x, zone.central_meridian_deg())) > kMostDegreesFromMeridian ||
      !zone.Frame(x, y, frame)) {
    return Refusal::kZone;
  }
  return std::nullopt;
}

void Georeferencer::Impl::PlaceBeams(const PingChunk& chunk, const Ping& ping,
                                     const LocalFrame& frame, Soundings& out,
                                     BeamAccount& account) const {
  const Heading heading(ping.heading_deg, frame);
  const std::size_t before = out.size();
  const std::size_t room = before + ping.beam_count;
  out.easting_m.resize(room);
  out.northing_m.resize(room);
  out.depth_m.resize(room);
  out.sigma_v_m.resize(room);
  out.sigma_h_m.resize(room);
  const auto least_v_m = static_cast<float>(model.least_vertical_m);
  const auto least_h_m = static_cast<float>(model.least_horizontal_m);
  std::size_t next = before;
  std::uint64_t flagged = 0;
  std::uint64_t impossible = 0;
  for (std::size_t i = ping.first_beam; i < std::size_t{ping.first_beam} + ping.beam_count; ++i) {
    if (chunk.unusable[i] != 0) {
      ++flagged;
      continue;
    }
    const float depth_m = chunk.depth_m[i];
    const float across_m = chunk.across_m[i];
    const float along_m = chunk.along_m[i];
    if (!IsPossible(depth_m, across_m, along_m)) {
      ++impossible;
      continue;
    }
    float sigma_v_m = chunk.sigma_v_m[i];
    float sigma_h_m = chunk.sigma_h_m[i];
    if (!IsTold(sigma_v_m) || !IsTold(sigma_h_m)) {
      const BeamSigma sigma = ModelSigma(model, depth_m, across_m);
      if (!IsTold(sigma_v_m)) sigma_v_m = static_cast<float>(sigma.vertical_m);
      if (!IsTold(sigma_h_m)) sigma_h_m = static_cast<float>(sigma.horizontal_m);
    }
    const GridPoint at =
        frame.ToGrid(heading.East(along_m, across_m), heading.North(along_m, across_m));
    out.easting_m[next] = at.easting_m;
    out.northing_m[next] = at.northing_m;
    out.depth_m[next] = depth_m;
    out.sigma_v_m[next] = std::max(sigma_v_m, least_v_m);
    out.sigma_h_m[next] = std::max(sigma_h_m, least_h_m);
    ++next;
  }
  out.easting_m.resize(next);
  out.northing_m.resize(next);
  out.depth_m.resize(next);
  out.sigma_v_m.resize(next);
  out.sigma_h_m.resize(next);
  account.flagged += flagged;
  account.refused[static_cast<std::size_t>(Refusal::kNotFinite)] += impossible;
  account.offered += next - before;
}

void Georeferencer::Impl::Refuse(const PingChunk& chunk, const Ping& ping, Refusal reason,
                                 BeamAccount& account) {
  const auto first = chunk.unusable.begin() + ping.first_beam;
  const auto unflagged = static_cast<std::uint64_t>(std::count(first, first + ping.beam_count, 0));
  const std::uint64_t of_reason = reason == Refusal::kZone ? PossibleBeams(chunk, ping) : unflagged;
  account.flagged += ping.beam_count - unflagged;
  account.refused[static_cast<std::size_t>(reason)] += of_reason;
  account.refused[static_cast<std::size_t>(Refusal::kNotFinite)] += unflagged - of_reason;
}

Georeferencer::Georeferencer(int utm_zone, const UncertaintyModel& model)
    : impl_(std::make_unique<Impl>(utm_zone, model)) {}

Georeferencer::~Georeferencer() = default;

void Georeferencer::Place(const PingChunk& chunk, Soundings& out, BeamAccount& account) {
  for (const Ping& ping : chunk.pings) {
    LocalFrame frame;
    const std::optional<Refusal> refusal = impl_->Locate(chunk, ping, frame);
    if (refusal) {
      Impl::Refuse(chunk, ping, *refusal, account);
    } else {
      impl_->PlaceBeams(chunk, ping, frame, out, account);
    }
  }
}

}  // namespace quarro::survey
