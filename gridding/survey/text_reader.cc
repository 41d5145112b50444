// Survey lines as text: one sounding a line.
#include "gridding/survey/text_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace quarro::survey {
namespace {

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
constexpr std::size_t kMostFields = 5;

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

void SkipBlanks(std::string_view& text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
}

// Cuts the first field off `text`, with the blanks and the one comma behind it.
std::string_view TakeField(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_of(" \t,"), text.size());
  const std::string_view field = text.substr(0, end);
  text.remove_prefix(end);
  SkipBlanks(text);
  if (!text.empty() && text.front() == ',') text.remove_prefix(1);
  SkipBlanks(text);
  return field;
}

bool ParseNumber(std::string_view field, double& value) {
  if (!field.empty() && field.front() == '+') {
    field.remove_prefix(1);
    // std::from_chars takes a minus sign, and would take one behind the plus.
    if (!field.empty() && field.front() == '-') return false;
  }
  const char* end = field.data() + field.size();
  const auto [rest, error] = std::from_chars(field.data(), end, value);
  return error == std::errc() && rest == end;
}

// An uncertainty, not a number where the field tells none. False for what is no number.
bool ParseSigma(std::string_view field, float& sigma) {
  double value = 0.0;
  sigma = kNone;
  if (field.empty()) return true;
  if (!ParseNumber(field, value)) return false;
  if (value > 0.0 && value < kDeepest_m) sigma = static_cast<float>(value);
  return !(value < 0.0);
}

struct Point {
  double x = std::numeric_limits<double>::quiet_NaN();
  double y = std::numeric_limits<double>::quiet_NaN();
  float depth_m = kNone;
  float sigma_v_m = kNone;
  float sigma_h_m = kNone;
};

bool ParsePoint(std::string_view line, Point& point) {
  std::array<std::string_view, kMostFields> fields{};
  std::size_t count = 0;
  while (!line.empty()) {
    if (count == kMostFields) return false;
    fields[count++] = TakeField(line);
  }
  double depth_m = 0.0;
  if (!ParseNumber(fields[0], point.x) || !ParseNumber(fields[1], point.y) ||
      !ParseNumber(fields[2], depth_m) || !ParseSigma(fields[3], point.sigma_v_m) ||
      !ParseSigma(fields[4], point.sigma_h_m)) {
    return false;
  }
  if (!std::isfinite(point.x) || !std::isfinite(point.y)) return false;
  if (!(std::abs(depth_m) <= kDeepest_m)) return false;
  point.depth_m = static_cast<float>(depth_m);
  return true;
}

void Append(const Point& point, PingChunk& chunk) {
  Ping ping;
  ping.longitude_deg = point.x;
  ping.latitude_deg = point.y;
  ping.first_beam = static_cast<std::uint32_t>(chunk.beams());
  ping.beam_count = 1;
  chunk.pings.push_back(ping);
  chunk.depth_m.push_back(point.depth_m);
  chunk.across_m.push_back(0.0F);
  chunk.along_m.push_back(0.0F);
  chunk.sigma_v_m.push_back(point.sigma_v_m);
  chunk.sigma_h_m.push_back(point.sigma_h_m);
  chunk.unusable.push_back(0);
}

// A piece of a line for a message: short, and printable whatever the file holds.
std::string Excerpt(std::string_view line) {
  constexpr std::size_t kMost = 60;
  std::string text(line.substr(0, kMost));
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return line.size() > kMost ? text + "..." : text;
}

}  // namespace

TextReader::TextReader(const std::string& path, bool projected)
    : window_(path), projected_(projected) {
  const auto start = window_.Get(0, kLongestLine);
  if (std::find(start.begin(), start.end(), std::byte{0}) != start.end()) {
    throw LineError("\"" + path + "\" is not text: it holds zero bytes");
  }
  constexpr std::array kByteOrderMark{std::byte{0xEF}, std::byte{0xBB}, std::byte{0xBF}};
  if (start.size() >= kByteOrderMark.size() &&
      std::equal(kByteOrderMark.begin(), kByteOrderMark.end(), start.begin())) {
    position_ = kByteOrderMark.size();
  }
}

bool TextReader::Next(PingChunk& chunk, BeamAccount& account) {
  chunk.Clear();
  chunk.projected = projected_;
  std::string_view line;
  while (chunk.beams() < kBeamsPerChunk && NextLine(line)) TakeLine(line, chunk);
  if (good_lines_ == 0) {
    throw LineError("\"" + window_.file().path() + "\" holds no sounding" +
                    (bad_lines_ > 0 ? ": " + Remark() : std::string()));
  }
  account.pings += chunk.pings.size();
  account.read += chunk.beams();
  if (!chunk.pings.empty()) {
    account.soundings_per_ping = std::max(account.soundings_per_ping, std::uint32_t{1});
  }
  return !chunk.pings.empty();
}

std::string TextReader::Remark() const {
  if (bad_lines_ == 0) return {};
  return first_bad_line_ +
         (bad_lines_ > 1 ? " (and " + std::to_string(bad_lines_ - 1) + " more)" : std::string());
}

bool TextReader::NextLine(std::string_view& line) {
  const auto bytes = window_.Get(position_, kLongestLine + 1);
  if (bytes.empty()) return false;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  std::size_t end = text.find('\n');
  ++line_number_;
  if (end != std::string_view::npos || text.size() <= kLongestLine) {
    end = std::min(end, text.size());
    position_ += std::min(end + 1, text.size());
    line = text.substr(0, end);
    return true;
  }
  // Too long to be a sounding: its beginning is kept for the message, its end looked for. The text
  // so kept moves with the window, hence the copy.
  long_line_ = text;
  line = long_line_;
  SkipLongLine();
  return true;
}

void TextReader::TakeLine(std::string_view line, PingChunk& chunk) {
  const std::string_view whole = line;
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  SkipBlanks(line);
  if (line.empty() || line.front() == '#') return;
  while (IsBlank(line.back())) line.remove_suffix(1);
  const bool may_be_header = before_first_line_;
  before_first_line_ = false;
  Point point;
  const bool good = whole.size() <= kLongestLine && ParsePoint(line, point);
  if (!good && may_be_header) {
    std::string_view rest = line;
    double ignored = 0.0;
    if (!ParseNumber(TakeField(rest), ignored)) return;
  }
  if (!good) {
    point = Point{};
    if (bad_lines_++ == 0) {
      first_bad_line_ =
          "line " + std::to_string(line_number_) + " is no sounding: \"" + Excerpt(line) + "\"";
    }
  }
  good_lines_ += good ? 1 : 0;
  Append(point, chunk);
}

void TextReader::SkipLongLine() {
  for (;;) {
    const auto bytes = window_.Get(position_, kLongestLine);
    const auto newline = std::find(bytes.begin(), bytes.end(), std::byte{'\n'});
    position_ += static_cast<std::uint64_t>(newline - bytes.begin());
    if (bytes.empty()) return;
    if (newline != bytes.end()) {
      ++position_;
      return;
    }
  }
}

}  // namespace quarro::survey
