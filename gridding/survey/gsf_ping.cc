// One swath-bathymetry ping record of a GSF file, and what pings inherit from earlier ones.
#include "gridding/survey/gsf_ping.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "gridding/survey/gsf_format.h"

namespace quarro::survey::gsf {
namespace {

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

Ping DecodeHeader(const std::byte* at) {
  Ping ping;
  ping.time_s = LoadI32(at) + 1e-9 * LoadI32(at + 4);
  ping.longitude_deg = LoadI32(at + 8) / 1e7;
  ping.latitude_deg = LoadI32(at + 12) / 1e7;
  ping.heading_deg = LoadU16(at + 30) / 100.0;
  return ping;
}

void AppendBeams(std::size_t beams, PingChunk& chunk) {
  const std::size_t total = chunk.beams() + beams;
  for (auto* array :
       {&chunk.depth_m, &chunk.across_m, &chunk.along_m, &chunk.sigma_v_m, &chunk.sigma_h_m}) {
    array->resize(total, kNone);
  }
  chunk.unusable.resize(total, 0);
}

const char* ArrayName(std::size_t id) {
  switch (id) {
    case kDepth:
      return "depth";
    case kAcross:
      return "across-track";
    case kAlong:
      return "along-track";
    case kDepthErrorOld:
      return "depth-error";
    case kAcrossErrorOld:
      return "across-track-error";
    case kAlongErrorOld:
      return "along-track-error";
    case kVerticalError:
      return "vertical-error";
    default:
      return "horizontal-error";
  }
}

}  // namespace

void PingDecoder::ForgetInherited() {
  scales_.fill(Scale{});
  inherited_ = Errors{};
}

bool PingDecoder::Decode(std::span<const std::byte> data, std::size_t header_bytes,
                         PingChunk& chunk, std::string& problem) {
  problem.clear();
  if (data.size() < header_bytes) {
    problem = "a ping of " + std::to_string(data.size()) + " bytes is shorter than its header";
    return false;
  }
  const int beams = LoadI16(data.data() + 16);
  if (beams < 0) {
    problem = "a ping tells " + std::to_string(beams) + " beams";
    return false;
  }
  Ping ping = DecodeHeader(data.data());
  ping.first_beam = static_cast<std::uint32_t>(chunk.beams());
  ping.beam_count = static_cast<std::uint32_t>(beams);
  AppendBeams(ping.beam_count, chunk);

  Subrecords found{};
  problem = Walk(data.subspan(header_bytes), found);
  std::string errors_problem;
  if (beams > 0) {
    const bool whole_ping = (LoadU16(data.data() + 20) & 1U) != 0;
    const std::string flags_problem = DecodeFlags(found, ping, whole_ping, chunk);
    if (problem.empty()) problem = flags_problem;
    if (problem.empty()) problem = DecodePlaces(found, ping, chunk);
    // Of an incomplete ping too: later ones inherit them, or must not.
    errors_problem = DecodeErrors(found, ping, chunk);
  }
  ping.incomplete = !problem.empty();
  if (problem.empty()) problem = errors_problem;
  chunk.pings.push_back(ping);
  return true;
}

std::string PingDecoder::Walk(std::span<const std::byte> rest, Subrecords& found) {
  // A last subrecord that is skipped anyway may run into the padding that the record lacks: known
  // writers count intensity series so. More than that means that something else is lost.
  constexpr std::size_t kMissingPadding = 3;
  while (rest.size() >= 4) {
    const std::uint32_t word = LoadU32(rest.data());
    if (word == 0) break;
    rest = rest.subspan(4);
    const std::size_t id = word >> 24U;
    const std::size_t size = word & 0xFFFFFFU;
    const bool known = id < kKnownIds || id == kScaleFactors;
    if (size > rest.size()) {
      const bool skipped = id > kHorizontalError && id != kScaleFactors;
      if (skipped && size - rest.size() <= kMissingPadding) break;
      // Scale factors may be among what is lost.
      ForgetInherited();
      return "a subrecord (" + std::to_string(id) + ") of " + std::to_string(size) +
             " bytes runs past the end of its ping";
    }
    const auto bytes = rest.first(size);
    rest = rest.subspan(size);
    if (!known) continue;
    if (id == kScaleFactors) {
      std::string problem = TakeScaleFactors(bytes);
      if (!problem.empty()) {
        // The arrays behind it are not looked for, errors among them.
        ForgetInherited();
        return problem;
      }
    } else {
      found[id] = bytes;
    }
  }
  return {};
}

std::string PingDecoder::TakeScaleFactors(std::span<const std::byte> bytes) {
  constexpr std::size_t kEntryBytes = 12;
  scales_.fill(Scale{});
  const std::int64_t count = bytes.size() < 4 ? -1 : LoadI32(bytes.data());
  if (count < 0 || static_cast<std::uint64_t>(count) > (bytes.size() - 4) / kEntryBytes) {
    return "a scale-factor subrecord of " + std::to_string(bytes.size()) +
           " bytes cannot hold what it counts";
  }
  for (std::int64_t i = 0; i < count; ++i) {
    const std::byte* entry = bytes.data() + 4 + static_cast<std::size_t>(i) * kEntryBytes;
    const std::size_t id = LoadU32(entry) >> 24U;
    if (id < kKnownIds) scales_[id] = Scale{LoadI32(entry + 4), LoadI32(entry + 8)};
  }
  return {};
}

std::string PingDecoder::DecodePlaces(const Subrecords& found, const Ping& ping,
                                      PingChunk& chunk) const {
  for (const std::size_t id : {kDepth, kAcross, kAlong}) {
    if (found[id].empty()) return std::string("a ping lacks its ") + ArrayName(id) + " array";
    if (std::string problem = ArrayProblem(found, id, ping.beam_count); !problem.empty()) {
      return problem;
    }
  }
  const auto width = [&](std::size_t id) {
    return ElementWidth(found[id].size(), ping.beam_count);
  };
  DecodeUnsigned(found[kDepth], width(kDepth), scales_[kDepth],
                 chunk.depth_m.data() + ping.first_beam);
  DecodeSigned(found[kAcross], width(kAcross), scales_[kAcross],
               chunk.across_m.data() + ping.first_beam);
  DecodeSigned(found[kAlong], width(kAlong), scales_[kAlong],
               chunk.along_m.data() + ping.first_beam);
  return {};
}

std::string PingDecoder::DecodeFlags(const Subrecords& found, const Ping& ping, bool whole_ping,
                                     PingChunk& chunk) {
  std::uint8_t* unusable = chunk.unusable.data() + ping.first_beam;
  if (whole_ping) {
    std::fill_n(unusable, ping.beam_count, std::uint8_t{1});
    return {};
  }
  const auto flags = found[kBeamFlags];
  if (flags.empty()) return {};
  if (flags.size() != ping.beam_count) {
    return "the beam flags of " + std::to_string(flags.size()) + " bytes do not fit " +
           std::to_string(ping.beam_count) + " beams";
  }
  for (std::size_t i = 0; i < flags.size(); ++i) {
    unusable[i] = static_cast<std::uint8_t>(flags[i]) & 1U;
  }
  return {};
}

std::string PingDecoder::ArrayProblem(const Subrecords& found, std::size_t id,
                                      std::size_t beams) const {
  if (ElementWidth(found[id].size(), beams) == 0) {
    return std::string("the ") + ArrayName(id) + " array of " + std::to_string(found[id].size()) +
           " bytes does not fit " + std::to_string(beams) + " beams";
  }
  if (scales_[id].multiplier == 0) {
    return std::string("the ") + ArrayName(id) + " array has no scale factor other than 0";
  }
  return {};
}

std::string PingDecoder::DecodeErrors(const Subrecords& found, const Ping& ping, PingChunk& chunk) {
  // The obsolete arrays state no confidence; taking them as 1 sigma claims no more than they say.
  const std::size_t beams = ping.beam_count;
  std::string problem;
  Told vertical = DecodeError(found, kVerticalError, beams, kSigmasOfVertical95,
                              inherited_.vertical_m, problem);
  if (vertical != Told::kGood) {
    vertical = std::max(
        vertical, DecodeError(found, kDepthErrorOld, beams, 1.0, inherited_.vertical_m, problem));
  }
  Told horizontal = DecodeError(found, kHorizontalError, beams, kSigmasOfRadial95,
                                inherited_.horizontal_m, problem);
  if (horizontal != Told::kGood) {
    horizontal = std::max(horizontal,
                          DecodeOldHorizontalError(found, beams, inherited_.horizontal_m, problem));
  }
  if (vertical == Told::kBad) inherited_.vertical_m.clear();
  if (horizontal == Told::kBad) inherited_.horizontal_m.clear();
  if (inherited_.vertical_m.size() == beams) {
    std::copy(inherited_.vertical_m.begin(), inherited_.vertical_m.end(),
              chunk.sigma_v_m.begin() + ping.first_beam);
  }
  if (inherited_.horizontal_m.size() == beams) {
    std::copy(inherited_.horizontal_m.begin(), inherited_.horizontal_m.end(),
              chunk.sigma_h_m.begin() + ping.first_beam);
  }
  return problem;
}

PingDecoder::Told PingDecoder::DecodeError(const Subrecords& found, std::size_t id,
                                           std::size_t beams, double sigmas,
                                           std::vector<float>& out, std::string& problem) const {
  const auto bytes = found[id];
  if (bytes.data() == nullptr) return Told::kNothing;  // an array of no bytes is there, and bad
  if (const std::string wrong = ArrayProblem(found, id, beams); !wrong.empty()) {
    if (problem.empty()) problem = wrong + ": it is left out";
    return Told::kBad;
  }
  out.resize(beams);
  DecodeUnsigned(bytes, ElementWidth(bytes.size(), beams), scales_[id], out.data());
  const auto per_sigma = static_cast<float>(1.0 / sigmas);
  // An error of 0 is the mark of one that is not known.
  for (float& error : out) error = error > 0.0F ? error * per_sigma : kNone;
  return Told::kGood;
}

PingDecoder::Told PingDecoder::DecodeOldHorizontalError(const Subrecords& found, std::size_t beams,
                                                        std::vector<float>& out,
                                                        std::string& problem) {
  const Told across = DecodeError(found, kAcrossErrorOld, beams, 1.0, across_error_m_, problem);
  const Told along = DecodeError(found, kAlongErrorOld, beams, 1.0, along_error_m_, problem);
  if (across == Told::kBad || along == Told::kBad) return Told::kBad;
  // One of the two says nothing of the other axis.
  if (across == Told::kNothing || along == Told::kNothing) return Told::kNothing;
  out.resize(beams);
  std::transform(across_error_m_.begin(), across_error_m_.end(), along_error_m_.begin(),
                 out.begin(), [](float x, float y) { return std::max(x, y); });
  return Told::kGood;
}

}  // namespace quarro::survey::gsf
