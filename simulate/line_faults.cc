// What is wrong with a line as a whole: its gaps and bursts, its refraction and its offset.
#include "simulate/line_faults.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "simulate/random.h"

namespace quarro::simulate {
namespace {

bool Names(const std::vector<std::uint32_t>& lines, std::uint32_t line) {
  return std::find(lines.begin(), lines.end(), line + 1) != lines.end();
}

// The first ping of each of `count` runs of `length` pings: one run anywhere in each of as many
// equal parts of the line, so that none overlap.
std::vector<std::uint32_t> RunStarts(const PingRandom& random, Purpose purpose, std::uint32_t count,
                                     std::uint32_t length, std::uint32_t pings) {
  std::vector<std::uint32_t> starts;
  for (std::uint64_t run = 0; run < count; ++run) {
    const std::uint64_t begin = run * pings / count;
    const std::uint64_t end = (run + 1) * pings / count;
    const auto places = static_cast<double>(end - begin + 1 - length);
    starts.push_back(static_cast<std::uint32_t>(begin) +
                     static_cast<std::uint32_t>(random.Uniform(run, purpose) * places));
  }
  return starts;
}

// The last of the ascending starts that is at or before the ping, or the end.
template <typename Iterator, typename StartOf>
Iterator LastStarted(Iterator begin, Iterator end, std::uint32_t ping, StartOf start_of) {
  const Iterator after = std::upper_bound(
      begin, end, ping, [&](std::uint32_t at, const auto& run) { return at < start_of(run); });
  return after == begin ? end : std::prev(after);
}

}  // namespace

LineFaults::LineFaults(const SurveyOptions& options, std::uint32_t line, std::uint32_t pings)
    : gap_pings_(options.gap_pings),
      burst_pings_(options.burst_pings),
      burst_beams_(options.burst_beams) {
  const PingRandom random = PingRandom::OfLine(options.seed, line);
  gaps_ = RunStarts(random, Purpose::kGapPing, options.gaps, gap_pings_, pings);
  const std::vector<std::uint32_t> starts =
      RunStarts(random, Purpose::kBurstPing, options.bursts, burst_pings_, pings);
  for (std::size_t i = 0; i < starts.size(); ++i) {
    const double from_middle =
        (random.Uniform(i, Purpose::kBurstBeam) - 0.5) * options.burst_swath_fraction;
    const double first_beam = std::round((options.beams - burst_beams_) * (0.5 + from_middle));
    bursts_.push_back({starts[i], static_cast<std::uint32_t>(first_beam)});
  }
  if (Names(options.smile_lines, line)) refraction_ = -options.smile_fraction;
  if (Names(options.offset_lines, line)) offset_m_ = options.offset_m;
}

bool LineFaults::Missing(std::uint32_t ping) const {
  const auto gap =
      LastStarted(gaps_.begin(), gaps_.end(), ping, [](std::uint32_t start) { return start; });
  return gap != gaps_.end() && ping - *gap < gap_pings_;
}

LineFaults::Beams LineFaults::BurstIn(std::uint32_t ping) const {
  const auto burst = LastStarted(bursts_.begin(), bursts_.end(), ping,
                                 [](const Burst& run) { return run.first_ping; });
  if (burst == bursts_.end() || ping - burst->first_ping >= burst_pings_) return {};
  return {burst->first_beam, burst->first_beam + burst_beams_};
}

}  // namespace quarro::simulate
