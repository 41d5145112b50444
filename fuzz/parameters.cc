// Any bytes as a parameter file, and its values as the engine's.
#include "fuzz/harness.h"
#include "gridding/service/engine_config.h"
#include "gridding/service/parameter_table.h"
#include "support/mparams.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  quarro::fuzz::SilenceChannels();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const quarro::fuzz::MemoryFile file;
  file.Write({data, size});
  try {
    const quarro::MParams params(file.path(), true);
    for (const auto& [section, key] : params.Keys()) (void)params.Lookup(section, key);
    quarro::service::WarnOfUnknownParameters(params);
    (void)quarro::service::ReadEngineConfig(params);
  } catch (const quarro::ExTarn&) {
    return 0;  // no parameter file, or a value out of range
  }
  return 0;
}
