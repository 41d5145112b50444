// The command line, the parameter file and the statuses.
#include "app/start_up.h"

#include <fstream>
#include <iostream>

#include <boost/program_options/errors.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/options.h"
#include "cli/command_fixture.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUsage[] =
    "Quarro_Client [May 17 2017, 08:28:24] - Run client-side of distributed SuperGrid "
    "computation engine.\n"
    "syntax: Quarro_Client [opt] <config-file>\n"
    "Options:\n"
    "  -h [ --help ]            Generate syntax list\n"
    "  --local                  Use local SuperGrid implementation rather than \n"
    "                           client-server\n"
    "  -l [ --logfile ] arg     Set output log file location\n"
    "  -f [ --config-file ] arg Set configuration file for SuperGrids\n"
    "  -d [ --debug-level ] arg Set debugging level (default: 4, range 0--7, lower \n"
    "                           generates more information)\n"
    "  -a [ --asynch ] arg      Redirect asynchronous messages to output file\n"
    "  -s [ --source ] arg      Source a command file as the first command\n"
    "  -v [ --version ]         Provide versioning information for support libraries\n"
    "                           and drivers\n"
    "\n";

constexpr char kBanner[] =
    "1 Quarro_Client [May 17 2017, 08:28:24], Protocol Version 1, Command Processor [V1.3, May 17 "
    "2017, 08:28:29].";
constexpr char kReady[] = "1 command processor ready (type 'help' for command list and syntax).";

class StartUp : public CommandFixture {
 protected:
  // Runs the client with these arguments; keeps its standard output.
  int Run(const Lines& arguments) {
    std::vector<const char*> argv = {"Quarro_Client"};
    for (const std::string& argument : arguments) {
      argv.push_back(argument.c_str());
    }
    const auto make = [this](const char* name) {
      return [this, name](const MParams&) {
        made_.emplace_back(name);
        auto client = std::make_unique<FakeFrontEnd>();
        client->Log().RemoveDrains();
        last_client_ = client.get();
        return client;
      };
    };
    testing::internal::CaptureStdout();
    const int status =
        RunClient(static_cast<int>(argv.size()), argv.data(), make("local"), make("remote"));
    std::cout.flush();
    stdout_ = testing::internal::GetCapturedStdout();
    return status;
  }

  std::string Parameters() { return File("params.xml", "<parameters/>\n"); }

  Lines made_;
  FakeFrontEnd* last_client_ = nullptr;
  std::string stdout_;
};

TEST_F(StartUp, HelpPrintsTheUsageAloneWhateverElseIsGiven) {
  EXPECT_EQ(Run({"--help", "--version", "--local", "nowhere.xml"}), 1);
  EXPECT_EQ(stdout_, kUsage);
  EXPECT_THAT(drain_->Take(), IsEmpty());
  EXPECT_THAT(made_, IsEmpty());
}

TEST_F(StartUp, VersionPrintsFourLinesAlone) {
  EXPECT_EQ(Run({"-v", "-f", "nowhere.xml"}), 1);
  EXPECT_EQ(stdout_,
            "MERA Library: 1.4\n"
            "Quarro Library: 1.1\n"
            "Quarro_Client Application: May 17 2017/08:28:24\n"
            "Quarro_Client CommandProcessor: V1.3, May 17 2017, 08:28:29\n");
  EXPECT_THAT(drain_->Take(), IsEmpty());
}

TEST_F(StartUp, WithoutParameterFileShowsTheUsage) {
  EXPECT_EQ(Run({"--local"}), 1);
  EXPECT_EQ(stdout_, kUsage);
  EXPECT_THAT(drain_->Take(), ElementsAre("4 no configuration file specified on input."));
}

TEST_F(StartUp, AMissingParameterFileIsTold) {
  EXPECT_EQ(Run({"/nowhere/params.xml"}), 1);
  const Lines lines = drain_->Take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0],
              testing::StartsWith("4 unknown exception while parsing configuration file ("));
  EXPECT_THAT(lines[0], testing::HasSubstr("/nowhere/params.xml"));
  EXPECT_THAT(lines[0], testing::EndsWith(")"));
}

TEST_F(StartUp, AParameterFileThatIsNoXmlIsTold) {
  EXPECT_EQ(Run({"-f", File("params.xml", "<parameters>\n")}), 1);
  const Lines lines = drain_->Take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], testing::StartsWith("4 failed to parse configuration file ("));
  EXPECT_THAT(lines[0], testing::EndsWith(")"));
  EXPECT_THAT(made_, IsEmpty());
}

