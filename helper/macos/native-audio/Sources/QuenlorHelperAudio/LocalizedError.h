#pragma once

#include <exception>
#include <string>
#include <utility>

namespace quenlor {

/// An error of the sidecar's own: its description is what the parent finally shows to people.
class LocalizedError : public std::exception {
 public:
  const std::string& errorDescription() const { return text; }

  /// The description up to its first NUL character, which a text from outside may hold.
  const char* what() const noexcept override { return text.c_str(); }

 protected:
  explicit LocalizedError(std::string description) : text(std::move(description)) {}

 private:
  std::string text;
};

}  // namespace quenlor
