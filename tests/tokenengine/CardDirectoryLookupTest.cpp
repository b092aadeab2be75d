// Card lookups against a real directory (OpenLDAP's slapd on 127.0.0.1, tests/directory): plain,
// LDAPS and StartTLS connections, the binds the lookup refuses before sending anything, failover
// to the next host, and hosts that never answer, which must cost the time limit and not more.
#include <gtest/gtest.h>

#include <winsock2.h>
#include <winldap.h>

#include <chrono>
#include <string>
#include <vector>

#include "TestDirectory.h"
#include "tokenengine/CardDirectoryLookup.h"
#include "tokenengine/DirectoryResultCodes.h"

namespace lm2::kaldera {
namespace {

using settings::KalderaSettings;
using settings::LdapTls;

std::wstring at(unsigned port) { return L"127.0.0.1:" + std::to_wstring(port); }

// The settings of a deployment against the test directory.
void configure(KalderaSettings& settings, LdapTls tls) {
  settings.ldapServer = at(test::testDirectoryPort(tls == LdapTls::kLdaps ? "ldaps" : "ldap"));
  settings.ldapTls = tls;
  settings.ldapAllowCleartextBind = tls == LdapTls::kNone;
  settings.ldapAnonymousBind = false;
  settings.ldapAuthDn = L"cn=reader,dc=lm2,dc=test";
  settings.ldapAuthPassword = L"reader-secret";
  settings.ldapSearchBase = L"ou=people,dc=lm2,dc=test";
  settings.ldapAttributeCardId = L"employeeNumber";
  settings.ldapAttributeUsername = L"uid";
  settings.ldapOptTimeLimit = 2;
  settings.ldapSearchTimeLimit = 2;
}

std::vector<std::wstring> accountsOf(const KalderaSettings& settings, const std::wstring& cardId,
                                     ExtendedResult expected = result::success()) {
  std::vector<std::wstring> accounts;
  EXPECT_EQ(CardDirectoryLookup(settings).lookUp(cardId, accounts), expected);
  return accounts;
}

using Accounts = std::vector<std::wstring>;

TEST(CardDirectoryLookupTest, FindsTheAccountsOfACardOverEveryKindOfConnection) {
  for (LdapTls tls : {LdapTls::kNone, LdapTls::kLdaps, LdapTls::kStartTls}) {
    SCOPED_TRACE(static_cast<int>(tls));
    KalderaSettings settings;
    configure(settings, tls);
    EXPECT_EQ(accountsOf(settings, L"04A1B2C3"), Accounts{L"alice"});
  }
  KalderaSettings settings;
  configure(settings, LdapTls::kLdaps);
  EXPECT_EQ(accountsOf(settings, L"04B0B0B0"), Accounts{L"LAB\\bob"});
  EXPECT_EQ(accountsOf(settings, L"0BADCAFE").size(), 2u);  // two entries name this card
  EXPECT_EQ(accountsOf(settings, L"0FFFFFFF"), Accounts{});
  // A prefix full of filter metacharacters matches itself, not every card.
  EXPECT_EQ(accountsOf(settings, L"(*)04C0FFEE"), Accounts{L"literal"});
  EXPECT_EQ(accountsOf(settings, L"(*)"), Accounts{});
  settings.ldapSearchFilter = L"(&(objectClass=inetOrgPerson)(employeeNumber=##CARDID##))";
  EXPECT_EQ(accountsOf(settings, L"04A1B2C3"), Accounts{L"alice"});
}

TEST(CardDirectoryLookupTest, UnsafeBindsAreRefusedBeforeAnythingIsSentAndWrongOnesByTheDirectory) {
  KalderaSettings settings;
  configure(settings, LdapTls::kNone);
  settings.ldapAllowCleartextBind = false;
  accountsOf(settings, L"04A1B2C3", directory_codes::kCleartextBindRefused);
  configure(settings, LdapTls::kLdaps);
  settings.ldapAuthPassword.clear();
  accountsOf(settings, L"04A1B2C3", directory_codes::kEmptyBindPassword);
  settings.ldapAuthDn.clear();
  accountsOf(settings, L"04A1B2C3", directory_codes::kNoBindCredentials);
  settings.ldapAnonymousBind = true;
  EXPECT_EQ(accountsOf(settings, L"04A1B2C3"), Accounts{L"alice"});

  configure(settings, LdapTls::kLdaps);
  settings.ldapAuthPassword = L"not-the-reader-secret";
  EXPECT_EQ(accountsOf(settings, L"04A1B2C3", directory_codes::fromLdap(LDAP_INVALID_CREDENTIALS)), Accounts{});
  configure(settings, LdapTls::kLdaps);
  settings.ldapServer.clear();
  accountsOf(settings, L"04A1B2C3", directory_codes::kNotConfigured);
}

// A port on 127.0.0.1 that nothing listens on.
unsigned closedPort() {
  SOCKET probe = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
  int length = sizeof address;
  ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  ::closesocket(probe);
  return ntohs(address.sin_port);
}

class Winsock : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::WSAStartup(MAKEWORD(2, 2), &data_), 0); }
  void TearDown() override {
    for (SOCKET socket : sockets_) ::closesocket(socket);
    ::WSACleanup();
  }

  // A socket on 127.0.0.1 that listens and never accepts. With `fill`, its queue is full, so that
  // further connection attempts go unanswered, as to a host that drops them.
  unsigned silentListener(bool fill) {
    SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockets_.push_back(listener);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener, 1), 0);
    int length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    for (int filler = 0; fill && filler < 4; ++filler) {
      SOCKET client = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
      sockets_.push_back(client);
      u_long nonBlocking = 1;
      ::ioctlsocket(client, FIONBIO, &nonBlocking);
      ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    return ntohs(address.sin_port);
  }

 private:
  WSADATA data_{};
  std::vector<SOCKET> sockets_;
};

