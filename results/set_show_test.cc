// set and show: every variable, its forms and its refusals.
#include <boost/lexical_cast.hpp>
#include <gmock/gmock.h>

#include "results/client_fixture.h"
#include "support/test_directory.h"

namespace quarro {
namespace {

using testing::ElementsAre;

class Variables : public ClientTest {
 protected:
  // What `line` logs.
  Lines Said(const std::string& line) {
    console->Take();
    Run(line);
    return console->Take();
  }
  Lines SaidGarbled(const std::string& line) {
    console->Take();
    RunGarbled(line);
    return console->Take();
  }
};

TEST_F(Variables, DebugIsSetByWordOrDigitAndClearedAlone) {
  for (const char* word : {"true", "1"}) {
    Run(std::string("set debug ") + word);
    EXPECT_TRUE(state.debug_mode);
    EXPECT_EQ(Said("show debug"), Lines{"1 debug = 1"});
    Run("set debug");
    EXPECT_FALSE(state.debug_mode);
  }
  for (const char* word : {"false", "0"}) {
    state.debug_mode = true;
    Run(std::string("set debug ") + word);
    EXPECT_EQ(Said("show debug"), Lines{"1 debug = 0"});
  }
}

TEST_F(Variables, DebugTakesNoOtherWord) {
  EXPECT_EQ(SaidGarbled("set debug yes"),
            Lines{"4 debug is a binary variable (allowed: 'true|false')."});
}

TEST_F(Variables, BaseDirectoryIsKeptAsTyped) {
  Run("set basedir /data//survey/");
  EXPECT_EQ(Said("show basedir"), Lines{"1 base directory set to \"/data//survey/\"."});
  Run("set basedir");
  EXPECT_EQ(Said("show basedir"), Lines{"1 base directory not set."});
}

TEST_F(Variables, BoundingBoxIsSetAbsolutelyAndReset) {
  Run("set bbox 1 2 3.5 4");
  EXPECT_EQ(state.bbox.Get(), SGBoundingBox(1.0, 2.0, 3.5, 4.0));
  EXPECT_EQ(Said("show bbox"), Lines{"1 bbox = (1.000 2.000 3.500 4.000)"});
  Run("set bbox");
  EXPECT_EQ(state.bbox.Get(), SGBoundingBox());
}

TEST_F(Variables, BoundingBoxFollowsLoadsUntilReleased) {
  Run("set bbox on_load");
  EXPECT_TRUE(state.reset_bbox_on_load);
  Run("set bbox release");
  EXPECT_FALSE(state.reset_bbox_on_load);
}

TEST_F(Variables, CurrentBoundingBoxComesFromTheEngine) {
  ResultBBox reply;
  reply.bounds = SGBoundingBox(10.0, 20.0, 30.0, 40.0);
  AnswerWith(reply);
  state.reset_bbox_on_load = true;
  EXPECT_EQ(Said("set bbox current"), Lines{"1 set bounding box to 10.000 20.000 30.000 40.000"});
  EXPECT_EQ(client.calls, Lines{"RequestQuery 4"});
  EXPECT_EQ(state.bbox.Get(), reply.bounds);
  EXPECT_FALSE(state.reset_bbox_on_load);
}

TEST_F(Variables, FailuresOfTheBoundingBoxQueryAreTold) {
  constexpr char kFailed[] = "4 request for server results pool report failed.";
  FailWith(ExSGCNoGrid("gone"));
  EXPECT_EQ(Said("set bbox current"),
            (Lines{"4 server reported no grid was available for line.", kFailed}));
  FailWith(ExSGCServerResources("full"));
  EXPECT_EQ(Said("set bbox current"),
            (Lines{"4 server reports out of resources getting resolutions.", kFailed}));
  FailWith(ExSGClientBase("lost"));
  EXPECT_EQ(Said("set bbox current"),
            (Lines{"4 unexpected exception getting result (lost).", kFailed}));
  FailWith(std::runtime_error("odd"));
  EXPECT_EQ(Said("set bbox current"),
            (Lines{"4 unknown exception in getting query result information.", kFailed}));
  AnswerWith(ResultPosAck());
  EXPECT_EQ(Said("set bbox current"),
            (Lines{"4 unexpected exception getting result ().", kFailed}));
  EXPECT_EQ(state.bbox.Get(), SGBoundingBox());
}

TEST_F(Variables, BoundingBoxRefusesOtherForms) {
  EXPECT_EQ(SaidGarbled("set bbox follow"), Lines{"4 syntax: set bbox (on_load|release|current)"});
  EXPECT_EQ(SaidGarbled("set bbox 1 2"), Lines{"4 syntax: set bbox <left><bottom><right><top>"});
  EXPECT_EQ(SaidGarbled("set bbox 1 2 3 x"),
            Lines{"4 failed to covert parameters for bounding box."});
  EXPECT_EQ(SaidGarbled("set bbox 3 2 1 4"), Lines{"4 bounding box is not valid."});
  EXPECT_EQ(state.bbox.Get(), SGBoundingBox());
}

TEST_F(Variables, FiveWordsShowTheHelpOfSet) {
  const Lines help = HelpOf("set");
  EXPECT_EQ(SaidGarbled("set bbox 1 2 3"), help);
}

TEST_F(Variables, AShorterHistoryKeepsTheNewestLines) {
  state.history = {"a", "b", "c", "d"};
  Run("set history 2");  // the fifth line
  EXPECT_THAT(state.history, ElementsAre("d", "set history 2"));
  EXPECT_EQ(Said("show history"), Lines{"1 history length = 2 commands."});
  Run("set history 0");
  EXPECT_TRUE(state.history.empty());
}

TEST_F(Variables, HistoryNeedsOneNumber) {
  EXPECT_EQ(SaidGarbled("set history"), Lines{"4 syntax: set history <length>"});
  EXPECT_EQ(SaidGarbled("set history 1 2"), Lines{"4 syntax: set history <length>"});
  EXPECT_THROW(Run("set history few"), boost::bad_lexical_cast);
  EXPECT_EQ(state.history_length, 50U);
}

TEST_F(Variables, TheLocalLogLevelIsTheFrontEndsFilter) {
  EXPECT_EQ(Said("set loglevel local 7"), Lines{"1 : local log level set OK."});
  EXPECT_EQ(client.Log().Filter(), 7);
  EXPECT_EQ(Said("set loglevel local 0"), Lines{"1 : local log level set OK."});
  EXPECT_EQ(client.Log().Filter(), 0);
}

TEST_F(Variables, TheRemoteLogLevelNeedsDebugModeAndAnEngine) {
  EXPECT_EQ(SaidGarbled("set loglevel remote 3"),
            Lines{"4 you must be in debug mode to set remote log level."});
  state.debug_mode = true;
  EXPECT_EQ(Said("set loglevel remote 3"), Lines{"1 : remote log level set OK."});
  EXPECT_EQ(client.calls, Lines{"SetRemoteLogLevel 3"});
  client.remote_log_level_accepted = false;
  EXPECT_EQ(Said("set loglevel remote 4"), Lines{"4 : remote log level set failed."});
  state.attached = false;
  EXPECT_THROW(Run("set loglevel remote 3"), CommandProcessor::not_attached);
  EXPECT_EQ(console->Take(), Lines{"4 you must be attached to a server to set remote log level."});
}

TEST_F(Variables, ALogLevelIsZeroToSeven) {
  for (const char* level : {"8", "-1", "high", "4294967296"}) {
    EXPECT_EQ(SaidGarbled(std::string("set loglevel local ") + level),
              Lines{"4 debug level was not recognised (range: [0, 7])."});
  }
}

TEST_F(Variables, LogLevelRefusesOtherForms) {
  EXPECT_EQ(SaidGarbled("set loglevel local"),
            Lines{"4 syntax: set loglevel local|remote <level>"});
  EXPECT_EQ(SaidGarbled("set loglevel global 3"),
            Lines{"4 you must specify either 'local' or 'remote' log level to set."});
}

TEST_F(Variables, MessagesGoToAFileAndBack) {
  TestDirectory directory;
  const std::string path = directory.Path("messages.txt");
  EXPECT_EQ(Said("show messages"), Lines{"1 no pending messages [output is local]."});
  state.messages.PostMessage("queued");
  Run("set messages " + path);
  state.messages.PostMessage("written");
  EXPECT_EQ(ReadWholeFile(path), "queued\nwritten\n");
  EXPECT_EQ(Said("show messages"), Lines{"1 no pending messages [output is file-based]."});
  Run("set messages local");
  state.messages.PostMessage("queued again");
  EXPECT_EQ(ReadWholeFile(path), "queued\nwritten\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Said("show messages"), Lines());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[M1] queued again\n");
  EXPECT_TRUE(state.messages.Empty());
}

TEST_F(Variables, AMessageFileThatCannotBeWrittenIsTold) {
  EXPECT_EQ(Said("set messages /nowhere/messages.txt"),
            Lines{"4 messages cannot be written to \"/nowhere/messages.txt\"."});
  EXPECT_FALSE(state.messages.ToFile());
  EXPECT_EQ(SaidGarbled("set messages"), Lines{"4 syntax: set messages local|<location>"});
}

TEST_F(Variables, ProjectionIsUtmInEitherHemisphere) {
  EXPECT_EQ(Said("show projection"), Lines{"1 projection information not set."});
  Run("set projection utm 19");
  EXPECT_EQ(Said("show projection"), Lines{"1 UTM-19N-WGS84 (Central Meridian: -69 deg.)"});
  Run("set projection utm -56");
  EXPECT_EQ(Said("show projection"), Lines{"1 UTM-56S-WGS84 (Central Meridian: 153 deg.)"});
}

TEST_F(Variables, AZoneThatIsNoneLeavesTheProjection) {
  Run("set projection utm 19");
  EXPECT_EQ(Said("set projection utm x"), Lines());
  testing::internal::CaptureStderr();
  EXPECT_EQ(Said("set projection utm 61"), Lines());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::StartsWith("error: failed to generate Proj.4 projection for zone 61 "));
  EXPECT_EQ(Said("show projection"), Lines{"1 UTM-19N-WGS84 (Central Meridian: -69 deg.)"});
}

TEST_F(Variables, ProjectionRefusesOtherForms) {
  EXPECT_EQ(SaidGarbled("set projection utm"), Lines{"4 syntax: set projecton utm <zone>"});
  EXPECT_EQ(SaidGarbled("set projection tm 31"),
            Lines{"4 project only allowed in UTM coordinates."});
}

TEST_F(Variables, UnknownVariablesAreToldAndRefuseNothing) {
  EXPECT_EQ(Said("set Debug true"), Lines{"4 variable \"Debug\" not known."});
  EXPECT_EQ(Said("show colour"), Lines{"4 variable \"colour\" not known."});
}

TEST_F(Variables, TheEngineIsShownWhileAttached) {
  state.engines = {QuarroSpec(), QuarroSpec{1, 0x10001, 8, 4520, 0xC0A80107}};
  state.engine_index = 1;
  EXPECT_EQ(Said("show engine"),
            Lines{"1 current engine: 192.168.1.7:4520, 8 threads, engine 1.1, protocol 1"});
  state.attached = false;
  EXPECT_THROW(Run("show engine"), CommandProcessor::not_attached);
}

TEST_F(Variables, EnginesAreListedFromOne) {
  EXPECT_EQ(Said("show available"), Lines{"1 no engines currently known on network."});
  state.engines = {QuarroSpec{1, 0x10001, 8, 4520, 0xC0A80107}, QuarroSpec{1, 0x10002, 2, 0, 0}};
  EXPECT_EQ(Said("show available"),
            (Lines{"1 2 computational engines available on local network:",
                   "1  [1] 192.168.1.7:4520, 8 threads, engine 1.1, protocol 1",
                   "1  [2] in process, 2 threads, engine 1.2, protocol 1"}));
}

TEST_F(Variables, TheGridsStatusComesFromTheEngine) {
  ResultQuery reply;
  reply.lines = {"3 x 4 cells", "\t2 lines"};
  AnswerWith(reply);
  EXPECT_EQ(Said("show grid"),
            (Lines{"1 grid = 1", "1  [survey]", "1 3 x 4 cells", "1 \t2 lines"}));
  EXPECT_EQ(client.calls, Lines{"RequestQuery 1"});
  FailWith(ExSGClientBase("lost"));
  EXPECT_EQ(Said("show grid"),
            (Lines{"1 grid = 1", "1  [survey]", "4 unexpected exception getting result (lost).",
                   "4 query of server for grid status failed."}));
  state.grid_active = false;
  EXPECT_EQ(Said("show grid"), Lines{"1 grid = 0"});
}

TEST_F(Variables, TracesAndResultsPoolComeFromTheEngine) {
  AnswerWith(ResultQuery());
  EXPECT_EQ(Said("show traces"), Lines());
  EXPECT_EQ(Said("show respool"), Lines());
  EXPECT_EQ(client.calls, (Lines{"RequestQuery 2", "RequestQuery 3"}));
  FailWith(ExSGCNoGrid("gone"));
  EXPECT_EQ(Said("show traces"), (Lines{"4 server reported no grid was available for line.",
                                        "4 request for debug positions failed."}));
  FailWith(ExSGCServerResources("full"));
  EXPECT_EQ(Said("show respool"), (Lines{"4 server reports out of resources getting resolutions.",
                                         "4 request for server results pool report failed."}));
  FailWith(42);
  EXPECT_EQ(Said("show respool"), (Lines{"4 unknown exception in getting query result information.",
                                         "4 request for server results pool report failed."}));
}

TEST_F(Variables, PendingWorkIsCounted) {
  state.pending_lines.Add(1, "a.gsf");
  state.pending_results.Add(1, "a");
  state.pending_results.Add(2, "b");
  EXPECT_EQ(Said("show lines"), Lines{"1 pending lines: 1"});
  EXPECT_EQ(Said("show results"), Lines{"1 pending results: 2"});
}

TEST_F(Variables, FilesAreListedUnderTheBaseDirectory) {
  EXPECT_EQ(Said("show filelist"), Lines{"1 no lines in filelist."});
  state.filelist = {"a.gsf", "day 2/b.gsf"};
  EXPECT_EQ(Said("show filelist"),
            (Lines{"1 total 2 files:", "1  [1] a.gsf", "1  [2] day 2/b.gsf"}));
  state.basedir = "/data";
  EXPECT_EQ(Said("show filelist"),
            (Lines{"1 total 2 files:", "1  [1] /data/a.gsf", "1  [2] /data/day 2/b.gsf"}));
}

TEST_F(Variables, StatisticsArePosted) {
  ResultServStats reply;
  reply.threads = 8;
  reply.priority_queue_length = 1;
  reply.run_queue_length = 2;
  reply.priority_queue_duration_s = 12.5F;
  reply.results_waiting = 3;
  AnswerWith(reply);
  EXPECT_EQ(Said("show statistics"),
            Lines{"1 sending request for server statistics (please wait)."});
  EXPECT_EQ(Posted(), Lines{"1 [M1] info: Current server statistics:\n"
                            "\tExec Threads: 8\n"
                            "\tPriority Queue Length: 1\n"
                            "\tRun Queue Length: 2\n"
                            "\tExpected Duration of Priority Queue: 12.5\n"
                            "\tNumber of Results Waiting: 3"});
  FailWith(ExSGCNoGrid("gone"));
  EXPECT_EQ(Said("show statistics"),
            (Lines{"1 sending request for server statistics (please wait).",
                   "4 error: unexpected exception getting result (gone)."}));
  state.attached = false;
  EXPECT_THROW(Run("show statistics"), CommandProcessor::not_attached);
}

TEST_F(Variables, AFailureOfUnknownTypeEndsTheWaitForStatisticsAndReachesTheEngineLibrary) {
  client.result = []() -> SEBaseResult* { throw std::runtime_error("odd"); };
  state.rendezvous.Reset();
  EXPECT_THROW(state.OnServerStatistics(SEResultToken()), std::runtime_error);
  EXPECT_FALSE(state.rendezvous.Wait());
  EXPECT_EQ(console->Take(), Lines());
  EXPECT_EQ(Posted(), Lines());
}

TEST_F(Variables, RefusedStatisticsAreWaitedForAllTheSame) {
  // The refusal signals in place of a call-back that comes after all.
  client.refusal = [&](const std::string&) {
    state.rendezvous.Signal(true);
    throw ExSGClientBase("queue full");
  };
  EXPECT_EQ(Said("show statistics"),
            (Lines{"1 sending request for server statistics (please wait).",
                   "4 failed to get statistics (queue full)."}));
}

TEST_F(Variables, TimeTellsTheLastInterval) {
  constexpr char kNever[] = "4 you have not done a timing loop: I don't have anything to tell you.";
  EXPECT_EQ(Said("show time"), Lines{kNever});
  const boost::posix_time::ptime start(
      boost::gregorian::date(2017, 5, 17),
      boost::posix_time::time_duration(8, 28, 29) + boost::posix_time::microseconds(250000));
  state.interval_start = start;
  state.interval_end = start + boost::posix_time::microseconds(1500000);
  EXPECT_EQ(Said("show time"),
            Lines{"1 last sequence started at 2017-May-17 08:28:29.250000 and ended at 2017-May-17 "
                  "08:28:30.750000 for a total of 1.5 s."});
  state.interval_active = true;
  EXPECT_EQ(
      Said("show time"),
      Lines{"4 you are currently in a timing loop: I don't know how long it's going to take!"});
}

TEST_F(Variables, HelpListsEveryVariable) {
  Lines help = HelpOf("set");
  EXPECT_EQ(
      Lines(help.begin() + 2, help.end()),
      (Lines{"1 \t\tVariables are:",
             "1 \t\t\tbasedir                         Reset current basedir value",
             "1 \t\t\tbasedir <location>              Set current base directory value to "
             "<location>.",
             "1 \t\t\tbbox                            Reset bounding box to current default.",
             "1 \t\t\tbbox on_load                    Have bounding box reset when a new grid "
             "is loaded.",
             "1 \t\t\tbbox release                    Release bounding box following.",
             "1 \t\t\tbbox current                    Have bounding box reference all of the "
             "current grid.",
             "1 \t\t\tbbox <left><bottom><right><top> Set absolute bounding box coordinates.",
             "1 \t\t\tdebug true|false                Set binary debug flag",
             "1 \t\t\thistory <length>                Length (in commands) of history buffer.",
             "1 \t\t\tloglevel local|remote <num>     Set the local or remote log level.",
             "1 \t\t\tmessages local|<location>       Send messages to the local output, or to "
             "a file in <location>.",
             "1 \t\t\tprojection utm <zone>           Set projection zone for UTM projection "
             "(-ve zone is southern hemisphere)."}));
  help = HelpOf("show");
  EXPECT_EQ(Lines(help.begin() + 2, help.end()),
            (Lines{"1 \t\tVariables are:",
                   "1 \t\t\tavailable  List of available servers on the local broadcast domain.",
                   "1 \t\t\tbasedir    Current base directory for generating grids.",
                   "1 \t\t\tbbox       Current default bounding box.",
                   "1 \t\t\tdebug      Debug flag status.",
                   "1 \t\t\tengine     Specification for currently attached engine.",
                   "1 \t\t\tfilelist   Current list of files available for commit to server.",
                   "1 \t\t\tgrid       Specification of the current grid location/resolution.",
                   "1 \t\t\thistory    Length (in commands) of history buffer.",
                   "1 \t\t\tlines      Pending lines (committed for processing, but not complete).",
                   "1 \t\t\tmessages   Pending messages (messages from processing not yet viewed).",
                   "1 \t\t\tresults    Pending results (generated but not retreived from server).",
                   "1 \t\t\trespool    Results pool on server waiting for pickup.",
                   "1 \t\t\tstatistics Statistics of the server configuration.",
                   "1 \t\t\ttime       Real-time of the last sequence time event.",
                   "1 \t\t\ttraces     Show list of current debug traces in the grid.",
                   "1 \t\t\tprojection Show projection information (if available)."}));
}

}  // namespace
}  // namespace quarro
