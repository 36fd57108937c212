#pragma once

namespace quenlor::test {

// FailingCalls.cpp replaces the system's read(), write() and close(), for the calling thread.

/// How many of the next reads and writes a signal interrupts before they have moved anything.
inline thread_local int interruptions = 0;
/// The errno of every close from now on, which closes all the same; 0 for success.
inline thread_local int closeError = 0;

}  // namespace quenlor::test
