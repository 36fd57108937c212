#pragma once

#include <string>

namespace quenlor {

/// The symbol of an errno value, such as "EBADF"; "errno " and the number if it has none.
std::string posixErrorName(int code);

}  // namespace quenlor
