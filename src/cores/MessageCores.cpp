#include "cores/MessageCores.h"

#include "cores/AddCredentialCore.h"
#include "cores/InitializeTokenCore.h"
#include "cores/ErrorCodeText.h"
#include "cores/MessageIds.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "provider/FieldDescriptorTable.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/TokenEngineAbstractionLayer.h"

namespace lm2 {

using logging::LogScope;

CCredentialCoreMessage::CCredentialCoreMessage(CCredentialStub* tile, UINT messageId)
    : CCredentialCoreBase(tile), m_messageId(messageId) {}

std::wstring CCredentialCoreMessage::text() const {
  return withErrorCode(resources::loadString(m_messageId), m_errorCode);
}

HRESULT CCredentialCoreMessage::Load() {
  LogScope scope(m_log, "CCredentialCoreMessage::Load", this);
  HRESULT hr = m_tile->CPCE2BeginFieldUpdates();
  if (FAILED(hr)) {
    logging::error(m_log, "failed to begin update (0x%08x)", static_cast<unsigned>(hr));
    return hr;
  }
  hr = m_tile->CPCESetFieldString(fields::kMessage, text().c_str());
  if (FAILED(hr)) logging::error(m_log, "failed to set field string (0x%08x)", static_cast<unsigned>(hr));
  hr = m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_BOTH);
  if (FAILED(hr)) logging::error(m_log, "failed to set field state (0x%08x)", static_cast<unsigned>(hr));
  m_tile->CPCE2EndFieldUpdates();
  return hr;
}

void CCredentialCoreMessage::PreUnload(const CtxTokenEngine4CP*) {
  LogScope scope(m_log, "CCredentialCoreMessage::PreUnload", this);
}

void CCredentialCoreMessage::Unload() {
  LogScope scope(m_log, "CCredentialCoreMessage::Unload", this);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kMessage, L"");
  m_tile->CPCESetFieldState(fields::kMessage, CPFS_HIDDEN);
  m_tile->CPCE2EndFieldUpdates();
}

void CCredentialCoreMessage::Update(const CtxTokenEngine4CP*) {
  LogScope scope(m_log, "CCredentialCoreMessage::Update", this);
}

std::type_index CCredentialCoreMessage::GetTypeIndex() const { return typeid(CCredentialCoreMessage); }

CCredentialCoreInitializeEngineMessage::CCredentialCoreInitializeEngineMessage(CCredentialStub* tile)
    : CCredentialCoreMessage(tile, message_ids::kEngineInitializing) {}

std::type_index CCredentialCoreInitializeEngineMessage::GetTypeIndex() const {
  return typeid(CCredentialCoreInitializeEngineMessage);
}

CCredentialCoreSearchForTokenMessage::CCredentialCoreSearchForTokenMessage(CCredentialStub* tile)
    : CCredentialCoreMessage(tile, message_ids::kSearchForToken) {}

std::type_index CCredentialCoreSearchForTokenMessage::GetTypeIndex() const {
  return typeid(CCredentialCoreSearchForTokenMessage);
}

CCredentialCoreConnectTokenMessage::CCredentialCoreConnectTokenMessage(CCredentialStub* tile)
    : CCredentialCoreMessage(tile, message_ids::kPleaseConnectToken) {}

HRESULT CCredentialCoreConnectTokenMessage::Load() {
  LogScope scope(m_log, "CCredentialCoreConnectTokenMessage::Load", this);
  // A token's label may have replaced the title; without a token the tile is the product again.
  m_tile->CPCESetFieldString(fields::kTooltip, resources::loadString(message_ids::kProductTitle).c_str());
  return CCredentialCoreMessage::Load();
}

std::type_index CCredentialCoreConnectTokenMessage::GetTypeIndex() const {
  return typeid(CCredentialCoreConnectTokenMessage);
}

CCredentialCoreLoadTokenMessage::CCredentialCoreLoadTokenMessage(CCredentialStub* tile)
    : CCredentialCoreMessage(tile, message_ids::kReadingData) {}

void CCredentialCoreLoadTokenMessage::Update(const CtxTokenEngine4CP*) {
  LogScope scope(m_log, "CCredentialCoreLoadTokenMessage::Update", this);
}

std::type_index CCredentialCoreLoadTokenMessage::GetTypeIndex() const {
  return typeid(CCredentialCoreLoadTokenMessage);
}

}  // namespace lm2

namespace lm2 {

CCredentialCoreTEInitializationFailed::CCredentialCoreTEInitializationFailed(CCredentialStub* tile)
    : CCredentialCoreMessage(tile, message_ids::kEngineFailed) {}

HRESULT CCredentialCoreTEInitializationFailed::Load() {
  LogScope scope(m_log, "CCredentialCoreTEInitializationFailed::Load", this);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_DISPLAY_IN_SELECTED_TILE);
  m_tile->CPCESetFieldString(fields::kInitializeLink, resources::loadString(message_ids::kInitializeAgain).c_str());
  m_tile->CPCE2EndFieldUpdates();
  return CCredentialCoreMessage::Load();
}

void CCredentialCoreTEInitializationFailed::Update(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreTEInitializationFailed::Update", this);
  m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_DISPLAY_IN_SELECTED_TILE);
  const AsyncResult* result = context ? context->getResult() : nullptr;
  if (result) setErrorCode(result->getResultCode());
  CCredentialCoreMessage::Load();
}

