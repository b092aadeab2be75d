// The reader against the real registry, with values in the shapes installers and administrators
// leave behind.
#include "settings/SettingsKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "TestRegistry.h"
#include "logging/ExtendedResult.h"
#include "platform/UniqueResource.h"

namespace lm2::settings {
namespace {

class SettingsKeyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    result::setComponentId(result::kModuleComponentId);
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = info->name();
    path_ = L"SOFTWARE\\Corvana\\Lumenar2Tests\\SettingsKey\\" + std::wstring(name.begin(), name.end());
    test::deleteKeyTree(path_);
    test::createKey(path_);
  }
  void TearDown() override { test::deleteKeyTree(path_); }

  std::wstring path_;
};

TEST_F(SettingsKeyTest, StringsAreReadWhateverShapeTheyWereStoredIn) {
  test::setStringWithoutTerminator(path_, L"Label", L"Token 42");
  EXPECT_EQ(SettingsKey(path_).readString(L"Label", L"default"), L"Token 42");

  SecureBuffer data;
  DWORD size = 0;
  ASSERT_EQ(SettingsKey(path_).readRaw(L"Label", RRF_RT_REG_SZ, data, size), result::success());
  // Whatever the registry reports, the buffer ends in two zero bytes after the characters.
  ASSERT_GE(data.size(), 8 * sizeof(wchar_t) + 2);
  EXPECT_EQ(data.data()[16], 0);
  EXPECT_EQ(data.data()[17], 0);

  const wchar_t stored[] = L"abc\0def";  // ends at its first NUL
  test::setRaw(path_, L"Value", REG_SZ, stored, sizeof stored);
  EXPECT_EQ(SettingsKey(path_).readString(L"Value", L"x"), L"abc");

  const char odd[] = {'a', 0, 'b', 0, 'c'};  // an odd byte count stays inside the buffer
  test::setRaw(path_, L"Odd", REG_SZ, odd, sizeof odd);
  const std::wstring value = SettingsKey(path_).readString(L"Odd", L"x");
  ASSERT_GE(value.size(), 2u);
  EXPECT_EQ(value.substr(0, 2), L"ab");
  EXPECT_LE(value.size(), 3u);

  test::setNumber(path_, L"Layer", 1);  // a number is no string: the default
  EXPECT_EQ(SettingsKey(path_).readString(L"Layer", L"Default"), L"Default");
}

TEST_F(SettingsKeyTest, MissingValueOrKeyGivesTheDefaultAndFileNotFound) {
  EXPECT_EQ(SettingsKey(path_).readString(L"Absent", L"fallback"), L"fallback");
  SecureBuffer data;
  DWORD size = 0;
  EXPECT_EQ(SettingsKey(path_).readRaw(L"Absent", RRF_RT_REG_SZ, data, size), 0x8010000080070002ull);
  EXPECT_TRUE(data.empty());

  const SettingsKey missingKey(path_ + L"\\NoSuchKey");
  EXPECT_EQ(missingKey.readString(L"Anything", L"fallback"), L"fallback");
  DWORD number = 77;
  EXPECT_EQ(missingKey.readNumber(L"Anything", number), 0x8010000080070002ull);
  EXPECT_EQ(number, 77u);
  EXPECT_TRUE(missingKey.readList(L"Anything").empty());
  EXPECT_TRUE(missingKey.enumerateSubkeys().empty());
}

TEST_F(SettingsKeyTest, NumberIsReadOnlyFromADword) {
  test::setNumber(path_, L"Delay", 5000);
  DWORD value = 0;
  EXPECT_EQ(SettingsKey(path_).readNumber(L"Delay", value), result::success());
  EXPECT_EQ(value, 5000u);

  // A number stored as text is of the wrong type: the caller's default applies.
  test::setString(path_, L"AsText", L"50");
  value = 0;
  const ExtendedResult code = SettingsKey(path_).readNumber(L"AsText", value);
  EXPECT_TRUE(result::failed(code));
  EXPECT_EQ(code, result::fromWin32(ERROR_UNSUPPORTED_TYPE));
  EXPECT_EQ(SettingsKey(path_).readNumberOr(L"AsText", 1000), 1000u);

  const BYTE binary[] = {1, 0, 0, 0};
  test::setRaw(path_, L"AsBinary", REG_BINARY, binary, sizeof binary);
  EXPECT_EQ(SettingsKey(path_).readNumberOr(L"AsBinary", 3), 3u);
}

