// The logon buffers the tile hands to Windows: the exact 64-bit layouts, the length limit, the
// domain black list, protection of passwords by scenario, and GetSerialization without a state.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <cwctype>
#include <string>
#include <vector>

#include "ForwardingOsSeam.h"
#include "FreedMemoryWatch.h"
#include "TestRegistry.h"
#include "TileHarness.h"
#include "account/User.h"
#include "common/SecretText.h"
#include "cores/CredentialCoreBase.h"
#include "credential/KerberosPacking.h"
#include "provider/ProviderGuids.h"
#include "settings/ProviderSettings.h"

namespace lm2 {
namespace {

using test::Tile;

constexpr ULONG kNegotiate = 7;
const HANDLE kLsa = reinterpret_cast<HANDLE>(0x1234);

// LSA and the credential functions as Windows answers them, with a recognisable protection: "@@P"
// before the text. Remembers what the tile asked.
class PackingSeam final : public test::ForwardingOsSeam {
 public:
  NTSTATUS lsaConnectUntrusted(PHANDLE handle) override {
    *handle = kLsa;
    return 0;
  }
  NTSTATUS lsaLookupAuthenticationPackage(HANDLE, PLSA_STRING name, PULONG package) override {
    lookedUp = std::string(name->Buffer, name->Length) + "/" + std::to_string(name->MaximumLength);
    *package = kNegotiate;
    return lookupStatus;
  }
  NTSTATUS lsaDeregisterLogonProcess(HANDLE handle) override {
    if (handle == kLsa) ++deregistered;
    return 0;
  }
  BOOL credIsProtectedW(LPWSTR text, CRED_PROTECTION_TYPE* type) override {
    *type = std::wcsncmp(text, L"@@P", 3) == 0 ? CredUserProtection : CredUnprotected;
    return TRUE;
  }
  BOOL credProtectW(BOOL, LPWSTR text, DWORD, LPWSTR out, DWORD* outChars, CRED_PROTECTION_TYPE*) override {
    SecretWString result;
    result.get().reserve(3 + std::wcslen(text));  // one buffer, no unwiped intermediates
    result.get().append(L"@@P").append(text);
    if (out == nullptr || *outChars < result.get().size() + 1) {
      *outChars = static_cast<DWORD>(result.get().size() + 1);
      ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    std::wmemcpy(out, result.get().c_str(), result.get().size() + 1);
    return TRUE;
  }
  // Packs "name|password" so that the test sees what reached the packing.
  BOOL credPackAuthenticationBufferW(DWORD flags, LPWSTR name, LPWSTR password, PBYTE out, DWORD* size) override {
    packFlags = flags;
    SecretWString packed;
    packed.get().reserve(std::wcslen(name) + 1 + std::wcslen(password));
    packed.get().append(name).append(L"|").append(password);
    const DWORD bytes = static_cast<DWORD>(packed.get().size() * sizeof(wchar_t));
    if (out == nullptr || *size < bytes) {
      *size = bytes;
      ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    std::memcpy(out, packed.get().data(), bytes);
    *size = bytes;
    return TRUE;
  }

  std::string lookedUp;
  NTSTATUS lookupStatus = 0;
  int deregistered = 0;
  DWORD packFlags = 0xFFFFFFFF;
};

void append(std::vector<BYTE>& out, const std::wstring& text) {
  const auto* bytes = reinterpret_cast<const BYTE*>(text.data());
  out.insert(out.end(), bytes, bytes + text.size() * sizeof(wchar_t));
}

void put(std::vector<BYTE>& out, std::size_t at, unsigned long long value, std::size_t size) {
  for (std::size_t index = 0; index < size; ++index) out[at + index] = static_cast<BYTE>(value >> (8 * index));
}

// A counted string of `bytes` at `at`, its text at `offset`.
void putString(std::vector<BYTE>& out, std::size_t at, unsigned bytes, unsigned offset) {
  put(out, at, bytes, 2);
  put(out, at + 2, bytes, 2);
  put(out, at + 8, offset, 8);
}

struct Released {
  void operator()(CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION& s) const {
    if (s.rgbSerialization) ::CoTaskMemFree(s.rgbSerialization);
    s = {};
  }
};

#define EXPECT_FAILED(call) EXPECT_TRUE(FAILED(call))

std::wstring textOf(const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION& s) {
  return std::wstring(reinterpret_cast<const wchar_t*>(s.rgbSerialization), s.cbSerialization / sizeof(wchar_t));
}

class LogonSerializationTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { test::loadProviderResources(); }
  void SetUp() override { test::deleteValue(settings::kProviderKeyPath, L"DomainBlackList_Logon"); }
  void TearDown() override {
    test::deleteValue(settings::kProviderKeyPath, L"DomainBlackList_Logon");
    Released{}(serialization);
    if (statusText) ::CoTaskMemFree(statusText);
  }

  PackingSeam seam;
  ScopedOsSeam scoped{seam};
  test::TestProvider provider;
  CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE response = CPGSR_NO_CREDENTIAL_NOT_FINISHED;
  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION serialization{};
  PWSTR statusText = nullptr;
  CREDENTIAL_PROVIDER_STATUS_ICON icon = CPSI_NONE;
};

TEST_F(LogonSerializationTest, UnlockLogonIsPackedByteForByte) {
  KERB_INTERACTIVE_UNLOCK_LOGON logon{};
  ASSERT_EQ(KerbInteractiveUnlockLogonInit(L"CORP", L"anna", L"pw", CPUS_UNLOCK_WORKSTATION, &logon), S_OK);
  BYTE* buffer = nullptr;
  DWORD size = 0;
  ASSERT_EQ(KerbInteractiveUnlockLogonPack(logon, &buffer, &size), S_OK);
  std::vector<BYTE> expected(64, 0);
  put(expected, 0, 7, 4);  // KerbWorkstationUnlockLogon
  putString(expected, 8, 8, 64);
  putString(expected, 24, 8, 72);
  putString(expected, 40, 4, 80);
  append(expected, L"CORP");
  append(expected, L"anna");
  append(expected, L"pw");
  EXPECT_EQ(std::vector<BYTE>(buffer, buffer + size), expected);
  ::CoTaskMemFree(buffer);

  // The message type follows the scenario; changing a password is no logon.
  EXPECT_EQ(KerbInteractiveUnlockLogonInit(L"", L"anna", L"pw", CPUS_LOGON, &logon), S_OK);
  EXPECT_EQ(logon.Logon.MessageType, 2);
  EXPECT_EQ(KerbInteractiveUnlockLogonInit(L"", L"anna", L"pw", CPUS_CREDUI, &logon), S_OK);
  EXPECT_EQ(logon.Logon.MessageType, 0);
  EXPECT_EQ(KerbInteractiveUnlockLogonInit(L"", L"anna", L"pw", CPUS_CHANGE_PASSWORD, &logon), E_FAIL);
  EXPECT_EQ(KerbInteractiveUnlockLogonInit(L"", nullptr, L"pw", CPUS_LOGON, &logon), E_INVALIDARG);
}

TEST_F(LogonSerializationTest, PasswordChangeIsPackedByteForByte) {
  KERB_CHANGEPASSWORD_REQUEST request{};
  ASSERT_EQ(KerbChangePasswordInit(L"DOM", L"bob", L"old1", L"new22", &request), S_OK);
  BYTE* buffer = nullptr;
  DWORD size = 0;
  ASSERT_EQ(KerbChangePasswordPack(request, &buffer, &size), S_OK);
  std::vector<BYTE> expected(80, 0);
  put(expected, 0, 7, 4);  // KerbChangePasswordMessage
  putString(expected, 8, 6, 80);
  putString(expected, 24, 6, 86);
  putString(expected, 40, 8, 92);
  putString(expected, 56, 10, 100);
  append(expected, L"DOM");
  append(expected, L"bob");
  append(expected, L"old1");
  append(expected, L"new22");
  EXPECT_EQ(std::vector<BYTE>(buffer, buffer + size), expected);
  ::CoTaskMemFree(buffer);
}

TEST_F(LogonSerializationTest, APasswordOf32768CharactersOverflows) {
  Tile tile(provider, CPUS_CREDUI);
  const User user(L"ghost-user-without-account");
  const std::wstring longest(32767, L'x');
  const std::wstring tooLong(32768, L'x');
  EXPECT_EQ(tile->GetSerialization_LogonLocal(&response, &serialization, &statusText, &icon, user, tooLong.c_str()),
            static_cast<HRESULT>(0x80070216));
  EXPECT_EQ(response, CPGSR_NO_CREDENTIAL_NOT_FINISHED);
  EXPECT_EQ(serialization.rgbSerialization, nullptr);
  ASSERT_EQ(tile->GetSerialization_LogonLocal(&response, &serialization, &statusText, &icon, user, longest.c_str()),
            S_OK);
  EXPECT_EQ(serialization.cbSerialization, 64u + 2 * user.accountName().size() + 2 * 32767u);
  KERB_CHANGEPASSWORD_REQUEST request{};
  EXPECT_EQ(KerbChangePasswordInit(L"", L"a", L"", tooLong.c_str(), &request), static_cast<HRESULT>(0x80070216));
}

// Logon: the package, this provider, "finished", and the password protected once (an already
// protected one is not protected again); the LSA connection is always given back.
TEST_F(LogonSerializationTest, LogonProtectsThePasswordOnce) {
  Tile tile(provider, CPUS_LOGON);
  const User user(L".\\" + test::currentUserName());
  ASSERT_TRUE(user.isResolved());
  for (const wchar_t* password : {L"pw", L"@@Ppw"}) {
    ASSERT_EQ(tile->GetSerialization_LogonLocal(&response, &serialization, &statusText, &icon, user, password), S_OK);
    EXPECT_EQ(response, CPGSR_RETURN_CREDENTIAL_FINISHED);
    EXPECT_EQ(serialization.ulAuthenticationPackage, kNegotiate);
    EXPECT_TRUE(IsEqualGUID(serialization.clsidCredentialProvider, kProviderClsid));
    const std::wstring packed = textOf(serialization);
    EXPECT_EQ(packed.substr(packed.size() - 5), L"@@Ppw");
    EXPECT_EQ(packed.find(L"@@P@@P"), std::wstring::npos);
    Released{}(serialization);
  }
  EXPECT_EQ(seam.lookedUp, "Negotiate/10");
  EXPECT_EQ(seam.deregistered, 2);

  seam.lookupStatus = static_cast<NTSTATUS>(0xC0000001);
  EXPECT_EQ(tile->GetSerialization_LogonLocal(&response, &serialization, &statusText, &icon, user, L"pw"),
            static_cast<HRESULT>(0xD0000001));
  EXPECT_EQ(serialization.rgbSerialization, nullptr);
  EXPECT_EQ(seam.deregistered, 3);
}

TEST_F(LogonSerializationTest, CredUiPacksThePasswordAsTyped) {
  Tile tile(provider, CPUS_CREDUI);
  const User user(L".\\" + test::currentUserName());
  ASSERT_EQ(tile->GetSerialization_CredUiLocal(&response, &serialization, &statusText, &icon, user, L"pw"), S_OK);
  EXPECT_EQ(response, CPGSR_RETURN_CREDENTIAL_FINISHED);
  EXPECT_EQ(seam.packFlags, 0u);
  EXPECT_EQ(textOf(serialization), user.domain() + L"\\" + user.accountName() + L"|pw");
  Released{}(serialization);

  // An account that did not resolve goes by the name it was given.
  const User unknown(L"SOMEWHERE\\ghost");
  ASSERT_EQ(tile->GetSerialization_CredUiLocal(&response, &serialization, &statusText, &icon, unknown, L"pw"), S_OK);
  EXPECT_EQ(textOf(serialization), L"SOMEWHERE\\ghost|pw");
}

TEST_F(LogonSerializationTest, InternetAccountsArePackedProtectedWithTheirQualifiedName) {
  Tile tile(provider, CPUS_LOGON);
  ASSERT_EQ(tile->GetSerialization_LogonOnline(&response, &serialization, L"MicrosoftAccount\\anna@example.com", L"pw"),
            S_OK);
  EXPECT_EQ(seam.packFlags, 9u);
  EXPECT_EQ(textOf(serialization), L"MicrosoftAccount\\anna@example.com|pw");
  EXPECT_EQ(response, CPGSR_RETURN_CREDENTIAL_FINISHED);
}

// The black list compares whole domain names, ignoring letter case; the refusal is a message, not
// an error. A user without a domain is never refused.
TEST_F(LogonSerializationTest, BlackListedDomainsAreRefusedWithAMessage) {
  Tile tile(provider, CPUS_LOGON);
  const User user(L".\\" + test::currentUserName());
  std::wstring lower = user.domain();
  for (wchar_t& c : lower) c = static_cast<wchar_t>(std::towlower(c));
  test::setList(settings::kProviderKeyPath, L"DomainBlackList_Logon", {lower + L"x", L"CORP", lower});
  EXPECT_EQ(tile->GetSerialization_LogonLocal(&response, &serialization, &statusText, &icon, user, L"pw"), S_OK);
  EXPECT_EQ(response, CPGSR_NO_CREDENTIAL_NOT_FINISHED);
  EXPECT_EQ(serialization.rgbSerialization, nullptr);
  EXPECT_EQ(icon, CPSI_ERROR);
  ASSERT_NE(statusText, nullptr);
  EXPECT_EQ(std::wstring(statusText), test::message(170));

  const User withoutDomain(L"ghost-user-without-account");
  ASSERT_TRUE(withoutDomain.domain().empty());
  EXPECT_EQ(tile->GetSerialization_LogonLocal(&response, &serialization, nullptr, nullptr, withoutDomain, L"pw"), S_OK);
  EXPECT_EQ(response, CPGSR_RETURN_CREDENTIAL_FINISHED);

  test::setList(settings::kProviderKeyPath, L"DomainBlackList_Logon", {lower.substr(0, lower.size() - 1)});
  Released{}(serialization);
  EXPECT_EQ(tile->GetSerialization_LogonLocal(&response, &serialization, nullptr, nullptr, user, L"pw"), S_OK);
  EXPECT_NE(serialization.rgbSerialization, nullptr);
}

// No copy of the password that the packing made is left in memory it gave back, whichever way
// the packing went.
TEST_F(LogonSerializationTest, PasswordCopiesAreWipedOnEveryPath) {
  constexpr wchar_t kPassword[] = L"Wiped-Secret-Passw0rd-Q7";
  Tile logonTile(provider, CPUS_LOGON);
  Tile credUiTile(provider, CPUS_CREDUI);
  const User user(L".\\" + test::currentUserName());
  test::FreedMemoryWatch watch("Wiped-Secret-Passw0rd-Q7");
  const auto release = [&] { Released{}(serialization); };
  EXPECT_EQ(logonTile->GetSerialization_LogonLocal(&response, &serialization, nullptr, nullptr, user, kPassword), S_OK);
  release();
  EXPECT_EQ(credUiTile->GetSerialization_CredUiLocal(&response, &serialization, nullptr, nullptr, user, kPassword), S_OK);
  release();
  EXPECT_EQ(logonTile->GetSerialization_LogonOnline(&response, &serialization, L"M\\a@b.c", kPassword), S_OK);
  release();
  EXPECT_EQ(logonTile->GetSerialization_ChangePassword(&response, &serialization, user, kPassword, kPassword), S_OK);
  release();
  seam.lookupStatus = static_cast<NTSTATUS>(0xC0000001);
  EXPECT_FAILED(logonTile->GetSerialization_LogonLocal(&response, &serialization, nullptr, nullptr, user, kPassword));
  EXPECT_FAILED(credUiTile->GetSerialization_CredUiLocal(&response, &serialization, nullptr, nullptr, user, kPassword));
  EXPECT_FAILED(logonTile->GetSerialization_ChangePassword(&response, &serialization, user, kPassword, kPassword));
  EXPECT_EQ(watch.unwipedBlocks(), 0);
  EXPECT_GE(watch.releasedBlocks(), 10);
}

// Without a state the tile has nothing to serialize, and still empties every PIN and password
// field, in LogonUI's copy too.
TEST_F(LogonSerializationTest, WithoutAStateNothingIsSerializedAndSecretsAreEmptied) {
  Tile tile(provider, CPUS_LOGON);
  ASSERT_EQ(tile->SetStringValue(8, L"1234"), S_OK);
  ASSERT_EQ(tile->SetStringValue(13, L"pw"), S_OK);
  tile->ChangeCurrentCore(nullptr, false);
  response = static_cast<CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE>(77);
  EXPECT_EQ(tile->GetSerialization(&response, &serialization, &statusText, &icon), E_UNEXPECTED);
  EXPECT_EQ(response, CPGSR_NO_CREDENTIAL_NOT_FINISHED);
  EXPECT_EQ(serialization.rgbSerialization, nullptr);
  EXPECT_EQ(tile->GetFieldString(8), L"");
  EXPECT_EQ(tile->GetFieldString(13), L"");
  EXPECT_EQ(tile.view().textOf(8), L"");
  EXPECT_EQ(tile.view().textOf(13), L"");
}

}  // namespace
}  // namespace lm2
