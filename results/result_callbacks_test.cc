// Arrival of results: files, completion lines and what is said of failures.
#include <filesystem>
#include <functional>

#include "results/client_fixture.h"
#include "support/test_directory.h"

namespace quarro {
namespace {

using Arrival = void (CommandState::*)(const SEResultToken&);

class ResultArrival : public ClientTest {
 protected:
  // Has `result` arrive for `number`, whose file name is registered.
  template <typename Result>
  void Deliver(Arrival arrival, std::uint32_t number, Result result) {
    result.result_number = number;
    AnswerWith(result);
    std::invoke(arrival, state, SEResultToken());
  }

  TestDirectory directory;
};

struct UnknownNumber {
  Arrival arrival;
  std::function<SEBaseResult*()> result;
  std::string message;
};

TEST_F(ResultArrival, ResultsAreWrittenAndCountedDown) {
  const std::string depth = directory.Path("depth.txt");
  const std::string resolution = directory.Path("resolution.txt");
  const std::string hypotheses = directory.Path("hypotheses.txt");
  state.pending_results.Add(3, depth);
  state.pending_results.Add(4, resolution);
  state.pending_results.Add(4294967295U, hypotheses);
  Deliver(&CommandState::OnDepthReady, 3, ResultDepth());
  Deliver(&CommandState::OnResolutionReady, 4, ResultResolution());
  Deliver(&CommandState::OnHyposReady, 4294967295U, ResultHypos());
  EXPECT_EQ(
      Posted(),
      (Lines{
          "1 [M1] result 3 (output to \"" + depth + "\") transfered (2 results outstanding)",
          "1 [M2] result 4 (output to \"" + resolution + "\") transfered (1 results outstanding)",
          "1 [M3] result 4294967295 (output to \"" + hypotheses +
              "\") transferred (0 results outstanding)"}));
  EXPECT_EQ(ReadWholeFile(depth), "0 0 0.000 0.000 0.000 0.000\n0 0 0.000 0.000 0.000 0.000\n");
  EXPECT_EQ(ReadWholeFile(resolution), "0 0 0.000 0.000 0.000 0.000\n");
  EXPECT_EQ(ReadWholeFile(hypotheses), "0 0.000 0.000 0.000 0.000\n");
  EXPECT_EQ(console->Take(), Lines());
}

TEST_F(ResultArrival, APathThatCannotBeWrittenIsStillReportedAsTransferred) {
  const std::string path = directory.Path("missing/out.txt");
  state.pending_results.Add(0, path);
  Deliver(&CommandState::OnDepthReady, 0, ResultDepth());
  EXPECT_EQ(Posted(), Lines{"1 [M1] result 0 (output to \"" + path +
                            "\") transfered (0 results outstanding)"});
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ResultArrival, AnUnknownNumberIsToldAndNothingIsWritten) {
  const std::vector<UnknownNumber> cases = {
      {&CommandState::OnResolutionReady, [] { return new ResultResolution(); },
       "1 error: received call-back for a non-existant result number!"},
      {&CommandState::OnDepthReady, [] { return new ResultDepth(); },
       "4 received call-back for a non-existant result number!"},
      {&CommandState::OnDepthBagReady, [] { return new ResultDepth(); },
       "4 error: received call-back for a non-existant result number!"},
      {&CommandState::OnHyposReady, [] { return new ResultHypos(); },
       "4 received call-back for a non-existant result number!"}};
  state.pending_results.Add(7, directory.Path("other.txt"));
  for (const UnknownNumber& unknown : cases) {
    client.result = unknown.result;
    std::invoke(unknown.arrival, state, SEResultToken());
    EXPECT_EQ(console->Take(), Lines{unknown.message});
  }
  EXPECT_EQ(Posted(), Lines());
  EXPECT_EQ(state.pending_results.Count(), 1U);
  EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
}

TEST_F(ResultArrival, EngineFailuresAreToldInTheWordsOfTheirKind) {
  struct Case {
    Arrival arrival;
    std::string prefix;
  };
  for (const Case& kind :
       {Case{&CommandState::OnResolutionReady, "4 error: "},
        Case{&CommandState::OnDepthReady, "4 "}, Case{&CommandState::OnDepthBagReady, "4 "}}) {
    FailWith(ExSGCNoGrid("gone"));
    std::invoke(kind.arrival, state, SEResultToken());
    FailWith(ExSGCServerResources("full"));
    std::invoke(kind.arrival, state, SEResultToken());
    FailWith(ExSGClientBase("box too large"));
    std::invoke(kind.arrival, state, SEResultToken());
    EXPECT_EQ(console->Take(),
              (Lines{kind.prefix + "server reported no grid was available for line.",
                     kind.prefix + "server reports out of resources getting resolutions.",
                     kind.prefix + "unexpected exception getting result (box too large)."}));
  }
  EXPECT_EQ(Posted(), Lines());
}

TEST_F(ResultArrival, AResultOfTheWrongClassCountsAsAnEngineFailure) {
  AnswerWith(ResultPosAck());
  state.OnDepthReady(SEResultToken());
  EXPECT_EQ(console->Take(), Lines{"4 unexpected exception getting result ()."});
}

TEST_F(ResultArrival, FailuresOfHypothesesReachTheEngineLibrary) {
  FailWith(ExSGCNoGrid("gone"));
  EXPECT_THROW(state.OnHyposReady(SEResultToken()), ExSGCNoGrid);
  EXPECT_EQ(console->Take(), Lines());
}

TEST_F(ResultArrival, ABagThatCannotBeMadeIsToldWithItsNumberAndFile) {
  const std::string path = directory.Path("depth.bag");
  state.pending_results.Add(5, path);
  Deliver(&CommandState::OnDepthBagReady, 5, ResultDepth());
  EXPECT_EQ(Posted(), Lines{"1 [M1] failed to generate result 5 to \"" + path +
                            "\" because BAG generation failed."});
  EXPECT_EQ(console->Take().back(),
            "4 BAG metadata cannot be generated because the projection system is not set.");
  EXPECT_EQ(state.pending_results.Count(), 0U);
}

}  // namespace
}  // namespace quarro
