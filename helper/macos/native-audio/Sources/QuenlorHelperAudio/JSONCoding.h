#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace quenlor {

/// what() is one line of printable ASCII, whatever bytes the text held.
class JSONDecodingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class JSONEncodingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One decoded JSON object. Members that nobody asks for are ignored; of members with one key the
/// last counts. A number that is too large for a double counts as null.
class JSONObject {
 public:
  /// Throws JSONDecodingError unless text is an object in strict UTF-8, nested at most 128 deep
  /// (the object counts as 1, and so does each value inside another).
  explicit JSONObject(std::string_view text);
  ~JSONObject();
  JSONObject(const JSONObject&) = delete;
  JSONObject& operator=(const JSONObject&) = delete;

  /// Each throws JSONDecodingError where the member is missing, null or of another type.
  std::string string(const std::string& key) const;
  double number(const std::string& key) const;
  std::uint64_t unsignedInteger(const std::string& key) const;

 private:
  struct Document;
  std::unique_ptr<Document> document;
};

/// Builds one compact JSON object with the members in the order in which they were added.
class JSONEncoder {
 public:
  JSONEncoder();
  ~JSONEncoder();
  JSONEncoder(const JSONEncoder&) = delete;
  JSONEncoder& operator=(const JSONEncoder&) = delete;

  void add(const std::string& key, const std::string& value);
  /// Throws JSONEncodingError for a value that is not finite: JSON has no word for it.
  void add(const std::string& key, double value);
  void add(const std::string& key, std::uint64_t value);

  /// Throws JSONEncodingError where a string is not UTF-8.
  std::string encoded() const;

 private:
  struct Document;
  std::unique_ptr<Document> document;
};

}  // namespace quenlor
