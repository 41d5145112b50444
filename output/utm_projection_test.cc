// UTM against PROJ's own program and against what is known of the projection.
#include "output/utm_projection.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/test_directory.h"

namespace quarro {
namespace {

constexpr double kTenthOfAMillimetre = 1e-4;
constexpr double kTenthOfAMillimetreInDegrees = 1e-9;

struct Pair {
  double first;
  double second;
};

// What the shell command prints.
std::string OutputOf(const std::string& command) {
  std::string output;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen(command.c_str(), "r"),
                                                             ::pclose);
  std::array<char, 4096> piece;
  while (pipe != nullptr && std::fgets(piece.data(), piece.size(), pipe.get()) != nullptr) {
    output += piece.data();
  }
  return output;
}

std::string Text(const std::vector<Pair>& points) {
  std::string text;
  for (const Pair& point : points) {
    std::array<char, 96> line;
    std::snprintf(line.data(), line.size(), "%.12f %.12f\n", point.first, point.second);
    text += line.data();
  }
  return text;
}

// What PROJ's program gives for the points, in their order.
std::vector<Pair> OfProgram(const std::string& options, std::int32_t zone,
                            const std::vector<Pair>& points) {
  const TestDirectory directory;
  const std::string path = directory.Write("points", Text(points));
  std::istringstream output(OutputOf("proj " + options +
                                     " -f %.12f +proj=utm +zone=" + std::to_string(std::abs(zone)) +
                                     (zone < 0 ? " +south" : "") + " +ellps=WGS84 " + path));
  std::vector<Pair> results;
  for (Pair pair{}; output >> pair.first >> pair.second;) {
    results.push_back(pair);
  }
  return results;
}

// Around the zone's middle, and in the zones beside it.
std::vector<Pair> PointsOf(std::int32_t zone) {
  std::vector<Pair> points;
  for (const double offset : {-9.0, -6.0, -2.875, -0.0625, 0.0, 1.5, 3.0, 6.0, 9.0}) {
    double longitude = (std::abs(zone) - 1) * 6.0 - 177.0 + offset;
    longitude -= 360.0 * std::round(longitude / 360.0);
    for (const double latitude : {-80.0, -43.5, -0.001, 0.0, 12.25, 47.625, 70.0, 84.0}) {
      points.push_back({longitude, latitude});
    }
  }
  return points;
}

bool ProgramIsThere() { return !OutputOf("command -v proj").empty(); }
constexpr char kNoProgram[] = "the program proj (package proj-bin) is not installed";

TEST(UTMProjection, ForwardAgreesWithProjsProgramInAllZones) {
  if (!ProgramIsThere()) {
    GTEST_SKIP() << kNoProgram;
  }
  for (std::int32_t zone = -60; zone <= 60; ++zone) {
    if (zone == 0) {
      continue;
    }
    const UTMProjection projection(zone);
    const std::vector<Pair> points = PointsOf(zone);
    const std::vector<Pair> projected = OfProgram("", zone, points);
    ASSERT_EQ(projected.size(), points.size()) << "zone " << zone;
    for (std::size_t i = 0; i < points.size(); ++i) {
      Pair ours{};
      projection.Forward(points[i].first, points[i].second, ours.first, ours.second);
      EXPECT_NEAR(ours.first, projected[i].first, kTenthOfAMillimetre) << zone << ' ' << i;
      EXPECT_NEAR(ours.second, projected[i].second, kTenthOfAMillimetre) << zone << ' ' << i;
    }
  }
}

// In some zones; ForwardThenInverseReturnsInAllZones tells that the others are like them.
TEST(UTMProjection, InverseAgreesWithProjsProgram) {
  if (!ProgramIsThere()) {
    GTEST_SKIP() << kNoProgram;
  }
  for (const std::int32_t zone : {1, -1, 19, -19, 31, -56, 60, -60}) {
    const UTMProjection projection(zone);
    std::vector<Pair> points = PointsOf(zone);
    for (Pair& point : points) {
      projection.Forward(point.first, point.second, point.first, point.second);
    }
    const std::vector<Pair> back = OfProgram("-I", zone, points);
    ASSERT_EQ(back.size(), points.size()) << "zone " << zone;
    for (std::size_t i = 0; i < points.size(); ++i) {
      Pair ours{};
      projection.Inverse(points[i].first, points[i].second, ours.first, ours.second);
      EXPECT_NEAR(ours.first, back[i].first, kTenthOfAMillimetreInDegrees) << zone << ' ' << i;
      EXPECT_NEAR(ours.second, back[i].second, kTenthOfAMillimetreInDegrees) << zone << ' ' << i;
    }
  }
}

TEST(UTMProjection, NamesZoneAndHemisphere) {
  EXPECT_EQ(UTMProjection(19).Name(), "UTM-19N-WGS84");
  EXPECT_EQ(UTMProjection(-19).Name(), "UTM-19S-WGS84");
  EXPECT_EQ(UTMProjection(-1).Name(), "UTM-1S-WGS84");
  EXPECT_EQ(UTMProjection(60).Name(), "UTM-60N-WGS84");
}

TEST(UTMProjection, CentralMeridianIsThatOfTheZoneInBothHemispheres) {
  EXPECT_EQ(UTMProjection(1).CentralMeridian(), -177.0);
  EXPECT_EQ(UTMProjection(-1).CentralMeridian(), -177.0);
  EXPECT_EQ(UTMProjection(30).CentralMeridian(), -3.0);
  EXPECT_EQ(UTMProjection(60).CentralMeridian(), 177.0);
}

TEST(UTMProjection, OriginLiesWhereCentralMeridianMeetsEquator) {
  for (std::int32_t zone = 1; zone <= 60; ++zone) {
    const UTMProjection projection(zone);
    double longitude = 0.0;
    double latitude = 1.0;
    projection.Inverse(500000.0, 0.0, longitude, latitude);
    EXPECT_NEAR(longitude, projection.CentralMeridian(), 1e-12);
    EXPECT_NEAR(latitude, 0.0, 1e-12);
    UTMProjection(-zone).Inverse(500000.0, 10000000.0, longitude, latitude);
    EXPECT_NEAR(longitude, projection.CentralMeridian(), 1e-12);
    EXPECT_NEAR(latitude, 0.0, 1e-12);
  }
}

TEST(UTMProjection, ForwardThenInverseReturnsInAllZones) {
  for (std::int32_t zone = -60; zone <= 60; ++zone) {
    if (zone == 0) {
      continue;
    }
    const UTMProjection projection(zone);
    for (const Pair& point : PointsOf(zone)) {
      Pair projected{};
      Pair back{};
      projection.Forward(point.first, point.second, projected.first, projected.second);
      projection.Inverse(projected.first, projected.second, back.first, back.second);
      EXPECT_NEAR(std::remainder(back.first - point.first, 360.0), 0.0, 1e-9) << zone;
      EXPECT_NEAR(back.second, point.second, 1e-9) << zone;
    }
  }
}

TEST(UTMProjection, APointWithoutAnImageGivesInfinities) {
  const UTMProjection projection(19);
  double x = 0.0;
  double y = 0.0;
  projection.Forward(-69.0, 100.0, x, y);
  EXPECT_EQ(x, HUGE_VAL);
  EXPECT_EQ(y, HUGE_VAL);
  projection.Forward(-69.0, 45.0, x, y);
  EXPECT_NEAR(x, 500000.0, 1e-6);
}

TEST(UTMProjection, ZonesThatAreNoneAreRefusedWithProjsReason) {
  constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();
  for (const std::int32_t zone : {0, 61, -61, 4660, kLowest, kLowest + 1, kHighest}) {
    testing::internal::CaptureStderr();
    EXPECT_THROW(UTMProjection{zone}, Projection::bad_projection);
    const std::string start = "error: failed to generate Proj.4 projection for zone " +
                              std::to_string(zone) + " (Proj.4 said: ";
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_THAT(printed, testing::StartsWith(start));
    EXPECT_THAT(printed, testing::EndsWith(").\n"));
    EXPECT_GT(printed.size(), start.size() + 3);
    EXPECT_EQ(printed.find('\n'), printed.size() - 1) << "PROJ printed something of its own";
  }
}

TEST(UTMProjection, ServesSeveralThreadsAtOnce) {
  const UTMProjection projection(19);
  double expected_x = 0.0;
  double expected_y = 0.0;
  projection.Forward(-68.0, 43.0, expected_x, expected_y);
  std::array<int, 4> wrong{};
  std::vector<std::thread> threads;
  for (int& count : wrong) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        double x = 0.0;
        double y = 0.0;
        projection.Forward(-68.0, 43.0, x, y);
        count += x == expected_x && y == expected_y ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(wrong, testing::Each(0));
}

}  // namespace
}  // namespace quarro
