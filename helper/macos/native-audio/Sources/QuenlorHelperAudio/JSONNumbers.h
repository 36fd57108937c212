#pragma once

#include <string>
#include <string_view>

namespace quenlor {

/// A JSON text with null in place of each number that is too large for a double. What is no JSON
/// stays as it is.
std::string withoutHugeNumbers(std::string_view json);

}  // namespace quenlor
