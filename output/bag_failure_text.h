// What is said when a BAG file cannot be made.
#pragma once

#include <string>

#include "bag/bag.h"

namespace quarro {

enum class BagStep { kInitialisation, kCreation, kLayerCreation, kWriting };

// Names the step that failed and the library's text of the status, or says that it has none.
std::string BagFailureText(BagStep step, bagError status);

}  // namespace quarro
