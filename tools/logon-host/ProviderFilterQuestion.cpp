#include "ProviderFilterQuestion.h"

namespace lm2::host {

FilterAnswer askFilter(const ProviderEntry& filter, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD flags,
                       std::vector<GUID> providers) {
  FilterAnswer answer;
  UniqueModule module;
  ComPtr<ICredentialProviderFilter> object;
  if (!createFromServer(filter, IID_ICredentialProviderFilter, object.putVoid(), module, answer.error)) {
    answer.unload = unloadServer(module);
    return answer;
  }
  // LogonUI hands over its own arrays, every entry allowed at first.
  answer.allow.assign(providers.size(), TRUE);
  answer.result = object->Filter(scenario, flags, providers.data(), answer.allow.data(),
                                 static_cast<DWORD>(providers.size()));
  object.reset();
  answer.unload = unloadServer(module);
  return answer;
}

}  // namespace lm2::host
