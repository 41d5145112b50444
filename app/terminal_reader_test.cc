// Lines typed at a terminal, played by a pseudo-terminal.
#include "app/terminal_reader.h"

#include <csignal>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "app/line_reader.h"

namespace quarro {
namespace {

// A child process that reads lines at a terminal of its own and says what it read.
class Terminal : public testing::Test {
 protected:
  Terminal() {
    child_ = forkpty(&master_, nullptr, nullptr, nullptr);
    if (child_ == 0) {
      const auto reader = MakeLineReader({"attach", "help", "history"});
      for (;;) {
        const std::string line = reader->ReadLine(">> ");
        std::printf("read <%s>\n", line.c_str());
        std::fflush(stdout);
      }
    }
  }
  ~Terminal() override {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
    close(master_);
  }

  void Type(const std::string& keys) {
    ASSERT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  // Reads what the terminal shows until `text` is among it. The test's time limit ends a wait in
  // vain.
  void AwaitText(const std::string& text) {
    std::string shown;
    char byte = 0;
    while (shown.find(text) == std::string::npos) {
      ASSERT_EQ(read(master_, &byte, 1), 1) << shown;
      shown += byte;
    }
  }

  int master_ = -1;
  pid_t child_ = -1;
};

TEST_F(Terminal, ReadsALineBehindThePrompt) {
  AwaitText(">> ");
  Type("set debug\r");
  AwaitText("read <set debug>");
}

TEST_F(Terminal, EditsTheLine) {
  AwaitText(">> ");
  Type("helq\x7fp\r");
  AwaitText("read <help>");
}

TEST_F(Terminal, RecallsLines) {
  AwaitText(">> ");
  Type("one\r");
  AwaitText("read <one>");
  AwaitText(">> ");
  Type("two\r");
  AwaitText("read <two>");
  AwaitText(">> ");
  Type("\x10\x10\r");  // Ctrl-P
  AwaitText("read <one>");
}

TEST_F(Terminal, CompletesCommandsWithTheTabulator) {
  AwaitText(">> ");
  Type("a\t1\r");
  AwaitText("read <attach 1>");
}

TEST_F(Terminal, CtrlDIsNoEndOfInput) {
  AwaitText(">> ");
  Type("\x04");
  Type("help\r");
  AwaitText("read <help>");
}

TEST_F(Terminal, CtrlCEndsTheProgram) {
  AwaitText(">> ");
  Type("\x03");
  int status = 0;
  ASSERT_EQ(waitpid(child_, &status, 0), child_);
  child_ = -1;
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGINT);
}

}  // namespace
}  // namespace quarro
