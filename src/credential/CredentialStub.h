#pragma once
// One logon tile. LogonUI talks to it through the credential interfaces; the tile keeps what
// LogonUI sees (field descriptors, states, texts, the submit button's neighbour), checks every
// field id, and hands every decision to its current core (its state). Results of the token engine
// reach it through its result queue, which its own handler thread works off: the transition table
// decides whether a result stays with the current core or brings the tile into another state.
//
// Locks, where several are held, are taken in this order: processing, token, core, provider. The
// queue, sink and field-text locks are taken alone.

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <typeindex>
#include <vector>

#include "account/User.h"
#include "credential/ProviderForTile.h"
#include "credential/TileFields.h"
#include "logging/TraceLog.h"
#include "platform/ComPtr.h"
#include "platform/CredentialProviderApi.h"
#include "platform/NullDaclEvent.h"
#include "platform/UniqueResource.h"
#include "tokenengine/Contexts.h"
#include "tokenengine/Token.h"
#include "tokenengine/TokenCapability.h"

namespace lm2 {

class CCredentialCoreBase;
class StateTransitionCondition;

class CCredentialStub final : public ICredentialProviderCredential2,
                              public ICredentialProviderCredentialWithFieldOptions {
 public:
  // Starts with one reference, owned by the creator, and its handler thread running.
  CCredentialStub();

  // `user` is LogonUI's user for this tile (may be null), `provider` the provider that made it.
  HRESULT Initialize(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD credUiFlags, ICredentialProviderUser* user,
                     DWORD tileParameter, IProviderForTile* provider);
  // Windows 7 LogonUI writes the logged-on user into its session data only shortly before it shows
  // the tiles: the provider calls this before it hands the tile out, so that changing the password
  // and unlocking name that user.
  void PrepareForWindows7();
  // Whether Initialize got as far as the tile's first state (a tile without one is not shown).
  bool hasFirstCore() const noexcept { return m_firstCore.load(); }
  // Forgets the provider: called before the provider releases the tile, so that no queued result
  // reaches a provider that is gone; ends the waits of the current state (LogonUI may still hold
  // the tile and be waiting in it).
  void UnInitialize();

  // IUnknown
  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override;
  IFACEMETHODIMP_(ULONG) Release() override;

  // ICredentialProviderCredential
  IFACEMETHODIMP Advise(ICredentialProviderCredentialEvents* events) override;
  IFACEMETHODIMP UnAdvise() override;
  IFACEMETHODIMP SetSelected(BOOL* autoLogon) override;
  IFACEMETHODIMP SetDeselected() override;
  IFACEMETHODIMP GetFieldState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_STATE* state,
                               CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE* interactive) override;
  IFACEMETHODIMP GetStringValue(DWORD fieldId, PWSTR* text) override;
  IFACEMETHODIMP GetBitmapValue(DWORD fieldId, HBITMAP* bitmap) override;
  IFACEMETHODIMP GetCheckboxValue(DWORD fieldId, BOOL* checked, PWSTR* label) override;
  IFACEMETHODIMP GetSubmitButtonValue(DWORD fieldId, DWORD* adjacentTo) override;
  IFACEMETHODIMP GetComboBoxValueCount(DWORD fieldId, DWORD* count, DWORD* selected) override;
  IFACEMETHODIMP GetComboBoxValueAt(DWORD fieldId, DWORD index, PWSTR* text) override;
  IFACEMETHODIMP SetStringValue(DWORD fieldId, PCWSTR text) override;
  IFACEMETHODIMP SetCheckboxValue(DWORD fieldId, BOOL checked) override;
  IFACEMETHODIMP SetComboBoxSelectedValue(DWORD fieldId, DWORD index) override;
  IFACEMETHODIMP CommandLinkClicked(DWORD fieldId) override;
  IFACEMETHODIMP GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                                  CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) override;
  IFACEMETHODIMP ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                              CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) override;
  // ICredentialProviderCredential2
  IFACEMETHODIMP GetUserSid(PWSTR* sid) override;
  // ICredentialProviderCredentialWithFieldOptions
  IFACEMETHODIMP GetFieldOptions(DWORD fieldId, CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS* options) override;

  // --- For the cores and the provider ---
  std::wstring GetFieldString(DWORD fieldId) const;
  HRESULT SetFieldString(DWORD fieldId, PCWSTR text);
  HRESULT SetFieldState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_STATE state);
  HRESULT SetFieldInteractiveState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE state);

  // Read without the token lock, so that a state may ask for it while LogonUI's call holds the
  // core lock (the token lock comes before the core lock).
  std::optional<Token> GetRelatedToken() const;
  // Binds the tile to a token (or, with null, unbinds it) and starts over in the matching state.
  // `binding` is the provider's number for this connection of the token (a new one when 0); the
  // results asked for an earlier binding are dropped from then on.
  void SetRelatedToken(const Token* token, std::uint64_t binding = 0);
  std::uint64_t bindingId() const noexcept { return m_binding.load(); }
  std::optional<User> GetSelectedTEUser() const;
  void SetSelectedTEUser(const User* user);
  void SetTokenCapability(const TokenCapability* capability);
  std::optional<TokenCapability> GetTokenCapability() const;
  bool IsNullPINUsed() const;
  bool IsAskPINPossible() const;
  bool IsTokenInitializationPossible() const;
  bool IsNullPINPossible() const;

  // The event wrappers: the only way cores change what LogonUI shows.
  HRESULT CPCESetFieldState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_STATE state);
  HRESULT CPCESetFieldInteractiveState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE state);
  HRESULT CPCESetFieldString(DWORD fieldId, PCWSTR text);
  HRESULT CPCESetFieldCheckbox(DWORD fieldId, BOOL checked, PCWSTR label);
  HRESULT CPCEAppendFieldComboBoxItem(DWORD fieldId, PCWSTR text);
  HRESULT CPCEDeleteFieldComboBoxItem(DWORD fieldId, DWORD index);
  HRESULT CPCESetFieldComboBoxSelectedItem(DWORD fieldId, DWORD index);
  HRESULT CPCESetFieldSubmitButton(DWORD fieldId, DWORD adjacentTo);
  HRESULT CPCEOnCreatingWindow(HWND* window);
  HRESULT CPCE2BeginFieldUpdates();
  HRESULT CPCE2EndFieldUpdates();

  // Secret-bearing field texts.
  void ClearCriticalString(DWORD fieldId);
  void FreeCriticalString(DWORD fieldId);
  void ClearAllCriticalStrings();
  // Empties every PIN and password field not in `keep`, also in LogonUI's copy.
  void ResetAllCriticalStrings(const std::vector<DWORD>& keep);

  // The logon buffers the states hand to Windows (Negotiate package, this provider's class id).
  // Each fills `serialization` and sets `response` to "finished" only on success; a refused
  // domain is a status text with S_OK.
  HRESULT GetSerialization_LogonLocal(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                      CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                                      CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, const User& user, PCWSTR password);
  HRESULT GetSerialization_CredUiLocal(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                       CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                                       CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, const User& user, PCWSTR password);
  HRESULT GetSerialization_LogonOnline(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                       CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                       const std::wstring& qualifiedUserName, PCWSTR password);
  HRESULT GetSerialization_ChangePassword(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                          CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                          const User& user, PCWSTR oldPassword, PCWSTR newPassword);
  // The logon packing for this tile's scenario and the user's kind of account.
  HRESULT packLogon(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, const User& user, PCWSTR password);
  // Asks the provider to let LogonUI enumerate again (an automatic logon that is due).
  void RequestReenumeration();

  // The result queue and its handler.
  void EnqueueAsyncContext(const CtxTokenEngine4CP& context);
  void ClearAsyncResultQueue() noexcept;
  // On return no result is in processing, and none starts until LogonUI shows the tile again.
  void PauseResultHandler();
  void ChangeCurrentCore(std::unique_ptr<CCredentialCoreBase> core, bool coreLockHeld);
  void ChangeToErrorMessageCore(UINT messageId);

  // What the transition table and the cores read.
  CREDENTIAL_PROVIDER_USAGE_SCENARIO getUsageScenario() const noexcept { return m_scenario; }
  DWORD getCredUiFlags() const noexcept { return m_credUiFlags; }
  DWORD getTileParameter() const noexcept { return m_tileParameter; }
  std::wstring getUserSidString() const;
  std::vector<BYTE> getConnectedAccountSid() const;
  bool isLocalUser() const noexcept { return m_isLocalUser; }
  const std::wstring& getQualifiedUserName() const noexcept { return m_qualifiedUserName; }
  TokenEngineCompletion getHandledCompletion() const noexcept { return m_handledCompletion.load(); }
  // The handler records which completion delivered the result it handles (cleared on a change).
  void setHandledCompletion(TokenEngineCompletion routine) noexcept { m_handledCompletion = routine; }
  std::array<std::uint8_t, 16>& tokenCapabilityState() noexcept { return m_tokenCapabilityState; }
  bool isSelected() const noexcept { return m_selected.load(); }
  bool wasSelected() const noexcept { return m_wasSelected.load(); }
  // A state that wants this tile chosen (the default tile), or logged on at once (auto logon), says
  // so here; the provider reads it at every enumeration.
  void SetDefaultTile(bool isDefault) noexcept { m_defaultTile = isDefault; }
  bool IsDefaultTile() const noexcept { return m_defaultTile.load(); }
  void SetAutoLogonMode(bool autoLogon) noexcept { m_autoLogon = autoLogon; }
  bool IsAutoLogonMode() const noexcept { return m_autoLogon.load(); }
  // The user of this session as LogonUI records it (the locked session's user; Windows 7 names
  // that user to providers only this way); empty when there is no record.
  static std::wstring sessionLoggedOnUser();
  // The current core's state class (void while there is none).
  std::type_index currentCoreType() const;

 private:
  ~CCredentialStub();

  // Sink 2 if LogonUI gave one, else the plain sink (null when neither).
  ComPtr<ICredentialProviderCredentialEvents> sink() const;
  ComPtr<ICredentialProviderCredentialEvents2> sink2() const;
  void markChanged() noexcept { m_changed.store(1); }
  template <class Call>
  HRESULT relay(HRESULT local, Call call);
  void stampActivity();
  class ActivityStamp;
  bool hasAdvisedSink() const;

  void ChangeCurrentCoreUnlocked(std::unique_ptr<CCredentialCoreBase> core);
  void initializeUser(ICredentialProviderUser* user);
  void readUserName(ICredentialProviderUser* user);
  HRESULT showLoggedOnUser();
  HBITMAP loadTileImage() const;

  // The handler thread (Part of the tile's own state machine).
  void AsyncResultHandlerFunction();
  void handleNextResult();
  // A reference for the handler while it handles a result; none once the count reached zero (the
  // tile is being destroyed).
  bool tryAddRef() noexcept;
  void handleResult(std::unique_ptr<CtxTokenEngine4CP> entry);
  // A result for a binding the tile no longer has, or of a state that is no longer current: it
  // was asked for by someone who has gone, and must not move the present state.
  bool isStale(const CtxTokenEngine4CP& context, std::uint64_t currentCore) const;
  void changeCoreFor(std::type_index target, const StateTransitionCondition& edge, const CtxTokenEngine4CP& context);
  // Waits until the provider allows a state change; false when the tile is being destroyed.
  bool waitUntilReenumeratePossible();
  void reportChangedLook();

  // Shared only so that the calls LogonUI makes without the core lock (SetStringValue, ReportResult,
  // GetSerialization) keep the core they called alive; the tile alone replaces it.
  std::shared_ptr<CCredentialCoreBase> m_core;
  std::atomic<ULONG> m_refCount{1};
  CREDENTIAL_PROVIDER_USAGE_SCENARIO m_scenario = CPUS_INVALID;
  DWORD m_credUiFlags = 0;
  TileFields m_fields;
  UniqueCoTaskMemString m_userSidString;
  std::wstring m_qualifiedUserName;
  mutable std::mutex m_sinkLock;
  ComPtr<ICredentialProviderCredentialEvents> m_events;
  ComPtr<ICredentialProviderCredentialEvents2> m_events2;
  std::vector<BYTE> m_connectedAccountSid;
  UniqueLocalSid m_userSid;
  mutable std::mutex m_userLock;  // the user SID and its text, which Windows 7 may replace
  bool m_isLocalUser = false;
  logging::Category& m_log;
  logging::Category& m_fieldLog;
  std::atomic<DWORD> m_submitNeighbour{fields::kConclusion};
  DWORD m_tileParameter = 0;
  std::shared_ptr<const Token> m_relatedToken;  // replaced under the token lock, read atomically
  std::atomic<std::uint64_t> m_binding{0};
  mutable std::mutex m_tokenLock;
  NullDaclEvent m_stopEvent;
  NullDaclEvent m_resultAvailableEvent;
  NullDaclEvent m_resumeEvent;
  std::deque<std::unique_ptr<CtxTokenEngine4CP>> m_resultQueue;
  std::mutex m_queueLock;
  mutable std::mutex m_coreLock;
  std::atomic<bool> m_selected{false};
  IProviderForTile* m_provider = nullptr;
  std::mutex m_providerLock;
  std::atomic<bool> m_letGo{false};  // the provider let go of the tile (UnInitialize)
  std::optional<User> m_selectedUser;
  mutable std::mutex m_selectedUserLock;
  std::array<std::uint8_t, 16> m_tokenCapabilityState{};
  std::atomic<LONG> m_changed{0};
  std::mutex m_processingLock;
  std::atomic<bool> m_wasSelected{false};
  std::optional<TokenCapability> m_tokenCapability;
  mutable std::mutex m_capabilityLock;
  std::atomic<TokenEngineCompletion> m_handledCompletion{TokenEngineCompletion::None};
  std::atomic<bool> m_defaultTile{false};
  std::atomic<bool> m_autoLogon{false};
  std::atomic<bool> m_firstCore{false};
  std::thread m_handlerThread;
};

}  // namespace lm2
