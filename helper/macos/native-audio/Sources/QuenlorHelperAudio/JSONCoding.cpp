#include "JSONCoding.h"

#include "JSONNumbers.h"

#include <cmath>
#include <cstddef>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <variant>

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

/// What a member holds; nothing stands for what nobody asks for: null, truth values, arrays,
/// objects.
using Value = std::variant<std::monostate, std::string, double, std::uint64_t>;
using Members = std::map<std::string, Value>;

/// Takes the events of parsing, and keeps the members of the outermost object alone. A document of
/// the library's takes memory when it is released, and ends the program where there is none.
class MemberReader final : public nlohmann::json_sax<nlohmann::json> {
 public:
  /// The members, or nothing where the text was no object.
  std::optional<Members> members;

  bool null() override { return keep({}); }
  bool boolean(bool) override { return keep({}); }
  bool number_integer(std::int64_t number) override { return keep(static_cast<double>(number)); }
  bool number_unsigned(std::uint64_t number) override { return keep(number); }
  bool number_float(double number, const std::string&) override { return keep(number); }
  bool string(std::string& text) override { return keep(std::move(text)); }
  bool binary(nlohmann::json::binary_t&) override { return keep({}); }
  bool start_array(std::size_t) override { return keep({}) && enter(); }
  bool end_array() override { return leave(); }
  bool end_object() override { return leave(); }

  bool start_object(std::size_t) override {
    if (depth == 0) members.emplace();
    return keep({}) && enter();
  }

  bool key(std::string& text) override {
    if (depth == 1) latestKey = std::move(text);
    return true;
  }

  [[noreturn]] bool parse_error(std::size_t, const std::string&,
                                const nlohmann::json::exception& error) override {
    throw invalid(reason(error));
  }

 private:
  /// Refuses deep nesting before memory is spent on it.
  bool keep(Value value) {
    if (depth >= maximumDepth) throw invalid("it is nested too deeply.");
    if (depth == 1 && members) (*members)[latestKey] = std::move(value);
    return true;
  }

  bool enter() {
    ++depth;
    return true;
  }

  bool leave() {
    --depth;
    return true;
  }

  int depth = 0;
  std::string latestKey;
};

Members parse(std::string_view text) {
  // The library takes a NUL for the end of its input and would overlook what follows.
  if (text.find('\0') != std::string_view::npos) throw invalid("it holds a NUL byte.");
  MemberReader reader;
  // The library refuses a text for such a number wherever it stands, in a member that nobody asks
  // for included.
  nlohmann::json::sax_parse(withoutHugeNumbers(text), &reader);
  if (!reader.members) throw JSONDecodingError("The message is not a JSON object.");
  return std::move(*reader.members);
}

[[noreturn]] void refuse(const std::string& key, const char* wanted) {
  throw JSONDecodingError("The value of the key \"" + key + "\" is not " + wanted + ".");
}

}  // namespace

struct JSONObject::Document {
  Members members;

  const Value& member(const std::string& key) const {
    const auto found = members.find(key);
    if (found == members.end())
      throw JSONDecodingError("The message has no value for the key \"" + key + "\".");
    return found->second;
  }
};

JSONObject::JSONObject(std::string_view text)
    : document(std::make_unique<Document>(Document{parse(text)})) {}

JSONObject::~JSONObject() = default;

std::string JSONObject::string(const std::string& key) const {
  const auto* const text = std::get_if<std::string>(&document->member(key));
  if (text == nullptr) refuse(key, "a string");
  return *text;
}

double JSONObject::number(const std::string& key) const {
  const Value& value = document->member(key);
  if (const auto* const number = std::get_if<double>(&value)) return *number;
  if (const auto* const number = std::get_if<std::uint64_t>(&value))
    return static_cast<double>(*number);
  refuse(key, "a number");
}

std::uint64_t JSONObject::unsignedInteger(const std::string& key) const {
  const auto* const number = std::get_if<std::uint64_t>(&document->member(key));
  if (number == nullptr) refuse(key, "an unsigned integer");
  return *number;
}

struct JSONEncoder::Document {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();

  // Its destructor would take memory, as above, if it had members.
  ~Document() { json.clear(); }
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
