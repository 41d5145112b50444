// Makes the inputs that the fuzz targets start from, out of what the tests feed the same code:
//   fuzz_seeds FOLDER
// A folder a target comes to be in FOLDER, and for targets that read text TARGET.dict, the words of
// its inputs.
#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "bag/test_grid.h"
#include "gridding/core/cell_state.h"
#include "gridding/core/refinement.h"
#include "gridding/service/parameter_table.h"
#include "gridding/survey/gsf_writer.h"
#include "gridding/survey/test_files.h"

namespace {

namespace fs = std::filesystem;

using quarro::core::PackedSounding;
using quarro::survey::GoodPing;
using quarro::survey::Header;
using quarro::survey::PingHeader;
using quarro::survey::Record;
using quarro::survey::Subrecord;
using quarro::survey::Word16;
using quarro::survey::Word32;

constexpr double kResolution_m = 32.0;

class Seeds {
 public:
  explicit Seeds(fs::path folder) : folder_(std::move(folder)) {}

  std::string PathOf(const std::string& target, const std::string& name) const {
    fs::create_directories(folder_ / target);
    return (folder_ / target / name).string();
  }
  void Write(const std::string& target, const std::string& name, const std::string& bytes) const {
    std::ofstream file(PathOf(target, name), std::ios::binary);
    file << bytes;
    if (!file.flush()) throw std::runtime_error("cannot write " + PathOf(target, name));
  }
  void Write(const std::string& target, const std::string& name,
             const std::vector<std::byte>& bytes) const {
    Write(target, name, std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  }
  std::vector<std::string> TextsOf(const std::string& target) const {
    std::vector<std::string> texts;
    for (const auto& entry : fs::directory_iterator(folder_ / target)) {
      std::ifstream file(entry.path(), std::ios::binary);
      texts.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return texts;
  }

 private:
  fs::path folder_;
};

void WriteLine(const Seeds& seeds, const std::string& name,
               const quarro::survey::GsfFormat& format) {
  const std::vector<float> depth_m{12.345F, 20.0F, 31.987F};
  const std::vector<float> across_m{-12.5F, 0.0F, 12.49F};
  const std::vector<float> along_m{0.3F, -0.3F, 0.0F};
  const std::vector<float> error_m{0.5F, 0.25F, 1.75F};
  const std::vector<std::uint8_t> flags{0, 1, 0};
  quarro::survey::GsfPing ping;
  ping.time_ns = 1541193704'250000000;
  ping.longitude_deg = -64.1;
  ping.latitude_deg = 17.7;
  ping.heading_deg = 359.99;
  ping.beams = depth_m.size();
  ping.depth_m = depth_m;
  ping.across_m = across_m;
  ping.along_m = along_m;
  ping.vertical_error_m = error_m;
  ping.horizontal_error_m = error_m;
  ping.beam_flags = flags;
  quarro::survey::GsfWriter writer(seeds.PathOf("gsf", name), format);
  writer.WriteComment(ping.time_ns, "a seed");
  for (int i = 0; i < 3; ++i) writer.WritePing(ping);
  writer.WriteHistory(ping.time_ns, "host", "somebody", "fuzz_seeds", "");
  writer.Close();
}

void MakeGsf(const Seeds& seeds) {
  WriteLine(seeds, "version_3_7", {});
  WriteLine(seeds, "version_2_with_checksums", {.major = 2, .minor = 0, .checksums = true});
  WriteLine(seeds, "scale_factors_once", {.repeat_scale_factors = false});
  seeds.Write("gsf", "two_pings", Header() + GoodPing() + GoodPing());
  seeds.Write("gsf", "obsolete_errors",
              Header("GSF-v02.03") +
                  Record(2, PingHeader({}).substr(0, 42) +
                                quarro::survey::Scales({{1, 100, 0},
                                                        {2, 10, 0},
                                                        {3, 10, 0},
                                                        {11, 100, 0},
                                                        {12, 100, 0},
                                                        {13, 100, 0}}) +
                                quarro::survey::TwoBeams() + Subrecord(11, Word16(5) + Word16(6)) +
                                Subrecord(12, Word16(5) + Word16(6)) +
                                Subrecord(13, Word16(5) + Word16(6))));
  seeds.Write(
      "gsf", "negative_beams",
      Header() + Record(2, PingHeader({.beams = -5}) + quarro::survey::UsualScales()) + GoodPing());
  seeds.Write("gsf", "size_past_the_end", Header() + GoodPing() + Word32(0xFFFFFFF0) + Word32(2));
  seeds.Write("gsf", "attitude", Header() + Record(12, std::string(28, 'x')) + GoodPing());
}

void MakeText(const Seeds& seeds) {
  seeds.Write("text", "metres",
              "m# x y z\n1 2 3\n1.5,2.5,-3.5,0.1\r\n1\t2\t3 0.1 0.2\n\n4e5 5e6 7\n");
  seeds.Write("text", "degrees", "dlongitude latitude depth\n-64.5 17.5 20.25 nan 1\n200 100 5\n");
  seeds.Write("text", "byte_order_mark",
              "m\xEF\xBB\xBF"
              "1 2 3 4 5 6\n");
  seeds.Write("text", "long_line", "m1 2 3\n" + std::string(5000, '7') + "\n4 5 6\n");
}

void MakeParameters(const Seeds& seeds) {
  std::string all = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- all -->\n<parameters>\n";
  for (const auto& info : quarro::service::ParameterTable()) {
    all += std::string("<section name=\"") + info.section + "\"><parameter key=\"" + info.key +
           "\">" + info.fallback + "</parameter></section>\n";
  }
  seeds.Write("parameters", "all", all + "</parameters>\n");
  seeds.Write("parameters", "none", "<parameters/>");
  seeds.Write("parameters", "cdata",
              "<parameters><section name=\"Engine\"><parameter key=\"Threads\"><![CDATA[2]]>"
              "<!-- --></parameter></section></parameters>");
  seeds.Write("parameters", "entities",
              "<parameters><section name=\"&lt;\"><parameter key=\"&#65;\">&amp;</parameter>"
              "</section></parameters>");
  seeds.Write("parameters", "key_twice",
              "<parameters><section name=\"a\"><parameter key=\"b\">1</parameter>"
              "<parameter key=\"b\">2</parameter></section></parameters>");
}

void MakeBag(const Seeds& seeds) {
  for (const int zone : {19, -56}) {
    quarro::bag::TestGrid grid;
    grid.name = "seed";
    grid.utm_zone = zone;
    if (zone < 0) grid.south_m = 6100000.0;
    const std::string name = zone < 0 ? "south" : "north";
    const fs::path path = quarro::bag::templateOf(grid);
    seeds.Write("bag_template", name, quarro::bag::readText(path));
    seeds.Write("bag_definition", name, quarro::bag::filledTemplate(path, grid));
  }
}

// The words of all inputs of a target, in libFuzzer's form.
void MakeDictionary(const Seeds& seeds, const std::string& target) {
  constexpr const char* kLetters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-.";
  std::set<std::string> words;
  for (const std::string& text : seeds.TextsOf(target)) {
    for (std::size_t end = 0, start = 0;
         (start = text.find_first_of(kLetters, end)) != std::string::npos;) {
      end = std::min(text.find_first_not_of(kLetters, start), text.size());
      words.insert(text.substr(start, end - start));
    }
  }
  std::string dictionary;
  for (const std::string& word : words) dictionary += '"' + word + "\"\n";
  seeds.Write(".", target + ".dict", dictionary);
}

// The command lines of the transcripts, and what they need not bring: the answers of an engine.
void MakeCommands(const Seeds& seeds) {
  const fs::path transcripts = fs::path(QUARRO_SOURCE_DIR) / "tests" / "transcripts";
  for (const auto& entry : fs::directory_iterator(transcripts)) {
    const fs::path commands = entry.path() / "commands";
    if (!fs::exists(commands)) continue;
    std::ifstream file(commands);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::string name = entry.path().filename().string();
    seeds.Write("engine", name, text);
    seeds.Write("interpreter", name, "aglabqsdrhtRNx\n" + text);
  }
}

std::vector<PackedSounding> SoundingsOfACell(std::size_t count) {
  std::vector<PackedSounding> soundings;
  for (std::size_t i = 0; i < count; ++i) {
    const auto step = static_cast<double>(i);
    const double east_m = std::remainder(step * 7.3, kResolution_m);
    const double north_m = std::remainder(step * 11.9, kResolution_m);
    const float depth_m = 20.0F + static_cast<float>(i % 5) * 0.1F - (i % 11 == 0 ? 4.0F : 0.0F);
    soundings.push_back(quarro::core::Pack({east_m, north_m}, {0.0, 0.0}, depth_m, 0.1F, 0.3F));
  }
  return soundings;
}

std::string BytesOf(const std::vector<PackedSounding>& soundings) {
  return {reinterpret_cast<const char*>(soundings.data()),
          soundings.size() * sizeof(PackedSounding)};
}

void MakeRecords(const Seeds& seeds) {
  quarro::core::GridSettings settings;
  settings.resolution_m = kResolution_m;
  settings.min_resolution_m = 0.5;
  for (const std::size_t count : {1U, 30U, 300U}) {
    const std::string name = std::to_string(count) + "_soundings";
    const std::vector<PackedSounding> soundings = SoundingsOfACell(count);
    quarro::core::CellState state;
    quarro::core::AddSoundings(soundings, 1, settings, state);
    quarro::core::AddSoundings(soundings, 2, settings, state);
    quarro::core::LowResolutionEstimator(settings).Estimate(state);
    std::vector<std::byte> bytes;
    quarro::core::Encode(state, bytes);
    seeds.Write("cell_state", name, bytes);

    const quarro::core::CellSoundings cell{soundings, {{1, static_cast<std::uint32_t>(count)}}};
    quarro::core::Neighbourhood cells{};
    cells[quarro::core::kCentre] = &cell;
    quarro::core::Refinement refinement;
    quarro::core::CellRefiner(settings).Refine(6, cells, refinement);
    quarro::core::Encode(refinement, bytes);
    seeds.Write("refinement", name, bytes);

    // Counts are taken from the end of these inputs.
    std::string counts;
    for (int i = 0; i < 40; ++i) counts += static_cast<char>(37 * i + 11);
    seeds.Write("soundings", name, BytesOf(soundings) + counts);
    seeds.Write(
        "stored_grid", name,
        std::string(reinterpret_cast<const char*>(&state.statistics), sizeof state.statistics) +
            BytesOf(soundings) + counts);
  }
}

// Numbers are taken from the end of these inputs, data from the beginning.
void MakeNetworkResults(const Seeds& seeds) {
  for (const char kind : {1, 2, 3}) {
    const std::string numbers{0, 0, 0, 0, 2, 2, 1, 7, 0, 0, 0, kind};
    seeds.Write("network_result", "kind_" + std::to_string(kind), std::string(400, '\1') + numbers);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: fuzz_seeds FOLDER\n";
    return 2;
  }
  try {
    const Seeds seeds(argv[1]);
    MakeGsf(seeds);
    MakeText(seeds);
    MakeParameters(seeds);
    MakeBag(seeds);
    MakeCommands(seeds);
    for (const char* target :
         {"parameters", "bag_template", "bag_definition", "engine", "interpreter"}) {
      MakeDictionary(seeds, target);
    }
    MakeRecords(seeds);
    MakeNetworkResults(seeds);
  } catch (const std::exception& failure) {
    std::cerr << "fuzz_seeds: " << failure.what() << '\n';
    return 1;
  }
  return 0;
}
