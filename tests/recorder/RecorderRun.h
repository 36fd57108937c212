#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace quenlor::test {

/// Runs quenlor-record as scripts do, in a folder of its own, where it makes recording.wav.
class RecorderRun : public testing::Test {
 protected:
  [[nodiscard]] ChildProcess launch(const std::vector<std::string>& options,
                                    const std::string& sidecar = QUENLOR_SIDECAR_PATH) const {
    std::vector<std::string> command = {QUENLOR_RECORD_PATH, "--sidecar", sidecar};
    command.insert(command.end(), options.begin(), options.end());
    return ChildProcess(command,
                        "cd '" + folder.path().string() + "'; export TMPDIR=\"$PWD\"\n" + setUp);
  }
  [[nodiscard]] ChildProcess record(std::vector<std::string> options,
                                    const std::string& sidecar = QUENLOR_SIDECAR_PATH) const {
    options.emplace_back("recording.wav");
    return launch(options, sidecar);
  }
  static void awaitReady(ChildProcess& child) {
    ASSERT_EQ(child.readLine(), "Recording to recording.wav. Ctrl-C stops.");
  }

  /// All that lies in the folder, apart from the trace and a made-up sidecar.
  [[nodiscard]] std::vector<std::string> filesLeft() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
      names.push_back(entry.path().filename().string());
    std::erase(names, "quenlor-helper-audio.log");
    std::erase(names, "sidecar");
    return names;
  }

  TemporaryFolder folder;
  std::filesystem::path recording = folder / "recording.wav";
  /// What a shell does before it becomes the program.
  std::string setUp;
};

}  // namespace quenlor::test
