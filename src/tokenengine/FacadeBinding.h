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
#include <vector>

#include "items/ItemVector.h"
#include "logging/ExtendedResult.h"
#include "logging/TraceLog.h"
#include "platform/UniqueResource.h"
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
  // Starts one task through the library's function table; returns the start's code.
  using TaskStart = std::function<VAL_RESULT(const ValFunctionTable& functions, VAL_TASK_ID* task)>;

  explicit FacadeBinding(logging::Category& log);
  ~FacadeBinding();
  FacadeBinding(const FacadeBinding&) = delete;
  FacadeBinding& operator=(const FacadeBinding&) = delete;

  // Checks, loads and initialises the library; a second call answers kSecondInitialization.
  // The file is opened once and held without write or delete sharing from the signature check
  // until it is loaded, so the library loaded is the one that was checked; its own dependencies
  // come only from its folder and system32, never from the folder of the program it runs in.
  ExtendedResult initialize();
  bool isInitialized() const noexcept { return m_initialized.load(); }
  bool isUnloading() const noexcept { return m_unloading.load(); }
  // Whether the calling thread is inside a callback of the library (a result or a token event).
  static bool onLibraryThread() noexcept;

  // Called with tokens the library reports as connected or removed (on the library's threads).
  void setTokenEventHandler(TokenEvent handler);

  // Runs one task: `start` starts it through the function table, which is handed over only once
  // the library is initialised (kNotInitialized before). Fails with the start's code, or with
  // kUnloading (and the "unload was called" text) when unloading ends the wait.
  TaskOutcome runTask(const TaskStart& start);
  // The tokens connected now (a get-token-list task); every layer reads them the same way.
  ExtendedResult readTokenList(std::vector<Token>& tokens);

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
  // Loads the checked library; the file stays open until it is loaded.
  ExtendedResult loadCheckedLibrary();
  // Whether the table holds every entry the layers call; logs what is missing.
  bool usableFunctionTable(const ValFunctionTable* functions);
  // A library that initialised but cannot be used: stopped through its unload entry and freed, or
  // left loaded when it has no usable unload entry (freeing it would pull code from under its
  // threads).
  void abandonLibrary(const ValFunctionTable* functions);

  logging::Category& m_log;
  std::atomic<bool> m_initialized{false};
  std::atomic<bool> m_unloading{false};
  UniqueModule m_library;
  ValInitBlock m_block = {};
  std::atomic<const ValFunctionTable*> m_functions{nullptr};
  std::mutex m_initLock;

  std::mutex m_resultsLock;
  std::unordered_map<VAL_TASK_ID, std::unique_ptr<items::CItemVector>> m_results;

  std::mutex m_eventLock;
  TokenEvent m_tokenEvent;
};

}  // namespace lm2
