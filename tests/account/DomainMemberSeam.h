#pragma once
// Answers account lookups like a member of the domain CORP (DNS name corp.example.com, domain SID
// S-1-5-21-111-222-333), which Wine cannot be. With the trust lost, lookups of the domain's
// accounts fail with ERROR_TRUSTED_RELATIONSHIP_FAILURE while the domain itself still resolves,
// as on a member that cannot reach its domain controllers. Every other name and call goes to
// Windows (Wine) for real.

#include <map>
#include <string>

#include "ForwardingOsSeam.h"

namespace lm2::test {

class DomainMemberSeam final : public ForwardingOsSeam {
 public:
  static constexpr const wchar_t* kDomainSid = L"S-1-5-21-111-222-333";
  static constexpr const wchar_t* kAnnaSid = L"S-1-5-21-111-222-333-1104";

  bool trustLost = false;

  BOOL lookupAccountNameW(LPCWSTR systemName, LPCWSTR accountName, PSID sid, LPDWORD sidSize, LPWSTR domain,
                          LPDWORD domainChars, PSID_NAME_USE use) override;
};

}  // namespace lm2::test
