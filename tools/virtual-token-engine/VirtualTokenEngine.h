#pragma once
// The control interface of the virtual token engine, for tests and the logon host. Exported from
// VestaAccessLibrary.dll beside VALInitialize (through its .def file); EngineControl.h binds them
// in the program that loaded the engine. Faults apply to the next task of a function only.

#include <cstdint>

extern "C" {
// Replaces all tokens with a description (see TokenStore.h); 0 on success.
int VteLoadDescription(const char* json);
// Connects a token described like one entry of "tokens" and reports it as added; 0 on success.
int VteInsertToken(const char* json);
// Removes the token with these identification bytes (hex) and reports it as removed; 0 on success.
int VteRemoveToken(const char* hexId);
// The next task of `function` (ValTaskFunction) completes with `code` in "te".
void VteFailNextTask(std::uint32_t function, std::uint64_t code);
// The same for the task after `skip` further tasks of `function` have completed normally.
void VteFailTaskAfter(std::uint32_t function, std::uint32_t skip, std::uint64_t code);
// The next start of `function` is refused with `code` (no task).
void VteFailNextTaskStart(std::uint32_t function, std::uint64_t code);
// Every task waits this long before it completes.
void VteDelayTasks(std::uint32_t milliseconds);
// The next call that starts a task blocks its caller this long, whatever else happens meanwhile
// (unload included): a library call that does not return.
void VteBlockNextStart(std::uint32_t milliseconds);
// How many tasks the engine has started since it was loaded (for benchmarks).
std::uint64_t VteTasksStarted();
// The next result is delivered malformed: 1 root named "result", 2 without "tfi", 3 broken CRC,
// 4 without "te".
void VteMalformNextResult(std::uint32_t how);
// The next result is delivered as exactly these bytes (a stream the test wrote by hand).
void VteDeliverNextResult(const std::uint8_t* stream, std::uint32_t length);
// While on (1), finished tasks keep their results back: the provider hears of none until they are
// released. Off (0) stops holding; what is held stays held.
void VteHoldResults(std::uint32_t on);
// Releases up to `count` held results (0: all), the oldest first or, with `newestFirst`, in the
// opposite order (results that overtake each other); returns how many it released.
std::uint32_t VteReleaseResults(std::uint32_t count, std::uint32_t newestFirst);
// The current state as JSON into `buffer`; returns the size needed including the zero byte.
std::uint32_t VteDescribe(char* buffer, std::uint32_t size);
}
