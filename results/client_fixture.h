// A client on a fake engine for tests, with the messages of its channels as the drains see them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli/command_fixture.h"
#include "output/projection.h"

namespace quarro {

using Lines = std::vector<std::string>;

// A processor with the grid "survey" current on an attached engine, which answers no request until
// AnswerWith or FailWith was called, and then each before it returns.
class ClientTest : public testing::Test {
 protected:
  ClientTest() : ClientTest(MParams()) {}
  explicit ClientTest(const MParams& params)
      : processor(&client, params), state(processor.State()) {
    client.answer = FakeFrontEnd::Answer::kWhenDelivered;
    Capture("comproc", console);
    Capture("asynch", posted_);
    Capture("engine", engine_log);
    state.attached = true;
    state.grid_active = true;
    state.grid_name.Set("survey");
  }
  ~ClientTest() override {
    for (const char* channel : {"comproc", "asynch", "engine"}) {
      Slog(channel).RemoveDrains();
    }
    Slog("engine").SetFilter(SlogLevel(0));
  }

  template <typename Result>
  void AnswerWith(const Result& result) {
    client.result = [result] { return new Result(result); };
    client.answer = FakeFrontEnd::Answer::kAtOnce;
  }
  template <typename Failure>
  void FailWith(const Failure& failure) {
    client.result = [failure]() -> SEBaseResult* { throw failure; };
    client.answer = FakeFrontEnd::Answer::kAtOnce;
  }

  void Run(const std::string& line) { processor.Dispatch(line); }

  // Runs a line that must be refused as garbled.
  void RunGarbled(const std::string& line) {
    EXPECT_THROW(processor.Dispatch(line), CommandProcessor::bad_command) << line;
  }

  // What call-backs posted since the last call, each led by "1 [M<n>] ".
  Lines Posted() {
    state.messages.FlushMessages();
    return posted_->Take();
  }

  // What is logged when a command shows its help.
  Lines HelpOf(const std::string& command) {
    console->Take();
    processor.ShowHelp(command);
    return console->Take();
  }

  FakeFrontEnd client;
  CommandProcessor processor;
  CommandState& state;
  std::shared_ptr<CaptureDrain> console = std::make_shared<CaptureDrain>();
  std::shared_ptr<CaptureDrain> engine_log = std::make_shared<CaptureDrain>();

 private:
  static void Capture(const char* channel, const std::shared_ptr<CaptureDrain>& drain) {
    Slog log(channel);
    log.RemoveDrains();
    log.AddDrain(drain);
  }

  std::shared_ptr<CaptureDrain> posted_ = std::make_shared<CaptureDrain>();
};

}  // namespace quarro
