// How near to the truth the depths of a scenario should come.
#pragma once

#include <string>
#include <vector>

#include "bench/accuracy/checks.h"
#include "bench/accuracy/judgement.h"

namespace quarro::accuracy {

// Those of one level of resolution, "low" or "full":
//  - with few spikes and no line off, median, 95 % and 99.9 % of errors over the oracle's and the
//    block median's, and the share within 1.96 sigma;
//  - with one beam in five wrong, the share of wrong nodes, and of these the share that is marked;
//  - among fish, the share of wrong nodes and the root mean square error over the oracle's;
//  - among fish by count alone, the share of wrong nodes;
//  - on slopes without spikes, hypotheses a low-resolution node.
std::vector<Check> TargetsOf(const Scenario& scenario, const std::string& level,
                             const std::vector<MethodErrors>& table);

}  // namespace quarro::accuracy
