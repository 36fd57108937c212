#pragma once

#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <string>

namespace quenlor::test {

/// Makes a program that takes a start request and then does what a bash script says. In that,
/// `trace TEXT` writes a line of the trace, and `ready` the ready reply. Gives its path.
inline std::string makeSidecar(const std::filesystem::path& program, const std::string& script) {
  writeFile(program, R"(#!/bin/bash
trace() { echo "[QuenlorHelperAudio] 2026-03-05T14:07:09Z $*" >&2; }
ready() { echo '{"status":"ready"}'; }
read -r request
)" + script);
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  return program;
}

}  // namespace quenlor::test
