// The catalogue against the provider's real key. The program runs told Vista, 7, 8.1 and 10,
// because the re-enumeration delay is read as is on Windows 7 only.
#include "settings/ProviderSettings.h"

#include <gtest/gtest.h>

#include "TestRegistry.h"
#include "platform/WindowsVersion.h"
#include "settings/KalderaSettings.h"

namespace lm2::settings {
namespace {

class ProviderSettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::deleteKeyTree(kProviderKeyPath);
    if (test::expectedWindows().empty()) GTEST_SKIP() << "needs Wine's per-program Windows version";
    windows7_ = test::expectedWindows() == "win7";
  }
  void TearDown() override { test::deleteKeyTree(kProviderKeyPath); }

  bool windows7_ = false;
};

TEST_F(ProviderSettingsTest, EmptyKeyGivesEveryDefault) {
  EXPECT_EQ(logSettingsPath(), L"");
  EXPECT_EQ(reenumerateDelay(), windows7_ ? 1000u : 100u);
  EXPECT_EQ(abstractionLayer(), L"Default");
  for (auto scenario : {CPUS_LOGON, CPUS_UNLOCK_WORKSTATION, CPUS_CHANGE_PASSWORD, CPUS_CREDUI, CPUS_PLAP}) {
    EXPECT_TRUE(providerFilter(scenario).empty());
  }
  EXPECT_TRUE(enableExperimentalCredUI());
  EXPECT_FALSE(disableSetSerializationImplementation());
  EXPECT_EQ(coreSet(), L"");
  EXPECT_EQ(tileImage(), L"");
  EXPECT_TRUE(domainBlackListLogon().empty());
  EXPECT_TRUE(domainBlackList().empty());
  EXPECT_EQ(changePasswordWithTokenFlags(), 0u);
  EXPECT_FALSE(disableTokenInitialization());
  EXPECT_FALSE(disallowAddingCredentials());
  EXPECT_FALSE(tokenInitializationDisallowNullPIN());
  EXPECT_EQ(tokenInitializationDefaultLabel(), L"");
  EXPECT_FALSE(enableAlternativeAuthenticationPath());
}

TEST_F(ProviderSettingsTest, ReenumerateDelayIsUsedAsReadOnlyOnWindows7AndScaledElsewhere) {
  test::setNumber(kProviderKeyPath, L"ReenumerateDelay", 50);
  EXPECT_EQ(reenumerateDelay(), windows7_ ? 50u : 5u);
  test::setNumber(kProviderKeyPath, L"ReenumerateDelay", 5000);
  EXPECT_EQ(reenumerateDelay(), windows7_ ? 5000u : 100u);
  test::setNumber(kProviderKeyPath, L"ReenumerateDelay", 9);
  EXPECT_EQ(reenumerateDelay(), windows7_ ? 9u : 0u);
  // Stored as text: the default, with the same version rule.
  test::setString(kProviderKeyPath, L"ReenumerateDelay", L"50");
  EXPECT_EQ(reenumerateDelay(), windows7_ ? 1000u : 100u);

  EXPECT_EQ(effectiveReenumerateDelay(0, false), 0u);
  EXPECT_EQ(effectiveReenumerateDelay(1009, false), 100u);
  EXPECT_EQ(effectiveReenumerateDelay(999, false), 99u);
  EXPECT_EQ(effectiveReenumerateDelay(0xFFFFFFFF, false), 100u);
  EXPECT_EQ(effectiveReenumerateDelay(0xFFFFFFFF, true), 0xFFFFFFFFu);
}

