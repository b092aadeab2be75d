#include "cores/InitializeTokenCore.h"

#include <shlwapi.h>

#include <memory>
#include <optional>

#include "common/SecretText.h"
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

CCredentialCoreInitializeToken::CCredentialCoreInitializeToken(CCredentialStub* tile)
    : CCredentialCoreBase(tile),
      // A token the engine can initialise is given its name with the initialisation.
      m_labelWanted(tile->IsTokenInitializationPossible()),
      m_nullPinAllowed(!settings::tokenInitializationDisallowNullPIN()),
      m_defaultLabel(settings::tokenInitializationDefaultLabel()) {}

DWORD CCredentialCoreInitializeToken::firstInputField() const {
  return m_labelWanted ? fields::kTokenLabel : fields::kPin;
}

void CCredentialCoreInitializeToken::setState(State state) {
  if (state == m_state) {
    logging::debug(m_log, "no state change required. ignore call.");
    return;
  }
  m_tile->CPCE2BeginFieldUpdates();
  switch (state) {
    case kFailed: showFailed(); break;
    case kInitializing: showInitializing(); break;
    default: showInput(); break;
  }
  m_tile->CPCE2EndFieldUpdates();
  m_state = state;
}

void CCredentialCoreInitializeToken::showFailed() {
  const std::wstring text = withErrorCode(resources::loadString(message_ids::kInitializationFailed), m_errorCode);
  m_tile->CPCESetFieldString(fields::kMessage, text.c_str());
  m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_SELECTED_TILE);
  if (m_labelWanted) m_tile->CPCESetFieldState(fields::kTokenLabel, CPFS_HIDDEN);
  for (DWORD pin : {fields::kPin, fields::kConfirmPin}) {
    m_tile->CPCESetFieldState(pin, CPFS_HIDDEN);
    m_tile->CPCESetFieldString(pin, L"");
  }
  if (m_nullPinAllowed) m_tile->CPCESetFieldState(fields::kCheckbox, CPFS_HIDDEN);
  m_tile->CPCESetFieldString(fields::kInitializeLink, resources::loadString(message_ids::kTryInitializationAgain).c_str());
  m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_DISPLAY_IN_SELECTED_TILE);
  m_tile->CPCESetFieldInteractiveState(fields::kInitializeLink, CPFIS_FOCUSED);
}

void CCredentialCoreInitializeToken::showInitializing() {
  m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(message_ids::kTokenInitializing).c_str());
  m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_SELECTED_TILE);
  m_tile->CPCESetFieldState(fields::kTokenLabel, CPFS_HIDDEN);
  for (DWORD pin : {fields::kPin, fields::kConfirmPin}) {
    m_tile->CPCESetFieldState(pin, CPFS_HIDDEN);
    m_tile->CPCESetFieldString(pin, L"");
  }
  m_tile->CPCESetFieldState(fields::kCheckbox, CPFS_HIDDEN);
  // No link while the token is being initialised: it cannot be started twice.
  m_tile->CPCESetFieldString(fields::kInitializeLink, L"");
  m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_HIDDEN);
}

void CCredentialCoreInitializeToken::showInput() {
  const UINT instruction = m_labelWanted ? message_ids::kSpecifyLabelAndPin : message_ids::kSpecifyPin;
  m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(instruction).c_str());
  m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_SELECTED_TILE);
  if (m_labelWanted) m_tile->CPCESetFieldState(fields::kTokenLabel, CPFS_DISPLAY_IN_SELECTED_TILE);
  // Without PIN protection there is no PIN to type.
  if (!m_useNullPin) {
    m_tile->CPCESetFieldState(fields::kPin, CPFS_DISPLAY_IN_SELECTED_TILE);
    m_tile->CPCESetFieldState(fields::kConfirmPin, CPFS_DISPLAY_IN_SELECTED_TILE);
  }
  m_tile->CPCESetFieldInteractiveState(firstInputField(), CPFIS_FOCUSED);
  if (m_nullPinAllowed) {
    m_tile->CPCESetFieldCheckbox(fields::kCheckbox, m_useNullPin ? TRUE : FALSE,
                                 resources::loadString(message_ids::kNoPinProtection).c_str());
    m_tile->CPCESetFieldState(fields::kCheckbox, CPFS_DISPLAY_IN_SELECTED_TILE);
  }
  m_tile->CPCESetFieldString(fields::kInitializeLink, resources::loadString(message_ids::kInitializeTokenNow).c_str());
  m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_DISPLAY_IN_SELECTED_TILE);
}

