#include "tokenengine/CardDirectoryLookup.h"

#include <winldap.h>

#include <sstream>

#include "logging/LogCategories.h"
#include "logging/LogScope.h"
#include "logging/TraceLog.h"
#include "platform/TextConversion.h"
#include "platform/UniqueResource.h"
#include "tokenengine/CardDirectoryQuery.h"
#include "tokenengine/DirectoryCertificateVerifier.h"
#include "tokenengine/DirectoryResultCodes.h"
#include "tokenengine/HostProbe.h"

namespace lm2::kaldera {
namespace {

using settings::LdapTls;

void unbind(LDAP* handle) noexcept { ::ldap_unbind(handle); }
void freeMessage(LDAPMessage* message) noexcept { ::ldap_msgfree(message); }
using UniqueLdap = UniqueResource<NullableTraits<LDAP*, &unbind>>;
using UniqueMessage = UniqueResource<NullableTraits<LDAPMessage*, &freeMessage>>;

// The host the connection of this thread is meant for, for the certificate callback (wldap32's
// callback carries no context of ours; the handshake runs on the thread that drives the handle).
thread_local const DirectoryCertificateVerifier* t_verifier = nullptr;

// Microsoft documents the certificate as a pointer to the context pointer, which the callback
// frees (mingw's header declares it by value).
BOOLEAN __cdecl verifyServerCertificate(PLDAP, PCCERT_CONTEXT* serverCertificate) {
  try {
    const bool trusted = t_verifier != nullptr && serverCertificate != nullptr &&
                         result::succeeded(t_verifier->verify(*serverCertificate));
    if (serverCertificate != nullptr && *serverCertificate != nullptr) ::CertFreeCertificateContext(*serverCertificate);
    return trusted ? TRUE : FALSE;
  } catch (...) {
    return FALSE;
  }
}

class VerifierScope {
 public:
  explicit VerifierScope(const DirectoryCertificateVerifier& verifier) noexcept { t_verifier = &verifier; }
  ~VerifierScope() { t_verifier = nullptr; }
  VerifierScope(const VerifierScope&) = delete;
  VerifierScope& operator=(const VerifierScope&) = delete;
};

std::vector<std::wstring> splitHosts(const std::wstring& servers) {
  std::vector<std::wstring> hosts;
  std::wistringstream words(servers);
  for (std::wstring host; words >> host;) hosts.push_back(host);
  return hosts;
}

// "host:port" or "host" (then the configured port). IPv6 literals are written in brackets.
void splitPort(const std::wstring& entry, unsigned defaultPort, std::wstring& host, unsigned& port) {
  host = entry;
  port = defaultPort;
  const std::size_t colon = entry.rfind(L':');
  const std::size_t bracket = entry.rfind(L']');
  if (colon == std::wstring::npos || (bracket != std::wstring::npos && bracket > colon)) {
    if (host.size() > 2 && host.front() == L'[' && host.back() == L']') host = host.substr(1, host.size() - 2);
    return;
  }
  if (entry.find(L':') != colon && bracket == std::wstring::npos) return;  // a bare IPv6 address
  const std::wstring digits = entry.substr(colon + 1);
  if (digits.empty() || digits.size() > 5 || digits.find_first_not_of(L"0123456789") != std::wstring::npos) return;
  const unsigned long number = std::stoul(digits);
  if (number == 0 || number > 65535) return;
  port = static_cast<unsigned>(number);
  host = entry.substr(0, colon);
  if (host.size() > 2 && host.front() == L'[' && host.back() == L']') host = host.substr(1, host.size() - 2);
}

l_timeval seconds(DWORD value) {
  l_timeval time{};
  time.tv_sec = static_cast<LONG>(value == 0 ? 1 : value);
  return time;
}

ExtendedResult ldapFailure(logging::Category& log, const char* step, ULONG code) {
  const ExtendedResult result = directory_codes::fromLdap(code);
  logging::error(log, "%s failed (0x%016llx)", step, result::hex(result));
  return result;
}

}  // namespace

ExtendedResult CardDirectoryLookup::checkBindPolicy() const {
  if (settings_.ldapAnonymousBind) return result::success();
  if (settings_.ldapAuthDn.empty()) return directory_codes::kNoBindCredentials;
  if (settings_.ldapAuthPassword.empty()) return directory_codes::kEmptyBindPassword;
  if (settings_.ldapTls == LdapTls::kNone && !settings_.ldapAllowCleartextBind) {
    return directory_codes::kCleartextBindRefused;
  }
  return result::success();
}

ExtendedResult CardDirectoryLookup::lookUp(const std::wstring& cardId, std::vector<std::wstring>& accounts) const {
  logging::Category& log = logging::getCategory(logging::categories::kTokenEngineAbstractionLayer);
  logging::LogScope scope(log, "CardDirectoryLookup::lookUp");
  accounts.clear();
  const std::vector<std::wstring> hosts = splitHosts(settings_.ldapServer);
  if (hosts.empty()) {
    logging::error(log, "LdapServer is not set (0x%016llx)", result::hex(directory_codes::kNotConfigured));
    return directory_codes::kNotConfigured;
  }
  // Nothing is sent when the bind itself would be refused or unsafe.
  const ExtendedResult policy = checkBindPolicy();
  if (result::failed(policy)) {
    logging::error(log, "the configured bind is refused (0x%016llx)", result::hex(policy));
    return policy;
  }
  ExtendedResult last = directory_codes::kUnreachable;
  for (const std::wstring& host : hosts) {
    bool tryNextHost = false;
    last = lookUpOnHost(host, cardId, accounts, tryNextHost);
    if (!tryNextHost) return last;
    logging::warn(log, "directory host %S is not available (0x%016llx)...trying the next one", host.c_str(),
                  result::hex(last));
  }
  return last;
}

ExtendedResult CardDirectoryLookup::lookUpOnHost(const std::wstring& entry, const std::wstring& cardId,
                                                 std::vector<std::wstring>& accounts, bool& tryNextHost) const {
  logging::Category& log = logging::getCategory(logging::categories::kTokenEngineAbstractionLayer);
  tryNextHost = false;
  std::wstring host;
  unsigned port = 0;
  splitPort(entry, settings_.ldapPort, host, port);
  const DWORD stepLimit = settings_.ldapOptTimeLimit == 0 ? 1 : settings_.ldapOptTimeLimit;

  // The TLS handshake and StartTLS of wldap32 wait for good on a server that took the connection
  // and hung; a plain bind is bounded by itself, but a hung host is better passed over there too.
  const HostProbe::Greeting greeting =
      settings_.ldapTls == LdapTls::kLdaps ? HostProbe::Greeting::kTlsHello : HostProbe::Greeting::kStartTls;
  const ExtendedResult reachable = HostProbe::reaches(host, port, greeting, stepLimit * 1000);
  if (result::failed(reachable)) {
    tryNextHost = true;
    return reachable;
  }

  const DirectoryCertificateVerifier verifier(host);
  const VerifierScope verifierScope(verifier);
  const bool ldaps = settings_.ldapTls == LdapTls::kLdaps;
  UniqueLdap ldap(::ldap_sslinitW(const_cast<PWCHAR>(host.c_str()), port, ldaps ? 1 : 0));
  if (ldap.get() == nullptr) return ldapFailure(log, "ldap_sslinit", ::LdapGetLastError());

  ULONG version = LDAP_VERSION3;
  ULONG code = ::ldap_set_optionW(ldap.get(), LDAP_OPT_PROTOCOL_VERSION, &version);
  if (code != LDAP_SUCCESS) return ldapFailure(log, "setting LDAP version 3", code);
  ULONG timeLimit = settings_.ldapOptTimeLimit;
  ::ldap_set_optionW(ldap.get(), LDAP_OPT_TIMELIMIT, &timeLimit);
  ULONG sizeLimit = settings_.ldapOptSizeLimit;
  ::ldap_set_optionW(ldap.get(), LDAP_OPT_SIZELIMIT, &sizeLimit);
  if (settings_.ldapTls != LdapTls::kNone) {
    auto* callback = reinterpret_cast<void*>(&verifyServerCertificate);
    code = ::ldap_set_optionW(ldap.get(), LDAP_OPT_SERVER_CERTIFICATE, callback);
    if (code != LDAP_SUCCESS) {
      // Windows checks the certificate through the callback; a client without the option cannot
      // be given a check of ours (Wine's accepts every certificate).
      logging::warn(log, "the LDAP client takes no certificate check (0x%016llx)",
                    result::hex(directory_codes::fromLdap(code)));
    }
  }

  // Windows connects here, LDAPS handshake included, within the limit; Wine's client connects at
  // the first request instead (the probe above has bounded what can hang there).
  l_timeval connectLimit = seconds(stepLimit);
  code = ::ldap_connect(ldap.get(), &connectLimit);
  if (code != LDAP_SUCCESS) {
    tryNextHost = code == LDAP_SERVER_DOWN || code == LDAP_CONNECT_ERROR || code == LDAP_TIMEOUT;
    return ldapFailure(log, "connect", code);
  }

  if (settings_.ldapTls == LdapTls::kStartTls) {
    ULONG serverReturn = 0;
    LDAPMessage* response = nullptr;
    code = ::ldap_start_tls_sW(ldap.get(), &serverReturn, &response, nullptr, nullptr);
    if (response != nullptr) ::ldap_msgfree(response);
    // Whatever went wrong, nothing more goes out: the bind would follow in cleartext.
    if (code != LDAP_SUCCESS) return ldapFailure(log, "StartTLS", code);
  }

  // Asynchronous, so that a server that takes the connection and never answers costs the time
  // limit, not the lookup.
  const bool anonymous = settings_.ldapAnonymousBind;
  const ULONG message = ::ldap_simple_bindW(ldap.get(), anonymous ? nullptr : const_cast<PWCHAR>(settings_.ldapAuthDn.c_str()),
                                            anonymous ? nullptr : const_cast<PWCHAR>(settings_.ldapAuthPassword.c_str()));
  if (message == static_cast<ULONG>(-1)) {
    code = ::LdapGetLastError();
    tryNextHost = code == LDAP_SERVER_DOWN || code == LDAP_CONNECT_ERROR;
    return ldapFailure(log, "bind", code);
  }
  l_timeval bindLimit = seconds(stepLimit);
  UniqueMessage bound;
  const ULONG received = ::ldap_result(ldap.get(), message, LDAP_MSG_ALL, &bindLimit, bound.put());
  if (received == 0) {
    ::ldap_abandon(ldap.get(), message);
    return ldapFailure(log, "bind (no answer in time)", LDAP_TIMEOUT);
  }
  if (received == static_cast<ULONG>(-1)) {
    code = ::LdapGetLastError();
    tryNextHost = code == LDAP_SERVER_DOWN || code == LDAP_CONNECT_ERROR;
    return ldapFailure(log, "bind", code);
  }
  // After a failed bind the handle would go on as anonymous: stop here.
  code = ::ldap_result2error(ldap.get(), bound.release(), TRUE);
  if (code != LDAP_SUCCESS) return ldapFailure(log, "bind", code);

  const std::wstring filter = searchFilter(settings_.ldapSearchFilter, settings_.ldapAttributeCardId, cardId);
  logging::debug(log, "searching %S below '%S' for %S", filter.c_str(), settings_.ldapSearchBase.c_str(),
                 settings_.ldapAttributeUsername.c_str());
  PWCHAR attributes[] = {const_cast<PWCHAR>(settings_.ldapAttributeUsername.c_str()), nullptr};
  l_timeval searchLimit = seconds(settings_.ldapSearchTimeLimit);
  UniqueMessage found;
  code = ::ldap_search_ext_sW(ldap.get(), const_cast<PWCHAR>(settings_.ldapSearchBase.c_str()), settings_.ldapSearchScope,
                              const_cast<PWCHAR>(filter.c_str()), attributes, 0, nullptr, nullptr, &searchLimit,
                              settings_.ldapOptSizeLimit, found.put());
  // A size limit reached keeps the entries read so far: enough to tell one account from several.
  if (code != LDAP_SUCCESS && code != LDAP_SIZELIMIT_EXCEEDED) return ldapFailure(log, "search", code);

  for (LDAPMessage* entry = ::ldap_first_entry(ldap.get(), found.get()); entry != nullptr;
       entry = ::ldap_next_entry(ldap.get(), entry)) {
    berval** values = ::ldap_get_values_lenW(ldap.get(), entry, attributes[0]);
    std::wstring account;
    if (values != nullptr && values[0] != nullptr) {
      if (!utf8ToUtf16(std::string(values[0]->bv_val, values[0]->bv_len), account)) account.clear();
    }
    if (values != nullptr) ::ldap_value_free_len(values);
    accounts.push_back(account);
  }
  logging::debug(log, "%u directory entries name the card", static_cast<unsigned>(accounts.size()));
  return result::success();
}

}  // namespace lm2::kaldera
