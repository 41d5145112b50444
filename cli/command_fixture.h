// For tests: an interpreter on a fake front end, and what the channels printed.
#pragma once

#include <cstddef>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include "cli/command_processor.h"
#include "cli/fake_front_end.h"
#include "slog/slog.h"
#include "support/mparams.h"

namespace quarro {

// Keeps messages as "<level> <text>".
class CaptureDrain : public SlogDrain {
 public:
  void Write(const std::string& /*channel*/, int level, const std::string& text) override {
    const std::lock_guard lock(mutex_);
    messages_.push_back(std::to_string(level) + " " + text);
  }

  // What was printed since the last call.
  std::vector<std::string> Take() {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> taken;
    taken.swap(messages_);
    return taken;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> messages_;
};

class CommandFixture : public testing::Test {
 protected:
  CommandFixture() {
    for (const char* channel : {"comproc", "asynch", "driver"}) {
      Slog log(channel);
      log.RemoveDrains();
      log.AddDrain(drain_);
    }
  }
  ~CommandFixture() override {
    client_.Join();
    for (const char* channel : {"comproc", "asynch", "driver"}) {
      Slog(channel).RemoveDrains();
    }
    boost::filesystem::remove_all(folder_);
  }

  CommandState& State() { return processor_.State(); }

  // Runs a line and gives what it printed.
  std::vector<std::string> Printed(const std::string& line) {
    processor_.Dispatch(line);
    return drain_->Take();
  }

  // Runs a line that must end in `Exception`, and gives what it printed.
  template <typename Exception>
  std::vector<std::string> PrintedBefore(const std::string& line) {
    EXPECT_THROW(processor_.Dispatch(line), Exception) << line;
    return drain_->Take();
  }

  // What is printed when the messages of call-backs are shown.
  std::vector<std::string> Flushed() {
    State().messages.FlushMessages();
    return drain_->Take();
  }

  // Puts the interpreter into these conditions without asking the front end.
  void PretendAttached() {
    State().engines = {QuarroSpec{1, 0x10001, 8, 4520, 0x7f000001}};
    State().attached = true;
    State().engine_index = 0;
  }
  void PretendGrid(const std::string& name = "g1") {
    PretendAttached();
    State().grid_active = true;
    State().grid_name.Set(name);
  }

  // The path of a file with this content in a folder that goes with the test.
  std::string File(const std::string& name, const std::string& content) {
    boost::filesystem::create_directories(folder_);
    const std::string path = (folder_ / name).string();
    std::ofstream(path) << content;
    return path;
  }

  const boost::filesystem::path folder_ = boost::filesystem::temp_directory_path() /
                                          boost::filesystem::unique_path("quarro_%%%%%%%%%%%%");
  const std::shared_ptr<CaptureDrain> drain_ = std::make_shared<CaptureDrain>();
  MParams params_;
  FakeFrontEnd client_;
  CommandProcessor processor_{&client_, params_};
};

using Lines = std::vector<std::string>;

}  // namespace quarro
