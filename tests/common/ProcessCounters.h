#pragma once
// What a process holds, for tests that repeat something many times and look for growth.

#include <windows.h>

namespace lm2::test {

int threadsOfThisProcess();
// Counted by probing every handle value: Wine's GetProcessHandleCount does not count (about a
// second per count).
int handlesOfThisProcess();
SIZE_T privateBytesOfThisProcess();

}  // namespace lm2::test
