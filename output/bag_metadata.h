// The XML metadata document of a BAG file, made from the operator's template.
#pragma once

#include <cstdint>
#include <string>

namespace quarro {

class CommandState;

// Replaces the twenty MERA_BAG_ keys of the state's template by values of a grid of `rows` x
// `columns` nodes whose outermost nodes lie at the bounds (metres). On entry `location` is the
// directory for the document ("" stands for "."), on return the path of the document, named
// mera_bag_metadata. and six characters that no other file there has.
//
// On failure the reason is logged at level 4, CommandState::bag_output_failed is thrown and no
// document is left behind. Runs on any thread.
void GenerateBagMetadata(CommandState& state, std::uint32_t rows, std::uint32_t columns,
                         double north, double south, double west, double east,
                         std::string& location);

}  // namespace quarro
