// debug, purge and interval.
#include <boost/lexical_cast.hpp>
#include <gmock/gmock.h>

#include "results/client_fixture.h"
#include "results/elapsed_text.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

class Traces : public ClientTest {
 protected:
  Traces() {
    ResultDebug reply;
    reply.output_file = "/data/trace_1.txt";
    AnswerWith(reply);
  }

  Lines SaidGarbled(const std::string& line) {
    console->Take();
    RunGarbled(line);
    return console->Take();
  }
};

TEST_F(Traces, AreSwitchedAtAPositionInACellAndEverywhere) {
  Run("debug on at 100.5 200");
  Run("debug off in 3 4");
  Run("debug off everywhere");
  EXPECT_EQ(client.calls, (Lines{"DebugAt 100.5 200 1", "DebugCell 3 4 0", "DebugOffEverywhere"}));
  EXPECT_EQ(console->Take(),
            (Lines{"1 debug configured.", "1 debug configured.", "1 debug configured."}));
  EXPECT_EQ(Posted().front(), "1 [M1] debug commenced at, output to \"/data/trace_1.txt\".");
}

TEST_F(Traces, OffsetsCountFromTheSouthEastCorner) {
  state.bbox.Set(SGBoundingBox(0.0, 100.0, 50.0, 200.0));
  Run("debug on offset 10 20");
  EXPECT_EQ(client.calls, Lines{"DebugAt 60 120 1"});
}

TEST_F(Traces, CannotBeSwitchedOnEverywhere) {
  EXPECT_EQ(SaidGarbled("debug on everywhere"),
            Lines{"4 debug can only be turned off everywhere!."});
  EXPECT_EQ(client.calls, Lines());
}

TEST_F(Traces, AreOnOrOff) {
  EXPECT_EQ(SaidGarbled("debug maybe at 1 2"),
            Lines{"4 debug state must be either 'on' or 'off' (and not maybe)."});
  EXPECT_EQ(client.calls, Lines());
}

TEST_F(Traces, AnUnknownModeIsNamed) {
  EXPECT_EQ(SaidGarbled("debug on near 1 2"),
            Lines{"4 debug must be 'at' at projected location, or 'in' a cell (and not near)."});
  EXPECT_EQ(client.calls, Lines());
}

TEST_F(Traces, AMissingNumberShowsTheHelp) {
  const Lines help = HelpOf("debug");
  EXPECT_EQ(SaidGarbled("debug on at 1"), help);
  EXPECT_EQ(SaidGarbled("debug on at"), help);
  EXPECT_EQ(client.calls, Lines());
}

TEST_F(Traces, AWordThatIsNoNumberIsAConversionFailure) {
  EXPECT_THROW(Run("debug on at x 2"), boost::bad_lexical_cast);
  EXPECT_THROW(Run("debug on in 1.5 2"), boost::bad_lexical_cast);
  EXPECT_THROW(Run("debug on offset 1 y"), boost::bad_lexical_cast);
  EXPECT_EQ(client.calls, Lines());
}

TEST_F(Traces, FailuresAreTold) {
  constexpr char kFailed[] = "4 debug set failed.";
  FailWith(ExSGCNoGrid("gone"));
  Run("debug off everywhere");
  EXPECT_EQ(console->Take(),
            (Lines{"4 error: server reported no grid was available for debugging.", kFailed}));
  FailWith(ExSGCServerResources("full"));
  Run("debug off everywhere");
  EXPECT_EQ(console->Take(),
            (Lines{"4 error: unexpected exception getting result (full).", kFailed}));
  FailWith(std::runtime_error("odd"));
  Run("debug off everywhere");
  EXPECT_EQ(console->Take(),
            (Lines{"4 error: unexpected exception (with no known type).", kFailed}));
  EXPECT_EQ(Posted(), Lines());
}

class Purge : public ClientTest {
 protected:
  Purge() { AnswerWith(ResultPosAck()); }
};

