// Any header and data as a result that an engine sends over the network, and the files that a
// client writes of one that it takes.
#include <string>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/harness.h"
#include "gridding/rpc/result_wire.h"
#include "output/text_writers.h"
#include "support/exceptions.h"

namespace {

namespace v1 = quarro::v1;

constexpr std::uint64_t kHeap = std::uint64_t{1} << 16U;
constexpr std::uint64_t kLargestFile = std::uint64_t{64} << 20U;
constexpr std::size_t kLongestChunk = 200;

v1::ResultChunk Header(FuzzedDataProvider& input) {
  v1::ResultChunk chunk;
  v1::GridResultHeader& header = *chunk.mutable_header();
  header.set_kind(static_cast<v1::GridResultHeader::Kind>(input.ConsumeIntegralInRange(0, 4)));
  header.set_result_number(input.ConsumeIntegral<std::uint32_t>());
  const bool small = input.ConsumeBool();
  const auto size = [&] {
    return small ? input.ConsumeIntegralInRange<std::uint32_t>(0, 4)
                 : input.ConsumeIntegral<std::uint32_t>();
  };
  header.set_rows(size());
  header.set_columns(size());
  header.set_count(small ? size() : input.ConsumeIntegral<std::uint64_t>());
  if (input.ConsumeBool()) {
    header.mutable_bounds()->set_east(input.ConsumeFloatingPoint<double>());
    header.mutable_bounds()->set_north(input.ConsumeFloatingPoint<double>());
  }
  return chunk;
}

void WriteFile(const quarro::SEBaseResult& result) {
  if (const auto* depth = dynamic_cast<const quarro::ResultDepth*>(&result)) {
    quarro::WriteDepthText(depth->grid, depth->bounds, "result.txt");
  } else if (const auto* hypotheses = dynamic_cast<const quarro::ResultHypos*>(&result)) {
    quarro::WriteHypothesesText(*hypotheses, hypotheses->bounds, "result.txt");
  } else if (const auto* resolution = dynamic_cast<const quarro::ResultResolution*>(&result)) {
    quarro::WriteResolutionText(resolution->grid, resolution->bounds, "result.txt");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  quarro::fuzz::LimitFileSize(kLargestFile);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const quarro::fuzz::ScratchFolder folder;
  FuzzedDataProvider input(data, size);
  bool begun = false;
  const auto next = [&](v1::ResultChunk& chunk) {
    if (!begun) {
      begun = true;
      chunk = Header(input);
      return true;
    }
    if (input.remaining_bytes() == 0) return false;
    chunk.set_data(input.ConsumeRandomLengthString(kLongestChunk));
    return true;
  };
  try {
    WriteFile(*quarro::rpc::ReceiveResult(next, ".", kHeap));
  } catch (const quarro::ExTarn&) {
    return 0;  // no result
  }
  return 0;
}