TEST_F(StartUp, ARefusedDebugLevelIsToldWithoutItsBounds) {
  for (const std::string level : {"8", "-1"}) {
    EXPECT_EQ(Run({Parameters(), "--debug-level=" + level}), 1);
    EXPECT_THAT(drain_->Take(), ElementsAre("1 bringing up server interface.",
                                            "7 debug level was not recognised (range: [, ])."));
    // It was left standing.
    EXPECT_NE(last_client_, nullptr);
    delete last_client_;
  }
}

TEST_F(StartUp, RunsTheSourceFileFirstAndEndsWithStatusZero) {
  const std::string commands = File("commands", "exit\n");
  EXPECT_EQ(Run({Parameters(), "--local", "-d", "0", "--source", commands}), 0);
  EXPECT_EQ(stdout_, ">> ");
  EXPECT_THAT(drain_->Take(), ElementsAre("1 bringing up server interface.", kBanner, kReady,
                                          "1 [C1] exit", "1 exit command; done."));
  EXPECT_THAT(made_, ElementsAre("local"));
}

TEST_F(StartUp, WithoutLocalUsesTheNetwork) {
  EXPECT_EQ(Run({Parameters(), "-d", "7", "-s", File("commands", "exit\n")}), 0);
  EXPECT_THAT(made_, ElementsAre("remote"));
}

TEST_F(StartUp, SendsAsynchronousMessagesToTheFileNamed) {
  const std::string messages = File("messages", "");
  EXPECT_EQ(Run({Parameters(), "--local", "-a", messages, "-s",
                 File("commands", "broadcast\nattach 1\nexit\n")}),
            0);
  Slog log("asynch");
  log() << "to the file" << endmsg;
  std::ifstream file(messages);
  std::string line;
  EXPECT_TRUE(std::getline(file, line));
  EXPECT_EQ(line, "to the file");
}

// The engine's log outlives the front end, so what start-up set can be seen afterwards.
class EngineLog : public StartUp {
 protected:
  ~EngineLog() override {
    engine_.SetFilter(SlogLevel(0));
    engine_.RemoveDrains();
  }

  // Runs the client with these options and a command file that ends it.
  void RunToTheEnd(const Lines& options) {
    Lines arguments = {Parameters(), "--source", File("commands", "exit\n")};
    arguments.insert(arguments.end(), options.begin(), options.end());
    ASSERT_EQ(Run(arguments), 0);
  }

  void Log(int level, const std::string& text) {
    engine_ << SlogLevel(level);
    engine_() << text << endmsg;
  }

  Slog engine_{"engine"};
};

TEST_F(EngineLog, IsFilteredByTheDebugLevelWhichIsFourUnlessGiven) {
  RunToTheEnd({"-d", "7"});
  EXPECT_EQ(engine_.Filter(), 7);
  RunToTheEnd({"-d", "0"});
  EXPECT_EQ(engine_.Filter(), 0);
  RunToTheEnd({});
  EXPECT_EQ(engine_.Filter(), 4);
}

TEST_F(EngineLog, GoesToTheFileNamedAsFarAsTheFilterLetsIt) {
  const std::string path = File("engine.log", "kept\n");
  RunToTheEnd({"--logfile", path});
  Log(3, "detail");
  Log(4, "trouble");
  std::ifstream file(path);
  std::string kept;
  std::string trouble;
  std::string more;
  EXPECT_TRUE(std::getline(file, kept));
  EXPECT_EQ(kept, "kept");
  EXPECT_TRUE(std::getline(file, trouble));
  EXPECT_THAT(trouble, testing::EndsWith("Z 4 engine trouble"));
  EXPECT_FALSE(std::getline(file, more)) << more;
}

TEST_F(EngineLog, MakesTheFileNamedWhenThereIsNone) {
  Parameters();  // makes the folder
  const std::string path = (folder_ / "engine.log").string();
  RunToTheEnd({"-l", path});
  EXPECT_TRUE(boost::filesystem::exists(path));
}

TEST(Options, AreTakenFromTheCommandLine) {
  const char* const argv[] = {"Quarro_Client", "-l", "log", "-d", "2", "--asynch", "m", "p.xml"};
  const Options options = ParseOptions(8, argv);
  EXPECT_EQ(options.log_file, "log");
  EXPECT_EQ(options.debug_level, 2);
  EXPECT_EQ(options.message_file, "m");
  EXPECT_EQ(options.config_file, "p.xml");
  EXPECT_FALSE(options.local);
  EXPECT_FALSE(options.source_file);
}

TEST(Options, ThatAreUnknownOrDoNotConvertThrow) {
  const char* const unknown[] = {"Quarro_Client", "--nonsense"};
  EXPECT_THROW(ParseOptions(2, unknown), boost::program_options::unknown_option);
  const char* const no_number[] = {"Quarro_Client", "-d", "high"};
  EXPECT_THROW(ParseOptions(3, no_number), boost::program_options::error);
}

}  // namespace
}  // namespace quarro
