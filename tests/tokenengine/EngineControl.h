#pragma once
// Test access to the virtual token engine: swapping the installed library for one of its signed
// or refused variants, and its control interface once a layer has loaded it.

#include <windows.h>

#include <cstdint>
#include <string>

namespace lm2::test {

// Copies engine-variants\VestaAccessLibrary.<variant>.dll (beside the test program) over the
// installed engine; "signed" restores it. An empty variant removes the installed engine.
bool installEngineVariant(const std::wstring& variant);
// Installs the signed engine and trusts the build's test root, with engine_install.exe as an
// administrator would.
bool installSignedEngine();

// The control interface of the engine loaded in this process (null functions when none is).
struct EngineControl {
  int(__cdecl* loadDescription)(const char*) = nullptr;
  int(__cdecl* insertToken)(const char*) = nullptr;
  int(__cdecl* removeToken)(const char*) = nullptr;
  void(__cdecl* failNextTask)(std::uint32_t, std::uint64_t) = nullptr;
  void(__cdecl* failTaskAfter)(std::uint32_t, std::uint32_t, std::uint64_t) = nullptr;
  void(__cdecl* delayTasks)(std::uint32_t) = nullptr;
  void(__cdecl* malformNextResult)(std::uint32_t) = nullptr;
  void(__cdecl* deliverNextResult)(const std::uint8_t*, std::uint32_t) = nullptr;
  std::uint32_t(__cdecl* describe)(char*, std::uint32_t) = nullptr;

  static EngineControl ofLoadedEngine();
  bool available() const { return loadDescription != nullptr; }
  std::string state() const;
};

}  // namespace lm2::test
