// Account resolution: for real against Wine's accounts and registry, and through a seam that
// answers like a domain member (with and without its trust) where Wine has no domain.
#include "account/User.h"

#include <gtest/gtest.h>

#include <lmcons.h>

#include <vector>

#include "DebugOutputCapture.h"
#include "DomainMemberSeam.h"
#include "TestRegistry.h"
#include "platform/OsSeam.h"

namespace lm2 {
namespace {

constexpr wchar_t kProfileList[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

std::wstring computerName() {
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
  DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
  EXPECT_TRUE(::GetComputerNameW(name, &length));
  return std::wstring(name, length);
}

class UserTest : public ::testing::Test {
 protected:
  void SetUp() override {
    result::setComponentId(result::kModuleComponentId);
    test::enableTrace();
  }
  void TearDown() override {
    for (const auto& sid : profiles_) test::deleteKeyTree(std::wstring(kProfileList) + L"\\" + sid);
  }

  // A profile as Windows leaves one: the SID as key name, the folder in ProfileImagePath (stored
  // as REG_EXPAND_SZ, as Windows stores it).
  void addProfile(const std::wstring& sid, const std::wstring& path) {
    test::setRaw(std::wstring(kProfileList) + L"\\" + sid, L"ProfileImagePath", REG_EXPAND_SZ, path.c_str(),
                 static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t)));
    profiles_.push_back(sid);
  }

