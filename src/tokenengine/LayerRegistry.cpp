#include "tokenengine/LayerRegistry.h"

#include "tokenengine/TokenEngineAbstractionLayerDefault.h"
#include "tokenengine/TokenEngineAbstractionLayerKaldera.h"

namespace lm2 {

std::string registeredLayerName(const std::string& configured) {
  return configured == "Kaldera" ? "Kaldera" : "Default";
}

TokenEngineAbstractionLayer* createTokenEngineLayer(const std::string& configured) {
  if (registeredLayerName(configured) == "Kaldera") return new TokenEngineAbstractionLayerKaldera();
  return new TokenEngineAbstractionLayerDefault();
}

}  // namespace lm2
