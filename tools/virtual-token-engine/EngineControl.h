#pragma once
// The virtual token engine's control interface as the program that loaded the engine sees it (the
// tests, the logon host): each control export bound by name from the loaded module, with the type
// the engine declares for it.

#include <string>
#include <vector>

#include "VirtualTokenEngine.h"

namespace lm2::vte {

struct EngineControl {
  decltype(&VteLoadDescription) loadDescription = nullptr;
  decltype(&VteInsertToken) insertToken = nullptr;
  decltype(&VteRemoveToken) removeToken = nullptr;
  decltype(&VteFailNextTask) failNextTask = nullptr;
  decltype(&VteFailTaskAfter) failTaskAfter = nullptr;
  decltype(&VteFailNextTaskStart) failNextTaskStart = nullptr;
  decltype(&VteDelayTasks) delayTasks = nullptr;
  decltype(&VteBlockNextStart) blockNextStart = nullptr;
  decltype(&VteTasksStarted) tasksStarted = nullptr;
  decltype(&VteMalformNextResult) malformNextResult = nullptr;
  decltype(&VteDeliverNextResult) deliverNextResult = nullptr;
  decltype(&VteHoldResults) holdResults = nullptr;
  decltype(&VteReleaseResults) releaseResults = nullptr;
  decltype(&VteDescribe) describe = nullptr;

  // The engine loaded in this process; every function null when none is loaded or one is missing.
  static EngineControl ofLoadedEngine();
  bool available() const { return describe != nullptr; }
  // The engine's tokens and objects as JSON (empty when not available).
  std::string state() const;

  // A credential as the provider keeps it on a token: an account object (kind 1) and a password
  // object (kind 2) with the same label and link text.
  struct StoredCredential {
    std::string label;
    std::string account;
    std::string password;
  };
  // The credentials on the token with the id `hexId` (UTF-8 texts without their zero byte); an
  // account object without its password object is listed with an empty password.
  std::vector<StoredCredential> credentialsOn(const std::string& hexId) const;
};

}  // namespace lm2::vte