void CCredentialCoreInitializeToken::setUseNullPIN(bool on) {
  if (on == m_useNullPin) return;
  m_useNullPin = on;
  m_tile->CPCE2BeginFieldUpdates();
  for (DWORD pin : {fields::kPin, fields::kConfirmPin}) {
    if (on) {
      m_tile->CPCESetFieldState(pin, CPFS_HIDDEN);
      m_tile->CPCESetFieldString(pin, L"");
    } else if (m_state == kInput) {
      m_tile->CPCESetFieldState(pin, CPFS_DISPLAY_IN_SELECTED_TILE);
    }
  }
  m_tile->CPCE2EndFieldUpdates();
}

HRESULT CCredentialCoreInitializeToken::Load() {
  LogScope scope(m_log, "CCredentialCoreInitializeToken::Load", this);
  if (m_labelWanted) {
    m_tile->CPCE2BeginFieldUpdates();
    m_tile->CPCESetFieldString(fields::kTokenLabel, m_defaultLabel.c_str());
    m_tile->CPCE2EndFieldUpdates();
  }
  setState(kInput);
  return S_OK;
}

HRESULT CCredentialCoreInitializeToken::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreInitializeToken::SetSelected", this);
  if (autoLogon) *autoLogon = FALSE;
  if (m_state != kInput) return S_OK;
  m_tile->CPCE2BeginFieldUpdates();
  if (m_labelWanted) m_tile->CPCESetFieldState(fields::kTokenLabel, CPFS_DISPLAY_IN_SELECTED_TILE);
  m_tile->CPCESetFieldInteractiveState(firstInputField(), CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

HRESULT CCredentialCoreInitializeToken::SetDeselected() {
  LogScope scope(m_log, "CCredentialCoreInitializeToken::SetDeselected", this);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kPin, L"");
  m_tile->CPCESetFieldString(fields::kConfirmPin, L"");
  m_tile->CPCE2EndFieldUpdates();
  return CCredentialCoreBase::SetDeselected();
}

HRESULT CCredentialCoreInitializeToken::GetCheckboxValue(DWORD, BOOL* checked, PWSTR* label) {
  LogScope scope(m_controlLog, "CCredentialCoreInitializeToken::GetCheckboxValue", this);
  if (checked) *checked = m_useNullPin ? TRUE : FALSE;
  if (label == nullptr) return E_POINTER;
  return ::SHStrDupW(resources::loadString(message_ids::kNoPinProtection).c_str(), label);
}

HRESULT CCredentialCoreInitializeToken::SetCheckboxValue(DWORD, BOOL checked) {
  LogScope scope(m_controlLog, "CCredentialCoreInitializeToken::SetCheckboxValue", this);
  if (checked && !m_nullPinAllowed) {
    // The check box is hidden then; a caller that ticks it all the same gets no token without PIN.
    logging::error(m_log, "a token without PIN protection is not allowed by the administrator");
    return E_INVALIDARG;
  }
  setUseNullPIN(checked != FALSE);
  return S_OK;
}

void CCredentialCoreInitializeToken::refuseInput(UINT messageId) {
  setState(kInput);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(messageId).c_str());
  m_tile->CPCE2EndFieldUpdates();
}

