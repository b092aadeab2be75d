#include "DomainMemberSeam.h"

#include <sddl.h>

#include <cstring>
#include <cwchar>

#include "platform/UniqueResource.h"

namespace lm2::test {
namespace {

struct Answer {
  const wchar_t* sid;
  const wchar_t* domain;
  SID_NAME_USE use;
};

std::wstring upper(std::wstring text) {
  ::CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
  return text;
}

// Fills the caller's buffers the way LookupAccountNameW does, including the size protocol.
BOOL answerWith(const Answer& answer, PSID sid, LPDWORD sidSize, LPWSTR domain, LPDWORD domainChars,
                PSID_NAME_USE use) {
  UniqueLocalSid value;
  if (!::ConvertStringSidToSidW(answer.sid, value.put())) return FALSE;
  const DWORD needSid = ::GetLengthSid(value.get());
  const DWORD needDomain = static_cast<DWORD>(std::wcslen(answer.domain)) + 1;
  if (sid == nullptr || *sidSize < needSid || domain == nullptr || *domainChars < needDomain) {
    *sidSize = needSid;
    *domainChars = needDomain;
    ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  std::memcpy(sid, value.get(), needSid);
  *sidSize = needSid;
  std::wmemcpy(domain, answer.domain, needDomain);
  *domainChars = needDomain - 1;
  *use = answer.use;
  return TRUE;
}

}  // namespace

BOOL DomainMemberSeam::lookupAccountNameW(LPCWSTR systemName, LPCWSTR accountName, PSID sid, LPDWORD sidSize,
                                          LPWSTR domain, LPDWORD domainChars, PSID_NAME_USE use) {
  const std::wstring name = upper(accountName);
  static const Answer kDomain = {kDomainSid, L"CORP", SidTypeDomain};
  static const Answer kAnna = {kAnnaSid, L"CORP", SidTypeUser};
  static const Answer kOnline = {L"S-1-11-96-3623454863-58364-18864-2661722203-1597581903-1001",
                                 L"MicrosoftAccount", SidTypeUser};

  if (name == L"CORP" || name == L"CORP.EXAMPLE.COM") return answerWith(kDomain, sid, sidSize, domain, domainChars, use);
  if (name == L"MICROSOFTACCOUNT\\ANNA@OUTLOOK.COM") {
    return answerWith(kOnline, sid, sidSize, domain, domainChars, use);
  }
  const bool ofTheDomain = name.rfind(L"CORP\\", 0) == 0;
  if (trustLost && (ofTheDomain || name.find(L'\\') == std::wstring::npos)) {
    ::SetLastError(ERROR_TRUSTED_RELATIONSHIP_FAILURE);
    return FALSE;
  }
  if (name == L"CORP\\ANNA") return answerWith(kAnna, sid, sidSize, domain, domainChars, use);
  if (ofTheDomain) {
    ::SetLastError(ERROR_NONE_MAPPED);
    return FALSE;
  }
  return real_.lookupAccountNameW(systemName, accountName, sid, sidSize, domain, domainChars, use);
}

}  // namespace lm2::test
