#include "gridding/rpc/result_wire.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <exception>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "engine/exceptions.h"
#include "gridding/rpc/message_forms.h"
#include "gridding/rpc/protocol.h"
#include "gridding/service/extraction.h"
#include "gridding/service/result_arena.h"

namespace quarro::rpc {

static_assert(std::endian::native == std::endian::little,
              "numbers go over the network as they lie in memory");

namespace {

// The members of a record in the order in which they are sent. Record may be constant.
template <typename Record>
auto MembersOf(Record& r) {
  using Plain = std::remove_const_t<Record>;
  if constexpr (std::is_same_v<Plain, NodalDepth>) {
    return std::tie(r.depth_m, r.variance_m2, r.hypothesis_count, r.hypothesis_strength);
  } else if constexpr (std::is_same_v<Plain, RefinedNode>) {
    return std::tuple_cat(MembersOf(r.estimate), std::tie(r.sample_count));
  } else if constexpr (std::is_same_v<Plain, DepthCell>) {
    return std::tuple_cat(std::tie(r.resolution_m), MembersOf(r.estimate));
  } else if constexpr (std::is_same_v<Plain, RefinementBlock>) {
    return std::tie(r.nodes_a, r.nodes_b);
  } else if constexpr (std::is_same_v<Plain, Hypothesis>) {
    return std::tie(r.depth_m, r.variance_m2, r.sample_count);
  } else if constexpr (std::is_same_v<Plain, NodalHypos>) {
    return std::tie(r.easting_m, r.northing_m, r.resolution_m, r.hypothesis_strength, r.count);
  } else {
    static_assert(std::is_same_v<Plain, ResolutionRecord>);
    return std::tie(r.soundings, r.node_spacing_m, r.mean_depth_m, r.depth_deviation_m,
                    r.shallowest_m, r.deepest_m, r.mean_vertical_sigma_m, r.mean_horizontal_sigma_m,
                    r.density_per_m2, r.covered_fraction, r.occupancy, r.covered_area_m2, r.depth_m,
                    r.uncertainty_m, r.hypothesis_strength, r.easting_m, r.northing_m);
  }
}

template <typename Tuple>
struct SizeOf;
template <typename... Members>
struct SizeOf<std::tuple<Members&...>> {
  static constexpr std::size_t value = (sizeof(Members) + ...);
};
template <typename Record>
inline constexpr std::size_t kSentBytes =
    SizeOf<decltype(MembersOf(std::declval<Record&>()))>::value;

template <typename Record>
char* Pack(const Record& record, char* to) {
  std::apply(
      [&](const auto&... members) {
        ((std::memcpy(to, &members, sizeof(members)), to += sizeof(members)), ...);
      },
      MembersOf(record));
  return to;
}

template <typename Record>
const char* Unpack(const char* from, Record& record) {
  std::apply(
      [&](auto&... members) {
        ((std::memcpy(&members, from, sizeof(members)), from += sizeof(members)), ...);
      },
      MembersOf(record));
  return from;
}

// Nobody takes the chunks any more.
struct Unwanted {};

// Fills chunks with records and sends each that is full.
class Packer {
 public:
  explicit Packer(const ChunkSink& sink) : sink_(sink) {}

  template <typename Record>
  void Put(const Record& record) {
    static_assert(kSentBytes<Record> <= kChunkBytes);
    if (left_ < kSentBytes<Record>) Flush();
    next_ = Pack(record, next_);
    left_ -= kSentBytes<Record>;
  }
  template <typename Record>
  void PutAll(const Record* records, std::size_t count) {
    while (count != 0) {
      if (left_ < kSentBytes<Record>) Flush();
      const std::size_t batch = std::min(count, left_ / kSentBytes<Record>);
      char* next = next_;
      for (std::size_t i = 0; i < batch; ++i) next = Pack(records[i], next);
      next_ = next;
      left_ -= batch * kSentBytes<Record>;
      records += batch;
      count -= batch;
    }
  }
  // Sends what is filled, and makes room.
  void Flush() {
    std::string& data = *chunk_.mutable_data();
    if (!data.empty()) {
      data.resize(data.size() - left_);
      if (!data.empty() && !sink_(chunk_)) throw Unwanted();
    }
    data.resize(kChunkBytes);
    next_ = data.data();
    left_ = data.size();
  }

