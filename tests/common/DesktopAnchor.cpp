// Keeps Wine's desktop process (explorer.exe /desktop) alive for a whole test run. Wine starts it
// for the first program that uses user32 and ends it once the last such program is gone; started
// by a test, it inherits that test's stderr and CTest waits about a second for it to exit. The
// prefix start step runs this program, detached and with its output in the log, so the desktop
// process exists before any test and stays until the prefix is stopped.
#include <windows.h>

int main() {
  ::GetDesktopWindow();  // attaches this process to the desktop
  ::Sleep(INFINITE);
  return 0;
}