TEST_F(ProviderSettingsTest, SwitchesStringsAndListsAreReadAsConfigured) {
  test::setNumber(kProviderKeyPath, L"EnableExperimentalCredUI", 0);
  test::setNumber(kProviderKeyPath, L"DisableSetSerializationImplementation", 2);
  test::setNumber(kProviderKeyPath, L"DisableTokenInitialization", 1);
  test::setNumber(kProviderKeyPath, L"DisallowAddingCredentials", 1);
  test::setNumber(kProviderKeyPath, L"TokenInitializationDisallowNullPIN", 1);
  test::setNumber(kProviderKeyPath, L"EnableAlternativeAuthenticationPath", 1);
  test::setNumber(kProviderKeyPath, L"ChangePasswordWithTokenFlags", 3);
  EXPECT_FALSE(enableExperimentalCredUI());
  EXPECT_TRUE(disableSetSerializationImplementation());
  EXPECT_TRUE(disableTokenInitialization());
  EXPECT_TRUE(disallowAddingCredentials());
  EXPECT_TRUE(tokenInitializationDisallowNullPIN());
  EXPECT_TRUE(enableAlternativeAuthenticationPath());
  EXPECT_EQ(changePasswordWithTokenFlags(), 3u);

  test::setString(kProviderKeyPath, L"LogSettingsPath", L"C:\\ProgramData\\Lumenar2\\log.properties");
  test::setString(kProviderKeyPath, L"AbstractionLayer", L"Unknown");
  test::setString(kProviderKeyPath, L"CoreSet", L"Kaldera");
  test::setStringWithoutTerminator(kProviderKeyPath, L"TileImage", L"C:\\tile.bmp");
  test::setString(kProviderKeyPath, L"TokenInitializationDefaultLabel", L"Firmen-Token");
  test::setList(kProviderKeyPath, L"FilterLogon", {L"{60b78e88-ead8-445c-9cfd-0b87f74ea6cd}"});
  test::setList(kProviderKeyPath, L"FilterUnlockWorkstation", {L"u1", L"u2;u3 ; u4;"});
  test::setList(kProviderKeyPath, L"FilterChangePassword", {L"c"});
  test::setList(kProviderKeyPath, L"FilterCredUi", {L"r"});
  test::setList(kProviderKeyPath, L"DomainBlackList_Logon", {L"EVIL", L"WORSE"});
  test::setList(kProviderKeyPath, L"DomainBlackList", {L"LAB"});

  EXPECT_EQ(logSettingsPath(), L"C:\\ProgramData\\Lumenar2\\log.properties");
  // The name as configured; choosing "Default" for unknown names is the layer registry's job.
  EXPECT_EQ(abstractionLayer(), L"Unknown");
  EXPECT_EQ(coreSet(), L"Kaldera");
  EXPECT_EQ(tileImage(), L"C:\\tile.bmp");
  EXPECT_EQ(tokenInitializationDefaultLabel(), L"Firmen-Token");
  EXPECT_EQ(providerFilter(CPUS_LOGON), (std::vector<std::wstring>{L"{60b78e88-ead8-445c-9cfd-0b87f74ea6cd}"}));
  EXPECT_EQ(providerFilter(CPUS_UNLOCK_WORKSTATION), (std::vector<std::wstring>{L"u1", L"u2", L"u3", L"u4"}));
  EXPECT_EQ(providerFilter(CPUS_CHANGE_PASSWORD), (std::vector<std::wstring>{L"c"}));
  EXPECT_EQ(providerFilter(CPUS_CREDUI), (std::vector<std::wstring>{L"r"}));
  EXPECT_TRUE(providerFilter(CPUS_PLAP).empty());
  EXPECT_EQ(domainBlackListLogon(), (std::vector<std::wstring>{L"EVIL", L"WORSE"}));
  EXPECT_EQ(domainBlackList(), (std::vector<std::wstring>{L"LAB"}));
}

TEST_F(ProviderSettingsTest, KalderaDefaultsAreSecureAndThePortFollowsTheTlsMode) {
  {
    KalderaSettings kaldera;
    kaldera.load();
    EXPECT_EQ(kaldera.ldapServer, L"");
    EXPECT_EQ(kaldera.ldapTls, LdapTls::kLdaps);
    EXPECT_EQ(kaldera.ldapPort, 636u);
    EXPECT_EQ(kaldera.ldapAuthPassword, L"");
    EXPECT_FALSE(kaldera.ldapAnonymousBind);
    EXPECT_FALSE(kaldera.ldapAllowCleartextBind);
    EXPECT_EQ(kaldera.ldapSearchScope, 2u);
    EXPECT_EQ(kaldera.ldapAttributeUsername, L"sAMAccountName");
    EXPECT_EQ(kaldera.ldapSearchFilter, L"");
  }
  test::setNumber(kKalderaKeyPath, L"LdapUseSSL", 2);
  test::setString(kKalderaKeyPath, L"LdapServer", L"dc01.corp.example dc02.corp.example");
  test::setString(kKalderaKeyPath, L"LdapAuthPw", L"bind-secret");
  test::setString(kKalderaKeyPath, L"LdapSearchFilter", L"(badge=##CARDID##)");
  {
    KalderaSettings kaldera;
    kaldera.load();
    EXPECT_EQ(kaldera.ldapTls, LdapTls::kStartTls);
    EXPECT_EQ(kaldera.ldapPort, 389u);  // StartTLS begins on the plain port
    EXPECT_EQ(kaldera.ldapServer, L"dc01.corp.example dc02.corp.example");
    EXPECT_EQ(kaldera.ldapAuthPassword, L"bind-secret");
    EXPECT_EQ(kaldera.ldapSearchFilter, L"(badge=##CARDID##)");
  }
  // A mode this version does not know, or a switch stored as text, never means cleartext.
  test::setNumber(kKalderaKeyPath, L"LdapUseSSL", 7);
  test::setString(kKalderaKeyPath, L"LdapAllowCleartextBind", L"1");
  {
    KalderaSettings kaldera;
    kaldera.load();
    EXPECT_EQ(kaldera.ldapTls, LdapTls::kLdaps);
    EXPECT_FALSE(kaldera.ldapAllowCleartextBind);
  }
  test::setNumber(kKalderaKeyPath, L"LdapUseSSL", 0);
  test::setNumber(kKalderaKeyPath, L"LdapAllowCleartextBind", 1);
  test::setNumber(kKalderaKeyPath, L"LdapDefaultPort", 3268);
  KalderaSettings kaldera;
  kaldera.load();
  EXPECT_EQ(kaldera.ldapTls, LdapTls::kNone);
  EXPECT_TRUE(kaldera.ldapAllowCleartextBind);
  EXPECT_EQ(kaldera.ldapPort, 3268u);
}

}  // namespace
}  // namespace lm2::settings
