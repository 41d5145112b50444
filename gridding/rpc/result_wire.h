// Results over a box as a string of bytes in chunks, and back. The format stands in
// quarro_v1.proto.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

#include "engine/results.h"
#include "gridding/rpc/quarro_v1.pb.h"

namespace quarro::rpc {

// Takes one chunk; false when nobody wants more. The chunk is the caller's again afterwards.
using ChunkSink = std::function<bool(const v1::ResultChunk& chunk)>;
// Gives the next chunk; false at the end.
using ChunkSource = std::function<bool(v1::ResultChunk& chunk)>;

// True for the classes that SendResult takes.
bool IsSentInChunks(const SEBaseResult& result);

// Sends header and data; holds one chunk in memory at a time. False when the sink wanted no more.
// Throws ExSGClientBase for a result of another class.
bool SendResult(const SEBaseResult& result, const ChunkSink& sink);

// The result that the chunks carry; `bytes` gives what it takes. Arrays of more than `heap_bytes`
// together go to an unlinked file in `directory`. Throws the failure that they carry,
// ExSGCServerResources when there is no room, and ExSGClientBase for bytes that are no result.
std::unique_ptr<SEBaseResult> ReceiveResult(const ChunkSource& source,
                                            const std::filesystem::path& directory,
                                            std::uint64_t heap_bytes);

}  // namespace quarro::rpc
