// Quarro_Client, the console client.
#include <memory>

#include "app/start_up.h"
#include "gridding/local/sg_debug_client.h"
#include "gridding/remote/super_grid_client.h"

namespace {

template <typename FrontEnd>
std::unique_ptr<quarro::SGClientBase> Make(const quarro::MParams& params) {
  return std::make_unique<FrontEnd>(params);
}

}  // namespace

// What nobody catches ends the program with its reason on the standard error.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  return quarro::RunClient(argc, argv, Make<quarro::SGDebugClient>, Make<quarro::SuperGridClient>);
}