using CardDirectoryHostsTest = Winsock;

TEST_F(CardDirectoryHostsTest, AHostThatRefusesIsPassedOverForTheNextOne) {
  KalderaSettings settings;
  configure(settings, LdapTls::kLdaps);
  const std::wstring good = settings.ldapServer;
  settings.ldapServer = at(closedPort()) + L"  " + good;
  EXPECT_EQ(accountsOf(settings, L"04A1B2C3"), Accounts{L"alice"});
  settings.ldapServer = at(closedPort());
  accountsOf(settings, L"04A1B2C3", directory_codes::kUnreachable);
}

// Without bounds of our own these cost minutes or never return (wldap32 bounds neither the
// connect nor a bind, a TLS handshake or a StartTLS): the lookup must give up within the limit,
// plus a little for the machine, whatever protects the connection.
TEST_F(CardDirectoryHostsTest, HostsThatNeverAnswerCostTheTimeLimitAndNoMore) {
  for (LdapTls tls : {LdapTls::kNone, LdapTls::kLdaps, LdapTls::kStartTls}) {
    SCOPED_TRACE(static_cast<int>(tls));
    KalderaSettings settings;
    configure(settings, tls);
    settings.ldapOptTimeLimit = 1;
    const auto limit = std::chrono::seconds(2 * 1 + 4);

    settings.ldapServer = at(silentListener(true));
    auto started = std::chrono::steady_clock::now();
    accountsOf(settings, L"04A1B2C3", directory_codes::kConnectTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - started, limit) << "a host that drops connection attempts";

    settings.ldapServer = at(silentListener(false));
    started = std::chrono::steady_clock::now();
    accountsOf(settings, L"04A1B2C3", directory_codes::kNoAnswer);
    EXPECT_LT(std::chrono::steady_clock::now() - started, limit) << "a server that takes the connection and is silent";
  }
}

TEST_F(CardDirectoryHostsTest, AHungHostIsPassedOverForTheNextOne) {
  for (LdapTls tls : {LdapTls::kLdaps, LdapTls::kStartTls}) {
    SCOPED_TRACE(static_cast<int>(tls));
    KalderaSettings settings;
    configure(settings, tls);
    settings.ldapOptTimeLimit = 1;
    settings.ldapServer = at(silentListener(false)) + L" " + settings.ldapServer;
    EXPECT_EQ(accountsOf(settings, L"04A1B2C3"), Accounts{L"alice"});
  }
}

}  // namespace
}  // namespace lm2::kaldera