HRESULT CCredentialCoreInitializeToken::CommandLinkClicked(DWORD) {
  LogScope scope(m_log, "CCredentialCoreInitializeToken::CommandLinkClicked", this);
  if (m_state == kInitializing) {
    // A second click while the token is being initialised: it cannot be started twice.
    logging::warn(m_log, "the token is already being initialized...click ignored");
    return S_OK;
  }
  m_errorCode = kNoErrorCode;
  const std::wstring label = m_labelWanted ? m_tile->GetFieldString(fields::kTokenLabel) : std::wstring();
  const SecretWString pin(m_tile->GetFieldString(fields::kPin));
  const SecretWString confirmation(m_tile->GetFieldString(fields::kConfirmPin));
  if (m_labelWanted && label.empty()) {
    refuseInput(message_ids::kSpecifyLabel);
    return S_OK;
  }
  if (!m_useNullPin && pin.get().empty()) {
    refuseInput(message_ids::kEnterAndConfirmPin);
    return S_OK;
  }
  if (!m_useNullPin && pin.get() != confirmation.get()) {
    refuseInput(message_ids::kPinsDoNotMatch);
    return S_OK;
  }
  m_label = label;

  const CtxTokenEngine4CP* own = tokenEngineContext();
  const std::optional<Token> token = m_tile->GetRelatedToken();
  TokenEngineAbstractionLayer* engine = TokenEngineAbstractionLayer::acquirePublished();
  if (own == nullptr || !own->completion() || !token || engine == nullptr) {
    // Nothing would ever answer: the user sees the failure at once instead of waiting for it.
    logging::error(m_log, "can not start the initialization of the token");
    if (engine) engine->Release();
    setState(kFailed);
    return S_OK;
  }
  setState(kInitializing);
  // The provider hands the result back only while this tile still holds the token it names.
  auto context = own->forOperation(m_tile, TokenEngineCompletion::TokenEngineInitializeTokenCompletion,
                                   std::make_shared<CtxDataWithData<Token>>(nullptr, *token));
  static const std::wstring kWithoutPin;
  const std::wstring& pinToSet = m_useNullPin ? kWithoutPin : pin.get();
  engine->InitializeTokenAsync(context, *token, label, pinToSet, m_useNullPin);
  engine->Release();
  return S_OK;
}

void CCredentialCoreInitializeToken::Update(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreInitializeToken::Update", this);
  // Only a failed initialisation keeps this state.
  const AsyncResult* result = context ? context->getResult() : nullptr;
  m_errorCode = result ? result->getResultCode() : kNoErrorCode;
  setState(kFailed);
}

void CCredentialCoreInitializeToken::PreUnload(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreInitializeToken::PreUnload", this);
  const AsyncResult* result = context ? context->getResult() : nullptr;
  if (context == nullptr || context->getRoutine() != TokenEngineCompletion::TokenEngineInitializeTokenCompletion ||
      result == nullptr || !result->succeeded()) {
    return;
  }
  // The next state asks the tile whether the token needs a PIN: it is the one just chosen.
  if (const std::optional<TokenCapability> before = m_tile->GetTokenCapability()) {
    const TokenCapability after = before->initialized(m_label, m_useNullPin);
    m_tile->SetTokenCapability(&after);
  }
}

void CCredentialCoreInitializeToken::Unload() {
  LogScope scope(m_log, "CCredentialCoreInitializeToken::Unload", this);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kMessage, L"");
  m_tile->CPCESetFieldState(fields::kMessage, CPFS_HIDDEN);
  if (m_labelWanted) {
    m_tile->CPCESetFieldString(fields::kTokenLabel, L"");
    m_tile->CPCESetFieldState(fields::kTokenLabel, CPFS_HIDDEN);
  }
  for (DWORD field : {fields::kPin, fields::kConfirmPin, fields::kInitializeLink}) {
    m_tile->CPCESetFieldString(field, L"");
    m_tile->CPCESetFieldState(field, CPFS_HIDDEN);
    m_tile->CPCESetFieldInteractiveState(field, CPFIS_NONE);
  }
  m_tile->CPCESetFieldInteractiveState(fields::kTokenLabel, CPFIS_NONE);
  if (m_nullPinAllowed) m_tile->CPCESetFieldState(fields::kCheckbox, CPFS_HIDDEN);
  m_tile->CPCE2EndFieldUpdates();
}

}  // namespace lm2
