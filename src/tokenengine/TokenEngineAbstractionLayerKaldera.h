#pragma once
// The token engine layer for access cards: the card arrives through the facade library like a
// token, but holds no credential. Its card id (its identification bytes, LdapPrependToCardId in
// front) names the Windows account through a directory search (CardDirectoryLookup); the user's
// Windows password authenticates. Operations on credentials are answered without calling the
// library (layer_codes::kNotForAccessCards).

#include "tokenengine/FacadeBinding.h"
#include "tokenengine/TokenEngineAbstractionLayer.h"

namespace lm2 {

class TokenEngineAbstractionLayerKaldera final : public TokenEngineAbstractionLayer {
 public:
  TokenEngineAbstractionLayerKaldera();
  ~TokenEngineAbstractionLayerKaldera() override;
  void prepareForUnload() noexcept override;

  void InitializeAsync(Context context) override;
  void GetTokenListAsync(Context context) override;
  // One directory lookup on a worker: no user (the card names nobody), exactly one, or a failure
  // (directory_codes::kAmbiguousCard when several entries name the card).
  void ListUsersOnTokenAsync(Context context, const Token& token) override;
  void GetTokenCapabilitiesAsync(Context context, const Token& token) override;
  void GetPasswordForUserAsync(Context context, const User& user) override;
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

  void setTokenEventHandler(TokenEventHandler handler) override { m_binding.setTokenEventHandler(std::move(handler)); }
  bool isInitialized() const noexcept override { return m_binding.isInitialized(); }

  // The account an entry names, as Windows takes it: a name without a domain gets
  // `defaultDomain` (the computer's name when that is empty) in front.
  static std::wstring qualifiedAccount(const std::wstring& account, const std::wstring& defaultDomain);

 protected:
  bool acceptsOperations() const noexcept override;
  bool destructionWaitsFor() const noexcept override;

 private:
  std::unique_ptr<AsyncResult> listUsersOnCard(const Token& token);
  // Completes `context` on a worker with kNotForAccessCards.
  void refuse(const char* operation, const Context& context) noexcept;

  FacadeBinding m_binding;
};

}  // namespace lm2
