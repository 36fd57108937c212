# shellcheck shell=bash
#
# Functions of the scripts that build and test; to be sourced with the project's root as the current
# folder.

# The results of the tests run so far.
passed=0 failed=0 skipped=0

# Builds a preset: buildPreset NAME [CONFIGURE_OPTION...]
buildPreset() {
  local preset=$1
  shift
  if command -v ccache >/dev/null; then set -- -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@"; fi
  echo "Building build/$preset."
  cmake --preset "$preset" --log-level=WARNING "$@" >/dev/null
  cmake --build --preset "$preset" -- --quiet
}

# Runs the tests of a preset and counts them: testPreset NAME [CTEST_OPTION...]
testPreset() {
  local preset=$1 status=0
  shift
  rm -f "build/$preset/tests.xml"
  ctest --test-dir "build/$preset" --parallel "$(nproc)" --output-on-failure --no-tests=error \
    --output-junit tests.xml "$@" || status=$?
  countTests "$preset"
  return "$status"
}

# Adds the last test run of a preset to the counts; one that left no report counts as one failure.
countTests() {
  local report=build/$1/tests.xml
  if [[ ! -s $report ]]; then
    failed=$((failed + 1))
    return
  fi
  local newlyFailed newlySkipped
  newlyFailed=$(countIn "$report" failures)
  newlySkipped=$(($(countIn "$report" skipped) + $(countIn "$report" disabled)))
  failed=$((failed + newlyFailed))
  skipped=$((skipped + newlySkipped))
  passed=$((passed + $(countIn "$report" tests) - newlyFailed - newlySkipped))
}

# A number among the attributes of the report's outermost element: countIn FILE ATTRIBUTE
countIn() {
  sed -n "/<testsuite /,/>/s/.*\b$2=\"\([0-9]*\)\".*/\1/p" "$1" | head -n 1
}

# The closing line of a test run.
tellCounts() {
  local line="$passed passed, $failed failed"
  [[ $skipped -eq 0 ]] || line+=", $skipped skipped"
  echo "$line"
}
