// The console loop: prompts, lines, messages, and the way out.
#include "app/console.h"

#include <deque>
#include <iostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/line_reader.h"
#include "cli/command_fixture.h"

namespace quarro {
namespace {

using testing::ElementsAre;

// Gives lines prepared, and keeps the prompts it was asked to show.
class ScriptReader : public LineReader {
 public:
  explicit ScriptReader(std::deque<std::string> lines) : lines_(std::move(lines)) {}

  std::string ReadLine(const std::string& prompt) override {
    prompts.push_back(prompt);
    if (lines_.empty()) {
      throw std::logic_error("the script has no more lines");
    }
    std::string line = lines_.front();
    lines_.pop_front();
    return line;
  }

  std::vector<std::string> prompts;

 private:
  std::deque<std::string> lines_;
};

class Console : public CommandFixture {
 protected:
  Lines Run(const std::deque<std::string>& lines, const std::string& first_command = "") {
    ScriptReader reader(lines);
    RunConsole(processor_, reader, first_command);
    prompts_ = reader.prompts;
    return drain_->Take();
  }

  std::vector<std::string> prompts_;
};

TEST_F(Console, EndsWithTheExitCommand) {
  EXPECT_THAT(Run({"exit"}), ElementsAre("1 exit command; done."));
  EXPECT_THAT(prompts_, ElementsAre(">> "));
}

TEST_F(Console, SaysWhyACommandWasRefused) {
  client_.refusal = [](const std::string&) { throw ExSGClientBase("no route"); };
  EXPECT_THAT(
      Run({"nonsense", "detach", "broadcast", "quit"}),
      ElementsAre("4 command garbled.",
                  "4 you need to be attached to a server to issue that command.",
                  "1 searching for computational engines on the local network (please wait).",
                  "4 exception from client code (no route).  Command failed.", "4 command failed.",
                  "1 exit command; done."));
}

TEST_F(Console, SaysThatAGridIsNeeded) {
  PretendAttached();
  EXPECT_THAT(
      Run({"synch", "exit"}),
      ElementsAre("4 you need a grid active to issue that command.", "1 exit command; done.",
                  "1 sending engine detach command.", "1 detached OK."));
}

TEST_F(Console, EmptyLinesBringNoPrompt) {
  Run({"", "", "clear", "exit"});
  EXPECT_THAT(prompts_, ElementsAre(">> ", "", "", ">> "));
  EXPECT_THAT(State().history, ElementsAre("clear", "exit"));
}

TEST_F(Console, RunsTheFirstCommandBehindTheFirstPromptWithoutReading) {
  const std::string path = File("commands", "clear\n");
  testing::internal::CaptureStdout();
  EXPECT_THAT(Run({"history", "exit"}, "source " + path),
              ElementsAre("1 [C1] clear", "1 all lines removed from file list.",
                          "1 command history:", "1  [1] source " + path, "1  [2] clear",
                          "1  [3] history", "1 exit command; done."));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), ">> ");
  EXPECT_THAT(prompts_, ElementsAre(">> ", ">> "));
}

TEST_F(Console, ShowsMessagesAfterEachCommandAlsoARefusedOne) {
  State().messages.PostMessage("one");
  State().messages.PostMessage("two");
  EXPECT_THAT(Run({"nonsense", "exit"}), ElementsAre("4 command garbled.", "1 [M1] one",
                                                     "1 [M2] two", "1 exit command; done."));
}

TEST_F(Console, DetachesOnTheWayOutAndShowsWhatCameMeanwhile) {
  PretendGrid();
  client_.refusal = [this](const std::string& call) {
    if (call == "DetachEngine") {
      State().messages.PostMessage("late");
    }
  };
  EXPECT_THAT(Run({"exit"}),
              ElementsAre("1 exit command; done.", "1 sending engine detach command.",
                          "1 detached OK.", "1 [M1] late"));
  EXPECT_THAT(State().history, ElementsAre("exit", "detach"));
}

TEST_F(Console, LetsOtherExceptionsThrough) {
  PretendGrid();
  client_.refusal = [](const std::string&) { throw ExSGClientBase("lost"); };
  EXPECT_THROW(Run({"synch", "exit"}), ExSGClientBase);
}

}  // namespace
}  // namespace quarro
