#include "cores/CredentialCoreBase.h"

#include <shlwapi.h>

#include "logging/LogScope.h"

namespace lm2 {

using logging::LogScope;

CCredentialCoreBase::CCredentialCoreBase(CCredentialStub* tile)
    : m_log(logging::getCategory(logging::categories::kCredentialProviderCore)),
      m_controlLog(logging::getCategory(logging::categories::kCoreControlHandling)),
      m_tile(tile),
      m_serial(CtxTokenEngine4CP::nextNumber()) {}

CCredentialCoreBase::~CCredentialCoreBase() = default;

HRESULT CCredentialCoreBase::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreBase::SetSelected", this);
  if (autoLogon) *autoLogon = FALSE;
  return S_OK;
}

HRESULT CCredentialCoreBase::SetDeselected() {
  LogScope scope(m_log, "CCredentialCoreBase::SetDeselected", this);
  return S_OK;
}

HRESULT CCredentialCoreBase::GetStringValue(DWORD, PWSTR*) {
  LogScope scope(m_controlLog, "CCredentialCoreBase::GetStringValue", this);
  return S_OK;
}

HRESULT CCredentialCoreBase::GetComboBoxValueCount(DWORD, DWORD* count, DWORD* selected) {
  LogScope scope(m_controlLog, "CCredentialCoreBase::GetComboBoxValueCount", this);
  if (count) *count = 0;
  if (selected) *selected = 0xFFFFFFFF;
  return S_OK;
}

HRESULT CCredentialCoreBase::GetComboBoxValueAt(DWORD, DWORD, PWSTR* text) {
  LogScope scope(m_controlLog, "CCredentialCoreBase::GetComboBoxValueAt", this);
  if (text) *text = nullptr;
  return S_OK;
}

HRESULT CCredentialCoreBase::GetCheckboxValue(DWORD, BOOL* checked, PWSTR* label) {
  LogScope scope(m_controlLog, "CCredentialCoreBase::GetCheckboxValue", this);
  if (checked) *checked = FALSE;
  if (label == nullptr) return E_POINTER;
  return ::SHStrDupW(L"", label);
}

HRESULT CCredentialCoreBase::SetComboBoxSelectedValue(DWORD, DWORD) {
  LogScope scope(m_controlLog, "CCredentialCoreBase::SetComboBoxSelectedValue", this);
  return S_OK;
}

HRESULT CCredentialCoreBase::SetCheckboxValue(DWORD, BOOL) {
  LogScope scope(m_controlLog, "CCredentialCoreBase::SetCheckboxValue", this);
  return S_OK;
}

HRESULT CCredentialCoreBase::CommandLinkClicked(DWORD) {
  LogScope scope(m_log, "CCredentialCoreBase::CommandLinkClicked", this);
  return S_OK;
}

HRESULT CCredentialCoreBase::GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE*,
                                              CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION*, PWSTR*,
                                              CREDENTIAL_PROVIDER_STATUS_ICON*, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreBase::GetSerialization", this);
  OnSubmitButtonInvoked();
  return S_OK;
}

HRESULT CCredentialCoreBase::ReportResult(NTSTATUS, NTSTATUS, PWSTR* statusText,
                                          CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreBase::ReportResult", this);
  if (statusText) *statusText = nullptr;
  if (statusIcon) *statusIcon = CPSI_NONE;
  return S_OK;
}

HRESULT CCredentialCoreBase::GetFieldOptions(DWORD, CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS* options) {
  LogScope scope(m_controlLog, "CCredentialCoreBase::GetFieldOptions", this);
  if (options) *options = CPCFO_NONE;
  return S_OK;
}

void CCredentialCoreBase::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreBase::PostLoad", this);
  if (context == nullptr) return;
  m_context = context->copy();
  // What this state starts from here on is its own: it reaches only this core.
  m_context->setOrigin(m_serial);
}

void CCredentialCoreBase::OnSetStringValueCalled(DWORD, const wchar_t*) {
  LogScope scope(m_controlLog, "CCredentialCoreBase::OnSetStringValueCalled", this);
}

void CCredentialCoreBase::OnSubmitButtonInvoked() {
  LogScope scope(m_log, "CCredentialCoreBase::OnSubmitButtonInvoked", this);
}

}  // namespace lm2
