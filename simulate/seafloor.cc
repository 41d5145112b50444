// The seafloors by name.
#include "simulate/seafloor.h"

#include "simulate/canyon_seafloor.h"
#include "simulate/flat_seafloor.h"
#include "simulate/mixed_seafloor.h"
#include "simulate/obstacles.h"
#include "simulate/sand_waves.h"
#include "simulate/scarp_seafloor.h"
#include "simulate/slope_seafloor.h"

namespace quarro::simulate {

std::unique_ptr<Seafloor> MakeSeafloor(const SurveyOptions& options,
                                       const survey::GridPoint& origin) {
  options.Check();
  if (options.seafloor == "flat") return std::make_unique<FlatSeafloor>(options);
  if (options.seafloor == "slope") return std::make_unique<SlopeSeafloor>(options, origin);
  if (options.seafloor == "waves") return std::make_unique<WaveSeafloor>(options, origin);
  if (options.seafloor == "rocks") return std::make_unique<RockySeafloor>(options, origin);
  if (options.seafloor == "scarp") return std::make_unique<ScarpSeafloor>(options, origin);
  if (options.seafloor == "canyon") return std::make_unique<CanyonSeafloor>(options, origin);
  if (options.seafloor == "mix") return std::make_unique<MixedSeafloor>(options, origin);
  throw SimulationError("--seafloor is \"" + options.seafloor +
                        "\"; it must be flat, slope, waves, rocks, scarp, canyon or mix");
}

}  // namespace quarro::simulate
