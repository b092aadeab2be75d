#pragma once
// The states in which a tile shows one line of text while it waits for something outside it (the
// token engine, a token, the token's data), and the tile's error states.

#include <cstdint>
#include <typeindex>

#include "cores/CredentialCoreBase.h"
#include "cores/ErrorCodeText.h"

namespace lm2 {

class CCredentialCoreMessage : public CCredentialCoreBase {
 public:
  explicit CCredentialCoreMessage(CCredentialStub* tile, UINT messageId = 0);

  void setMessageId(UINT messageId) noexcept { m_messageId = messageId; }
  UINT messageId() const noexcept { return m_messageId; }
  // Shown after the text as " (0x" + 16 lowercase hexadecimal digits + ")".
  void setErrorCode(std::uint64_t code) noexcept { m_errorCode = code; }

  HRESULT Load() override;
  void PreUnload(const CtxTokenEngine4CP* context) override;
  void Unload() override;
  void Update(const CtxTokenEngine4CP* context) override;
  std::type_index GetTypeIndex() const override;

  // The message text with the code, as the tile shows it.
  std::wstring text() const;

 private:
  UINT m_messageId;
  std::uint64_t m_errorCode = kNoErrorCode;
};

// The first state of every tile.
class CCredentialCoreInitializeEngineMessage : public CCredentialCoreMessage {
 public:
  explicit CCredentialCoreInitializeEngineMessage(CCredentialStub* tile);
  std::type_index GetTypeIndex() const override;
};

class CCredentialCoreSearchForTokenMessage : public CCredentialCoreMessage {
 public:
  explicit CCredentialCoreSearchForTokenMessage(CCredentialStub* tile);
  std::type_index GetTypeIndex() const override;
};

// A tile without a token: also puts the product title back into the tile's label.
class CCredentialCoreConnectTokenMessage : public CCredentialCoreMessage {
 public:
  explicit CCredentialCoreConnectTokenMessage(CCredentialStub* tile);
  HRESULT Load() override;
  std::type_index GetTypeIndex() const override;
};

// While the token's capabilities and users are read.
class CCredentialCoreLoadTokenMessage : public CCredentialCoreMessage {
 public:
  explicit CCredentialCoreLoadTokenMessage(CCredentialStub* tile);
  void Update(const CtxTokenEngine4CP* context) override;
  std::type_index GetTypeIndex() const override;
};

}  // namespace lm2

namespace lm2 {

// The token engine could not be started: the message with the failure's code, and a command link
// that starts it again (its result comes back through the provider to every tile).
class CCredentialCoreTEInitializationFailed : public CCredentialCoreMessage {
 public:
  explicit CCredentialCoreTEInitializationFailed(CCredentialStub* tile);
  HRESULT Load() override;
  void Unload() override;
  void Update(const CtxTokenEngine4CP* context) override;
  HRESULT CommandLinkClicked(DWORD fieldId) override;
  std::type_index GetTypeIndex() const override;
};

// A message with a command link that moves the tile to another state, offered only where the
// administrator allows it and only for logon and unlock.
class CCredentialCoreMessageWithLink : public CCredentialCoreMessage {
 public:
  HRESULT Load() override;
  void Unload() override;
  HRESULT CommandLinkClicked(DWORD fieldId) override;
  bool commandLinkAllowed() const noexcept { return m_linkAllowed; }

 protected:
  CCredentialCoreMessageWithLink(CCredentialStub* tile, UINT messageId, bool forbiddenByAdministrator,
                                 UINT linkText, std::type_index linkTarget);
  void forbidCommandLink() noexcept { m_linkAllowed = false; }
  // Whether the token allows what the link offers (asked at Load).
  virtual bool tokenAllowsLink() const { return true; }
  virtual void reportLinkRefused() const {}

 private:
  bool m_linkAllowed;
  UINT m_linkText;
  std::type_index m_linkTarget;
};

class CCredentialCoreTokenNotInitialized : public CCredentialCoreMessageWithLink {
 public:
  explicit CCredentialCoreTokenNotInitialized(CCredentialStub* tile);
  std::type_index GetTypeIndex() const override;

 protected:
  bool tokenAllowsLink() const override;
  void reportLinkRefused() const override;
};

class CCredentialCoreEmptyToken : public CCredentialCoreMessageWithLink {
 public:
  explicit CCredentialCoreEmptyToken(CCredentialStub* tile);
  std::type_index GetTypeIndex() const override;
};

// The access-card variant: cards are initialised and enrolled by the card administration, never
// at the logon screen.
class CCredentialCoreTokenNotInitializedKalderaImpl final : public CCredentialCoreTokenNotInitialized {
 public:
  explicit CCredentialCoreTokenNotInitializedKalderaImpl(CCredentialStub* tile);
};

class CCredentialCoreEmptyTokenKalderaImpl final : public CCredentialCoreEmptyToken {
 public:
  explicit CCredentialCoreEmptyTokenKalderaImpl(CCredentialStub* tile);
};

}  // namespace lm2
