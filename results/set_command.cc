// set: changes the variables that the operator sees.
#include <algorithm>
#include <memory>
#include <string>

#include <boost/lexical_cast.hpp>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "cli/conversions.h"
#include "engine/sg_client_base.h"
#include "output/utm_projection.h"
#include "results/bounding_box_words.h"
#include "results/log_line.h"

namespace quarro {

namespace {

constexpr std::uint32_t kBoundingBoxQuery = 4;
constexpr std::uint32_t kHighestLevel = 7;

// One set command.
struct Setting {
  CommandState& state;
  WordIterator word;         // the first after the variable's name
  std::uint32_t word_count;  // of the whole line: set, the variable and its words
};

[[noreturn]] void Refuse(Setting& setting, const std::string& reason) {
  LogLine(setting.state, kError, reason);
  throw CommandProcessor::bad_command();
}

void SetDebug(Setting& setting) {
  if (setting.word_count == 2) {
    setting.state.debug_mode = false;
    return;
  }
  const std::string& value = *setting.word;
  if (value == "true" || value == "1") {
    setting.state.debug_mode = true;
  } else if (value == "false" || value == "0") {
    setting.state.debug_mode = false;
  } else {
    Refuse(setting, "debug is a binary variable (allowed: 'true|false').");
  }
}

void SetBaseDirectory(Setting& setting) {
  setting.state.basedir = setting.word_count == 2 ? std::string() : *setting.word;
}

void FetchCurrentBounds(CommandState& state) {
  state.reset_bbox_on_load = false;
  state.rendezvous.Reset();
  state.client->RequestQuery(kBoundingBoxQuery, state.CallBack(&CommandState::OnBoundingBoxReply));
  if (!state.rendezvous.Wait()) {
    LogLine(state, kError, "request for server results pool report failed.");
  }
}

void SetBoundingBoxMode(Setting& setting) {
  const std::string& mode = *setting.word;
  if (mode == "on_load") {
    setting.state.reset_bbox_on_load = true;
  } else if (mode == "release") {
    setting.state.reset_bbox_on_load = false;
  } else if (mode == "current") {
    FetchCurrentBounds(setting.state);
  } else {
    Refuse(setting, "syntax: set bbox (on_load|release|current)");
  }
}

void SetBoundingBox(Setting& setting) {
  switch (setting.word_count) {
    case 2:
      setting.state.bbox.Set(SGBoundingBox());
      break;
    case 3:
      SetBoundingBoxMode(setting);
      break;
    case 4:
      Refuse(setting, "syntax: set bbox <left><bottom><right><top>");
    default:
      setting.state.bbox.Set(ParseBoundingBox(setting.state, setting.word, BoxForm::kRectangle));
  }
}

void SetHistory(Setting& setting) {
  if (setting.word_count != 3) {
    Refuse(setting, "syntax: set history <length>");
  }
  CommandState& state = setting.state;
  state.history_length = boost::lexical_cast<std::uint32_t>(*setting.word);
  if (state.history.size() > state.history_length) {
    const auto surplus = static_cast<std::ptrdiff_t>(state.history.size() - state.history_length);
    state.history.erase(state.history.begin(), state.history.begin() + surplus);
  }
}

void RequireRemoteLog(Setting& setting) {
  if (!setting.state.debug_mode) {
    Refuse(setting, "you must be in debug mode to set remote log level.");
  }
  if (!setting.state.attached) {
    LogLine(setting.state, kError, "you must be attached to a server to set remote log level.");
    throw CommandProcessor::not_attached();
  }
}

void SetLogLevel(Setting& setting) {
  if (setting.word_count != 4) {
    Refuse(setting, "syntax: set loglevel local|remote <level>");
  }
  const std::string& side = setting.word[0];
  if (side != "local" && side != "remote") {
    Refuse(setting, "you must specify either 'local' or 'remote' log level to set.");
  }
  const bool remote = side == "remote";
  if (remote) {
    RequireRemoteLog(setting);
  }
  std::uint32_t level = 0;
  if (!ConvertWord(setting.word[1], level) || level > kHighestLevel) {
    Refuse(setting, "debug level was not recognised (range: [0, 7]).");
  }
  SGClientBase& client = *setting.state.client;
  const bool done = remote ? client.SetRemoteLogLevel(level)
                           : client.SetLogFilter(SlogLevel(static_cast<int>(level)));
  LogLine(setting.state, done ? kInformation : kError,
          ": " + side + " log level set " + (done ? "OK" : "failed") + ".");
}

void SetMessages(Setting& setting) {
  if (setting.word_count != 3) {
    Refuse(setting, "syntax: set messages local|<location>");
  }
  CommandState& state = setting.state;
  const std::string& location = *setting.word;
  if (location == "local") {
    state.messages.RedirectToConsole();
  } else if (!state.messages.RedirectToFile(location, true)) {
    LogLine(state, kError, "messages cannot be written to \"" + location + "\".");
  }
}

// A zone that is none changes nothing; the projection says why it refused one.
void SetProjection(Setting& setting) {
  if (setting.word_count != 4) {
    Refuse(setting, "syntax: set projecton utm <zone>");
  }
  if (setting.word[0] != "utm") {
    Refuse(setting, "project only allowed in UTM coordinates.");
  }
  std::int32_t zone = 0;
  if (!ConvertWord(setting.word[1], zone)) {
    return;
  }
  try {
    setting.state.projection.Set(std::make_shared<const UTMProjection>(zone));
  } catch (const Projection::bad_projection&) {
    return;
  }
}

struct Variable {
  const char* name;
  void (*set)(Setting&);
};

constexpr Variable kVariables[] = {{"debug", SetDebug},          {"basedir", SetBaseDirectory},
                                   {"bbox", SetBoundingBox},     {"history", SetHistory},
                                   {"loglevel", SetLogLevel},    {"messages", SetMessages},
                                   {"projection", SetProjection}};

}  // namespace

void SetCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                std::uint32_t word_count) {
  if (word_count != 2 && word_count != 3 && word_count != 4 && word_count != 6) {
    processor.ShowHelp("set");
    throw CommandProcessor::bad_command();
  }
  const std::string& name = *first++;
  const auto* variable = std::find_if(std::begin(kVariables), std::end(kVariables),
                                      [&](const Variable& known) { return name == known.name; });
  if (variable == std::end(kVariables)) {
    LogLine(processor.State(), kError, "variable \"" + name + "\" not known.");
    return;
  }
  Setting setting{processor.State(), first, word_count};
  variable->set(setting);
}

void SetDetailHelp(CommandProcessor& processor) {
  for (const char* line :
       {"\t\tVariables are:", "\t\t\tbasedir                         Reset current basedir value",
        "\t\t\tbasedir <location>              Set current base directory value to <location>.",
        "\t\t\tbbox                            Reset bounding box to current default.",
        "\t\t\tbbox on_load                    Have bounding box reset when a new grid is loaded.",
        "\t\t\tbbox release                    Release bounding box following.",
        "\t\t\tbbox current                    Have bounding box reference all of the current "
        "grid.",
        "\t\t\tbbox <left><bottom><right><top> Set absolute bounding box coordinates.",
        "\t\t\tdebug true|false                Set binary debug flag",
        "\t\t\thistory <length>                Length (in commands) of history buffer.",
        "\t\t\tloglevel local|remote <num>     Set the local or remote log level.",
        "\t\t\tmessages local|<location>       Send messages to the local output, or to a file in "
        "<location>.",
        "\t\t\tprojection utm <zone>           Set projection zone for UTM projection (-ve zone is "
        "southern hemisphere)."}) {
    LogLine(processor.State(), kInformation, line);
  }
}

}  // namespace quarro
