#pragma once
// A Windows account as the provider needs it: the name as typed, stored on a token or handed over
// by LogonUI, resolved to its qualified name, account name, domain and SID. Works on domain
// members whose domain cannot be reached: the account is then found through the local profile
// list (the folder of the profile it logged on with before).

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "logging/ExtendedResult.h"
#include "logging/TraceLog.h"
#include "tokenengine/Token.h"
#include "tokenengine/TokenObject.h"

namespace lm2 {

class User {
 public:
  // Qualifies the name and looks the account up. `token` and `tokenObject` (either may be null)
  // are copied; `sharedData` is the creator's and shared by all copies of this User.
  User(const std::wstring& name, const Token* token = nullptr, const TokenObject* tokenObject = nullptr,
       std::shared_ptr<void> sharedData = nullptr);
  User(const User& other) = default;
  User& operator=(const User& other) = default;
  ~User() = default;

  // ".\name" becomes "COMPUTER\name"; any other name stays as it is.
  static std::wstring getQualifiedUsername(const std::wstring& name);
  // The account part: after the first backslash; without a backslash, before the first at sign.
  static std::wstring getUsername(const std::wstring& name);
  // For "name@dns.domain" (an at sign, no backslash): "dns.domain"; otherwise nothing.
  static std::optional<std::wstring> getUpnDomainname(const std::wstring& name);

  // Looks `name` up; falls back to the profile list when the domain trust is broken.
  ExtendedResult DoLookup(const std::wstring& name, std::vector<BYTE>& sid, DWORD& sidSize, std::wstring& domain,
                          DWORD& domainLength, SID_NAME_USE& use) const;
  // LookupAccountNameW on the local system.
  ExtendedResult DoLookupNormal(const std::wstring& name, std::vector<BYTE>& sid, DWORD& sidSize,
                                std::wstring& domain, DWORD& domainLength, SID_NAME_USE& use) const;
  // "DOMAIN\name" through the profile list: the profile whose folder is "name" or "name.DOMAIN"
  // and whose SID belongs to that domain.
  ExtendedResult DoLookupLocal(const std::wstring& user, std::vector<BYTE>& sid) const;

  // The same Windows account: by SID when both resolved, by name when neither did.
  bool sameAccount(const User& other) const;
  const std::wstring& qualifiedName() const noexcept { return m_qualifiedName; }
  const std::wstring& accountName() const noexcept { return m_accountName; }
  PSID sid() const noexcept { return m_sid.empty() ? nullptr : const_cast<BYTE*>(m_sid.data()); }
  DWORD sidSize() const noexcept { return m_sidSize; }
  const std::wstring& sidString() const noexcept { return m_sidString; }
  const std::wstring& domain() const noexcept { return m_domain; }
  DWORD domainLength() const noexcept { return m_domainLength; }
  const Token* token() const noexcept { return m_token ? &*m_token : nullptr; }
  const TokenObject* tokenObject() const noexcept { return m_tokenObject ? &*m_tokenObject : nullptr; }
  bool isResolved() const noexcept { return m_resolved; }
  bool isInternetAccount() const noexcept { return m_internetAccount; }
  const std::shared_ptr<void>& sharedData() const noexcept { return m_sharedData; }

 private:
  void lookup();

  std::wstring m_qualifiedName;
  std::wstring m_accountName;
  std::vector<BYTE> m_sid;
  std::wstring m_sidString;
  DWORD m_sidSize = 0;
  std::wstring m_domain;
  DWORD m_domainLength = 0;
  std::optional<Token> m_token;
  std::optional<TokenObject> m_tokenObject;
  bool m_resolved = false;
  bool m_internetAccount = false;
  logging::Category* m_log;
  std::shared_ptr<void> m_sharedData;
};

// The first user of `users` that resolved to an account whose SID is `sid`; null when none is (or
// `sid` is null).
const User* findResolvedUser(const std::vector<User>& users, PSID sid);

}  // namespace lm2