  test::DebugOutputCapture trace_;
  test::DomainMemberSeam domain_;
  std::vector<std::wstring> profiles_;
};

TEST_F(UserTest, NamesAreSplitIntoTheirParts) {
  EXPECT_EQ(User::getUsername(L"CORP\\anna"), L"anna");
  EXPECT_EQ(User::getUsername(L"anna@corp.example.com"), L"anna");
  EXPECT_EQ(User::getUsername(L"MicrosoftAccount\\anna@outlook.com"), L"anna@outlook.com");
  EXPECT_EQ(User::getUsername(L"a\\b\\c"), L"b\\c");
  EXPECT_EQ(User::getUsername(L"anna"), L"anna");

  EXPECT_EQ(User::getUpnDomainname(L"anna@corp.example.com"), std::optional<std::wstring>(L"corp.example.com"));
  EXPECT_EQ(User::getUpnDomainname(L"a@b@c"), std::optional<std::wstring>(L"b@c"));
  EXPECT_EQ(User::getUpnDomainname(L"MicrosoftAccount\\anna@outlook.com"), std::nullopt);
  EXPECT_EQ(User::getUpnDomainname(L"CORP\\anna"), std::nullopt);
  EXPECT_TRUE(trace_.contains("Domainname=corp.example.com found in qualified name anna@corp.example.com"));
}

TEST_F(UserTest, DotBackslashIsTheComputer) {
  const std::wstring expected = computerName() + L"\\anna";
  EXPECT_EQ(User::getQualifiedUsername(L".\\anna"), expected);
  EXPECT_TRUE(trace_.contains("found '.\\' in username '.\\anna'...mapping required"));
  EXPECT_TRUE(trace_.contains("mapping dot was successfuly"));
  const std::string narrow(expected.begin(), expected.end());
  EXPECT_TRUE(trace_.contains("result of getQualifiedUsername is '" + narrow + "'"));

  EXPECT_EQ(User::getQualifiedUsername(L".anna"), L".anna");
  EXPECT_EQ(User::getQualifiedUsername(L"CORP\\.\\anna"), L"CORP\\.\\anna");
}

TEST_F(UserTest, LocalNamesResolveAsWindowsKnowsThem) {
  const User user(L".\\" + test::currentUserName());
  ASSERT_TRUE(user.isResolved());
  EXPECT_EQ(user.sidString(), L"S-1-5-21-0-0-0-1000");
  EXPECT_EQ(user.accountName(), test::currentUserName());
  EXPECT_EQ(user.qualifiedName(), computerName() + L"\\" + test::currentUserName());
  EXPECT_TRUE(::IsValidSid(user.sid()));
  EXPECT_EQ(user.sidSize(), ::GetLengthSid(user.sid()));
  EXPECT_EQ(user.domainLength(), user.domain().size());
  EXPECT_FALSE(user.domain().empty());
  EXPECT_FALSE(user.isInternetAccount());

  // A group resolves to a SID but not to a user; an unknown name not at all.
  const User group(L"Administrators");
  EXPECT_FALSE(group.isResolved());
  EXPECT_EQ(group.sidString(), L"S-1-5-32-544");
  EXPECT_TRUE(trace_.contains("invalid sid type for user 'Administrators'"));
  const User nobody(L".\\anna");
  EXPECT_FALSE(nobody.isResolved());
  EXPECT_EQ(nobody.sid(), nullptr);
  EXPECT_TRUE(nobody.sidString().empty());
  EXPECT_TRUE(trace_.contains("failed to look up for account name (0x8010000080070534)"));
}

TEST_F(UserTest, DomainNamesUserPrincipalNamesAndOnlineIdentities) {
  ScopedOsSeam seam(domain_);
  const User anna(L"anna@corp.example.com");
  ASSERT_TRUE(anna.isResolved());
  EXPECT_EQ(anna.sidString(), test::DomainMemberSeam::kAnnaSid);
  EXPECT_EQ(anna.domain(), L"CORP");
  EXPECT_EQ(anna.accountName(), L"anna");
  EXPECT_FALSE(anna.isInternetAccount());
  EXPECT_TRUE(trace_.contains("lookup name from anna@corp.example.com is CORP\\anna"));

  const User stranger(L"anna@nowhere.invalid");
  EXPECT_FALSE(stranger.isResolved());
  EXPECT_TRUE(trace_.contains("failed to lookup for domain name nowhere.invalid"));

  const User online(L"MicrosoftAccount\\anna@outlook.com");
  ASSERT_TRUE(online.isResolved());
  EXPECT_TRUE(online.isInternetAccount());
  EXPECT_EQ(online.accountName(), L"anna@outlook.com");
  EXPECT_TRUE(
      trace_.contains("lookup name from MicrosoftAccount\\anna@outlook.com is MicrosoftAccount\\anna@outlook.com"));

  const User member(L"CORP\\anna");
  ASSERT_TRUE(member.isResolved());
  EXPECT_FALSE(member.isInternetAccount());
}

TEST_F(UserTest, UnreachableDomainFindsTheAccountThroughItsProfileFolder) {
  domain_.trustLost = true;
  ScopedOsSeam seam(domain_);
  addProfile(test::DomainMemberSeam::kAnnaSid, L"%SystemDrive%\\Users\\anna");
  const User anna(L"CORP\\anna");
  ASSERT_TRUE(anna.isResolved());
  EXPECT_EQ(anna.sidString(), test::DomainMemberSeam::kAnnaSid);
  EXPECT_EQ(anna.domain(), L"CORP");
  EXPECT_EQ(anna.domainLength(), 4u);
  EXPECT_TRUE(trace_.contains("DoLookupNormal failed with ERROR_TRUSTED_RELATIONSHIP_FAILURE...try fallback"));
  EXPECT_TRUE(trace_.contains("ProfileImagePath = 'C:\\Users\\anna'"));
}

TEST_F(UserTest, ProfileFolderWithTheDomainSuffixMatchesWhateverTheCase) {
  domain_.trustLost = true;
  ScopedOsSeam seam(domain_);
  addProfile(test::DomainMemberSeam::kAnnaSid, L"C:\\Users\\ANNA.corp");
  const User anna(L"CORP\\Anna");
  ASSERT_TRUE(anna.isResolved());
  EXPECT_EQ(anna.sidString(), test::DomainMemberSeam::kAnnaSid);

  // The same through a user-principal name: the suffix domain resolves, its account does not.
  const User upn(L"anna@corp.example.com");
  ASSERT_TRUE(upn.isResolved());
  EXPECT_EQ(upn.sidString(), test::DomainMemberSeam::kAnnaSid);
}

TEST_F(UserTest, ProfileOfAnotherDomainIsRefused) {
  domain_.trustLost = true;
  ScopedOsSeam seam(domain_);
  addProfile(L"S-1-5-21-999-888-777-1104", L"C:\\Users\\anna");
  addProfile(L"S-1-5-21-111-222-334-1104", L"C:\\Users\\anna");  // only the last domain part differs
  addProfile(L"S-1-5-21-111-222-333-1104-7", L"C:\\Users\\anna.CORP");
  const User anna(L"CORP\\anna");
  EXPECT_FALSE(anna.isResolved());
  EXPECT_TRUE(trace_.contains("found not-equal sub-authority in sid...cancel comparison"));
  EXPECT_TRUE(trace_.contains("length of sub-authorities in sid not equal"));
  EXPECT_TRUE(trace_.contains("GetSidOfUserFromRegistry failed with error (0x8010000080070534)"));
}

TEST_F(UserTest, UnusableProfilesAreSkipped) {
  domain_.trustLost = true;
  ScopedOsSeam seam(domain_);
  addProfile(L"S-1-5-21-111-222-333-1105", L"anna");  // no folder
  addProfile(L"S-1-5-21-111-222-333-1106", L"C:\\Users\\annabelle");
  addProfile(L"S-1-5-21-111-222-333-1107", L"C:\\Users\\anna.CORP.OLD");  // only the last dot goes
  addProfile(L"not-a-sid", L"C:\\Users\\anna");
  addProfile(L"S-1-5-21-111-222-333-1108", L"D:\\Profiles\\anna");
  const User anna(L"CORP\\anna");
  ASSERT_TRUE(anna.isResolved());
  EXPECT_EQ(anna.sidString(), L"S-1-5-21-111-222-333-1108");
  EXPECT_TRUE(trace_.contains("value of profile image path is not valid. (path: 'anna')"));
  EXPECT_TRUE(trace_.contains("username 'annabelle' not match with given username 'anna'"));
  EXPECT_TRUE(trace_.contains("username 'anna.corp' not match with given username 'anna'"));
  EXPECT_TRUE(trace_.contains("failed to convert sid string 'not-a-sid' to sid (0x"));
}

TEST_F(UserTest, FallbackNeedsDomainAndName) {
  domain_.trustLost = true;
  ScopedOsSeam seam(domain_);
  const User bare(L"anna");
  EXPECT_FALSE(bare.isResolved());
  EXPECT_TRUE(trace_.contains("user name 'anna' is in wrong format for fallback"));

  const User both(L"CORP\\anna@corp");
  EXPECT_FALSE(both.isResolved());
  EXPECT_TRUE(trace_.contains("user name 'CORP\\anna@corp' is in wrong format for fallback"));

  const User user(L"x");
  std::vector<BYTE> sid;
  for (const wchar_t* name : {L"\\anna", L"CORP\\", L"anna"}) {
    EXPECT_EQ(user.DoLookupLocal(name, sid), 0x8010000080070057ull) << name;
  }
  EXPECT_EQ(trace_.count("invalid parameter 'p_wsUser' (0x8010000080070057)"), 3u);
  domain_.trustLost = false;
  EXPECT_EQ(user.DoLookupLocal(L"NOSUCHDOMAIN\\anna", sid), 0x8010000080070534ull);
  EXPECT_TRUE(trace_.contains("call to DoLookupLocal failed (0x8010000080070534)"));
}

}  // namespace
}  // namespace lm2
