// Quarro_Client, the console client.
#include <csignal>
#include <memory>

#include "app/start_up.h"
#include "gridding/local/sg_debug_client.h"
#include "gridding/remote/super_grid_client.h"
#include "support/open_files.h"

namespace {

template <typename FrontEnd>
std::unique_ptr<quarro::SGClientBase> Make(const quarro::MParams& params) {
  return std::make_unique<FrontEnd>(params);
}

}  // namespace

// What nobody catches ends the program with its reason on the standard error.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  // A file that may grow no further is an error of the write, as on a full disc, not a signal.
  (void)std::signal(SIGXFSZ, SIG_IGN);
  quarro::RaiseOpenFileLimit();
  return quarro::RunClient(argc, argv, Make<quarro::SGDebugClient>, Make<quarro::SuperGridClient>);
}
