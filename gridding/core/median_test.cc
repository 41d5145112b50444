#include "gridding/core/median.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace quarro::core {
namespace {

constexpr std::size_t kSizes[] = {1,  2,  3,  4,  5,  6,  11,  12,   13,   23,  24,
                                  25, 26, 27, 50, 51, 99, 100, 1000, 1001, 8191};

double MedianBySorting(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : 0.5 * (values[half - 1] + values[half]);
}

// `value_at` gives the value at a place among so many.
void ExpectMediansOf(const std::function<double(std::size_t, std::size_t)>& value_at) {
  for (const std::size_t size : kSizes) {
    std::vector<double> values;
    for (std::size_t i = 0; i < size; ++i) values.push_back(value_at(i, size));
    std::vector<double> reordered = values;
    EXPECT_EQ(MedianOf(reordered), MedianBySorting(values)) << size << " values";
    std::sort(values.begin(), values.end());
    std::sort(reordered.begin(), reordered.end());
    EXPECT_EQ(reordered, values) << "no value is lost";
  }
}

TEST(Median, IsThatOfTheSortedValuesWhateverTheirOrder) {
  std::mt19937_64 random(7);
  std::normal_distribution<double> normal(-20.0, 0.1);
  for (int repeat = 0; repeat < 20; ++repeat) {
    ExpectMediansOf([&](std::size_t, std::size_t) { return normal(random); });
  }
  ExpectMediansOf([](std::size_t i, std::size_t) { return static_cast<double>(i); });
  ExpectMediansOf([](std::size_t i, std::size_t size) { return static_cast<double>(size - i); });
  ExpectMediansOf(
      [](std::size_t i, std::size_t size) { return static_cast<double>(std::min(i, size - i)); });
}

TEST(Median, OfManyEqualValuesIsThatValue) {
  ExpectMediansOf([](std::size_t, std::size_t) { return 4.5; });
  ExpectMediansOf([](std::size_t i, std::size_t) { return static_cast<double>(i % 2); });
  ExpectMediansOf([](std::size_t i, std::size_t size) { return i + 1 == size ? -1e30 : 2.0; });
  std::mt19937_64 random(8);
  ExpectMediansOf([&](std::size_t, std::size_t) { return static_cast<double>(random() % 3); });
}

TEST(Median, ScatterIsTheStandardDeviationOfNormalDeviatesDespiteSpikes) {
  std::mt19937_64 random(9);
  std::normal_distribution<double> normal(50.0, 0.25);
  std::vector<double> values;
  for (int i = 0; i < 20000; ++i) values.push_back(i % 100 == 0 ? 9000.0 : normal(random));
  const auto [centre, scatter] = CentreAndScatterOf(values);
  EXPECT_NEAR(centre, 50.0, 0.01);
  EXPECT_NEAR(scatter, 0.25, 0.01);
}

}  // namespace
}  // namespace quarro::core
