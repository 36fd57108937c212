#include "JSONCoding.h"

#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>

namespace quenlor {

namespace {

/// Far above what any message needs, far below what could cost memory.
constexpr int maximumDepth = 128;

/// Enough to see what the library quotes, on a line that still can be read.
constexpr std::size_t longestReason = 200;

/// The library quotes its input in its texts: without this, a parent's bytes could break the error
/// line in two or fill it.
std::string printable(std::string_view text) {
  std::string clean(text.substr(0, longestReason));
  for (char& c : clean)
    if (c < 0x20 || c > 0x7E) c = '?';
  return clean;
}

/// The library's text without its "[json.exception...] " tag.
std::string reason(const nlohmann::json::exception& error) {
  const std::string_view text = error.what();
  const std::size_t tag = text.find("] ");
  return printable(tag == std::string_view::npos ? text : text.substr(tag + 2));
}

JSONDecodingError invalid(const std::string& why) {
  return JSONDecodingError("The message is not valid JSON: " + why);
}

/// Refuses deep nesting while parsing, before memory is spent on it. depth counts what encloses the
/// value.
bool checkDepth(int depth, nlohmann::json::parse_event_t /*event*/, nlohmann::json& /*parsed*/) {
  if (depth >= maximumDepth) throw invalid("it is nested too deeply.");
  return true;
}

nlohmann::json parse(std::string_view text) {
  // The library takes a NUL for the end of its input and would overlook what follows.
  if (text.find('\0') != std::string_view::npos) throw invalid("it holds a NUL byte.");
  try {
    return nlohmann::json::parse(text, checkDepth);
  } catch (const nlohmann::json::exception& error) {
    throw invalid(reason(error));
  }
}

/// Takes all members out, from the innermost on: the library's destructor takes memory where there
/// are any, and ends the program without it. (What it had read of a text that turns out invalid, it
/// releases in its own way.) checkDepth() has bounded the recursion.
void removeMembers(nlohmann::json& value) {
  if (!value.is_structured()) return;
  for (nlohmann::json& member : value) removeMembers(member);
  value.clear();
}

}  // namespace

struct JSONObject::Document {
  explicit Document(std::string_view text) : json(parse(text)) {}
  ~Document() { removeMembers(json); }
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  nlohmann::json json;

  const nlohmann::json& member(const std::string& key) const {
    const auto found = json.find(key);
    if (found == json.end())
      throw JSONDecodingError("The message has no value for the key \"" + key + "\".");
    return *found;
  }

  [[noreturn]] static void refuse(const std::string& key, const char* wanted) {
    throw JSONDecodingError("The value of the key \"" + key + "\" is not " + wanted + ".");
  }
};

JSONObject::JSONObject(std::string_view text) : document(std::make_unique<Document>(text)) {
  if (!document->json.is_object()) throw JSONDecodingError("The message is not a JSON object.");
}

JSONObject::~JSONObject() = default;

std::string JSONObject::string(const std::string& key) const {
  const nlohmann::json& value = document->member(key);
  if (!value.is_string()) Document::refuse(key, "a string");
  return value.get<std::string>();
}

double JSONObject::number(const std::string& key) const {
  const nlohmann::json& value = document->member(key);
  if (!value.is_number()) Document::refuse(key, "a number");
  return value.get<double>();
}

std::uint64_t JSONObject::unsignedInteger(const std::string& key) const {
  const nlohmann::json& value = document->member(key);
  if (!value.is_number_unsigned()) Document::refuse(key, "an unsigned integer");
  return value.get<std::uint64_t>();
}

struct JSONEncoder::Document {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();

  ~Document() { json.clear(); }  // As above; no member has members of its own.
};

JSONEncoder::JSONEncoder() : document(std::make_unique<Document>()) {}

JSONEncoder::~JSONEncoder() = default;

void JSONEncoder::add(const std::string& key, const std::string& value) {
  document->json[key] = value;
}

void JSONEncoder::add(const std::string& key, double value) {
  if (!std::isfinite(value))
    throw JSONEncodingError("The value of \"" + key + "\" cannot be written as a JSON number.");
  document->json[key] = value;
}

void JSONEncoder::add(const std::string& key, std::uint64_t value) {
  document->json[key] = value;
}

std::string JSONEncoder::encoded() const {
  try {
    return document->json.dump();
  } catch (const nlohmann::json::exception& error) {
    throw JSONEncodingError("The message cannot be written as JSON: " + reason(error));
  }
}

}  // namespace quenlor
