#pragma once
// The one token engine layer of the process: chosen by name once (AbstractionLayer), made by the
// first provider that needs it, shared by reference counting, and the providers it reports token
// events to.

#include <memory>

namespace lm2 {

class TokenEngineAbstractionLayer;
struct ProviderLink;

// Reads AbstractionLayer the first time a provider of the process asks; later calls keep that
// choice.
void selectTokenEngineLayer();

// The process's layer with a reference for the caller: the published one, or a new one (made,
// given the token event dispatch and published). `created` tells which.
TokenEngineAbstractionLayer* acquireTokenEngine(bool& created);

// Providers that hear of tokens coming and going, as long as they live.
void registerForTokenEvents(const std::shared_ptr<ProviderLink>& link);

}  // namespace lm2