 private:
  const ChunkSink& sink_;
  v1::ResultChunk chunk_;
  char* next_ = nullptr;
  std::size_t left_ = 0;
};

// Takes records out of chunks, which may cut them anywhere.
class Unpacker {
 public:
  explicit Unpacker(const ChunkSource& source) : source_(source) {}

  template <typename Record>
  void Take(Record& record) {
    TakeAll(&record, 1);
  }
  template <typename Record>
  void TakeAll(Record* records, std::size_t count) {
    while (count != 0) {
      const std::size_t batch = std::min(count, left_ / kSentBytes<Record>);
      for (std::size_t i = 0; i < batch; ++i) next_ = Unpack(next_, records[i]);
      left_ -= batch * kSentBytes<Record>;
      records += batch;
      count -= batch;
      if (count != 0) {
        std::array<char, kSentBytes<Record>> cut;
        Gather(cut.data(), cut.size());
        Unpack(cut.data(), *records++);
        --count;
      }
    }
  }
  void ExpectEnd() {
    if (left_ != 0 || Next()) throw ExSGClientBase("the engine sent more than one result");
  }

 private:
  void Gather(char* to, std::size_t size) {
    while (size != 0) {
      if (left_ == 0 && !Next()) throw ExSGClientBase("the engine sent only part of a result");
      const std::size_t part = std::min(size, left_);
      std::memcpy(to, next_, part);
      next_ += part;
      left_ -= part;
      to += part;
      size -= part;
    }
  }
  bool Next() {
    if (!source_(chunk_)) return false;
    if (chunk_.content_case() == v1::ResultChunk::kFailure) {
      std::rethrow_exception(FromMessage(chunk_.failure()));
    }
    next_ = chunk_.data().data();
    left_ = chunk_.data().size();
    return true;
  }

