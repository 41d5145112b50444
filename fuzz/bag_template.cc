// Any bytes as an operator's metadata template, filled for a grid and read back as a BAG's
// definition.
#include <memory>

#include "bag/bag.h"
#include "cli/command_state.h"
#include "fuzz/harness.h"
#include "output/bag_metadata.h"
#include "output/utm_projection.h"
#include "support/mparams.h"

namespace {

quarro::MParams ParametersWithTemplate(const std::string& path) {
  quarro::MParams params;
  params.Set("ClientServer", "BAGMetadataTemplate", path);
  return params;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  quarro::fuzz::SilenceChannels();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const quarro::fuzz::ScratchFolder folder;
  static const quarro::fuzz::MemoryFile file;
  static quarro::CommandState state(nullptr, ParametersWithTemplate(file.path()));
  static const bool prepared = [] {
    state.projection.Set(std::make_shared<const quarro::UTMProjection>(19));
    state.grid_name.Set("a<b>&\"c\"");
    return true;
  }();
  (void)prepared;
  file.Write({data, size});
  std::string path = folder.path().string();
  try {
    quarro::GenerateBagMetadata(state, 11, 11, 4701000.0, 4700000.0, 300000.0, 301000.0, path);
  } catch (const quarro::CommandState::bag_output_failed&) {
    quarro::fuzz::Require(std::filesystem::is_empty(folder.path()),
                          "a template that is refused leaves no document behind");
    return 0;
  }
  quarro::bagData definition = {};
  if (quarro::bagInitDefinitionFromFile(&definition, path.c_str()) == quarro::kBagSuccess) {
    quarro::bagFreeDefinition(&definition);
  }
  folder.Empty();
  return 0;
}
