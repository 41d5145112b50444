// The words for each step, with and without a reason.
#include "output/bag_failure_text.h"

namespace quarro {

namespace {

struct Words {
  const char* with_reason;
  const char* without_reason;
};

Words WordsOf(BagStep step) {
  switch (step) {
    case BagStep::kInitialisation:
      return {"BAG file initialisation failed: ",
              "BAG file initialisation failed (unknown reason)."};
    case BagStep::kCreation:
      return {"BAG file creation failed: ", "BAG file creation failed (unkown reason)."};
    case BagStep::kLayerCreation:
      return {"BAG variable resolution layer creation failed: ",
              "BAG variable resolution layer creation failed (unknown reason)."};
    case BagStep::kWriting:
      break;
  }
  return {"BAG file is incomplete: ", "BAG file is incomplete (unknown reason)."};
}

}  // namespace

std::string BagFailureText(BagStep step, bagError status) {
  const Words words = WordsOf(step);
  const char* reason = nullptr;
  if (bagGetErrorString(status, &reason) == 0) {
    return std::string(words.with_reason) + reason;
  }
  return words.without_reason;
}

}  // namespace quarro
