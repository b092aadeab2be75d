#pragma once
// A call on LogonUI's thread that must come back in time ("within MS COMMAND"): a watchdog thread
// ends the host (exit code 3, after saying what did not come back) when the call is not back 1 s
// after its limit, so that a wait the provider never ends fails the run instead of hanging it.

#include <functional>
#include <string>

namespace lm2::host {

// Runs `call` on the calling thread; the milliseconds it took. Never returns when it took more than
// `limitMs` + 1000.
unsigned long long callWithin(unsigned long limitMs, const std::wstring& what, const std::function<void()>& call);

}  // namespace lm2::host
