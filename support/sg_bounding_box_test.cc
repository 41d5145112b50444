// Which bounds make a box, and its text whatever the state of the stream.
#include "support/sg_bounding_box.h"

#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/exceptions.h"

namespace quarro {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

std::string TextOf(const SGBoundingBox& box) {
  std::ostringstream out;
  out << box;
  return out.str();
}

std::string Refusal(double west_m, double south_m, double east_m, double north_m) {
  try {
    const SGBoundingBox box(west_m, south_m, east_m, north_m);
    return "accepted " + TextOf(box);
  } catch (const ExSGClientBase& error) {
    return error.who();
  }
}

TEST(SGBoundingBox, KeepsItsBounds) {
  const SGBoundingBox box(500000.25, 4600000.5, 500100.0, 4600200.125);
  EXPECT_EQ(box.west(), 500000.25);
  EXPECT_EQ(box.south(), 4600000.5);
  EXPECT_EQ(box.east(), 500100.0);
  EXPECT_EQ(box.north(), 4600200.125);
}

TEST(SGBoundingBox, WithoutBoundsIsAllZeros) {
  EXPECT_EQ(SGBoundingBox(), SGBoundingBox(0.0, 0.0, 0.0, 0.0));
}

TEST(SGBoundingBox, MayBeALineOrAPoint) {
  EXPECT_EQ(TextOf(SGBoundingBox(5.0, 1.0, 5.0, 2.0)), "5.000 1.000 5.000 2.000");
  EXPECT_EQ(TextOf(SGBoundingBox(1.0, 2.0, 5.0, 2.0)), "1.000 2.000 5.000 2.000");
  EXPECT_EQ(TextOf(SGBoundingBox(5.0, 2.0, 5.0, 2.0)), "5.000 2.000 5.000 2.000");
}

TEST(SGBoundingBox, ReversedBoundsAreRefusedByName) {
  EXPECT_EQ(Refusal(10.5, 1.0, 9.0, 2.0),
            "bounding box west 10.5, south 1, east 9, north 2 m cannot be used: west must not "
            "exceed east.");
  EXPECT_EQ(Refusal(1.0, 20.0, 9.0, -2.0),
            "bounding box west 1, south 20, east 9, north -2 m cannot be used: south must not "
            "exceed north.");
}

TEST(SGBoundingBox, EachBoundThatIsNotFiniteIsRefusedByName) {
  const std::string reason = " m cannot be used: every bound must be a finite number.";
  EXPECT_EQ(Refusal(kNan, 1, 2, 3), "bounding box west nan, south 1, east 2, north 3" + reason);
  EXPECT_EQ(Refusal(0, -kInfinity, 2, 3),
            "bounding box west 0, south -inf, east 2, north 3" + reason);
  EXPECT_EQ(Refusal(0, 1, kInfinity, 3),
            "bounding box west 0, south 1, east inf, north 3" + reason);
  EXPECT_EQ(Refusal(0, 1, 2, kNan), "bounding box west 0, south 1, east 2, north nan" + reason);
}

TEST(SGBoundingBox, IsEqualWhenEveryBoundIs) {
  const SGBoundingBox box(1, 2, 3, 4);
  EXPECT_EQ(box, SGBoundingBox(1, 2, 3, 4));
  EXPECT_NE(box, SGBoundingBox(0, 2, 3, 4));
  EXPECT_NE(box, SGBoundingBox(1, 0, 3, 4));
  EXPECT_NE(box, SGBoundingBox(1, 2, 9, 4));
  EXPECT_NE(box, SGBoundingBox(1, 2, 3, 9));
}

TEST(SGBoundingBox, ContainsItsInsideAndItsEdge) {
  const SGBoundingBox box(1, 2, 3, 4);
  EXPECT_TRUE(box.Contains(2, 3));
  EXPECT_TRUE(box.Contains(1, 2));
  EXPECT_TRUE(box.Contains(3, 4));
  EXPECT_FALSE(box.Contains(0.999, 3));
  EXPECT_FALSE(box.Contains(3.001, 3));
  EXPECT_FALSE(box.Contains(2, 1.999));
  EXPECT_FALSE(box.Contains(2, 4.001));
  EXPECT_FALSE(box.Contains(kNan, 3));
  EXPECT_FALSE(box.Contains(2, kNan));
}

TEST(SGBoundingBoxText, HasThreeDecimals) {
  EXPECT_EQ(TextOf(SGBoundingBox(-1234567.0004, 0.0625, 2.5, 5234567.9996)),
            "-1234567.000 0.062 2.500 5234568.000");
}

TEST(SGBoundingBoxText, NegativeZeroHasNoSign) {
  EXPECT_EQ(TextOf(SGBoundingBox(-0.0, -0.0004, -0.0, 0.0)), "0.000 0.000 0.000 0.000");
  EXPECT_EQ(TextOf(SGBoundingBox(-0.0006, -0.5, 0.0, 0.0)), "-0.001 -0.500 0.000 0.000");
}

TEST(SGBoundingBoxText, HugeBoundsAreWrittenInFull) {
  const double most = std::numeric_limits<double>::max();
  const std::string text = TextOf(SGBoundingBox(-most, -1e300, 1e300, most));
  EXPECT_THAT(text, testing::StartsWith("-179769313486231570"));
  EXPECT_THAT(text, testing::EndsWith("24858368.000"));
  EXPECT_EQ(text.size(), 1 + 309 + 4 + 1 + 1 + 301 + 4 + 1 + 301 + 4 + 1 + 309 + 4);
}

TEST(SGBoundingBoxText, DoesNotDependOnTheStateOfTheStreamAndLeavesItAsItWas) {
  std::ostringstream out;
  out << std::scientific << std::showpos << std::uppercase << std::left << std::setprecision(1)
      << std::setfill('*') << std::setw(40);
  const std::ios::fmtflags flags = out.flags();
  out << SGBoundingBox(1.25, 2, 3, 4);
  EXPECT_EQ(out.str(), "1.250 2.000 3.000 4.000");
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.precision(), 1);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 40);
}

class CommaDecimals : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(SGBoundingBoxText, DoesNotDependOnTheLocale) {
  const std::locale comma_decimals(std::locale::classic(), new CommaDecimals);
  std::ostringstream out;
  out.imbue(comma_decimals);
  out << SGBoundingBox(500000.5, 2, 600000.75, 4);
  EXPECT_EQ(out.str(), "500000.500 2.000 600000.750 4.000");
  EXPECT_EQ(out.getloc(), comma_decimals);
  out.str("");
  out << 1234.5;
  EXPECT_EQ(out.str(), "1.234,5");
}

}  // namespace
}  // namespace quarro
