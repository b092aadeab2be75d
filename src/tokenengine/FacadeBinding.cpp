#include "tokenengine/FacadeBinding.h"

#include <cstddef>
#include <cstring>

#include "items/ItemBuffer.h"
#include "items/ItemStream.h"
#include "items/ItemValues.h"
#include "logging/LogScope.h"
#include "tokenengine/FacadeSignature.h"
#include "tokenengine/LayerResultCodes.h"

namespace lm2 {
namespace {

using result::hex;

// How deep the calling thread is inside callbacks of the library.
thread_local int t_libraryCallbacks = 0;

struct LibraryCallback {
  LibraryCallback() noexcept { ++t_libraryCallbacks; }
  ~LibraryCallback() { --t_libraryCallbacks; }
};

}  // namespace

bool FacadeBinding::onLibraryThread() noexcept { return t_libraryCallbacks > 0; }

FacadeBinding::FacadeBinding(logging::Category& log) : m_log(log) {}

FacadeBinding::~FacadeBinding() {
  beginUnload();
  freeLibrary();
}

void FacadeBinding::setTokenEventHandler(TokenEvent handler) {
  std::lock_guard<std::mutex> guard(m_eventLock);
  m_tokenEvent = std::move(handler);
}

ExtendedResult FacadeBinding::initialize() {
  logging::LogScope scope(m_log, "FacadeBinding::initialize", this);
  std::lock_guard<std::mutex> guard(m_initLock);
  if (m_initialized) return layer_codes::kSecondInitialization;

  ExtendedResult code = loadCheckedLibrary();
  if (result::failed(code)) return code;
  auto initializeLibrary = reinterpret_cast<ValInitializeFunction>(
      reinterpret_cast<void*>(::GetProcAddress(m_library.get(), "VALInitialize")));
  if (initializeLibrary == nullptr) {
    code = result::fromWin32(::GetLastError());
    logging::error(m_log, "can not obtain init function from library...GetProcAddress failed (0x%016llx)",
                   hex(code));
    m_library.reset();  // a later attempt loads it afresh, not a second time
    return code;
  }

  m_block = {};
  m_block.callbackContext = this;
  m_block.resultAvailable = &FacadeBinding::resultAvailableCallback;
  m_block.tokenAdded = &FacadeBinding::tokenAddedCallback;
  m_block.tokenRemoved = &FacadeBinding::tokenRemovedCallback;
  m_block.reportTokenEvents = 1;
  m_block.reportResults = 1;
  m_block.reserved = 0;
  m_block.magic = kValMagic;
  m_block.count = kValBlockCount;
  code = initializeLibrary(&m_block, kValBlockCount);
  if (result::failed(code)) {
    logging::error(m_log, "init facade library failed (0x%016llx)", hex(code));
    m_library.reset();
    return code;
  }
  if (!usableFunctionTable(m_block.functions)) {
    code = layer_codes::kIncompatibleLibrary;
    logging::error(m_log, "init facade library failed (0x%016llx)", hex(code));
    abandonLibrary(m_block.functions);
    return code;
  }
  m_functions = m_block.functions;
  m_initialized = true;
  return code;
}

ExtendedResult FacadeBinding::loadCheckedLibrary() {
  // Held open, shared for reading only, from the check to the load: nobody can write, rename,
  // delete or replace the file in between.
  UniqueHandle file(::CreateFileW(kLibraryPath, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
  ExtendedResult code = result::success();
  if (!file) {
    const DWORD error = ::GetLastError();
    code = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? layer_codes::kFacadeNotInstalled
                                                                          : result::fromWin32(error);
    logging::error(m_log, "failed to load facade library (0x%016llx)", hex(code));
    return code;
  }
  // Only a library whose signature holds is ever loaded: loading runs its code in LogonUI.
  code = verifyFacadeSignature(kLibraryPath, file.get());
  if (result::failed(code)) {
    logging::error(m_log, "failed to load facade library (0x%016llx)", hex(code));
    return code;
  }
  // CredUI runs in any program: the library's dependencies must not come from that program's
  // folder.
  m_library.reset(::LoadLibraryExW(kLibraryPath, nullptr,
                                   LOAD_LIBRARY_SEARCH_SYSTEM32 | LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR));
  if (!m_library) {
    code = result::fromWin32(::GetLastError());
    logging::error(m_log, "can not load facade library...LoadLibrary failed (0x%016llx)", hex(code));
  }
  return code;
}

namespace {

struct TableEntry {
  const char* name;
  std::size_t offset;
};
#define LM2_TABLE_ENTRY(entry) TableEntry{#entry, offsetof(ValFunctionTable, entry)},
constexpr TableEntry kTableEntries[] = {VAL_FUNCTION_TABLE_ENTRIES(LM2_TABLE_ENTRY)};
#undef LM2_TABLE_ENTRY

// The entry at `offset`, if the table's size covers it.
void (*entryAt(const ValFunctionTable* functions, std::size_t offset))() {
  if (functions == nullptr || functions->size < offset + sizeof(void (*)())) return nullptr;
  void (*entry)();
  std::memcpy(&entry, reinterpret_cast<const char*>(functions) + offset, sizeof entry);
  return entry;
}

}  // namespace

bool FacadeBinding::usableFunctionTable(const ValFunctionTable* functions) {
  if (functions == nullptr || functions->size < sizeof(ValFunctionTable)) {
    logging::error(m_log, "facade library function table is too small (%u bytes, %u needed)",
                   functions ? functions->size : 0u, static_cast<unsigned>(sizeof(ValFunctionTable)));
    return false;
  }
  for (const TableEntry& entry : kTableEntries) {
    if (entryAt(functions, entry.offset) == nullptr) {
      logging::error(m_log, "facade library function table has no entry '%s'", entry.name);
      return false;
    }
  }
  return true;
}

void FacadeBinding::abandonLibrary(const ValFunctionTable* functions) {
  if (entryAt(functions, offsetof(ValFunctionTable, unload)) != nullptr) {
    logging::debug(m_log, "call unload function in facade library is necessary");
    functions->unload();
    m_library.reset();
    return;
  }
  logging::error(m_log, "facade library can not be stopped...it stays loaded");
  m_library.release();
}

FacadeBinding::TaskOutcome FacadeBinding::runTask(const TaskStart& start) {
  TaskOutcome outcome;
  if (m_unloading) {
    outcome.code = layer_codes::kUnloading;
    return outcome;
  }
  // The table is taken only once initialisation has published it.
  const ValFunctionTable* functions = m_initialized ? m_functions.load() : nullptr;
  if (functions == nullptr) {
    outcome.code = layer_codes::kNotInitialized;
    logging::error(m_log, "token engine is not initialized (0x%016llx)", hex(outcome.code));
    return outcome;
  }
  VAL_TASK_ID task = 0;
  outcome.code = start(*functions, &task);
  if (result::failed(outcome.code)) return outcome;
  if (!waitForTokenEngineResult(task)) {
    logging::error(m_log, "abort waiting for result from token engine...unload was called");
    outcome.code = layer_codes::kUnloading;
    return outcome;
  }
  if (items::CItemVector* filed = getTaskResult(task)) {
    outcome.code = filed->getItemAs<items::CItemULongLong>(VAL_ITEM_RESULT_CODE)->getValue();
    outcome.response = items::cloneItem(filed->getItemAs<items::CItemVector>(VAL_ITEM_RESPONSE));
  }
  deleteTaskResult(task);
  return outcome;
}

bool FacadeBinding::waitForTokenEngineResult(VAL_TASK_ID task) {
  for (;;) {
    bool found = false;
    {
      std::lock_guard<std::mutex> guard(m_resultsLock);
      found = m_results.count(task) != 0;
    }
    // The pause comes also on the round that found the result: a short fixed delay that keeps
    // the workers from spinning and costs a logon nothing noticeable.
    ::Sleep(kPollIntervalMs);
    if (found) return true;
    if (m_unloading) return false;
  }
}

items::CItemVector* FacadeBinding::getTaskResult(VAL_TASK_ID task) {
  std::lock_guard<std::mutex> guard(m_resultsLock);
  auto found = m_results.find(task);
  return found == m_results.end() ? nullptr : found->second.get();
}

void FacadeBinding::deleteTaskResult(VAL_TASK_ID task) {
  std::lock_guard<std::mutex> guard(m_resultsLock);
  if (m_results.erase(task) == 0) logging::debug(m_log, "can not delete non existing task '0x%016llx'", hex(task));
}

void VAL_CALL FacadeBinding::resultAvailableCallback(void* context, VAL_TASK_ID task) {
  const LibraryCallback inside;
  try {
    static_cast<FacadeBinding*>(context)->fileResult(task);
  } catch (...) {
    // The library's thread must not see our exceptions; the waiter keeps waiting.
  }
}

void FacadeBinding::fileResult(VAL_TASK_ID task) {
  // The whole filing runs under the table lock, so that no waiter sees a half-filed result.
  std::lock_guard<std::mutex> guard(m_resultsLock);
  const ValFunctionTable* functions = m_functions.load();
  if (m_unloading || functions == nullptr) return;
  const std::uint8_t* stream = nullptr;
  std::uint32_t length = 0;
  const VAL_RESULT code = functions->getTaskResult(task, &stream, &length);
  if (result::failed(code)) {
    logging::error(m_log, "failed to get token result (0x%016llx)", hex(code));
    return;
  }
  std::unique_ptr<items::CItem> root = items::unpackItem(stream, length);
  auto* vector = dynamic_cast<items::CItemVector*>(root.get());
  if (vector == nullptr) {
    logging::error(m_log, "failed to unpack result vector from stream for result 0x%016llx", hex(task));
    return;
  }
  root.release();
  std::unique_ptr<items::CItemVector> result(vector);
  functions->releaseTaskResult(task);

  const bool sane = result->getName() == VAL_ITEM_RESULT_ROOT &&
                    result->getItemAs<items::CItemULongLong>(VAL_ITEM_TASK_ID) &&
                    result->getItemAs<items::CItemULong>(VAL_ITEM_TASK_FUNCTION) &&
                    result->getItemAs<items::CItemULongLong>(VAL_ITEM_RESULT_CODE) &&
                    result->getItemAs<items::CItemVector>(VAL_ITEM_RESPONSE);
  if (!sane) {
    logging::error(m_log, "sanity check failed for result 0x%016llx", hex(task));
    return;
  }
  logging::debug(m_log, "sanity check succeeded for result 0x%016llx", hex(task));
  m_results[task] = std::move(result);
}

void VAL_CALL FacadeBinding::tokenAddedCallback(void* context, const std::uint8_t* token, std::uint32_t length) {
  static_cast<FacadeBinding*>(context)->reportToken(true, token, length);
}

void VAL_CALL FacadeBinding::tokenRemovedCallback(void* context, const std::uint8_t* token, std::uint32_t length) {
  static_cast<FacadeBinding*>(context)->reportToken(false, token, length);
}

void FacadeBinding::reportToken(bool added, const std::uint8_t* token, std::uint32_t length) {
  const LibraryCallback inside;
  try {
    std::lock_guard<std::mutex> guard(m_eventLock);
    if (m_tokenEvent && token != nullptr) m_tokenEvent(added, Token(token, length));
  } catch (...) {
    // Never into the library's thread.
  }
}

void FacadeBinding::beginUnload() {
  m_unloading = true;
  const ValFunctionTable* functions = m_functions.load();
  if (m_initialized.exchange(false) && functions) {
    logging::debug(m_log, "call unload function in facade library is necessary");
    functions->unload();
  }
}

void FacadeBinding::freeLibrary() {
  {
    std::lock_guard<std::mutex> guard(m_resultsLock);
    m_results.clear();
    m_functions = nullptr;
  }
  if (m_library) {
    logging::debug(m_log, "free facade library is necessary");
    m_library.reset();
  }
}

ExtendedResult FacadeBinding::readTokenList(std::vector<Token>& tokens) {
  tokens.clear();
  TaskOutcome outcome = runTask([](const ValFunctionTable& f, VAL_TASK_ID* task) { return f.getTokenList(task); });
  if (result::failed(outcome.code)) {
    logging::error(m_log, "failed to get token list (0x%016llx)", result::hex(outcome.code));
    return outcome.code;
  }
  const auto* list = outcome.response ? outcome.response->getItemAs<items::CItemVector>(VAL_ITEM_TOKEN_LIST) : nullptr;
  if (list == nullptr) {
    logging::error(m_log, "result from token engine contains invalid data...missing token list");
    return layer_codes::kInvalidResponse;
  }
  for (std::size_t i = 0; i < list->count(); ++i) {
    if (const auto* id = dynamic_cast<const items::CItemBuffer*>(list->at(i))) {
      tokens.emplace_back(id->getData(), id->getLength());
    }
  }
  return outcome.code;
}

}  // namespace lm2