HRESULT CCredentialCoreTEInitializationFailed::CommandLinkClicked(DWORD) {
  LogScope scope(m_log, "CCredentialCoreTEInitializationFailed::CommandLinkClicked", this);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(message_ids::kEngineInitializing).c_str());
  m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_HIDDEN);
  m_tile->CPCE2EndFieldUpdates();
  // The context of the failed start names the provider's completion: the new start's result
  // reaches every tile again, this one included.
  if (tokenEngineContext() == nullptr) return S_OK;
  std::shared_ptr<CtxTokenEngine4CP> again = tokenEngineContext()->copy();
  again->setResult(nullptr);
  if (TokenEngineAbstractionLayer* engine = TokenEngineAbstractionLayer::acquirePublished()) {
    engine->InitializeAsync(again);
    engine->Release();
  }
  return S_OK;
}

void CCredentialCoreTEInitializationFailed::Unload() {
  LogScope scope(m_log, "CCredentialCoreTEInitializationFailed::Unload", this);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_HIDDEN);
  m_tile->CPCESetFieldString(fields::kInitializeLink, L"");
  m_tile->CPCE2EndFieldUpdates();
  CCredentialCoreMessage::Unload();
}

std::type_index CCredentialCoreTEInitializationFailed::GetTypeIndex() const {
  return typeid(CCredentialCoreTEInitializationFailed);
}

CCredentialCoreMessageWithLink::CCredentialCoreMessageWithLink(CCredentialStub* tile, UINT messageId,
                                                               bool forbiddenByAdministrator, UINT linkText,
                                                               std::type_index linkTarget)
    : CCredentialCoreMessage(tile, messageId),
      m_linkAllowed(!forbiddenByAdministrator && (tile->getUsageScenario() == CPUS_LOGON ||
                                                  tile->getUsageScenario() == CPUS_UNLOCK_WORKSTATION)),
      m_linkText(linkText),
      m_linkTarget(linkTarget) {}

HRESULT CCredentialCoreMessageWithLink::Load() {
  LogScope scope(m_log, "CCredentialCoreMessageWithLink::Load", this);
  if (m_linkAllowed && !tokenAllowsLink()) m_linkAllowed = false;
  if (m_linkAllowed) {
    m_tile->CPCE2BeginFieldUpdates();
    m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_DISPLAY_IN_SELECTED_TILE);
    m_tile->CPCESetFieldString(fields::kInitializeLink, resources::loadString(m_linkText).c_str());
    m_tile->CPCESetFieldInteractiveState(fields::kInitializeLink, CPFIS_FOCUSED);
    m_tile->CPCE2EndFieldUpdates();
  }
  return CCredentialCoreMessage::Load();
}

HRESULT CCredentialCoreMessageWithLink::CommandLinkClicked(DWORD) {
  LogScope scope(m_log, "CCredentialCoreMessageWithLink::CommandLinkClicked", this);
  if (!m_linkAllowed) {
    reportLinkRefused();
    return S_OK;
  }
  // The table takes the "target named" row and makes the state the link offers. That state starts
  // token engine operations of its own: it gets the way back to this tile (the provider's delivery)
  // and the token from the context that brought this state.
  // A second click before the tile moved on asks again for the same state: the request of this
  // state that comes after the first finds the new state current and is dropped.
  const CtxTokenEngine4CP* own = tokenEngineContext();
  if (own == nullptr) {
    CtxTokenEngine4CP request(nullptr, m_tile, nullptr, nullptr, m_linkTarget);
    m_tile->EnqueueAsyncContext(request);
    return S_OK;
  }
  m_tile->EnqueueAsyncContext(*own->forOperation(m_tile, TokenEngineCompletion::None, own->getData(), m_linkTarget));
  return S_OK;
}

void CCredentialCoreMessageWithLink::Unload() {
  LogScope scope(m_log, "CCredentialCoreMessageWithLink::Unload", this);
  if (m_linkAllowed) {
    m_tile->CPCE2BeginFieldUpdates();
    m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_HIDDEN);
    m_tile->CPCESetFieldString(fields::kInitializeLink, L"");
    m_tile->CPCESetFieldInteractiveState(fields::kInitializeLink, CPFIS_NONE);
    m_tile->CPCE2EndFieldUpdates();
  }
  CCredentialCoreMessage::Unload();
}

CCredentialCoreTokenNotInitialized::CCredentialCoreTokenNotInitialized(CCredentialStub* tile)
    : CCredentialCoreMessageWithLink(tile, message_ids::kTokenNotInitialized, settings::disableTokenInitialization(),
                                     message_ids::kInitializeTokenNow, typeid(CCredentialCoreInitializeToken)) {}

bool CCredentialCoreTokenNotInitialized::tokenAllowsLink() const { return m_tile->IsTokenInitializationPossible(); }

void CCredentialCoreTokenNotInitialized::reportLinkRefused() const {
  logging::error(m_log, "command link was clicked but token initialization is not allowed");
}

std::type_index CCredentialCoreTokenNotInitialized::GetTypeIndex() const {
  return typeid(CCredentialCoreTokenNotInitialized);
}

CCredentialCoreEmptyToken::CCredentialCoreEmptyToken(CCredentialStub* tile)
    : CCredentialCoreMessageWithLink(tile, message_ids::kNoCredentialsOnToken, settings::disallowAddingCredentials(),
                                     message_ids::kStoreFirstCredential, typeid(CCredentialCoreAddCredential)) {}

std::type_index CCredentialCoreEmptyToken::GetTypeIndex() const { return typeid(CCredentialCoreEmptyToken); }

CCredentialCoreTokenNotInitializedKalderaImpl::CCredentialCoreTokenNotInitializedKalderaImpl(CCredentialStub* tile)
    : CCredentialCoreTokenNotInitialized(tile) {
  forbidCommandLink();
}

CCredentialCoreEmptyTokenKalderaImpl::CCredentialCoreEmptyTokenKalderaImpl(CCredentialStub* tile)
    : CCredentialCoreEmptyToken(tile) {
  forbidCommandLink();
}

}  // namespace lm2
