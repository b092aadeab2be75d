// A token engine facade library over virtual tokens: the VALInitialize interface of the real
// engine, with tokens from a description file, tasks completed on the engine's own thread through
// the result-available callback, and a control interface for tests (VirtualTokenEngine.h).
#include "VirtualTokenEngine.h"

#include <windows.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

#include "Engine.h"
#include "TokenStore.h"
#include "items/ItemBuffer.h"
#include "items/ItemStream.h"
#include "items/ItemValues.h"
#include "tokenengine/FacadeInterface.h"

using namespace lm2;
using namespace lm2::items;
using namespace lm2::vte;

namespace {

Engine& engine() {
  // Destroyed when the library is unloaded, after the provider's unload() stopped its worker: a
  // provider loads and unloads the library again and again, and each copy must leave nothing.
  static Engine instance;
  return instance;
}

std::vector<std::uint8_t> tokenId(const std::uint8_t* token, std::uint32_t length) {
  return token ? std::vector<std::uint8_t>(token, token + length) : std::vector<std::uint8_t>{};
}

// Runs `body` on the token named by `id`, under the store's lock; kTokenNotPresent when absent.
VAL_RESULT onToken(const std::vector<std::uint8_t>& id, const std::function<VAL_RESULT(VirtualToken&)>& body) {
  std::lock_guard<std::mutex> guard(engine().store.lock());
  VirtualToken* token = engine().store.find(id.data(), static_cast<std::uint32_t>(id.size()));
  return token ? body(*token) : VAL_E_TOKEN_NOT_PRESENT;
}

VirtualObject* findObject(VirtualToken& token, VAL_OBJECT handle) {
  for (auto& object : token.objects) {
    if (object.handle == handle) return &object;
  }
  return nullptr;
}

// A right PIN opens the token's private objects until it is removed or initialised; a wrong one
// closes them again.
VAL_RESULT checkPinOf(VirtualToken& token, const std::string& pin) {
  token.authenticated = false;
  if (token.retriesLeft <= 0) return VAL_E_PIN_LOCKED;
  if ((token.nullPin && pin.empty()) || pin == token.pin.get()) {
    token.retriesLeft = token.retries;
    token.authenticated = true;
    return kSuccess;
  }
  return --token.retriesLeft <= 0 ? VAL_E_PIN_LOCKED : VAL_E_WRONG_PIN;
}

void addBoolean(CItemVector& vector, const char* name, bool value) {
  auto item = std::make_unique<CItemBoolean>(name);
  item->setValue(value);
  vector.addItem(std::move(item));
}

VAL_RESULT VAL_CALL getTokenList(VAL_TASK_ID* task) {
  return engine().start(kValTaskGetTokenList, [](CItemVector& response) {
    auto list = std::make_unique<CItemVector>(VAL_ITEM_TOKEN_LIST);
    std::lock_guard<std::mutex> guard(engine().store.lock());
    for (const auto& token : engine().store.tokens()) {
      if (!token.inserted) continue;
      list->addItem(CItemBuffer::copyOf("t", token.id.data(), static_cast<std::uint32_t>(token.id.size())));
    }
    response.addItem(std::move(list));
    return kSuccess;
  }, task);
}

VAL_RESULT VAL_CALL getTokenCapabilities(const std::uint8_t* t, std::uint32_t n, VAL_TASK_ID* task) {
  return engine().start(kValTaskGetTokenCapabilities, [id = tokenId(t, n)](CItemVector& response) {
    return onToken(id, [&](VirtualToken& token) {
      auto root = std::make_unique<CItemVector>(TOKENCAPABILITY_ROOT);
      addBoolean(*root, "tcii", token.initialized);
      addBoolean(*root, "tccbi", token.canInitialize);
      addBoolean(*root, "tcinpu", token.nullPin);
      addBoolean(*root, "tcic2", token.pinPad);
      addBoolean(*root, "tcinpp", token.nullPinPossible);
      root->addItem(std::make_unique<CItemStringA>("tcl", token.label));
      response.addItem(std::move(root));
      return kSuccess;
    });
  }, task);
}

VAL_RESULT VAL_CALL checkPin(const std::uint8_t* t, std::uint32_t n, const char* pin, VAL_TASK_ID* task) {
  return engine().start(kValTaskCheckPin, [id = tokenId(t, n), pin = SecretString(pin ? pin : "")](CItemVector&) {
    return onToken(id, [&](VirtualToken& token) { return checkPinOf(token, pin.get()); });
  }, task);
}

VAL_RESULT VAL_CALL askPin(const std::uint8_t* t, std::uint32_t n, VAL_TASK_ID* task) {
  return engine().start(kValTaskAskPin, [id = tokenId(t, n)](CItemVector&) {
    unsigned delayMs = 0;
    bool confirms = false;
    const VAL_RESULT code = onToken(id, [&](VirtualToken& token) {
      delayMs = token.pinPadDelayMs;
      confirms = token.pinPadConfirms;
      return token.pinPad ? kSuccess : VAL_E_NOT_SUPPORTED;
    });
    if (code != kSuccess) return code;
    ::Sleep(delayMs);  // the user types on the pad
    return onToken(id, [&](VirtualToken& token) {
      token.authenticated = confirms;
      return confirms ? kSuccess : VAL_E_PIN_PAD_CANCELLED;
    });
  }, task);
}

VAL_RESULT VAL_CALL findObjects(const std::uint8_t* t, std::uint32_t n, const std::uint8_t* query,
                                std::uint32_t queryLength, VAL_TASK_ID* task) {
  std::shared_ptr<CItem> parsed(unpackItem(query, queryLength));
  auto* filter = dynamic_cast<CItemVector*>(parsed.get());
  if (filter == nullptr) return kBadCall;
  return engine().start(kValTaskFindObjects, [id = tokenId(t, n), parsed](CItemVector& response) {
    auto& q = static_cast<CItemVector&>(*parsed);
    const auto* kind = q.getItemAs<CItemULong>(VAL_ITEM_QUERY_KIND);
    const auto* label = q.getItemAs<CItemStringA>(VAL_ITEM_QUERY_LABEL);
    const auto* link = q.getItemAs<CItemStringA>(VAL_ITEM_QUERY_LINK);
    return onToken(id, [&](VirtualToken& token) {
      auto list = std::make_unique<CItemVector>(CITEM_NAME_OBJECT_LIST);
      for (const auto& object : token.objects) {
        if ((kind && kind->getValue() != object.kind) || (label && label->getValue() != object.label) ||
            (link && link->getValue() != object.link)) {
          continue;
        }
        list->addItem(std::make_unique<CItemULongLong>(CITEM_NAME_OBJECT, object.handle));
      }
      response.addItem(std::move(list));
      return kSuccess;
    });
  }, task);
}

VAL_RESULT VAL_CALL getObjectInfo(const std::uint8_t* t, std::uint32_t n, VAL_OBJECT handle, VAL_TASK_ID* task) {
  return engine().start(kValTaskGetObjectInfo, [id = tokenId(t, n), handle](CItemVector& response) {
    return onToken(id, [&](VirtualToken& token) {
      VirtualObject* object = findObject(token, handle);
      if (!object) return VAL_E_OBJECT_NOT_FOUND;
      auto info = std::make_unique<CItemVector>(CITEM_NAME_OBJECT_INFO);
      info->addItem(std::make_unique<CItemStringA>(VAL_ITEM_INFO_APPLICATION, object->link));
      info->addItem(std::make_unique<CItemStringA>(VAL_ITEM_INFO_LABEL, object->label));
      info->addItem(std::make_unique<CItemULong>(VAL_ITEM_INFO_ATTRIBUTES, object->kind));
      info->addItem(
          std::make_unique<CItemULong>(VAL_ITEM_INFO_SIZE, static_cast<std::uint32_t>(object->data.get().size())));
      response.addItem(std::move(info));
      return kSuccess;
    });
  }, task);
}

VAL_RESULT VAL_CALL readObject(const std::uint8_t* t, std::uint32_t n, VAL_OBJECT handle, VAL_TASK_ID* task) {
  return engine().start(kValTaskReadObject, [id = tokenId(t, n), handle](CItemVector& response) {
    return onToken(id, [&](VirtualToken& token) {
      VirtualObject* object = findObject(token, handle);
      if (!object) return VAL_E_OBJECT_NOT_FOUND;
      if (object->kind == kPrivateKind && !token.nullPin && !token.authenticated) return VAL_E_NOT_AUTHENTICATED;
      response.addItem(CItemBuffer::copyOf(CITEM_NAME_OBJECT_DATA, object->data.get().data(),
                                           static_cast<std::uint32_t>(object->data.get().size())));
      return kSuccess;
    });
  }, task);
}

VAL_RESULT VAL_CALL writeObject(const std::uint8_t* t, std::uint32_t n, VAL_OBJECT handle, const std::uint8_t* data,
                                std::uint32_t length, VAL_TASK_ID* task) {
  WipedBytes content = data ? wipedCopy(data, length) : WipedBytes();
  return engine().start(kValTaskWriteObject, [id = tokenId(t, n), handle, content](CItemVector&) {
    return onToken(id, [&](VirtualToken& token) {
      VirtualObject* object = findObject(token, handle);
      if (!object) return VAL_E_OBJECT_NOT_FOUND;
      object->data = content;
      return kSuccess;
    });
  }, task);
}

VAL_RESULT VAL_CALL createObject(const std::uint8_t* t, std::uint32_t n, const std::uint8_t* descriptor,
                                 std::uint32_t length, VAL_TASK_ID* task) {
  std::shared_ptr<CItem> parsed(unpackItem(descriptor, length));
  if (dynamic_cast<CItemVector*>(parsed.get()) == nullptr) return kBadCall;
  return engine().start(kValTaskCreateObject, [id = tokenId(t, n), parsed](CItemVector& response) {
    auto& d = static_cast<CItemVector&>(*parsed);
    return onToken(id, [&](VirtualToken& token) {
      VirtualObject object;
      object.handle = engine().store.nextHandle();
      if (const auto* kind = d.getItemAs<CItemULong>(VAL_ITEM_QUERY_KIND)) object.kind = kind->getValue();
      if (const auto* label = d.getItemAs<CItemStringA>(VAL_ITEM_QUERY_LABEL)) object.label = label->getValue();
      if (const auto* link = d.getItemAs<CItemStringA>(VAL_ITEM_QUERY_LINK)) object.link = link->getValue();
      if (const auto* flags = d.getItemAs<CItemULong>("flags")) object.flags = flags->getValue();
      token.objects.push_back(std::move(object));
      response.addItem(std::make_unique<CItemULongLong>(CITEM_NAME_OBJECT, token.objects.back().handle));
      return kSuccess;
    });
  }, task);
}

VAL_RESULT VAL_CALL deleteObject(const std::uint8_t* t, std::uint32_t n, VAL_OBJECT handle, VAL_TASK_ID* task) {
  return engine().start(kValTaskDeleteObject, [id = tokenId(t, n), handle](CItemVector&) {
    return onToken(id, [&](VirtualToken& token) {
      for (auto it = token.objects.begin(); it != token.objects.end(); ++it) {
        if (it->handle == handle) {
          token.objects.erase(it);
          return kSuccess;
        }
      }
      return VAL_E_OBJECT_NOT_FOUND;
    });
  }, task);
}

VAL_RESULT VAL_CALL initializeToken(const std::uint8_t* t, std::uint32_t n, const char* label, const char* pin,
                                    std::uint8_t withoutPin, VAL_TASK_ID* task) {
  return engine().start(kValTaskInitializeToken,
                        [id = tokenId(t, n), label = std::string(label ? label : ""),
                         pin = SecretString(pin ? pin : ""), withoutPin](CItemVector&) {
                          return onToken(id, [&](VirtualToken& token) {
                            if (!token.canInitialize) return VAL_E_NOT_SUPPORTED;
                            token.initialized = true;
                            token.authenticated = false;
                            token.label = label;
                            token.pin = withoutPin ? SecretString() : pin;
                            token.nullPin = withoutPin != 0;
                            token.retriesLeft = token.retries;
                            token.objects.clear();
                            return kSuccess;
                          });
                        },
                        task);
}

VAL_RESULT VAL_CALL changePin(const std::uint8_t* t, std::uint32_t n, const char* oldPin, const char* newPin,
                              VAL_TASK_ID* task) {
  return engine().start(kValTaskChangePin,
                        [id = tokenId(t, n), oldPin = SecretString(oldPin ? oldPin : ""),
                         newPin = SecretString(newPin ? newPin : "")](CItemVector&) {
                          return onToken(id, [&](VirtualToken& token) {
                            const VAL_RESULT code = checkPinOf(token, oldPin.get());
                            if (code == kSuccess) token.pin = newPin;
                            return code;
                          });
                        },
                        task);
}

VAL_RESULT VAL_CALL getTaskResult(VAL_TASK_ID task, const std::uint8_t** stream, std::uint32_t* length) {
  return engine().result(task, stream, length);
}

void VAL_CALL releaseTaskResult(VAL_TASK_ID task) { engine().release(task); }

void VAL_CALL unload() { engine().unload(); }

const ValFunctionTable kFunctions = {
    sizeof(ValFunctionTable), getTokenList, getTokenCapabilities, checkPin, askPin, findObjects, getObjectInfo,
    readObject, writeObject, createObject, deleteObject, initializeToken, changePin, getTaskResult,
    releaseTaskResult, unload,
};

// What VALInitialize hands out: the real table, or one that a description spoiled on purpose.
ValFunctionTable g_offered;

const ValFunctionTable* offeredTable(const InitializationFault& fault) {
  g_offered = kFunctions;
  if (fault.tableSize != 0) g_offered.size = fault.tableSize;
#define VTE_CLEAR_ENTRY(entry) \
  if (fault.missingEntry == #entry) g_offered.entry = nullptr;
  VAL_FUNCTION_TABLE_ENTRIES(VTE_CLEAR_ENTRY)
#undef VTE_CLEAR_ENTRY
  return &g_offered;
}

// The description named by LM2_VIRTUAL_TOKENS, or by the registry value DescriptionFile under
// HKLM\SOFTWARE\Corvana\Lumenar2\VirtualTokenEngine; none: no tokens.
void loadConfiguredDescription() {
  wchar_t path[MAX_PATH] = {};
  if (!::GetEnvironmentVariableW(L"LM2_VIRTUAL_TOKENS", path, MAX_PATH)) {
    DWORD size = sizeof path;
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Corvana\\Lumenar2\\VirtualTokenEngine", L"DescriptionFile",
                       RRF_RT_REG_SZ, nullptr, path, &size) != ERROR_SUCCESS) {
      return;
    }
  }
  std::ifstream file(path);
  if (!file) return;
  std::stringstream text;
  text << file.rdbuf();
  try {
    engine().store.load(text.str());
  } catch (const std::exception&) {
    // A broken description leaves the engine without tokens, as if none were connected.
  }
}

