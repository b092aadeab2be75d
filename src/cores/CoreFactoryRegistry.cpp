#include "cores/CoreFactoryRegistry.h"

#include "cores/AddCredentialCore.h"
#include "cores/ChangePasswordIsMandatoryCore.h"
#include "cores/ChangePasswordIsMandatoryKalderaCore.h"
#include "cores/ChangePasswordOnTokenCore.h"
#include "cores/ChangePasswordWithTokenCore.h"
#include "cores/ChangePasswordWithTokenKalderaCore.h"
#include "cores/InitializeTokenCore.h"
#include "cores/KnownUserLogonCores.h"
#include "cores/KnownUserLogonKalderaCore.h"
#include "cores/MessageCores.h"
#include "cores/MultiUserTokenLogonCore.h"

namespace lm2 {

template <class State, class Core>
void CoreFactoryRegistry::add(const std::wstring& coreSet) {
  m_factories[{typeid(State), coreSet}] = [](CCredentialStub* tile) { return std::make_unique<Core>(tile); };
}

// The "Kaldera" core set (access cards) has its own cores for some states; the others make their
// default cores in every core set.
CoreFactoryRegistry::CoreFactoryRegistry() {
  add<CCredentialCoreConnectTokenMessage>();
  add<CCredentialCoreLoadTokenMessage>();
  add<CCredentialCoreSearchForTokenMessage>();
  add<CCredentialCoreMessage>();
  add<CCredentialCoreTEInitializationFailed>();
  add<CCredentialCoreKnownUserLogon, CCredentialCoreKnownUserLogonDefaultImpl>();
  add<CCredentialCoreKnownUserLogon, CCredentialCoreKnownUserLogonKalderaImpl>(L"Kaldera");
  add<CCredentialCoreMultiUserTokenLogon>();
  add<CCredentialCoreChangePasswordOnToken>();
  add<CCredentialCoreChangePasswordWithToken>();
  add<CCredentialCoreChangePasswordWithToken, CCredentialCoreChangePasswordWithTokenKalderaImpl>(L"Kaldera");
  add<CCredentialCoreChangePasswordIsMandatory>();
  add<CCredentialCoreChangePasswordIsMandatory, CCredentialCoreChangePasswordIsMandatoryKalderaImpl>(L"Kaldera");
  add<CCredentialCoreTokenNotInitialized>();
  add<CCredentialCoreTokenNotInitialized, CCredentialCoreTokenNotInitializedKalderaImpl>(L"Kaldera");
  add<CCredentialCoreEmptyToken>();
  add<CCredentialCoreEmptyToken, CCredentialCoreEmptyTokenKalderaImpl>(L"Kaldera");
  add<CCredentialCoreInitializeToken>();
  add<CCredentialCoreAddCredential>();
}

const CoreFactoryRegistry& CoreFactoryRegistry::instance() {
  static const CoreFactoryRegistry registry;
  return registry;
}

std::unique_ptr<CCredentialCoreBase> CoreFactoryRegistry::create(std::type_index state, const std::wstring& coreSet,
                                                                 CCredentialStub* tile) const {
  auto found = m_factories.find({state, coreSet});
  if (found == m_factories.end() && !coreSet.empty()) found = m_factories.find({state, std::wstring()});
  if (found == m_factories.end()) return nullptr;
  return found->second(tile);
}

}  // namespace lm2
