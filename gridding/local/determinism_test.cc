// The same lines in the same order give the same grid, whatever else differs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::testing {
namespace {

class Determinism : public ::testing::Test {
 protected:
  void SetUp() override {
    WriteStrip(directory_ / "0.xyz", {.seed = 1});
    WriteStrip(directory_ / "1.xyz", {.west_m = 30, .south_m = 25, .seed = 2});
    WriteStrip(directory_ / "2.xyz", {.west_m = -60, .south_m = -20, .width_m = 90, .seed = 3});
  }
  std::string LineFile(int i) const { return directory_ / (std::to_string(i) + ".xyz"); }

  // All results after the three lines and a refinement.
  std::string ResultsWith(MParams params, std::uint32_t refine_threads = 0) {
    const FreshDirectory grids;
    params.Set("Engine", "WorkingDirectory", grids.path().string());
    SGDebugClient client(params);
    Attach(client);
    Construct(client, "g", 10.0F, 0.5F);
    Replies replies;
    for (int i = 0; i < 3; ++i) client.AddLine(LineFile(i), 0, false, replies.Expect());
    Refine(client, refine_threads);
    return AllResults(client);
  }
  std::string Reference() { return ResultsWith(ParametersFor(".", 1)); }

  FreshDirectory directory_;
};

TEST_F(Determinism, AnyNumberOfThreadsGivesTheSameBits) {
  const std::string one = Reference();
  EXPECT_EQ(ResultsWith(ParametersFor(".", 2)), one);
  EXPECT_EQ(ResultsWith(ParametersFor(".", 8)), one);
  EXPECT_EQ(ResultsWith(ParametersFor(".", 8), 3), one);
}

TEST_F(Determinism, CellsTooLargeForTheMemoryAreRefinedToTheSameBits) {
  const EngineLog log;
  const auto results_with = [](const char* memory_mib, double spacing_m) {
    const FreshDirectory grids;
    const std::string line = grids / "dense.xyz";
    WriteStrip(
        line,
        {.west_m = -30, .south_m = -30, .length_m = 60, .width_m = 60, .spacing_m = spacing_m});
    MParams params = ParametersFor(grids.path());
    params.Set("Engine", "MemoryMiB", memory_mib);
    SGDebugClient client(params);
    Attach(client);
    Construct(client, "g", 20.0F, 0.5F);
    Add(client, line);
    Refine(client);
    return AllResults(client);
  };
  // Nine cells of 10,000 soundings, which do not fit together.
  EXPECT_EQ(results_with("16", 0.2), results_with("1024", 0.2));
  EXPECT_EQ(log.Text().find("MemoryMiB"), std::string::npos);
  // One of 49,000 does not fit by itself.
  EXPECT_EQ(results_with("16", 0.09), results_with("1024", 0.09));
  EXPECT_THAT(log.Text(), ::testing::HasSubstr("raise MemoryMiB"));
}

TEST_F(Determinism, RefiningAfterEachLineGivesTheSameBitsAsOnce) {
  const std::string once = Reference();
  const FreshDirectory grids;
  SGDebugClient client(ParametersFor(grids.path()));
  Attach(client);
  Construct(client, "g", 10.0F, 0.5F);
  for (int i = 0; i < 3; ++i) {
    Add(client, LineFile(i));
    Refine(client);
  }
  EXPECT_EQ(AllResults(client), once);
}

TEST_F(Determinism, LoadingBetweenLinesGivesTheSameBits) {
  const std::string reference = Reference();
  const FreshDirectory grids;
  {
    SGDebugClient client(ParametersFor(grids.path()));
    Attach(client);
    Construct(client, "g", 10.0F, 0.5F);
    Add(client, LineFile(0));
  }
  SGDebugClient client(ParametersFor(grids.path()));
  Attach(client);
  Load(client, "g");
  Add(client, LineFile(1));
  Add(client, LineFile(2));
  Refine(client);
  EXPECT_EQ(AllResults(client), reference);
}

TEST_F(Determinism, OtherSettingsRedoEveryCellAndThenTheSameOnesGiveTheSameBitsAgain) {
  const std::string reference = Reference();
  const FreshDirectory grids;
  MParams coarse = ParametersFor(grids.path());
  coarse.Set("Refinement", "SoundingsPerNode", "50");
  {
    SGDebugClient client(coarse);
    Attach(client);
    Construct(client, "g", 10.0F, 0.5F);
    for (int i = 0; i < 3; ++i) Add(client, LineFile(i));
    Refine(client);
    EXPECT_NE(AllResults(client), reference);
  }
  SGDebugClient client(ParametersFor(grids.path()));
  Attach(client);
  Load(client, "g");
  Refine(client);
  EXPECT_EQ(AllResults(client), reference);
}

TEST_F(Determinism, AFailedLineBetweenChangesNothing) {
  const std::string reference = Reference();
  const FreshDirectory grids;
  SGDebugClient client(ParametersFor(grids.path()));
  Attach(client);
  Construct(client, "g", 10.0F, 0.5F);
  Add(client, LineFile(0));
  Add(client, LineFile(0));
  Add(client, directory_ / "missing.xyz");
  Add(client, LineFile(1));
  Add(client, LineFile(2));
  Refine(client);
  EXPECT_EQ(AllResults(client), reference);
}

}  // namespace
}  // namespace quarro::testing