void reportToken(bool added, const std::vector<std::uint8_t>& id) {
  engine().postEvent([added, id] {
    const ValInitBlock& block = engine().block();
    if (!block.reportTokenEvents) return;
    const ValTokenEvent event = added ? block.tokenAdded : block.tokenRemoved;
    if (event) event(block.callbackContext, id.data(), static_cast<std::uint32_t>(id.size()));
  });
}

}  // namespace

#if defined(VTE_WITH_DEPENDENCY)
// A variant that needs a library of its own, found only where the loader is allowed to look.
extern "C" __declspec(dllimport) int VteDependencyPresent();
#endif

#if defined(VTE_WITHOUT_INIT_EXPORT)
// A variant that lacks the one export the provider looks for.
#define VTE_INIT_EXPORT [[maybe_unused]] static
#else
#define VTE_INIT_EXPORT extern "C" __declspec(dllexport)
#endif

VTE_INIT_EXPORT VAL_RESULT VAL_CALL VALInitialize(ValInitBlock* block, std::uint32_t count) {
  if (block == nullptr || count != kValBlockCount || block->count != kValBlockCount || block->magic != kValMagic) {
    return kBadCall;
  }
#if defined(VTE_WITH_DEPENDENCY)
  if (!VteDependencyPresent()) return kBadCall;
#endif
  loadConfiguredDescription();
  const InitializationFault fault = engine().store.initializationFault();
  if (fault.result != 0) return fault.result;
  const VAL_RESULT code = engine().initialize(block);
  if (code == kSuccess) block->functions = offeredTable(fault);
  if (fault.delayMs != 0) ::Sleep(fault.delayMs);
  return code;
}

