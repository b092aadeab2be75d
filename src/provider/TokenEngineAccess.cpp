#include "provider/TokenEngineAccess.h"

#include <mutex>
#include <string>
#include <vector>

#include "platform/TextConversion.h"
#include "provider/LM2Provider.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/LayerRegistry.h"
#include "tokenengine/TokenEngineAbstractionLayer.h"

namespace lm2 {
namespace {

// Not std::call_once: with MinGW's threads a callable that throws (memory running out) leaves the
// once-flag locked, and the next provider LogonUI makes waits on it for good.
std::mutex g_selectionLock;
bool g_selected = false;
std::string g_layerName;

std::mutex g_providersLock;
std::vector<std::weak_ptr<ProviderLink>> g_providers;

// On the engine's thread: every provider alive queues the event for its worker.
void dispatchTokenEvent(bool added, const Token& token) {
  std::vector<std::shared_ptr<ProviderLink>> links;
  {
    std::lock_guard<std::mutex> guard(g_providersLock);
    for (const auto& weak : g_providers) {
      if (auto link = weak.lock()) links.push_back(std::move(link));
    }
  }
  for (const auto& link : links) {
    std::lock_guard<std::mutex> guard(link->lock);
    if (link->provider) link->provider->receiveTokenEvent(added, token);
  }
}

}  // namespace

void selectTokenEngineLayer() {
  std::lock_guard<std::mutex> guard(g_selectionLock);
  if (g_selected) return;
  // A choice that throws is not made: the next provider chooses again.
  std::string name;
  if (!utf16ToUtf8(settings::abstractionLayer(), name)) name.clear();
  g_layerName = registeredLayerName(name);
  g_selected = true;
}

TokenEngineAbstractionLayer* acquireTokenEngine(bool& created) {
  selectTokenEngineLayer();
  created = false;
  std::lock_guard<SingletonLock> guard(tokenEngineSingletonLock());
  TokenEngineAbstractionLayer* layer = g_pTokenEngine.load();
  if (layer != nullptr && layer->AddRef() > 0) return layer;
  layer = createTokenEngineLayer(g_layerName);
  layer->setTokenEventHandler(&dispatchTokenEvent);
  g_pTokenEngine = layer;
  created = true;
  return layer;
}

void registerForTokenEvents(const std::shared_ptr<ProviderLink>& link) {
  std::lock_guard<std::mutex> guard(g_providersLock);
  // Forget the providers that are gone, so the list does not grow with every logon screen.
  std::vector<std::weak_ptr<ProviderLink>> alive;
  for (const auto& weak : g_providers) {
    if (!weak.expired()) alive.push_back(weak);
  }
  alive.push_back(link);
  g_providers.swap(alive);
}

}  // namespace lm2
