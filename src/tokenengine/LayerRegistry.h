#pragma once
// Which token engine layer a process uses, by the name configured in AbstractionLayer.

#include <string>

namespace lm2 {

class TokenEngineAbstractionLayer;

// The registered name for `configured`: "Default" or "Kaldera"; any other name is "Default".
std::string registeredLayerName(const std::string& configured);

// A new layer (reference count 1) for the configured name: the access-card layer for "Kaldera",
// the token layer for every other name.
TokenEngineAbstractionLayer* createTokenEngineLayer(const std::string& configured);

}  // namespace lm2
