#include "tokenengine/LayerRegistry.h"

#include "logging/TraceLog.h"
#include "tokenengine/TokenEngineAbstractionLayerDefault.h"

namespace lm2 {

std::string registeredLayerName(const std::string& configured) {
  return configured == "Kaldera" ? "Kaldera" : "Default";
}

TokenEngineAbstractionLayer* createTokenEngineLayer(const std::string& configured) {
  logging::Category& log = logging::getCategory(logging::categories::kTokenEngineAbstractionLayer);
  const std::string name = registeredLayerName(configured);
  if (name == "Kaldera") logging::warn(log, "token engine layer 'Kaldera' is not available...using 'Default'");
  return new TokenEngineAbstractionLayerDefault();
}

}  // namespace lm2
