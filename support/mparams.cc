// Reads the parameter file, and converts its values.
#include "support/mparams.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include <pugixml.hpp>

namespace quarro {
namespace {

// Far more than any parameter file; a device that never ends is refused rather than read for ever.
constexpr std::size_t kLargestFile = std::size_t{16} << 20;

constexpr std::string_view kWhiteSpace = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

std::string Quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

[[noreturn]] void ThrowUnreadable(const std::string& path, int error) {
  throw ExTarn("parameter file " + Quoted(path) +
               " cannot be read: " + std::generic_category().message(error) + ".");
}

// The whole text of the file.
std::string ReadFile(const std::string& path) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) ThrowUnreadable(path, errno);
  std::string text;
  std::array<char, 65536> block;
  while (file) {
    errno = 0;
    file.read(block.data(), block.size());
    text.append(block.data(), static_cast<std::size_t>(file.gcount()));
    if (file.bad()) ThrowUnreadable(path, errno != 0 ? errno : EIO);
    if (text.size() > kLargestFile) {
      throw ExTarn("parameter file " + Quoted(path) + " is larger than " +
                   std::to_string(kLargestFile >> 20) + " MiB; name a parameter file.");
    }
  }
  return text;
}

// One reading of a file: walks the XML and fails with the place of what is wrong.
class Reader {
 public:
  Reader(std::string path, std::string text) : path_(std::move(path)), text_(std::move(text)) {
    if (text_.starts_with(kByteOrderMark)) text_.erase(0, kByteOrderMark.size());
  }

  // Gives each parameter to `take(section, key, value)`, which tells whether the key is new.
  template <typename Take>
  void Read(const Take& take) {
    Parse();
    for (const pugi::xml_node section : Root().children()) {
      if (IsIgnorable(section)) continue;
      ExpectElement(section, "section", "parameters");
      const std::string section_name = OnlyAttribute(section, "name");
      for (const pugi::xml_node parameter : section.children()) {
        if (IsIgnorable(parameter)) continue;
        ExpectElement(parameter, "parameter", "section");
        const std::string key = OnlyAttribute(parameter, "key");
        if (!take(section_name, key, ValueOf(parameter))) {
          Fail(parameter, "key " + Quoted(key) + " is given twice in section " +
                              Quoted(section_name) + "; keep one");
        }
      }
    }
  }

 private:
  void Parse() {
    // The parser would take a zero byte for the end of the text and leave the rest unread.
    const std::size_t zero = text_.find('\0');
    if (zero != std::string::npos) FailAt(zero, "the file is not text in UTF-8");
    const pugi::xml_parse_result result = document_.load_buffer(
        text_.data(), text_.size(),
        pugi::parse_default | pugi::parse_declaration | pugi::parse_fragment, pugi::encoding_utf8);
    if (!result) FailAt(static_cast<std::size_t>(result.offset), result.description());
  }

  pugi::xml_node Root() const {
    pugi::xml_node root;
    for (const pugi::xml_node node : document_.children()) {
      if (node.type() == pugi::node_declaration) {
        ExpectUtf8(node);
        continue;
      }
      if (IsIgnorable(node)) continue;
      if (node.type() != pugi::node_element) Fail(node, "text outside of <parameters>");
      if (root) Fail(node, "a second document element <" + std::string(node.name()) + ">");
      root = node;
    }
    if (!root) FailAt(text_.size(), "there is no <parameters> element");
    if (root.name() != std::string_view("parameters")) {
      Fail(root,
           "the document element is <" + std::string(root.name()) + ">, it must be <parameters>");
    }
    if (root.first_attribute()) {
      Fail(root, "<parameters> has an unknown attribute " + Quoted(root.first_attribute().name()));
    }
    return root;
  }

