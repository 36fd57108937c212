#pragma once

#include <exception>
#include <string>
#include <utility>

namespace quenlor {

/// An error of the sidecar. Its description is what the parent shows to its user.
class LocalizedError : public std::exception {
 public:
  const std::string& errorDescription() const { return text; }

  /// The description up to its first NUL, which text from the parent may contain.
  const char* what() const noexcept override { return text.c_str(); }

 protected:
  explicit LocalizedError(std::string description) : text(std::move(description)) {}

 private:
  std::string text;
};

}  // namespace quenlor
