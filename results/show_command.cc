// show: reports the variables that the operator sees, some of which only the engine knows.
#include <algorithm>
#include <iterator>
#include <locale>
#include <memory>
#include <sstream>
#include <string>

#include <boost/date_time/posix_time/posix_time.hpp>

#include "cli/command_handlers.h"
#include "cli/command_processor.h"
#include "engine/sg_client_base.h"
#include "output/number_text.h"
#include "output/projection.h"
#include "results/log_line.h"

namespace quarro {

namespace {

constexpr std::uint32_t kGridStatusQuery = 1;
constexpr std::uint32_t kDebugPositionsQuery = 2;
constexpr std::uint32_t kResultsPoolQuery = 3;
constexpr int kDefaultDigits = 6;  // of numbers in messages

template <typename Value>
std::string Text(const Value& value) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << value;
  return text.str();
}

void Say(CommandState& state, const std::string& text) { LogLine(state, kInformation, text); }

std::string Item(std::size_t number, const std::string& text) {
  return " [" + std::to_string(number) + "] " + text;
}

// Waits for the answer, which its call-back prints.
void Query(CommandState& state, std::uint32_t kind, const char* failed) {
  state.rendezvous.Reset();
  state.client->RequestQuery(kind, state.CallBack(&CommandState::OnQueryReply));
  if (!state.rendezvous.Wait()) {
    LogLine(state, kError, failed);
  }
}

void ShowEngine(CommandState& state) {
  Say(state, "current engine: " + Text(state.AttachedEngine()));
}

void ShowAvailable(CommandState& state) {
  if (state.engines.empty()) {
    Say(state, "no engines currently known on network.");
    return;
  }
  Say(state,
      std::to_string(state.engines.size()) + " computational engines available on local network:");
  std::size_t number = 0;
  for (const QuarroSpec& engine : state.engines) {
    Say(state, Item(++number, Text(engine)));
  }
}

void ShowDebug(CommandState& state) { Say(state, state.debug_mode ? "debug = 1" : "debug = 0"); }

void ShowGrid(CommandState& state) {
  Say(state, state.grid_active ? "grid = 1" : "grid = 0");
  if (state.grid_active) {
    Say(state, " [" + state.grid_name.Get() + "]");
    Query(state, kGridStatusQuery, "query of server for grid status failed.");
  }
}

void ShowLines(CommandState& state) {
  Say(state, "pending lines: " + std::to_string(state.pending_lines.Count()));
}

void ShowResults(CommandState& state) {
  Say(state, "pending results: " + std::to_string(state.pending_results.Count()));
}

void ShowMessages(CommandState& state) {
  if (!state.messages.Empty()) {
    state.messages.FlushMessages();
    return;
  }
  const std::string output = state.messages.ToFile() ? "file-based" : "local";
  Say(state, "no pending messages [output is " + output + "].");
}

void ShowFilelist(CommandState& state) {
  if (state.filelist.empty()) {
    Say(state, "no lines in filelist.");
    return;
  }
  Say(state, "total " + std::to_string(state.filelist.size()) + " files:");
  std::size_t number = 0;
  for (const std::string& file : state.filelist) {
    Say(state, Item(++number, state.PathOf(file)));
  }
}

void ShowBaseDirectory(CommandState& state) {
  if (state.basedir.empty()) {
    Say(state, "base directory not set.");
  } else {
    Say(state, "base directory set to \"" + state.basedir + "\".");
  }
}

void ShowBoundingBox(CommandState& state) { Say(state, "bbox = (" + Text(state.bbox.Get()) + ")"); }

// A request that could not be sent is waited for like any other.
void ShowStatistics(CommandState& state) {
  if (!state.attached) {
    throw CommandProcessor::not_attached();
  }
  Say(state, "sending request for server statistics (please wait).");
  state.rendezvous.Reset();
  try {
    state.client->RequestServerStatistics(state.CallBack(&CommandState::OnServerStatistics));
  } catch (const ExSGClientBase& failure) {
    LogLine(state, kError, "failed to get statistics (" + failure.who() + ").");
  }
  state.rendezvous.Wait();
}

void ShowHistory(CommandState& state) {
  Say(state, "history length = " + std::to_string(state.history_length) + " commands.");
}

void ShowTraces(CommandState& state) {
  Query(state, kDebugPositionsQuery, "request for debug positions failed.");
}

void ShowResultsPool(CommandState& state) {
  Query(state, kResultsPoolQuery, "request for server results pool report failed.");
}

void ShowTime(CommandState& state) {
  using boost::posix_time::to_simple_string;
  if (state.interval_active) {
    LogLine(state, kError,
            "you are currently in a timing loop: I don't know how long it's going to take!");
  } else if (state.interval_start.is_not_a_date_time()) {
    LogLine(state, kError, "you have not done a timing loop: I don't have anything to tell you.");
  } else {
    const auto elapsed = state.interval_end - state.interval_start;
    const double seconds = static_cast<double>(elapsed.total_microseconds()) / 1000000.0;
    Say(state, "last sequence started at " + to_simple_string(state.interval_start) +
                   " and ended at " + to_simple_string(state.interval_end) + " for a total of " +
                   General(seconds, kDefaultDigits) + " s.");
  }
}

void ShowProjection(CommandState& state) {
  const std::shared_ptr<const Projection> projection = state.projection.Get();
  if (projection == nullptr) {
    Say(state, "projection information not set.");
    return;
  }
  Say(state, projection->Name() + " (Central Meridian: " +
                 General(projection->CentralMeridian(), kDefaultDigits) + " deg.)");
}

struct Variable {
  const char* name;
  void (*show)(CommandState&);
};

constexpr Variable kVariables[] = {{"engine", ShowEngine},
                                   {"available", ShowAvailable},
                                   {"debug", ShowDebug},
                                   {"grid", ShowGrid},
                                   {"lines", ShowLines},
                                   {"results", ShowResults},
                                   {"messages", ShowMessages},
                                   {"filelist", ShowFilelist},
                                   {"basedir", ShowBaseDirectory},
                                   {"bbox", ShowBoundingBox},
                                   {"statistics", ShowStatistics},
                                   {"history", ShowHistory},
                                   {"traces", ShowTraces},
                                   {"respool", ShowResultsPool},
                                   {"time", ShowTime},
                                   {"projection", ShowProjection}};

}  // namespace

