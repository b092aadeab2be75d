#pragma once
// The state that initialises a new token from the logon screen: the user gives it a label (its
// name) and a PIN, or chooses no PIN protection, and starts the initialisation. Three views share
// the tile: the input, the failed initialisation (with its code and a link to try again) and the
// initialisation under way (no link, so it cannot be started twice). A successful initialisation
// moves the tile on (to storing a first credential, or to the empty token); a failed one comes back
// here.

#include <windows.h>

#include <string>
#include <typeindex>

#include "cores/CredentialCoreBase.h"
#include "cores/ErrorCodeText.h"

namespace lm2 {

class CCredentialCoreInitializeToken : public CCredentialCoreBase {
 public:
  enum State : std::int32_t { kNone = 0, kInput = 1, kFailed = 2, kInitializing = 3 };

  explicit CCredentialCoreInitializeToken(CCredentialStub* tile);

  HRESULT SetSelected(BOOL* autoLogon) override;
  HRESULT SetDeselected() override;
  HRESULT GetCheckboxValue(DWORD fieldId, BOOL* checked, PWSTR* label) override;
  HRESULT SetCheckboxValue(DWORD fieldId, BOOL checked) override;
  HRESULT CommandLinkClicked(DWORD fieldId) override;
  HRESULT Load() override;
  void PreUnload(const CtxTokenEngine4CP* context) override;
  void Unload() override;
  void Update(const CtxTokenEngine4CP* context) override;
  std::type_index GetTypeIndex() const override { return typeid(CCredentialCoreInitializeToken); }

 private:
  void setState(State state);
  void setUseNullPIN(bool on);
  // Shows the view of `state`; the fields of the others are hidden.
  void showFailed();
  void showInitializing();
  void showInput();
  // The first field the user fills in: the label when the token takes one, else the PIN.
  DWORD firstInputField() const;
  void refuseInput(UINT messageId);

  State m_state = kNone;
  bool m_useNullPin = false;
  ExtendedResult m_errorCode = kNoErrorCode;
  std::wstring m_label;
  bool m_labelWanted;
  bool m_nullPinAllowed;
  std::wstring m_defaultLabel;
};

}  // namespace lm2
