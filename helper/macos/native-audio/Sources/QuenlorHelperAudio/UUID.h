#pragma once

#include <string>

namespace quenlor {

/// A random UUID (version 4, RFC 4122) in upper-case hexadecimal, 8-4-4-4-12.
std::string randomUUIDString();

}  // namespace quenlor
