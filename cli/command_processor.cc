// Dispatch of command lines.
#include "cli/command_processor.h"

#include <boost/tokenizer.hpp>

#include "slog/slog.h"

namespace quarro {
namespace {

constexpr int kMajorVersion = 1;
constexpr int kMinorVersion = 3;
constexpr char kBuildDate[] = "May 17 2017";
constexpr char kBuildTime[] = "08:28:29";

// Pieces between separators; runs of separators give no empty pieces.
Words SplitAt(char separator, const std::string& text) {
  const boost::char_separator<char> separators(std::string(1, separator).c_str());
  const boost::tokenizer<boost::char_separator<char>> pieces(text, separators);
  return {pieces.begin(), pieces.end()};
}

}  // namespace

CommandProcessor::CommandProcessor(SGClientBase* front_end, const MParams& params) {
  for (const CommandRow& row : CommandTable()) {
    const auto info = std::make_shared<const CommandInfo>(row.info);
    const CommandHandler bound = [this, handler = row.handler](WordIterator first,
                                                               WordIterator last,
                                                               std::uint32_t word_count) {
      handler(*this, first, last, word_count);
    };
    for (const std::string& name : SplitAt(',', row.names)) {
      commands_[name] = CommandEntry{bound, info};
    }
  }
  state_ = std::make_unique<CommandState>(front_end, params);
}

CommandProcessor::~CommandProcessor() = default;

void CommandProcessor::Dispatch(const std::string& line) {
  if (line.empty() || line.front() == '#') {
    return;
  }
  state_->Remember(line);

  const Words words = SplitAt(' ', line);
  const auto command = words.empty() ? commands_.end() : commands_.find(words.front());
  if (command == commands_.end()) {
    throw bad_command();
  }
  const CommandInfo& info = *command->second.info;
  const auto word_count = static_cast<std::uint32_t>(words.size());
  const std::uint32_t params = word_count - 1;
  if (params < info.min_params || params > info.max_params) {
    Slog log(&state_->log);
    log << SlogLevel(4);
    log() << "inappropriate number of parameters." << endmsg;
    log << SlogLevel(4);
    log() << "syntax: " << info.syntax << endmsg;
    throw bad_command();
  }
  if (info.needs_attached && !state_->Attached()) {
    throw not_attached();
  }
  if (info.needs_grid && !state_->GridActive()) {
    throw no_grid();
  }
  command->second.handler(words.begin() + 1, words.end(), word_count);
}

std::string CommandProcessor::BuildPrompt() {
  std::string prompt;
  if (state_->Attached()) {
    prompt += "[" + state_->EngineHostName() + "]";
  }
  if (state_->GridActive()) {
    prompt += "[" + state_->GridName() + "]";
  }
  if (state_->Debug()) {
    prompt += "[DEBUG]";
  }
  return prompt + ">> ";
}

std::string CommandProcessor::Version() {
  return "V" + std::to_string(kMajorVersion) + "." + std::to_string(kMinorVersion) + ", " +
         kBuildDate + ", " + kBuildTime;
}

void CommandProcessor::ShowHelp(const std::string& command) { Dispatch("help " + command); }

}  // namespace quarro
