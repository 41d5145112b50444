#include "gridding/core/line_offsets.h"

#include <algorithm>
#include <cmath>

#include "gridding/core/median.h"

namespace quarro::core {

void LineOffsets::Clear() {
  lines_.clear();
  groups_.clear();
  group_count_ = 0;
  for (Pair& pair : pairs_) {
    pair.differences_m.clear();
    pair.real = false;
  }
}

std::size_t LineOffsets::IndexOf(std::uint32_t line) {
  const auto found = std::find(lines_.begin(), lines_.end(), line);
  const auto index = static_cast<std::size_t>(found - lines_.begin());
  if (index == lines_.size()) lines_.push_back(line);
  return index;
}

LineOffsets::Pair& LineOffsets::PairOf(std::size_t earlier, std::size_t later) {
  const std::size_t place = later * (later - 1) / 2 + earlier;
  if (pairs_.size() <= place) pairs_.resize(place + 1);
  return pairs_[place];
}

void LineOffsets::AddBlock(std::span<const NodeSounding> soundings, const LocalTrend& trend) {
  if (soundings.empty() || soundings.front().line == soundings.back().line) return;
  block_.clear();
  for (std::size_t begin = 0; begin < soundings.size();) {
    depths_m_.clear();
    std::size_t end = begin;
    for (; end < soundings.size() && soundings[end].line == soundings[begin].line; ++end) {
      const NodeSounding& sounding = soundings[end];
      depths_m_.push_back(sounding.depth_m - trend.east * sounding.east_m -
                          trend.north * sounding.north_m);
    }
    block_.push_back({IndexOf(soundings[begin].line), MedianOf(depths_m_)});
    begin = end;
  }
  for (std::size_t i = 1; i < block_.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      const auto [earlier, later] = std::minmax(block_[i].index, block_[j].index);
      const double difference_m = block_[i].depth_m - block_[j].depth_m;
      PairOf(earlier, later)
          .differences_m.push_back(block_[i].index == later ? difference_m : -difference_m);
    }
  }
}

void LineOffsets::Judge(Pair& pair) const {
  pair.real = false;
  const std::size_t places = pair.differences_m.size();
  if (places < static_cast<std::size_t>(settings_.fewest_places)) return;
  const auto [offset_m, scatter_m] = CentreAndScatterOf(pair.differences_m);
  const double sigma_m =
      scatter_m * std::sqrt(kVarianceOfMedianOverMean / static_cast<double>(places));
  pair.offset_m = offset_m;
  pair.real = std::abs(offset_m) > settings_.offset_sigmas * sigma_m;
}

// A line joins a group with all of whose lines it agrees.
bool LineOffsets::JoinsGroup(std::size_t line, std::size_t group) {
  for (std::size_t other = 0; other < line; ++other) {
    if (groups_[other] == group && PairOf(other, line).real) return false;
  }
  return true;
}

void LineOffsets::Conclude() {
  for (std::size_t later = 1; later < lines_.size(); ++later) {
    for (std::size_t earlier = 0; earlier < later; ++earlier) Judge(PairOf(earlier, later));
  }
  for (std::size_t line = 0; line < lines_.size(); ++line) {
    std::size_t group = 0;
    while (group < group_count_ && !JoinsGroup(line, group)) ++group;
    groups_.push_back(group);
    group_count_ = std::max(group_count_, group + 1);
  }
  group_offsets_m_.assign(group_count_ * group_count_, 0.0);
  for (std::size_t later = 1; later < lines_.size(); ++later) {
    for (std::size_t earlier = 0; earlier < later; ++earlier) {
      const Pair& pair = PairOf(earlier, later);
      if (!pair.real) continue;
      for (const std::size_t place : {groups_[earlier] * group_count_ + groups_[later],
                                      groups_[later] * group_count_ + groups_[earlier]}) {
        group_offsets_m_[place] = std::max(group_offsets_m_[place], std::abs(pair.offset_m));
      }
    }
  }
}

bool LineOffsets::Matters(std::size_t a, std::size_t b) const {
  if (information_[a] == 0.0 || information_[b] == 0.0) return false;
  const double variance_m2 = 1.0 / information_[a] + 1.0 / information_[b];
  return group_offsets_m_[a * group_count_ + b] > settings_.split_sigmas * std::sqrt(variance_m2);
}

std::span<const std::span<const NodeSounding>> LineOffsets::Parts(
    std::span<const NodeSounding> soundings) {
  parts_.assign(1, soundings);
  if (group_count_ < 2 || soundings.size() < 2 || soundings.front().line == soundings.back().line) {
    return parts_;
  }
  const auto group_of = [&](const NodeSounding& sounding) {
    const auto found = std::find(lines_.begin(), lines_.end(), sounding.line);
    return found == lines_.end() ? 0 : groups_[static_cast<std::size_t>(found - lines_.begin())];
  };
  information_.assign(group_count_, 0.0);
  for (const NodeSounding& sounding : soundings) {
    const double sigma_m = sounding.sigma_v_m;
    information_[group_of(sounding)] += 1.0 / (sigma_m * sigma_m);
  }
  bool matters = false;
  for (std::size_t a = 1; a < group_count_; ++a) {
    for (std::size_t b = 0; b < a; ++b) matters = matters || Matters(a, b);
  }
  if (!matters) return parts_;
  ordered_.clear();
  ordered_.reserve(soundings.size());
  parts_.clear();
  for (std::size_t group = 0; group < group_count_; ++group) {
    const std::size_t begin = ordered_.size();
    std::copy_if(soundings.begin(), soundings.end(), std::back_inserter(ordered_),
                 [&](const NodeSounding& sounding) { return group_of(sounding) == group; });
    if (ordered_.size() != begin) {
      parts_.push_back(std::span<const NodeSounding>(ordered_).subspan(begin));
    }
  }
  return parts_;
}

}  // namespace quarro::core
