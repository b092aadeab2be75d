#pragma once
// Random LogonUI sessions for the soak: tokens of every kind connected and pulled at any moment
// (also while GetSerialization and ReportResult wait), clicks given twice, typing into any field,
// early and repeated submits, every verdict Windows gives, an engine that is slow, fails a task,
// delivers a malformed result or lets results overtake each other, a faulty session service, all
// four scenarios. Each session is a logon host script drawn from its seed alone, so that any seed
// runs again on its own; after every step the script checks what must always hold.

#include <cstdint>
#include <string>
#include <vector>

namespace lm2::host {

class ScriptRunner;

struct ChaosSession {
  std::vector<std::wstring> lines;
  // Every PIN and password the session types or puts on a token: none may reach the trace.
  std::vector<std::wstring> secrets;
  // The engine delivers a malformed result, which is never handed to its waiter: a submit that
  // waits for it waits until the token goes, as LogonUI does for a token that never answers.
  bool losesResults = false;
};

ChaosSession chaosSession(std::uint32_t seed);

// Runs the sessions `first` … `first + count - 1` one after the other on this host, printing a
// line for each failing one (seed, step, line and what went wrong) and the tally at the end.
// A step that takes longer than `watchdogSeconds` ends the process with exit code 3 after
// naming it. In a session that loses results, a step still waiting after a few seconds makes the
// person pull every token (what ends such a wait on a real logon screen); the session then ends
// as every session does, without tokens. The secrets of every session are appended to `secretsFile` (UTF-8, one a line) when
// one is given. Returns the number of sessions that failed.
unsigned runChaosSessions(ScriptRunner& runner, std::uint32_t first, std::uint32_t count, unsigned watchdogSeconds,
                          const std::wstring& secretsFile);

}  // namespace lm2::host
