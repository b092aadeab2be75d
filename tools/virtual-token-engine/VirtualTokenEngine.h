#pragma once
// The control interface of the virtual token engine, for tests and the logon host. Exported from
// VestaAccessLibrary.dll beside VALInitialize; reach them with GetProcAddress on the loaded module.
// Faults apply to the next task of a function only.

#include <cstdint>

extern "C" {
// Replaces all tokens with a description (see TokenStore.h); 0 on success.
__declspec(dllexport) int VteLoadDescription(const char* json);
// Connects a token described like one entry of "tokens" and reports it as added; 0 on success.
__declspec(dllexport) int VteInsertToken(const char* json);
// Removes the token with these identification bytes (hex) and reports it as removed; 0 on success.
__declspec(dllexport) int VteRemoveToken(const char* hexId);
// The next task of `function` (ValTaskFunction) completes with `code` in "te".
__declspec(dllexport) void VteFailNextTask(std::uint32_t function, std::uint64_t code);
// The same for the task after `skip` further tasks of `function` have completed normally.
__declspec(dllexport) void VteFailTaskAfter(std::uint32_t function, std::uint32_t skip, std::uint64_t code);
// The next start of `function` is refused with `code` (no task).
__declspec(dllexport) void VteFailNextTaskStart(std::uint32_t function, std::uint64_t code);
// Every task waits this long before it completes.
__declspec(dllexport) void VteDelayTasks(std::uint32_t milliseconds);
// The next result is delivered malformed: 1 root named "result", 2 without "tfi", 3 broken CRC,
// 4 without "te".
__declspec(dllexport) void VteMalformNextResult(std::uint32_t how);
// The next result is delivered as exactly these bytes (a stream the test wrote by hand).
__declspec(dllexport) void VteDeliverNextResult(const std::uint8_t* stream, std::uint32_t length);
// The current state as JSON into `buffer`; returns the size needed including the zero byte.
__declspec(dllexport) std::uint32_t VteDescribe(char* buffer, std::uint32_t size);
}