TEST_F(Purge, OfAllIsTheFrontEnds) {
  Run("purge all");
  EXPECT_EQ(client.calls, Lines{"Purge"});
}

TEST_F(Purge, OfNumbersSendsTheirSet) {
  Run("purge 3 3 5");
  Run("purge -1 +2");
  EXPECT_EQ(client.calls, (Lines{"PurgeResults 3 5", "PurgeResults 2 4294967295"}));
}

TEST_F(Purge, OfWordsThatAreNoNumbersSendsNothing) {
  for (const char* line : {"purge 3 x", "purge 1.5", "purge 4294967296", "purge 3 all"}) {
    RunGarbled(line);
    EXPECT_EQ(console->Take(), Lines{"4 failed to convert UID list for purging."}) << line;
  }
  EXPECT_EQ(client.calls, Lines());
}

TEST_F(Purge, CompletionTellsWhatIsOutstandingAndChangesNothing) {
  state.pending_results.Add(3, "a");
  Run("purge 3");
  EXPECT_EQ(Posted(), Lines{"1 [M1] info: purge of results complete.(1 results outstanding)"});
  EXPECT_EQ(state.pending_results.Count(), 1U);
}

TEST_F(Purge, FailuresAreTold) {
  FailWith(ExSGCServerResources("full"));
  Run("purge all");
  FailWith(ExSGCNoGrid("gone"));
  Run("purge all");
  FailWith(std::runtime_error("odd"));
  Run("purge all");
  EXPECT_EQ(console->Take(), (Lines{"4 server reports out of resources getting resolutions.",
                                    "4 unexpected exception getting result (gone).",
                                    "4 unknown exception in getting query result information."}));
  EXPECT_EQ(Posted(), Lines());
}

class Interval : public ClientTest {};

TEST_F(Interval, CannotBeNested) {
  Run("interval start");
  RunGarbled("interval start");
  EXPECT_EQ(console->Take(),
            Lines{"4 you are already in a timing loop, and they can't be nested."});
  EXPECT_TRUE(state.interval_active);
}

TEST_F(Interval, CannotStopBeforeItStarts) {
  RunGarbled("interval stop");
  EXPECT_EQ(console->Take(), Lines{"4 can't stop timing sequence if it hasn't been started!"});
}

TEST_F(Interval, StopShowsTheTime) {
  Run("interval start");
  Run("interval stop");
  EXPECT_FALSE(state.interval_active);
  EXPECT_THAT(console->Take(),
              ElementsAre(MatchesRegex("1 last sequence started at .* and ended at .* for a total "
                                       "of [0-9.e-]+ s.")));
  EXPECT_THAT(state.history, ElementsAre("interval start", "interval stop", "show time"));
}

TEST_F(Interval, StopLogTellsTheEnginesLogAlone) {
  Run("interval start");
  state.interval_start -= boost::posix_time::seconds(100);
  Run("interval stop log");
  EXPECT_THAT(engine_log->Take(), ElementsAre(MatchesRegex("6 timing sequence completed, "
                                                           "100\\.[0-9][0-9][0-9][0-9][0-9][0-9] "
                                                           "s")));
  EXPECT_EQ(console->Take(), Lines());
  EXPECT_THAT(state.history, ElementsAre("interval start", "interval stop log"));
}

TEST_F(Interval, TheTimeLoggedHasSixDecimals) {
  using boost::posix_time::microseconds;
  EXPECT_EQ(ElapsedText(microseconds(1500000)), "timing sequence completed, 1.500000 s");
  EXPECT_EQ(ElapsedText(microseconds(1)), "timing sequence completed, 0.000001 s");
  EXPECT_EQ(ElapsedText(microseconds(86400000000)), "timing sequence completed, 86400.000000 s");
}

TEST_F(Interval, OtherWordsShowTheHelp) {
  const Lines help = HelpOf("interval");
  RunGarbled("interval pause");
  EXPECT_EQ(console->Take(), help);
}

}  // namespace
}  // namespace quarro
