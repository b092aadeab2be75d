#pragma once
// The binding to the token engine's facade library, shared by the layers: checks the library's
// signature, loads it, initialises it, and turns each of its tasks into a blocking call for a
// pool worker: start the task, wait until the library has delivered a well-formed result, take
// its code and response.

#include <windows.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "items/ItemVector.h"
#include "logging/ExtendedResult.h"
#include "logging/TraceLog.h"
#include "tokenengine/FacadeInterface.h"
#include "tokenengine/Token.h"

namespace lm2 {

class FacadeBinding {
 public:
  static constexpr wchar_t kLibraryPath[] = L"C:\\Windows\\system32\\VestaAccessLibrary.dll";
  static constexpr DWORD kPollIntervalMs = 100;

  // What a finished task delivered: its "te" and a copy of its "resp".
  struct TaskOutcome {
    ExtendedResult code = 0;
    std::unique_ptr<items::CItemVector> response;
  };
  using TokenEvent = std::function<void(bool added, const Token& token)>;

  explicit FacadeBinding(logging::Category& log);
  ~FacadeBinding();
  FacadeBinding(const FacadeBinding&) = delete;
  FacadeBinding& operator=(const FacadeBinding&) = delete;

  // Checks, loads and initialises the library; a second call answers kSecondInitialization.
  ExtendedResult initialize();
  bool isInitialized() const noexcept { return m_initialized.load(); }
  bool isUnloading() const noexcept { return m_unloading.load(); }
  const ValFunctionTable& functions() const noexcept { return *m_functions; }

  // Called with tokens the library reports as connected or removed (on the library's threads).
  void setTokenEventHandler(TokenEvent handler);

  // Runs one task: `start` starts it through the function table. Fails with the start's code, or
  // with kUnloading (and the "unload was called" text) when unloading ends the wait.
  TaskOutcome runTask(const std::function<VAL_RESULT(VAL_TASK_ID*)>& start);

  // Blocks until the task's result is filed (true) or unloading began (false).
  bool waitForTokenEngineResult(VAL_TASK_ID task);
  // The filed result; the table keeps it until deleteTaskResult.
  items::CItemVector* getTaskResult(VAL_TASK_ID task);
  void deleteTaskResult(VAL_TASK_ID task);

  // Ends every wait and tells the library to stop its work; no callback arrives afterwards.
  void beginUnload();
  // Frees the library. Nothing of it may run any more: call after beginUnload and after the
  // layer's workers are joined.
  void freeLibrary();

  static void VAL_CALL resultAvailableCallback(void* context, VAL_TASK_ID task);

 private:
  static void VAL_CALL tokenAddedCallback(void* context, const std::uint8_t* token, std::uint32_t length);
  static void VAL_CALL tokenRemovedCallback(void* context, const std::uint8_t* token, std::uint32_t length);
  void fileResult(VAL_TASK_ID task);
  void reportToken(bool added, const std::uint8_t* token, std::uint32_t length);

  logging::Category& m_log;
  std::atomic<bool> m_initialized{false};
  std::atomic<bool> m_unloading{false};
  HMODULE m_library = nullptr;
  ValInitBlock m_block = {};
  const ValFunctionTable* m_functions = nullptr;
  std::mutex m_initLock;

  std::mutex m_resultsLock;
  std::unordered_map<VAL_TASK_ID, std::unique_ptr<items::CItemVector>> m_results;

  std::mutex m_eventLock;
  TokenEvent m_tokenEvent;
};

}  // namespace lm2
