#include "EngineControl.h"

#include <windows.h>

#include <cctype>
#include <vector>

#include <nlohmann/json.hpp>

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
                        bind(module, "VteBlockNextStart", control.blockNextStart) &&
                        bind(module, "VteTasksStarted", control.tasksStarted) &&
                        bind(module, "VteMalformNextResult", control.malformNextResult) &&
                        bind(module, "VteHoldResults", control.holdResults) &&
                        bind(module, "VteReleaseResults", control.releaseResults) &&
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

namespace {

// The text of an object's "dataHex", up to its zero byte.
std::string textOf(const nlohmann::json& object) {
  const std::string hex = object.value("dataHex", std::string());
  std::string text;
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    const char byte = static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    if (byte == '\0') break;
    text += byte;
  }
  return text;
}

bool sameId(std::string a, std::string b) {
  for (auto* text : {&a, &b}) {
    for (char& c : *text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  return a == b;
}

}  // namespace

std::vector<EngineControl::StoredCredential> EngineControl::credentialsOn(const std::string& hexId) const {
  std::vector<StoredCredential> found;
  const nlohmann::json description = nlohmann::json::parse(state(), nullptr, false);
  if (description.is_discarded() || !description.contains("tokens")) return found;
  for (const auto& token : description["tokens"]) {
    if (!sameId(token.value("id", std::string()), hexId) || !token.contains("objects")) continue;
    for (const auto& account : token["objects"]) {
      if (account.value("kind", 0) != 1) continue;
      StoredCredential credential{account.value("label", std::string()), textOf(account), {}};
      for (const auto& password : token["objects"]) {
        if (password.value("kind", 0) == 2 && password.value("label", std::string()) == credential.label &&
            password.value("link", std::string()) == account.value("link", std::string())) {
          credential.password = textOf(password);
        }
      }
      found.push_back(std::move(credential));
    }
  }
  return found;
}

}  // namespace lm2::vte