  const ChunkSource& source_;
  v1::ResultChunk chunk_;
  const char* next_ = nullptr;
  std::size_t left_ = 0;
};

void PackArrays(const ResultDepth& result, Packer& packer) {
  const std::uint64_t cells = std::uint64_t{result.grid.rows} * result.grid.columns;
  for (std::uint64_t i = 0; i < cells; ++i) {
    const DepthCell& cell = result.grid.cells[i];
    packer.Put(cell);
    const RefinementBlock block = cell.refinement != nullptr ? *cell.refinement : RefinementBlock();
    packer.Put(block);
    packer.PutAll(block.nodes, std::size_t{block.nodes_a} * block.nodes_b);
  }
}

void PackArrays(const ResultHypos& result, Packer& packer) {
  for (std::uint64_t i = 0; i < result.count; ++i) {
    packer.Put(result.nodes[i]);
    packer.PutAll(result.nodes[i].hypotheses, result.nodes[i].count);
  }
}

void PackArrays(const ResultResolution& result, Packer& packer) {
  packer.PutAll(result.grid.cells, std::size_t{result.grid.rows} * result.grid.columns);
}

template <typename Result>
v1::GridResultHeader HeaderOf(const Result& result) {
  v1::GridResultHeader header;
  header.set_result_number(result.result_number);
  *header.mutable_bounds() = ToMessage(result.bounds);
  if constexpr (std::is_same_v<Result, ResultHypos>) {
    header.set_kind(v1::GridResultHeader::HYPOTHESES);
    header.set_count(result.count);
  } else {
    header.set_kind(std::is_same_v<Result, ResultDepth> ? v1::GridResultHeader::DEPTH
                                                        : v1::GridResultHeader::RESOLUTION);
    header.set_rows(result.grid.rows);
    header.set_columns(result.grid.columns);
  }
  return header;
}

template <typename Result>
void Send(const Result& result, const ChunkSink& sink) {
  v1::ResultChunk chunk;
  *chunk.mutable_header() = HeaderOf(result);
  if (!sink(chunk)) throw Unwanted();
  Packer packer(sink);
  PackArrays(result, packer);
  packer.Flush();
}

void UnpackArrays(ResultDepth& result, service::ResultArena& arena, Unpacker& unpacker) {
  const std::uint64_t count = std::uint64_t{result.grid.rows} * result.grid.columns;
  auto* cells = arena.Array<DepthCell>(count);
  result.grid.cells = cells;
  for (std::uint64_t i = 0; i < count; ++i) {
    RefinementBlock block;
    unpacker.Take(cells[i]);
    unpacker.Take(block);
    const std::uint64_t nodes_in_block = std::uint64_t{block.nodes_a} * block.nodes_b;
    if (nodes_in_block == 0) continue;
    auto* nodes = arena.Array<RefinedNode>(nodes_in_block);
    unpacker.TakeAll(nodes, nodes_in_block);
    block.nodes = nodes;
    auto* kept = arena.Array<RefinementBlock>(1);
    *kept = block;
    cells[i].refinement = kept;
  }
}

void UnpackArrays(ResultHypos& result, service::ResultArena& arena, Unpacker& unpacker) {
  auto* nodes = arena.Array<NodalHypos>(result.count);
  result.nodes = nodes;
  for (std::uint64_t i = 0; i < result.count; ++i) {
    unpacker.Take(nodes[i]);
    auto* hypotheses = arena.Array<Hypothesis>(nodes[i].count);
    unpacker.TakeAll(hypotheses, nodes[i].count);
    nodes[i].hypotheses = hypotheses;
  }
}

void UnpackArrays(ResultResolution& result, service::ResultArena& arena, Unpacker& unpacker) {
  const std::uint64_t count = std::uint64_t{result.grid.rows} * result.grid.columns;
  auto* cells = arena.Array<ResolutionRecord>(count);
  result.grid.cells = cells;
  unpacker.TakeAll(cells, count);
}

template <typename Result>
std::unique_ptr<SEBaseResult> Receive(const v1::GridResultHeader& header,
                                      std::shared_ptr<service::ResultArena> arena,
                                      Unpacker& unpacker) {
  auto result = std::make_unique<Result>();
  result->result_number = header.result_number();
  result->bounds = FromMessage(header.bounds());
  if constexpr (std::is_same_v<Result, ResultHypos>) {
    result->count = header.count();
  } else {
    result->grid.rows = header.rows();
    result->grid.columns = header.columns();
    const bool empty = header.rows() == 0 || header.columns() == 0;
    if (empty || std::uint64_t{header.rows()} * header.columns() > service::kMostCellsInResult) {
      throw ExSGClientBase("the engine announces a result of " + std::to_string(header.rows()) +
                           " rows and " + std::to_string(header.columns()) + " columns");
    }
  }
  UnpackArrays(*result, *arena, unpacker);
  unpacker.ExpectEnd();
  if constexpr (std::is_same_v<Result, ResultHypos>) {
    result->storage = std::move(arena);
  } else {
    result->grid.storage = std::move(arena);
  }
  return result;
}

}  // namespace

bool IsSentInChunks(const SEBaseResult& result) {
  return dynamic_cast<const ResultDepth*>(&result) != nullptr ||
         dynamic_cast<const ResultHypos*>(&result) != nullptr ||
         dynamic_cast<const ResultResolution*>(&result) != nullptr;
}

bool SendResult(const SEBaseResult& result, const ChunkSink& sink) {
  try {
    if (const auto* depth = dynamic_cast<const ResultDepth*>(&result)) {
      Send(*depth, sink);
    } else if (const auto* hypotheses = dynamic_cast<const ResultHypos*>(&result)) {
      Send(*hypotheses, sink);
    } else if (const auto* resolution = dynamic_cast<const ResultResolution*>(&result)) {
      Send(*resolution, sink);
    } else {
      throw ExSGClientBase("a result of this class is not sent in chunks");
    }
  } catch (const Unwanted&) {
    return false;
  }
  return true;
}

std::unique_ptr<SEBaseResult> ReceiveResult(const ChunkSource& source,
                                            const std::filesystem::path& directory,
                                            std::uint64_t heap_bytes) {
  v1::ResultChunk first;
  if (!source(first)) throw ExSGClientBase("the engine sent no result");
  if (first.content_case() == v1::ResultChunk::kFailure) {
    std::rethrow_exception(FromMessage(first.failure()));
  }
  auto arena = std::make_shared<service::ResultArena>(directory, heap_bytes);
  Unpacker unpacker(source);
  switch (first.header().kind()) {
    case v1::GridResultHeader::DEPTH:
      return Receive<ResultDepth>(first.header(), std::move(arena), unpacker);
    case v1::GridResultHeader::HYPOTHESES:
      return Receive<ResultHypos>(first.header(), std::move(arena), unpacker);
    case v1::GridResultHeader::RESOLUTION:
      return Receive<ResultResolution>(first.header(), std::move(arena), unpacker);
    default:
      throw ExSGClientBase("the engine sent a result of unknown kind");
  }
}

}  // namespace quarro::rpc
