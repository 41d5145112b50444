// Bounds that are always in order, and their text form.
#include "support/sg_bounding_box.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>

#include "support/exceptions.h"

namespace quarro {
namespace {

// The sign, all digits of the largest double, the point and three decimals.
constexpr std::size_t kLongestNumber = std::numeric_limits<double>::max_exponent10 + 1 + 5;

std::string ShortestText(double value) {
  std::array<char, 32> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return std::string(buffer.data(), end.ptr);
}

void AppendThreeDecimals(double value, std::string& text) {
  std::array<char, kLongestNumber> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                 std::chars_format::fixed, 3);
  const std::string_view number(buffer.data(), static_cast<std::size_t>(end.ptr - buffer.data()));
  text += number == "-0.000" ? number.substr(1) : number;
}

}  // namespace

SGBoundingBox::SGBoundingBox(double west_m, double south_m, double east_m, double north_m)
    : west_m_(west_m), south_m_(south_m), east_m_(east_m), north_m_(north_m) {
  const auto refuse = [&](const std::string& reason) {
    throw ExSGClientBase("bounding box west " + ShortestText(west_m) + ", south " +
                         ShortestText(south_m) + ", east " + ShortestText(east_m) + ", north " +
                         ShortestText(north_m) + " m cannot be used: " + reason);
  };
  if (!std::isfinite(west_m) || !std::isfinite(south_m) || !std::isfinite(east_m) ||
      !std::isfinite(north_m)) {
    refuse("every bound must be a finite number.");
  }
  if (west_m > east_m) refuse("west must not exceed east.");
  if (south_m > north_m) refuse("south must not exceed north.");
}

bool SGBoundingBox::Contains(double easting_m, double northing_m) const {
  return west_m_ <= easting_m && easting_m <= east_m_ && south_m_ <= northing_m &&
         northing_m <= north_m_;
}

std::ostream& operator<<(std::ostream& out, const SGBoundingBox& box) {
  std::string text;
  AppendThreeDecimals(box.west(), text);
  text += ' ';
  AppendThreeDecimals(box.south(), text);
  text += ' ';
  AppendThreeDecimals(box.east(), text);
  text += ' ';
  AppendThreeDecimals(box.north(), text);
  // Unformatted, so that no state of the stream is used or changed, its width among them.
  return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace quarro
