// Numbers as text, the same under every locale.
#pragma once

#include <array>
#include <charconv>
#include <string>

namespace quarro {

namespace number_text {
// The longest finite number in fixed notation has 309 digits before the point.
inline constexpr int kLongest = 400;
}  // namespace number_text

// Appends `value` in general notation ("%.*g") with `digits` significant digits.
template <typename Float>
void AppendGeneral(std::string& text, Float value, int digits) {
  std::array<char, number_text::kLongest> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                 std::chars_format::general, digits);
  text.append(buffer.data(), end.ptr);
}

// Appends `value` in fixed notation ("%.*f") with `decimals` digits after the point.
template <typename Float>
void AppendFixed(std::string& text, Float value, int decimals) {
  std::array<char, number_text::kLongest> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                 std::chars_format::fixed, decimals);
  text.append(buffer.data(), end.ptr);
}

template <typename Integer>
void AppendInteger(std::string& text, Integer value) {
  std::array<char, 24> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  text.append(buffer.data(), end.ptr);
}

inline std::string General(double value, int digits) {
  std::string text;
  AppendGeneral(text, value, digits);
  return text;
}

inline std::string Fixed(double value, int decimals) {
  std::string text;
  AppendFixed(text, value, decimals);
  return text;
}

}  // namespace quarro
