#include "account/User.h"

#include <sddl.h>

#include <new>

#include "logging/LogScope.h"
#include "platform/OsSeam.h"
#include "platform/UniqueResource.h"
#include "settings/SettingsKey.h"

namespace lm2 {
namespace {

constexpr wchar_t kProfileListPath[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
constexpr std::uint32_t kErrorTrustedRelationshipFailure = ERROR_TRUSTED_RELATIONSHIP_FAILURE;  // 0x800706FD

logging::Category& trace() { return logging::getCategory(logging::categories::kTokenEngineAbstractionLayer); }

using result::hex;

std::wstring lowerCase(std::wstring text) {
  if (!text.empty()) ::CharLowerBuffW(text.data(), static_cast<DWORD>(text.size()));
  return text;
}

// The folder user name of a profile path: the last component, without a ".DOMAIN" suffix.
std::wstring profileFolderUser(const std::wstring& path) {
  std::wstring folder = path.substr(path.find_last_of(L'\\') + 1);
  const std::size_t dot = folder.find_last_of(L'.');
  if (dot != std::wstring::npos) folder.resize(dot);
  return folder;
}

// True when `profileSid` is an account of the domain `domainSid`: exactly one sub-authority
// more, all others equal.
bool belongsToDomain(PSID profileSid, PSID domainSid) {
  const DWORD domainCount = *::GetSidSubAuthorityCount(domainSid);
  if (*::GetSidSubAuthorityCount(profileSid) != domainCount + 1) {
    logging::debug(trace(), "length of sub-authorities in sid not equal");
    return false;
  }
  for (DWORD i = 0; i < domainCount; ++i) {
    if (*::GetSidSubAuthority(domainSid, i) != *::GetSidSubAuthority(profileSid, i)) {
      logging::debug(trace(), "found not-equal sub-authority in sid...cancel comparison");
      return false;
    }
  }
  return true;
}

}  // namespace

User::User(const std::wstring& name, const Token* token, const TokenObject* tokenObject,
           std::shared_ptr<void> sharedData)
    : m_qualifiedName(getQualifiedUsername(name)),
      m_accountName(getUsername(name)),
      m_log(&trace()),
      m_sharedData(std::move(sharedData)) {
  if (token) m_token.emplace(*token);
  if (tokenObject) m_tokenObject.emplace(*tokenObject);
  lookup();
}

std::wstring User::getQualifiedUsername(const std::wstring& name) {
  std::wstring qualified = name;
  if (qualified.size() >= 2 && qualified[0] == L'.' && qualified[1] == L'\\') {
    logging::debug(trace(), "found '.\\' in username '%S'...mapping required", name.c_str());
    wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
    if (::GetComputerNameW(computer, &length)) {
      qualified = std::wstring(computer, length) + qualified.substr(1);
      logging::debug(trace(), "mapping dot was successfuly");
    }
  }
  logging::debug(trace(), "result of getQualifiedUsername is '%S'", qualified.c_str());
  return qualified;
}

std::wstring User::getUsername(const std::wstring& name) {
  const std::size_t backslash = name.find(L'\\');
  if (backslash != std::wstring::npos) return name.substr(backslash + 1);
  const std::size_t at = name.find(L'@');
  if (at != std::wstring::npos) return name.substr(0, at);
  return name;
}

std::optional<std::wstring> User::getUpnDomainname(const std::wstring& name) {
  const std::size_t at = name.find(L'@');
  if (at == std::wstring::npos || name.find(L'\\') != std::wstring::npos) return std::nullopt;
  std::wstring domain = name.substr(at + 1);
  logging::debug(trace(), "Domainname=%S found in qualified name %S", domain.c_str(), name.c_str());
  return domain;
}

void User::lookup() {
  logging::LogScope scope(*m_log, "User::lookup", this);
  std::wstring lookupName = m_qualifiedName;

  if (const auto upnDomain = getUpnDomainname(m_qualifiedName)) {
    std::vector<BYTE> domainSid;
    DWORD domainSidSize = 0;
    std::wstring referencedDomain;
    DWORD referencedLength = 0;
    SID_NAME_USE use = SidTypeUnknown;
    if (result::failed(DoLookup(*upnDomain, domainSid, domainSidSize, referencedDomain, referencedLength, use))) {
      logging::error(*m_log, "failed to lookup for domain name %S", upnDomain->c_str());
      return;
    }
    lookupName = referencedDomain + L"\\" + m_accountName;
  }

  logging::debug(*m_log, "lookup name from %S is %S", m_qualifiedName.c_str(), lookupName.c_str());
  SID_NAME_USE use = SidTypeUnknown;
  if (result::failed(DoLookup(lookupName, m_sid, m_sidSize, m_domain, m_domainLength, use))) return;

  UniqueResource<LocalMemoryTraits> text;
  if (!::ConvertSidToStringSidW(sid(), reinterpret_cast<LPWSTR*>(text.put()))) {
    logging::error(*m_log, "failed to convert sid to sid string");
    return;
  }
  m_sidString = static_cast<const wchar_t*>(text.get());

  if (use != SidTypeUser) {
    logging::error(*m_log, "invalid sid type for user '%S'", m_qualifiedName.c_str());
    return;
  }
  m_resolved = true;
  m_internetAccount = m_qualifiedName.find(L'\\') != std::wstring::npos &&
                      m_qualifiedName.find(L'@') != std::wstring::npos;
}

ExtendedResult User::DoLookup(const std::wstring& name, std::vector<BYTE>& sid, DWORD& sidSize,
                              std::wstring& domain, DWORD& domainLength, SID_NAME_USE& use) const {
  logging::LogScope scope(*m_log, "User::DoLookup", this);
  const ExtendedResult code = DoLookupNormal(name, sid, sidSize, domain, domainLength, use);
  if (result::succeeded(code) || code != result::fromWin32(kErrorTrustedRelationshipFailure)) return code;

  logging::warn(*m_log, "DoLookupNormal failed with ERROR_TRUSTED_RELATIONSHIP_FAILURE...try fallback");
  const std::size_t backslash = name.find(L'\\');
  if (backslash == std::wstring::npos || name.find(L'@') != std::wstring::npos) {
    logging::error(*m_log, "user name '%S' is in wrong format for fallback", name.c_str());
    return code;
  }
  std::vector<BYTE> localSid;
  const ExtendedResult local = DoLookupLocal(name, localSid);
  if (result::failed(local)) {
    logging::error(*m_log, "GetSidOfUserFromRegistry failed with error (0x%016llx)", hex(local));
    return local;
  }
  sidSize = ::GetLengthSid(localSid.data());
  sid.assign(localSid.begin(), localSid.begin() + sidSize);
  domain = name.substr(0, backslash);
  domainLength = static_cast<DWORD>(domain.size());
  use = SidTypeUser;
  return result::success();
}

ExtendedResult User::DoLookupNormal(const std::wstring& name, std::vector<BYTE>& sid, DWORD& sidSize,
                                    std::wstring& domain, DWORD& domainLength, SID_NAME_USE& use) const {
  logging::LogScope scope(*m_log, "User::DoLookupNormal", this);
  DWORD needSid = 0;
  DWORD needDomain = 0;
  SID_NAME_USE found = SidTypeUnknown;
  OsSeam& system = os();
  if (!system.lookupAccountNameW(nullptr, name.c_str(), nullptr, &needSid, nullptr, &needDomain, &found) &&
      ::GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    const ExtendedResult code = result::fromWin32(::GetLastError());
    logging::error(*m_log, "failed to look up for account name (0x%016llx)", hex(code));
    return code;
  }

  std::vector<BYTE> sidBuffer;
  std::wstring domainBuffer;
  try {
    sidBuffer.resize(needSid);
    domainBuffer.resize(needDomain);
  } catch (const std::bad_alloc&) {
    logging::error(*m_log, "can not allocate buffer for sid and referenced domain name");
    return result::allocationFailure();
  }
  DWORD sidBytes = needSid;
  DWORD domainChars = needDomain;
  if (!system.lookupAccountNameW(nullptr, name.c_str(), sidBuffer.data(), &sidBytes, domainBuffer.data(),
                                 &domainChars, &found)) {
    const ExtendedResult code = result::fromWin32(::GetLastError());
    logging::error(*m_log, "failed to look up for account name (0x%016llx)", hex(code));
    return code;
  }
  sidBuffer.resize(sidBytes);
  domainBuffer.resize(domainChars);
  sid = std::move(sidBuffer);
  sidSize = sidBytes;
  domain = std::move(domainBuffer);
  domainLength = domainChars;
  use = found;
  return result::success();
}

ExtendedResult User::DoLookupLocal(const std::wstring& user, std::vector<BYTE>& sid) const {
  logging::LogScope scope(*m_log, "User::DoLookupLocal", this);
  const std::size_t backslash = user.find(L'\\');
  if (backslash == std::wstring::npos || backslash == 0 || backslash + 1 == user.size()) {
    const ExtendedResult code = result::fromHResult(E_INVALIDARG);
    logging::error(*m_log, "invalid parameter 'p_wsUser' (0x%016llx)", hex(code));
    return code;
  }

  std::vector<BYTE> domainSid;
  DWORD domainSidSize = 0;
  std::wstring referencedDomain;
  DWORD referencedLength = 0;
  SID_NAME_USE use = SidTypeUnknown;
  ExtendedResult code =
      DoLookupNormal(user.substr(0, backslash), domainSid, domainSidSize, referencedDomain, referencedLength, use);
  if (result::failed(code)) {
    logging::error(*m_log, "call to DoLookupLocal failed (0x%016llx)", hex(code));
    return code;
  }
  const std::wstring wanted = lowerCase(user.substr(backslash + 1));

  const settings::SettingsKey profileList(kProfileListPath);
  std::vector<std::wstring> profiles;
  code = profileList.enumerateSubkeys(profiles);
  if (result::failed(code)) {
    logging::error(*m_log,
                   "fail to list subkeys on key 'SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList' "
                   "(0x%016llx)",
                   hex(code));
    return code;
  }

  for (const std::wstring& profile : profiles) {
    std::wstring path;
    code = settings::SettingsKey(profile).tryReadString(L"ProfileImagePath", path);
    if (result::failed(code)) {
      logging::error(*m_log, "failed to get registry value (0x%016llx)", hex(code));
      continue;
    }
    logging::debug(*m_log, "ProfileImagePath = '%S'", path.c_str());
    if (path.find(L'\\') == std::wstring::npos) {
      logging::debug(*m_log, "value of profile image path is not valid. (path: '%S')", path.c_str());
      continue;
    }
    const std::wstring folderUser = lowerCase(profileFolderUser(path));
    if (folderUser != wanted) {
      logging::debug(*m_log, "username '%S' not match with given username '%S'", folderUser.c_str(),
                     wanted.c_str());
      continue;
    }

    const std::wstring sidString = profile.substr(profile.find_last_of(L'\\') + 1);
    UniqueLocalSid profileSid;
    if (!::ConvertStringSidToSidW(sidString.c_str(), profileSid.put())) {
      logging::error(*m_log, "failed to convert sid string '%S' to sid (0x%016llx)", sidString.c_str(),
                     hex(result::fromWin32(::GetLastError())));
      continue;
    }
    if (!belongsToDomain(profileSid.get(), domainSid.data())) continue;

    const DWORD length = ::GetLengthSid(profileSid.get());
    const auto* bytes = static_cast<const BYTE*>(profileSid.get());
    sid.assign(bytes, bytes + length);
    return result::success();
  }
  return result::fromWin32(ERROR_NONE_MAPPED);
}

const User* findResolvedUser(const std::vector<User>& users, PSID sid) {
  if (sid == nullptr) return nullptr;
  for (const User& user : users) {
    if (user.isResolved() && user.sid() && ::IsValidSid(user.sid()) && ::EqualSid(user.sid(), sid)) return &user;
  }
  return nullptr;
}

bool User::sameAccount(const User& other) const {
  if (isResolved() && other.isResolved() && sid() && other.sid()) return ::EqualSid(sid(), other.sid()) != FALSE;
  return !isResolved() && !other.isResolved() && ::lstrcmpiW(qualifiedName().c_str(), other.qualifiedName().c_str()) == 0;
}

}  // namespace lm2
