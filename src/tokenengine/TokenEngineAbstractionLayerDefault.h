#pragma once
// The token engine layer for tokens that keep Windows credentials as object pairs (see
// CredentialObjects.h), over the facade library binding.

#include <memory>
#include <string>
#include <vector>

#include "tokenengine/CredentialObjects.h"
#include "tokenengine/FacadeBinding.h"
#include "tokenengine/TokenCapability.h"
#include "tokenengine/TokenEngineAbstractionLayer.h"

namespace lm2 {

class TokenEngineAbstractionLayerDefault final : public TokenEngineAbstractionLayer {
 public:
  TokenEngineAbstractionLayerDefault();
  ~TokenEngineAbstractionLayerDefault() override;
  void prepareForUnload() noexcept override;

  void InitializeAsync(Context context) override;
  void GetTokenListAsync(Context context) override;
  void ListUsersOnTokenAsync(Context context, const Token& token) override;
  void GetPasswordForUserAsync(Context context, const User& user) override;
  void GetTokenCapabilitiesAsync(Context context, const Token& token) override;
  void CheckPINAsync(Context context, const User& user, const std::wstring& pin) override;
  void CheckPINAsync(Context context, const Token& token, const std::wstring& pin) override;
  void AskPINAsync(Context context, const User& user) override;
  void ChangePasswordOfUserAsync(Context context, const User& user, const std::wstring& newPassword) override;
  void InitializeTokenAsync(Context context, const Token& token, const std::wstring& label, const std::wstring& pin,
                            bool withoutPin) override;
  void ChangePINAsync(Context context, const Token& token, const std::wstring& oldPin,
                      const std::wstring& newPin) override;
  void CreateCredentialAsync(Context context, const Token& token, const std::wstring& account,
                             const std::wstring& password) override;

  // Tokens connected or removed, as the engine reports them (on its threads).
  void setTokenEventHandler(TokenEventHandler handler) override { m_binding.setTokenEventHandler(std::move(handler)); }
  bool isInitialized() const noexcept override { return m_binding.isInitialized(); }

  // Whether an account of `user` belongs to one of `domains` (case-insensitive): the part before a
  // backslash of the stored name, the domain of a user-principal name (whole, or its first label),
  // or the domain the account lookup returned.
  static bool isInDomainList(const User& user, const std::vector<std::wstring>& domains);

 protected:
  bool acceptsOperations() const noexcept override;
  bool destructionWaitsFor() const noexcept override;

 private:
  ExtendedResult initialize();
  std::unique_ptr<AsyncResult> getTokenList();
  std::unique_ptr<AsyncResult> listUserOnToken(const Token& token);
  std::unique_ptr<AsyncResult> getPasswordForUser(const User& user);
  std::unique_ptr<AsyncResult> getTokenCapabilities(const Token& token);
  ExtendedResult checkPIN(const Token& token, const std::wstring& pin);
  ExtendedResult askPIN(const Token& token);
  ExtendedResult changePasswordOfUser(const User& user, const std::wstring& newPassword);
  ExtendedResult initializeToken(const Token& token, const std::wstring& label, const std::wstring& pin,
                                 bool withoutPin);
  ExtendedResult changePIN(const Token& token, const std::wstring& oldPin, const std::wstring& newPin);
  ExtendedResult createCredential(const Token& token, const std::wstring& account, const std::wstring& password);

  // The user's password objects (several only on damaged token data), with the texts of a
  // password lookup.
  ExtendedResult findPasswordObjects(const User& user, CredentialObjects& objects,
                                     std::vector<CredentialObjects::Found>& found);
  // The link text of the user's credential: from the object the user was found on, else by
  // reading the token's account objects.
  ExtendedResult linkOf(const User& user, CredentialObjects& objects, std::string& link);

  FacadeBinding m_binding;
};

}  // namespace lm2
