// The call-backs of the grid commands: each fetches its result, tells what came of it and wakes the
// console.
#include <sstream>

#include "cli/command_state.h"
#include "engine/sg_client_base.h"
#include "slog/slog.h"
#include "support/sg_bounding_box.h"

namespace quarro {
namespace {

// Signals the rendezvous when it goes out of scope, so that no path leaves the console waiting.
class SignalAtEnd {
 public:
  explicit SignalAtEnd(Rendezvous& rendezvous) : rendezvous_(rendezvous) {}
  SignalAtEnd(const SignalAtEnd&) = delete;
  SignalAtEnd& operator=(const SignalAtEnd&) = delete;
  ~SignalAtEnd() { rendezvous_.Signal(success); }

  bool success = false;

 private:
  Rendezvous& rendezvous_;
};

// Runs the body of the call-back of a grid request.
template <typename Body>
void AnswerGridRequest(CommandState& state, const Body& body) {
  SignalAtEnd answer(state.rendezvous);
  Slog log(&state.log);
  try {
    body();
    answer.success = true;
  } catch (const ExSGCServerResources&) {
    log() << "error: grid construction failed." << endmsg;
  } catch (const ExSGClientBase& failure) {
    log() << "error: unexpected exception getting result (" << failure.who() << ")." << endmsg;
  }
}

// Awaits nothing but an acknowledgement. The texts are those of all result call-backs.
void AnswerAcknowledgement(CommandState& state, const SEResultToken& token) {
  SignalAtEnd answer(state.rendezvous);
  Slog log(&state.log);
  try {
    FetchResult<ResultPosAck>(*state.client, token);
    answer.success = true;
  } catch (const ExSGCNoGrid&) {
    log << SlogLevel(4);
    log() << "server reported no grid was available for line." << endmsg;
  } catch (const ExSGCServerResources&) {
    log << SlogLevel(4);
    log() << "server reports out of resources getting resolutions." << endmsg;
  } catch (const ExSGClientBase& failure) {
    log << SlogLevel(4);
    log() << "unexpected exception getting result (" << failure.who() << ")." << endmsg;
  } catch (...) {
    log << SlogLevel(4);
    log() << "unknown exception in getting query result information." << endmsg;
  }
}

}  // namespace

void CommandState::OnGridConstructed(const SEResultToken& token) {
  AnswerGridRequest(*this, [&] {
    FetchResult<ResultPosAck>(*client, token);
    messages.PostMessage("info: grid constructed OK.");
  });
}

void CommandState::OnGridLoaded(const SEResultToken& token) {
  AnswerGridRequest(*this, [&] {
    const auto loaded = FetchResult<ResultGridLoaded>(*client, token);
    if (reset_bbox_on_load) {
      bbox.Set(loaded->bounds);
    }
    std::ostringstream text;
    text << "info: grid constructed with bounding box (" << loaded->bounds << ").";
    messages.PostMessage(text.str());
  });
}

void CommandState::OnAcknowledged(const SEResultToken& token) {
  AnswerAcknowledgement(*this, token);
}

void CommandState::OnRefined(const SEResultToken& token) { AnswerAcknowledgement(*this, token); }

}  // namespace quarro