void ShowCommand(CommandProcessor& processor, WordIterator first, WordIterator /*last*/,
                 std::uint32_t /*word_count*/) {
  CommandState& state = processor.State();
  const std::string& name = *first;
  const auto* variable = std::find_if(std::begin(kVariables), std::end(kVariables),
                                      [&](const Variable& known) { return name == known.name; });
  if (variable == std::end(kVariables)) {
    LogLine(state, kError, "variable \"" + name + "\" not known.");
    return;
  }
  variable->show(state);
}

void ShowDetailHelp(CommandProcessor& processor) {
  for (const char* line :
       {"\t\tVariables are:",
        "\t\t\tavailable  List of available servers on the local broadcast domain.",
        "\t\t\tbasedir    Current base directory for generating grids.",
        "\t\t\tbbox       Current default bounding box.", "\t\t\tdebug      Debug flag status.",
        "\t\t\tengine     Specification for currently attached engine.",
        "\t\t\tfilelist   Current list of files available for commit to server.",
        "\t\t\tgrid       Specification of the current grid location/resolution.",
        "\t\t\thistory    Length (in commands) of history buffer.",
        "\t\t\tlines      Pending lines (committed for processing, but not complete).",
        "\t\t\tmessages   Pending messages (messages from processing not yet viewed).",
        "\t\t\tresults    Pending results (generated but not retreived from server).",
        "\t\t\trespool    Results pool on server waiting for pickup.",
        "\t\t\tstatistics Statistics of the server configuration.",
        "\t\t\ttime       Real-time of the last sequence time event.",
        "\t\t\ttraces     Show list of current debug traces in the grid.",
        "\t\t\tprojection Show projection information (if available)."}) {
    LogLine(processor.State(), kInformation, line);
  }
}

}  // namespace quarro
