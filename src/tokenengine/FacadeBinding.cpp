#include "tokenengine/FacadeBinding.h"

#include "items/ItemStream.h"
#include "items/ItemValues.h"
#include "logging/LogScope.h"
#include "tokenengine/FacadeSignature.h"
#include "tokenengine/LayerResultCodes.h"

namespace lm2 {
namespace {

using result::hex;

}  // namespace

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

  ExtendedResult code = result::success();
  if (::GetFileAttributesW(kLibraryPath) == INVALID_FILE_ATTRIBUTES) {
    code = layer_codes::kFacadeNotInstalled;
    logging::error(m_log, "failed to load facade library (0x%016llx)", hex(code));
    return code;
  }
  // Only a library whose signature holds is ever loaded: loading runs its code in LogonUI.
  code = verifyFacadeSignature(kLibraryPath);
  if (result::failed(code)) {
    logging::error(m_log, "failed to load facade library (0x%016llx)", hex(code));
    return code;
  }
  m_library = ::LoadLibraryW(kLibraryPath);
  if (m_library == nullptr) {
    code = result::fromWin32(::GetLastError());
    logging::error(m_log, "can not load facade library...LoadLibrary failed (0x%016llx)", hex(code));
    return code;
  }
  auto initializeLibrary = reinterpret_cast<ValInitializeFunction>(
      reinterpret_cast<void*>(::GetProcAddress(m_library, "VALInitialize")));
  if (initializeLibrary == nullptr) {
    code = result::fromWin32(::GetLastError());
    logging::error(m_log, "can not obtain init function from library...GetProcAddress failed (0x%016llx)",
                   hex(code));
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
  if (result::failed(code) || m_block.functions == nullptr) {
    if (result::succeeded(code)) code = layer_codes::kInvalidResponse;
    logging::error(m_log, "init facade library failed (0x%016llx)", hex(code));
    return code;
  }
  m_functions = m_block.functions;
  m_initialized = true;
  return code;
}

FacadeBinding::TaskOutcome FacadeBinding::runTask(const std::function<VAL_RESULT(VAL_TASK_ID*)>& start) {
  TaskOutcome outcome;
  if (!m_initialized || m_unloading) {
    outcome.code = layer_codes::kUnloading;
    return outcome;
  }
  VAL_TASK_ID task = 0;
  outcome.code = start(&task);
  if (result::failed(outcome.code)) return outcome;
  if (!waitForTokenEngineResult(task)) {
    logging::error(m_log, "abort waiting for result from token engine...unload was called");
    outcome.code = layer_codes::kUnloading;
    return outcome;
  }
  if (items::CItemVector* filed = getTaskResult(task)) {
    outcome.code = filed->getItemAs<items::CItemULongLong>(facade::kResultCode)->getValue();
    outcome.response = items::cloneItem(filed->getItemAs<items::CItemVector>(facade::kResultResponse));
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
  try {
    static_cast<FacadeBinding*>(context)->fileResult(task);
  } catch (...) {
    // The library's thread must not see our exceptions; the waiter keeps waiting.
  }
}

void FacadeBinding::fileResult(VAL_TASK_ID task) {
  // The whole filing runs under the table lock, so that no waiter sees a half-filed result.
  std::lock_guard<std::mutex> guard(m_resultsLock);
  if (m_unloading || m_functions == nullptr) return;
  const std::uint8_t* stream = nullptr;
  std::uint32_t length = 0;
  const VAL_RESULT code = m_functions->getTaskResult(task, &stream, &length);
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
  m_functions->releaseTaskResult(task);

  const bool sane = result->getName() == facade::kResultRoot &&
                    result->getItemAs<items::CItemULongLong>(facade::kResultTaskId) &&
                    result->getItemAs<items::CItemULong>(facade::kResultFunction) &&
                    result->getItemAs<items::CItemULongLong>(facade::kResultCode) &&
                    result->getItemAs<items::CItemVector>(facade::kResultResponse);
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
  try {
    std::lock_guard<std::mutex> guard(m_eventLock);
    if (m_tokenEvent && token != nullptr) m_tokenEvent(added, Token(token, length));
  } catch (...) {
    // Never into the library's thread.
  }
}

void FacadeBinding::beginUnload() {
  m_unloading = true;
  if (m_initialized.exchange(false) && m_functions) {
    logging::debug(m_log, "call unload function in facade library is necessary");
    m_functions->unload();
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
    ::FreeLibrary(m_library);
    m_library = nullptr;
  }
}

}  // namespace lm2
