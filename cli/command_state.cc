// The record that all commands and call-backs share.
#include "cli/command_state.h"

#include <boost/bind/bind.hpp>
#include <boost/filesystem/path.hpp>

#include "cli/command_processor.h"
#include "engine/sg_client_base.h"
#include "support/mparams.h"

namespace quarro {

CommandState::CommandState(SGClientBase* front_end, const MParams& params)
    : client(front_end), bag_template(params.Lookup("ClientServer", "BAGMetadataTemplate")) {
  log.SetFilter(SlogLevel(1));
}

CommandState::~CommandState() = default;

std::string CommandState::GridName() const {
  if (!grid_active) {
    throw CommandProcessor::bad_command();
  }
  return grid_name.Get();
}

const QuarroSpec& CommandState::AttachedEngine() const {
  if (!attached) {
    throw CommandProcessor::not_attached();
  }
  const auto index = static_cast<std::size_t>(engine_index);
  return engine_index >= 0 && index < engines.size() ? engines[index] : last_attached;
}

std::string CommandState::EngineHostName() {
  return host_names_.NameOf(AttachedEngine().ipv4_address);
}

std::string CommandState::PathOf(const std::string& file_name) const {
  return (boost::filesystem::path(basedir) / file_name).string();
}

void CommandState::Remember(const std::string& line) {
  if (history.size() >= history_length && !history.empty()) {
    history.pop_front();
  }
  history.push_back(line);
}

ResultCallback CommandState::CallBack(void (CommandState::*member)(const SEResultToken&)) {
  return boost::bind(member, this, boost::placeholders::_1);
}

}  // namespace quarro
