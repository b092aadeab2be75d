#include "EngineControl.h"

#include <windows.h>

#include <vector>

namespace lm2::vte {
namespace {

template <class Function>
bool bind(HMODULE module, const char* name, Function& function) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
  return function != nullptr;
}

}  // namespace

EngineControl EngineControl::ofLoadedEngine() {
  EngineControl control;
  HMODULE module = ::GetModuleHandleW(L"VestaAccessLibrary.dll");
  if (module == nullptr) return control;
  const bool complete = bind(module, "VteLoadDescription", control.loadDescription) &&
                        bind(module, "VteInsertToken", control.insertToken) &&
                        bind(module, "VteRemoveToken", control.removeToken) &&
                        bind(module, "VteFailNextTask", control.failNextTask) &&
                        bind(module, "VteFailTaskAfter", control.failTaskAfter) &&
                        bind(module, "VteFailNextTaskStart", control.failNextTaskStart) &&
                        bind(module, "VteDelayTasks", control.delayTasks) &&
                        bind(module, "VteTasksStarted", control.tasksStarted) &&
                        bind(module, "VteMalformNextResult", control.malformNextResult) &&
                        bind(module, "VteDeliverNextResult", control.deliverNextResult) &&
                        bind(module, "VteDescribe", control.describe);
  // A library of that name that is not the virtual engine (a vendor's) offers no control at all.
  return complete ? control : EngineControl{};
}

std::string EngineControl::state() const {
  if (!available()) return {};
  std::vector<char> text(describe(nullptr, 0));
  describe(text.data(), static_cast<std::uint32_t>(text.size()));
  return text.data();
}

}  // namespace lm2::vte
