// All parameters of all programs, so that a misspelt key in the file is found. docs/parameters.md
// says what they mean.
#pragma once

#include <string>
#include <vector>

#include "support/mparams.h"

namespace quarro::service {

struct ParameterInfo {
  const char* section;
  const char* key;
  const char* fallback;  // the value without the key
};

const std::vector<ParameterInfo>& ParameterTable();

// Logs a warning for each key of the file that no module knows.
void WarnOfUnknownParameters(const MParams& params);

}  // namespace quarro::service