TEST_F(SettingsKeyTest, ListsKeepTheirOrderAndAreReadOnlyFromMultiStrings) {
  test::setList(path_, L"Filter", {L"{11111111-1111-1111-1111-111111111111}", L"b", L"ccc"});
  EXPECT_EQ(SettingsKey(path_).readList(L"Filter"),
            (std::vector<std::wstring>{L"{11111111-1111-1111-1111-111111111111}", L"b", L"ccc"}));
  EXPECT_TRUE(SettingsKey(path_).readList(L"Absent").empty());

  test::setList(path_, L"Empty", {});
  EXPECT_TRUE(SettingsKey(path_).readList(L"Empty").empty());

  const wchar_t stored[] = {L'a', L'\0', L'b', L'c'};
  test::setRaw(path_, L"Filter", REG_MULTI_SZ, stored, sizeof stored);
  EXPECT_EQ(SettingsKey(path_).readList(L"Filter"), (std::vector<std::wstring>{L"a", L"bc"}));

  test::setString(path_, L"Filter", L"a");
  EXPECT_TRUE(SettingsKey(path_).readList(L"Filter").empty());
}

TEST_F(SettingsKeyTest, SubkeysAreListedAsFullPathsUpToTheLongestName) {
  test::createKey(path_ + L"\\S-1-5-21-0-0-0-1000");
  test::createKey(path_ + L"\\S-1-5-18");
  test::setString(path_, L"NotAKey", L"x");
  auto subkeys = SettingsKey(path_).enumerateSubkeys();
  std::sort(subkeys.begin(), subkeys.end());
  EXPECT_EQ(subkeys, (std::vector<std::wstring>{path_ + L"\\S-1-5-18", path_ + L"\\S-1-5-21-0-0-0-1000"}));
  EXPECT_TRUE(SettingsKey(path_ + L"\\S-1-5-18").enumerateSubkeys().empty());

  const std::wstring longName(255 - 1, L'k');  // the longest name a key may have fits
  const std::wstring parent = path_ + L"\\S-1-5-18";
  test::createKey(parent + L"\\" + longName);
  EXPECT_EQ(SettingsKey(parent).enumerateSubkeys(), (std::vector<std::wstring>{parent + L"\\" + longName}));
}

// Gives the key a DACL that lets `readers` (well-known SIDs) read and nobody else anything.
void allowOnly(const std::wstring& path, std::vector<WELL_KNOWN_SID_TYPE> readers) {
  std::vector<std::vector<BYTE>> sids;
  DWORD aclSize = sizeof(ACL);
  for (WELL_KNOWN_SID_TYPE type : readers) {
    std::vector<BYTE> sid(SECURITY_MAX_SID_SIZE);
    DWORD size = static_cast<DWORD>(sid.size());
    ASSERT_TRUE(::CreateWellKnownSid(type, nullptr, sid.data(), &size));
    sid.resize(size);
    aclSize += sizeof(ACCESS_ALLOWED_ACE) + size;
    sids.push_back(std::move(sid));
  }
  std::vector<BYTE> acl(aclSize);
  ASSERT_TRUE(::InitializeAcl(reinterpret_cast<PACL>(acl.data()), aclSize, ACL_REVISION));
  for (auto& sid : sids) {
    ASSERT_TRUE(::AddAccessAllowedAce(reinterpret_cast<PACL>(acl.data()), ACL_REVISION, KEY_READ, sid.data()));
  }
  SECURITY_DESCRIPTOR descriptor;
  ASSERT_TRUE(::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
  ASSERT_TRUE(::SetSecurityDescriptorDacl(&descriptor, TRUE, reinterpret_cast<PACL>(acl.data()), FALSE));
  UniqueHkey key;
  ASSERT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, WRITE_DAC, key.put()), ERROR_SUCCESS);
  ASSERT_EQ(::RegSetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, &descriptor), ERROR_SUCCESS);
}

TEST_F(SettingsKeyTest, AKeyIsReadableByOthersUnlessOnlySystemAndAdministratorsMayRead) {
  allowOnly(path_, {WinLocalSystemSid, WinBuiltinAdministratorsSid});
  EXPECT_FALSE(SettingsKey(path_).readableByOthers());
  allowOnly(path_, {WinLocalSystemSid, WinBuiltinAdministratorsSid, WinBuiltinUsersSid});
  EXPECT_TRUE(SettingsKey(path_).readableByOthers());
  allowOnly(path_, {WinLocalSystemSid, WinWorldSid});
  EXPECT_TRUE(SettingsKey(path_).readableByOthers());
  EXPECT_TRUE(SettingsKey(path_ + L"\\Missing").readableByOthers());  // nothing to judge: assume the worst
}

}  // namespace
}  // namespace lm2::settings
