#include "cores/MessageCores.h"

#include "cores/MessageIds.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "provider/FieldDescriptorTable.h"

namespace lm2 {

using logging::LogScope;

CCredentialCoreMessage::CCredentialCoreMessage(CCredentialStub* tile, UINT messageId)
    : CCredentialCoreBase(tile), m_messageId(messageId) {}

std::wstring CCredentialCoreMessage::text() const {
  std::wstring text = resources::loadString(m_messageId);
  if (m_errorCode != kNoErrorCode) {
    static constexpr wchar_t kDigits[] = L"0123456789abcdef";
    text += L" (0x";
    for (int shift = 60; shift >= 0; shift -= 4) text += kDigits[(m_errorCode >> shift) & 0xF];
    text += L')';
  }
  return text;
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
