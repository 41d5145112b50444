// Lines written and read back.
#include "gridding/survey/gsf_writer.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "gridding/survey/test_files.h"
#include "gridding/survey/test_pings.h"

namespace quarro::survey {
namespace {

struct Arrays : PingArrays {
  Arrays()
      : PingArrays{.depth_m = {12.345F, 20.0F, 31.987F},
                   .across_m = {-12.5F, 0.0F, 12.49F},
                   .along_m = {0.3F, -0.3F, 0.0F},
                   .vertical_m = {0.5F, 0.25F, 1.75F},
                   .horizontal_m = {2.5F, 1.25F, 3.75F},
                   .flags = {0, 1, 0}} {}

  GsfPing Ping() const {
    GsfPing ping = PingArrays::Ping();
    ping.time_ns = 1541193704'250000000;
    ping.longitude_deg = -64.1234567;
    ping.latitude_deg = -17.7654321;
    ping.heading_deg = 359.99;
    return ping;
  }
};

WholeLine WriteAndRead(const GsfFormat& format, const std::vector<GsfPing>& pings) {
  const ScratchDirectory scratch;
  const std::string path = scratch.File("line.gsf");
  GsfWriter writer(path, format);
  writer.WriteComment(pings[0].time_ns, "made for a test");
  for (const GsfPing& ping : pings) writer.WritePing(ping);
  writer.WriteHistory(pings[0].time_ns, "host", "somebody", "gsf_writer_test", "");
  writer.Close();
  return ReadWhole(path);
}

void ExpectNear(const std::vector<float>& read, std::size_t first,
                const std::vector<float>& written, double half_step) {
  for (std::size_t i = 0; i < written.size(); ++i) {
    EXPECT_NEAR(read.at(first + i), written[i], half_step * 1.0001 + 1e-6) << i;
  }
}

TEST(GsfWriter, EveryVersionAndChecksumReadsBackToHalfAStep) {
  const Arrays arrays;
  for (const auto& [major, minor] : {std::pair{2, 0}, {2, 3}, {3, 0}, {3, 1}, {3, 7}, {3, 10}}) {
    for (const bool checksums : {false, true}) {
      GsfFormat format;
      format.major = major;
      format.minor = minor;
      format.checksums = checksums;
      const WholeLine line = WriteAndRead(format, {arrays.Ping()});
      EXPECT_EQ(line.remark, "");
      const Ping& ping = line.chunk.pings.at(0);
      EXPECT_NEAR(ping.time_s, 1541193704.25, 1e-6);
      EXPECT_NEAR(ping.longitude_deg, -64.1234567, 0.5e-7);
      EXPECT_NEAR(ping.latitude_deg, -17.7654321, 0.5e-7);
      EXPECT_DOUBLE_EQ(ping.heading_deg, 359.99);
      ExpectNear(line.chunk.depth_m, 0, arrays.depth_m, 0.0005);
      ExpectNear(line.chunk.across_m, 0, arrays.across_m, 0.005);
      ExpectNear(line.chunk.along_m, 0, arrays.along_m, 0.005);
      EXPECT_EQ(line.chunk.unusable, arrays.flags);
      for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(line.chunk.sigma_v_m[i], arrays.vertical_m[i] / 1.96, 0.0005);
        EXPECT_NEAR(line.chunk.sigma_h_m[i], arrays.horizontal_m[i] / 2.4477, 0.0005);
      }
    }
  }
}

TEST(GsfWriter, EveryWidthReadsBackToHalfAStep) {
  const Arrays arrays;
  for (const std::size_t width : {1U, 2U, 4U}) {
    GsfFormat format;
    const std::int32_t steps = width == 1 ? 5 : 100;
    for (auto* array : {&format.depth, &format.across, &format.along, &format.vertical_error,
                        &format.horizontal_error}) {
      *array = GsfArrayFormat{width, steps, 0};
    }
    const WholeLine line = WriteAndRead(format, {arrays.Ping()});
    ExpectNear(line.chunk.depth_m, 0, arrays.depth_m, 0.5 / steps);
    ExpectNear(line.chunk.across_m, 0, arrays.across_m, 0.5 / steps);
    ExpectNear(line.chunk.along_m, 0, arrays.along_m, 0.5 / steps);
  }
}

TEST(GsfWriter, DepthsBelowAnOffsetTakeFewerBytes) {
  Arrays arrays;
  arrays.depth_m = {2001.234F, 2012.5F, 2060.0F};
  GsfFormat format;
  format.depth = {2, 1000, -2000};
  ExpectNear(WriteAndRead(format, {arrays.Ping()}).chunk.depth_m, 0, arrays.depth_m, 0.0005);
  // Drying heights need an offset the other way.
  arrays.depth_m = {-3.25F, 0.5F, 4.0F};
  format.depth = {2, 1000, 10};
  ExpectNear(WriteAndRead(format, {arrays.Ping()}).chunk.depth_m, 0, arrays.depth_m, 0.0005);
}

TEST(GsfWriter, WidthsGrowWithTheValues) {
  Arrays arrays;
  arrays.depth_m = {10.0F, 65.535F, 10935.123F};
  arrays.across_m = {-5000.0F, 0.0F, 5000.0F};
  arrays.vertical_m = {0.1F, 50.0F, 600.0F};
  const WholeLine line = WriteAndRead({}, {arrays.Ping()});
  ExpectNear(line.chunk.depth_m, 0, arrays.depth_m, 0.001);
  ExpectNear(line.chunk.across_m, 0, arrays.across_m, 0.005);
  EXPECT_NEAR(line.chunk.sigma_v_m[2], 600.0 / 1.96, 0.005);
}

TEST(GsfWriter, ScaleFactorsToldOnceServeThePingsThatFollow) {
  const Arrays arrays;
  Arrays deep;
  deep.depth_m = {100.0F, 200.0F, 300.0F};
  GsfFormat format;
  format.repeat_scale_factors = false;
  const std::vector<GsfPing> pings = {arrays.Ping(), arrays.Ping(), deep.Ping(), arrays.Ping()};
  const WholeLine line = WriteAndRead(format, pings);
  ExpectNear(line.chunk.depth_m, 3, arrays.depth_m, 0.0005);
  ExpectNear(line.chunk.depth_m, 6, deep.depth_m, 0.0005);
  ExpectNear(line.chunk.depth_m, 9, arrays.depth_m, 0.0005);
}

TEST(GsfWriter, PingsMayLeaveOutErrorsAndFlags) {
  const Arrays arrays;
  GsfPing bare = arrays.Ping();
  bare.vertical_error_m = {};
  bare.horizontal_error_m = {};
  bare.beam_flags = {};
  bare.unusable = true;
  const WholeLine line = WriteAndRead({}, {bare});
  EXPECT_TRUE(std::isnan(line.chunk.sigma_v_m.at(0)));
  EXPECT_TRUE(std::isnan(line.chunk.sigma_h_m.at(0)));
  EXPECT_EQ(line.chunk.unusable, (std::vector<std::uint8_t>{1, 1, 1}));
}

TEST(GsfWriter, RecordsAreMultiplesOfFourAndTheSummaryTellsTheExtent) {
  const ScratchDirectory scratch;
  const std::string path = scratch.File("line.gsf");
  const Arrays arrays;
  GsfWriter writer(path);
  writer.WriteComment(0, "seventeen letters");
  writer.WritePing(arrays.Ping());
  writer.Close();
  const std::string bytes = BytesOf(path);
  const auto word = [&](std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      value = value << 8U | static_cast<unsigned char>(bytes.at(offset + i));
    }
    return static_cast<std::int32_t>(value);
  };
  std::size_t at = 0;
  std::size_t last = 0;
  while (at < bytes.size()) {
    EXPECT_EQ(word(at) % 4, 0);
    last = at;
    at += 8 + static_cast<std::size_t>(word(at));
  }
  EXPECT_EQ(at, bytes.size());
  EXPECT_EQ(word(last), 40);
  EXPECT_EQ(word(last + 4), 9);
  EXPECT_EQ(word(last + 8), 1541193704);
  EXPECT_EQ(word(last + 12), 250000000);
  EXPECT_EQ(word(last + 24), -177654321);
  EXPECT_EQ(word(last + 28), -641234567);
  EXPECT_EQ(word(last + 40), 1235);
  EXPECT_EQ(word(last + 44), 3199);
}