int VteLoadDescription(const char* json) {
  try {
    engine().store.load(json ? json : "{}");
    return 0;
  } catch (const std::exception&) {
    return 1;
  }
}

int VteInsertToken(const char* json) {
  try {
    reportToken(true, engine().store.insert(json ? json : "{}"));
    return 0;
  } catch (const std::exception&) {
    return 1;
  }
}

int VteRemoveToken(const char* hexId) {
  try {
    const std::vector<std::uint8_t> id = fromHex(hexId ? hexId : "");
    if (!engine().store.remove(id)) return 1;
    reportToken(false, id);
    return 0;
  } catch (const std::exception&) {
    return 1;
  }
}

void VteFailNextTask(std::uint32_t function, std::uint64_t code) { engine().failNext(function, 0, code); }
void VteFailTaskAfter(std::uint32_t function, std::uint32_t skip, std::uint64_t code) {
  engine().failNext(function, skip, code);
}
void VteFailNextTaskStart(std::uint32_t function, std::uint64_t code) { engine().failNextStart(function, code); }
void VteDelayTasks(std::uint32_t milliseconds) { engine().delay(milliseconds); }
void VteBlockNextStart(std::uint32_t milliseconds) { engine().blockNextStart(milliseconds); }

std::uint64_t VteTasksStarted() { return engine().tasksStarted(); }
void VteMalformNextResult(std::uint32_t how) { engine().malformNext(how); }
void VteDeliverNextResult(const std::uint8_t* stream, std::uint32_t length) { engine().replaceNext(stream, length); }

void VteHoldResults(std::uint32_t on) { engine().hold(on != 0); }
std::uint32_t VteReleaseResults(std::uint32_t count, std::uint32_t newestFirst) {
  return engine().releaseHeld(count, newestFirst != 0);
}

std::uint32_t VteDescribe(char* buffer, std::uint32_t size) {
  const std::string text = engine().store.describe();
  if (buffer && size > text.size()) std::memcpy(buffer, text.c_str(), text.size() + 1);
  return static_cast<std::uint32_t>(text.size() + 1);
}
