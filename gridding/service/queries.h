// Answers to queries, as text.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/results.h"
#include "gridding/core/lattice.h"
#include "gridding/store/grid_store.h"

namespace quarro::service {

// Kinds of RequestQuery.
inline constexpr std::uint32_t kQueryStatus = 1;
inline constexpr std::uint32_t kQueryTraces = 2;
inline constexpr std::uint32_t kQueryResults = 3;
inline constexpr std::uint32_t kQueryBounds = 4;

// What `snapshot` holds of the grid of that name and those parameters.
std::vector<std::string> DescribeGrid(const std::string& name,
                                      const store::GridParameters& parameters,
                                      const core::Lattice& lattice, store::Snapshot& snapshot);

}  // namespace quarro::service
