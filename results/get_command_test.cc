// get: forms, checks, requests and refusals.
#include "cli/command_handlers.h"
#include "results/client_fixture.h"

namespace quarro {
namespace {

constexpr char kSending[] = "1 commiting result extraction command to the server.";
constexpr char kAccepted[] = "1 result extraction commited to server for processing.";
constexpr char kSendingHypotheses[] =
    "1 commiting result extraction command (hypotheses) to the server.";
constexpr char kAcceptedHypotheses[] =
    "1 hypothesis result extraction commited to server for processing.";

class Get : public ClientTest {
 protected:
  void ExpectHelpAndGarbled(const std::string& line, Lines before = {}) {
    const Lines help = HelpOf("get");
    before.insert(before.end(), help.begin(), help.end());
    RunGarbled(line);
    EXPECT_EQ(console->Take(), before) << line;
    EXPECT_EQ(client.calls, Lines()) << line;
    EXPECT_EQ(state.pending_results.Count(), 0U) << line;
  }
  void SetBox() { state.bbox.Set(SGBoundingBox(1.0, 2.0, 3.0, 4.0)); }
};

TEST_F(Get, ResolutionOfARectangleIsRequestedUnderTheNextNumber) {
  Run("get resolution 10 20 30.5 40 out.txt");
  EXPECT_EQ(client.calls, Lines{"RequestResolution 10.000 20.000 30.500 40.000 0"});
  EXPECT_EQ(console->Take(), (Lines{kSending, kAccepted}));
  EXPECT_EQ(state.next_result_number, 1U);
  std::string name;
  ASSERT_TRUE(state.pending_results.Take(0, name));
  EXPECT_EQ(name, "out.txt");
}

TEST_F(Get, ResolutionWithoutNumbersTakesTheDefaultBox) {
  SetBox();
  Run("get resolution out.txt");
  EXPECT_EQ(client.calls, Lines{"RequestResolution 1.000 2.000 3.000 4.000 0"});
}

TEST_F(Get, DepthIsRequestedLowOrFullAsTextOrBag) {
  SetBox();
  Run("get depth low a");
  Run("get depth full b");
  Run("get depth low bag c");
  Run("get depth full bag 5 6 7 8 d");
  Run("get depth low 5 6 7 8 e");
  EXPECT_EQ(
      client.calls,
      (Lines{"RequestDepth 1.000 2.000 3.000 4.000 0 0", "RequestDepth 1.000 2.000 3.000 4.000 1 1",
             "RequestDepth 1.000 2.000 3.000 4.000 2 0", "RequestDepth 5.000 6.000 7.000 8.000 3 1",
             "RequestDepth 5.000 6.000 7.000 8.000 4 0"}));
  const Lines expected = {"a", "b", "c", "d", "e"};
  for (std::uint32_t number = 0; number < expected.size(); ++number) {
    std::string name;
    ASSERT_TRUE(state.pending_results.Take(number, name));
    EXPECT_EQ(name, expected[number]);
  }
  console->Take();
  Run("get depth full f");
  EXPECT_EQ(console->Take(), (Lines{kSending, kAccepted}));
}

TEST_F(Get, HypothesesAreRequestedByDefaultBoxCircleOrRectangle) {
  SetBox();
  Run("get hypotheses full a");
  EXPECT_EQ(console->Take(), (Lines{kSendingHypotheses, kAcceptedHypotheses}));
  Run("get hypotheses low 100 200 50 out");
  Run("get hypotheses full 5 6 7 8 c");
  EXPECT_EQ(client.calls, (Lines{"RequestHypotheses 1.000 2.000 3.000 4.000 0 1",
                                 "RequestHypotheses 50.000 150.000 150.000 250.000 1 0",
                                 "RequestHypotheses 5.000 6.000 7.000 8.000 2 1"}));
}

TEST_F(Get, DepthWithoutADefaultBoxIsToldOnTheStandardOutput) {
  testing::internal::CaptureStdout();
  RunGarbled("get depth low out");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "warning: default bounding box is all zeros.\n");
  EXPECT_EQ(console->Take(), Lines());
  EXPECT_EQ(client.calls, Lines());
}

TEST_F(Get, ResolutionAndHypothesesWithoutADefaultBoxAreToldOnTheChannel) {
  for (const char* line : {"get resolution out", "get hypotheses low out"}) {
    RunGarbled(line);
    EXPECT_EQ(console->Take(), Lines{"3 default bounding box is all zeros."}) << line;
  }
  EXPECT_EQ(client.calls, Lines());
}

// The dispatcher asks for engine and grid before any get, so the handler is called as such.
TEST_F(Get, HypothesesNeedEngineOrGridWhereTheOthersNeedBoth) {
  SetBox();
  const auto call = [&](const Words& words) {
    GetCommand(processor, words.begin(), words.end(), static_cast<std::uint32_t>(words.size() + 1));
  };
  for (const bool engine : {true, false}) {
    state.attached = engine;
    state.grid_active = !engine;
    EXPECT_NO_THROW(call({"hypotheses", "full", "out"}));
    EXPECT_THROW(call({"depth", "full", "out"}), CommandProcessor::no_grid);
    EXPECT_THROW(call({"resolution", "out"}), CommandProcessor::no_grid);
  }
  state.attached = state.grid_active = false;
  EXPECT_THROW(call({"hypotheses", "full", "out"}), CommandProcessor::no_grid);
  EXPECT_EQ(client.calls.size(), 2U);
}

TEST_F(Get, ALevelOtherThanLowOrFullIsRefusedWithTheHelp) {
  const Lines message = {"4 you must specify 'low' or 'full' resolution extraction."};
  ExpectHelpAndGarbled("get depth medium out", message);
  ExpectHelpAndGarbled("get hypotheses Low out", message);
}

TEST_F(Get, WrongWordCountsAreRefusedWithTheHelp) {
  SetBox();
  for (const char* line :
       {"get resolution 1 2 3 out", "get resolution 1 2", "get depth low 1 2 out",
        "get depth low bag 1 2 3 4 out more", "get depth low", "get hypotheses full",
        "get hypotheses low 1 out", "get hypotheses low 1 2 3 4 5 out"}) {
    ExpectHelpAndGarbled(line);
  }
}

TEST_F(Get, ABagWithoutAFileNameIsRefusedWithTheHelp) {
  SetBox();
  ExpectHelpAndGarbled("get depth low bag");
  ExpectHelpAndGarbled("get depth low bag 1 2 3 4");
}

TEST_F(Get, AnUnknownResultTypeIsNamed) {
  RunGarbled("get Depth low out");
  EXPECT_EQ(console->Take(), Lines{"4 result type \"Depth\" not known."});
}

TEST_F(Get, WordsThatAreNoNumbersAreRefused) {
  for (const char* line : {"get resolution a 2 3 4 out", "get resolution 1 2 3 4m out",
                           "get hypotheses low 1 2 x out", "get depth full 1 2, 3 4 out"}) {
    RunGarbled(line);
    EXPECT_EQ(console->Take(), Lines{"4 failed to covert parameters for bounding box."}) << line;
  }
  EXPECT_EQ(client.calls, Lines());
}

TEST_F(Get, ABoxThatIsNoneIsRefused) {
  for (const char* line : {"get resolution 3 2 1 4 out", "get resolution 1 nan 3 4 out",
                           "get hypotheses low 1 2 -5 out", "get depth low 1 2 inf 4 out"}) {
    RunGarbled(line);
    EXPECT_EQ(console->Take(), Lines{"4 bounding box is not valid."}) << line;
  }
}

TEST_F(Get, ARefusedRequestKeepsItsNumberForTheNextOne) {
  SetBox();
  client.refusal = [](const std::string&) { throw ExSGClientBase("no engine attached"); };
  Run("get resolution a");
  EXPECT_EQ(console->Take(),
            (Lines{kSending, "4 failed to send command to server (no engine attached)."}));
  Run("get depth low b");
  EXPECT_EQ(console->Take(),
            (Lines{kSending, "4 ailed to send command to server (no engine attached)."}));
  Run("get hypotheses low c");
  EXPECT_EQ(console->Take(),
            (Lines{kSendingHypotheses,
                   "4 failed to send hypothesis extraction command to server (no engine "
                   "attached)."}));
  EXPECT_EQ(state.pending_results.Count(), 0U);
  client.refusal = nullptr;
  Run("get resolution d");
  EXPECT_EQ(client.calls.back(), "RequestResolution 1.000 2.000 3.000 4.000 0");
  EXPECT_EQ(state.next_result_number, 1U);
}

TEST_F(Get, HelpListsEveryForm) {
  const Lines help = HelpOf("get");
  ASSERT_EQ(help.size(), 15U);
  EXPECT_EQ(
      Lines(help.begin() + 2, help.end()),
      (Lines{"1 \t\tResults are:", "1 \t\t\tresolution <west><south><east><north><output>",
             "1 \t\t\t                               Get subset of current grid to <output>",
             "1 \t\t\tresolution <output>            Get default bounding box to <output>",
             "1 \t\t\tdepth [low|full][bag] <west><south><east><north><output>",
             "1 \t\t\t                               Get subset of low-res or refined depth to "
             "<output>, optionally as a BAG file",
             "1 \t\t\tdepth [low|full][bag] <output> Get default bounding box of depth to "
             "<output>, optionally as a BAG file",
             "1 \t\t\thypotheses [low|full] <west><south><east><north><output>",
             "1 \t\t\t                               Get subset of low-res/high-res hypotheses "
             "to <output>",
             "1 \t\t\thypotheses [low|full] <east><north><radius><output>",
             "1 \t\t\t                               Get subset of hypotheses around given "
             "location to <output>",
             "1 \t\t\thypotheses [low|full] <output>",
             "1 \t\t\t                               Get hypotheses in default bounding box to "
             "<output>"}));
}

}  // namespace
}  // namespace quarro