  void ExpectUtf8(const pugi::xml_node& declaration) const {
    std::string encoding = declaration.attribute("encoding").value();
    std::transform(encoding.begin(), encoding.end(), encoding.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    if (!encoding.empty() && encoding != "UTF-8" && encoding != "US-ASCII") {
      Fail(declaration, "the encoding is " + Quoted(encoding) + ", it must be \"UTF-8\"");
    }
  }

  static bool IsIgnorable(const pugi::xml_node& node) {
    return node.type() == pugi::node_pcdata && Trim(node.value()).empty();
  }

  void ExpectElement(const pugi::xml_node& node, std::string_view name,
                     std::string_view parent) const {
    if (node.type() == pugi::node_element && node.name() == name) return;
    const std::string found =
        node.type() == pugi::node_element ? "element <" + std::string(node.name()) + ">" : "text";
    Fail(node, "unexpected " + found + " in <" + std::string(parent) + ">, which holds only <" +
                   std::string(name) + "> elements");
  }

  std::string OnlyAttribute(const pugi::xml_node& node, const std::string& name) const {
    const std::string element = "<" + std::string(node.name()) + ">";
    const pugi::xml_attribute wanted = node.attribute(name.c_str());
    for (const pugi::xml_attribute attribute : node.attributes()) {
      if (attribute.name() != name) {
        Fail(node, element + " has an unknown attribute " + Quoted(attribute.name()));
      }
      if (attribute != wanted) Fail(node, element + " has attribute " + Quoted(name) + " twice");
    }
    if (!wanted || *wanted.value() == '\0') {
      Fail(node, element + " needs an attribute " + Quoted(name) + " that is not empty");
    }
    return wanted.value();
  }

  std::string ValueOf(const pugi::xml_node& parameter) const {
    std::string value;
    for (const pugi::xml_node part : parameter.children()) {
      if (part.type() == pugi::node_element) {
        Fail(part, "unexpected element <" + std::string(part.name()) +
                       "> in <parameter>, which holds only text");
      }
      value += part.value();
    }
    return std::string(Trim(value));
  }

  [[noreturn]] void Fail(const pugi::xml_node& node, const std::string& reason) const {
    std::size_t offset = static_cast<std::size_t>(std::max<std::ptrdiff_t>(0, node.offset_debug()));
    const bool is_text = node.type() == pugi::node_pcdata;
    if (is_text) {
      offset = std::min(text_.find_first_not_of(kWhiteSpace, offset), text_.size());
    } else if (node.type() == pugi::node_element && offset > 0) {
      --offset;  // from the name to its bracket
    }
    FailAt(offset, reason);
  }

  // Line and column count from 1, the column in characters.
  [[noreturn]] void FailAt(std::size_t offset, const std::string& reason) const {
    const std::string_view before(text_.data(), std::min(offset, text_.size()));
    const std::size_t line_start = before.rfind('\n') + 1;  // none found wraps to 0
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::string_view in_line = before.substr(line_start);
    const auto column =
        std::count_if(in_line.begin(), in_line.end(), [](char c) { return (c & 0xC0) != 0x80; }) +
        1;
    throw ExMPEXmlFileNotParsable(path_ + ":" + std::to_string(line) + ":" +
                                  std::to_string(column) + ": " + reason);
  }

  std::string path_;
  std::string text_;
  pugi::xml_document document_;
};

template <typename Number>
std::string ShortestText(Number value) {
  std::array<char, 32> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return std::string(buffer.data(), end.ptr);
}

[[noreturn]] void ThrowBadValue(const std::string& section, const std::string& key,
                                const std::string& value, const std::string& allowed) {
  throw ExSGClientBase("parameter " + section + "/" + key + " is " + Quoted(value) +
                       "; it must be " + allowed + ".");
}

// Converts the whole of the value, or throws saying that it must be `kind` in the range.
template <typename Number>
Number LookupInRange(const MParams& params, const std::string& section, const std::string& key,
                     Number fallback, Number lowest, Number highest, const std::string& kind) {
  const std::string text = params.Lookup(section, key);
  if (text.empty()) return fallback;
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  const bool converted = error == std::errc() && stopped == end;
  // Written so that a NaN is outside of every range.
  if (converted && value >= lowest && value <= highest &&
      std::isfinite(static_cast<double>(value))) {
    return value;
  }
  ThrowBadValue(section, key, text,
                kind + " from " + ShortestText(lowest) + " to " + ShortestText(highest));
}

}  // namespace

MParams::MParams(const std::string& path, bool must_exist) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) {
    if (!must_exist) return;
    throw ExTarn("parameter file " + Quoted(path) + " does not exist.");
  }
  if (status.type() == std::filesystem::file_type::directory) {
    throw ExTarn("parameter file " + Quoted(path) + " is a directory; name a file.");
  }
  if (error) ThrowUnreadable(path, error.value());
  Reader(path, ReadFile(path))
      .Read([this](const std::string& section, const std::string& key, const std::string& value) {
        return values_.emplace(std::pair(section, key), value).second;
      });
}

std::string MParams::Lookup(const std::string& section, const std::string& key) const {
  const auto found = values_.find({section, key});
  return found == values_.end() ? std::string() : found->second;
}

std::vector<std::pair<std::string, std::string>> MParams::Keys() const {
  std::vector<std::pair<std::string, std::string>> keys;
  keys.reserve(values_.size());
  for (const auto& [key, value] : values_) keys.push_back(key);
  return keys;
}

void MParams::Set(const std::string& section, const std::string& key, const std::string& value) {
  values_[{section, key}] = std::string(Trim(value));
}

double LookupNumber(const MParams& params, const std::string& section, const std::string& key,
                    double fallback, double lowest, double highest) {
  return LookupInRange(params, section, key, fallback, lowest, highest, "a number");
}

long LookupInteger(const MParams& params, const std::string& section, const std::string& key,
                   long fallback, long lowest, long highest) {
  return LookupInRange(params, section, key, fallback, lowest, highest, "a whole number");
}

bool LookupFlag(const MParams& params, const std::string& section, const std::string& key,
                bool fallback) {
  const std::string text = params.Lookup(section, key);
  if (text.empty()) return fallback;
  if (text == "true" || text == "1" || text == "yes" || text == "on") return true;
  if (text == "false" || text == "0" || text == "no" || text == "off") return false;
  ThrowBadValue(section, key, text, "true, 1, yes or on, or false, 0, no or off");
}

}  // namespace quarro