TEST(GsfWriter, AValueThatItsArrayCannotHoldIsNamed) {
  const ScratchDirectory scratch;
  Arrays arrays;
  arrays.depth_m[1] = -1.0F;
  GsfWriter writer(scratch.File("line.gsf"));
  try {
    writer.WritePing(arrays.Ping());
    FAIL() << "a negative depth fits no unsigned array";
  } catch (const LineError& error) {
    EXPECT_NE(std::string(error.what()).find("cannot hold the value -1.000000 m"),
              std::string::npos)
        << error.what();
  }
}

TEST(GsfWriter, FailureToWriteNamesPathAndReason) {
  try {
    GsfWriter writer("/nonexistent/line.gsf");
    FAIL() << "the directory does not exist";
  } catch (const LineError& error) {
    EXPECT_STREQ(error.what(),
                 "\"/nonexistent/line.gsf\" cannot be written: No such file or directory");
  }
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device that is always full";
  const Arrays arrays;
  try {
    GsfWriter writer("/dev/full");
    for (int ping = 0; ping < 1000; ++ping) writer.WritePing(arrays.Ping());
    writer.Close();
    FAIL() << "a full disc holds no line";
  } catch (const LineError& error) {
    EXPECT_STREQ(error.what(), "\"/dev/full\" cannot be written: No space left on device");
  }
}

}  // namespace
}  // namespace quarro::survey
