#pragma once
// One state of a tile. The tile forwards LogonUI's field calls to its current core, and drives the
// core's lifecycle: Load when it becomes current, PostLoad, Update for every result that keeps it,
// PreUnload and Unload when the tile moves on. The base answers every field call harmlessly, so a
// state only overrides what it shows or does.

#include <windows.h>

#include <cstdint>
#include <memory>
#include <typeindex>
#include <vector>

#include "logging/TraceLog.h"
#include "platform/CredentialProviderApi.h"
#include "tokenengine/Contexts.h"

namespace lm2 {

class CCredentialStub;

class CCredentialCoreBase {
 public:
  explicit CCredentialCoreBase(CCredentialStub* tile);
  CCredentialCoreBase(const CCredentialCoreBase&) = delete;
  CCredentialCoreBase& operator=(const CCredentialCoreBase&) = delete;

  virtual HRESULT SetSelected(BOOL* autoLogon);
  virtual HRESULT SetDeselected();
  virtual HRESULT GetStringValue(DWORD fieldId, PWSTR* text);
  virtual HRESULT GetComboBoxValueCount(DWORD fieldId, DWORD* count, DWORD* selected);
  virtual HRESULT GetComboBoxValueAt(DWORD fieldId, DWORD index, PWSTR* text);
  virtual HRESULT GetCheckboxValue(DWORD fieldId, BOOL* checked, PWSTR* label);
  virtual HRESULT SetComboBoxSelectedValue(DWORD fieldId, DWORD index);
  virtual HRESULT SetCheckboxValue(DWORD fieldId, BOOL checked);
  virtual HRESULT CommandLinkClicked(DWORD fieldId);
  // `keep` names the PIN and password fields the tile must not empty afterwards (a state that
  // needs a typed secret again after the logon).
  virtual HRESULT GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                   CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                                   CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>& keep);
  virtual HRESULT ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                               CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  virtual HRESULT GetFieldOptions(DWORD fieldId, CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS* options);
  virtual ~CCredentialCoreBase();

  // Sets the fields up for this state.
  virtual HRESULT Load() = 0;
  // Keeps a copy of the context of the result that made this state current, for the state's own
  // token engine operations. States that start work on arrival call this first.
  virtual void PostLoad(const CtxTokenEngine4CP* context);
  virtual void PreUnload(const CtxTokenEngine4CP* context) = 0;
  // The provider let go of the tile while LogonUI may still hold it: a GetSerialization or
  // ReportResult waiting for the token returns now (as for a pulled token) and none waits again,
  // because no result reaches a tile the provider no longer lists.
  virtual void EndWaits() noexcept {}
  // Restores the fields this state changed.
  virtual void Unload() = 0;
  virtual void Update(const CtxTokenEngine4CP* context) = 0;
  // The state class this core implements (variants of one state report the same class), by which
  // the transition table knows it.
  virtual std::type_index GetTypeIndex() const = 0;
  virtual void OnSetStringValueCalled(DWORD fieldId, const wchar_t* text);
  virtual void OnSubmitButtonInvoked();

  const CtxTokenEngine4CP* tokenEngineContext() const noexcept { return m_context.get(); }
  // This core's number: results of the operations it starts carry it, and the tile drops those
  // that arrive once another core is current (even one of the same state).
  std::uint64_t serial() const noexcept { return m_serial; }

 protected:
  logging::Category& m_log;
  logging::Category& m_controlLog;
  CCredentialStub* const m_tile;

 private:
  const std::uint64_t m_serial;
  std::unique_ptr<CtxTokenEngine4CP> m_context;
};

}  // namespace lm2
