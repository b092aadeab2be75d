// The end-to-end seam packs and protects as the provider's packing expects of Windows, and the
// logon host decodes what it packed without ever showing a secret; broken buffers are named.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "SerializationDecoder.h"
#include "WineOsSeam.h"

namespace lm2::host {
namespace {

struct Packed {
  std::vector<BYTE> bytes;
  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION serialization{};
};

Packed pack(DWORD flags, const wchar_t* name, const wchar_t* password) {
  WineOsSeam seam;
  Packed packed;
  DWORD size = 0;
  // The sizing call fails with the size, as CredPackAuthenticationBufferW does.
  EXPECT_FALSE(seam.credPackAuthenticationBufferW(flags, const_cast<LPWSTR>(name), const_cast<LPWSTR>(password),
                                                  nullptr, &size));
  EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  packed.bytes.resize(size);
  EXPECT_TRUE(seam.credPackAuthenticationBufferW(flags, const_cast<LPWSTR>(name), const_cast<LPWSTR>(password),
                                                 packed.bytes.data(), &size));
  packed.serialization.ulAuthenticationPackage = kWineNegotiatePackage;
  packed.serialization.cbSerialization = size;
  packed.serialization.rgbSerialization = packed.bytes.data();
  return packed;
}

DecodedSerialization decode(const Packed& packed, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD flags = 0) {
  SerializationCall call;
  call.response = CPGSR_RETURN_CREDENTIAL_FINISHED;
  call.serialization = &packed.serialization;
  call.scenario = scenario;
  call.credUiFlags = flags;
  return decodeSerialization(call);
}

TEST(SerializationDecoderTest, PackedLogonsAreReadBackWithoutTheirSecret) {
  // Protected on the way (an online account), 64-bit layout.
  Packed logon = pack(0x1 | 0x8, L"CORP\\anna", L"Sesame-42");
  DecodedSerialization decoded = decode(logon, CPUS_LOGON);
  EXPECT_EQ(valueOf(decoded, L"package"), L"0 (Negotiate)");
  EXPECT_EQ(valueOf(decoded, L"message-type"), L"2 KerbInteractiveLogon");
  EXPECT_EQ(valueOf(decoded, L"domain"), L"CORP");
  EXPECT_EQ(valueOf(decoded, L"user"), L"anna");
  EXPECT_EQ(valueOf(decoded, L"password"), L"protected");
  EXPECT_EQ(valueOf(decoded, L"password-length"), L"9");
  for (const auto& [key, value] : decoded) EXPECT_EQ(value.find(L"Sesame"), std::wstring::npos) << key;
  const std::wstring raw(reinterpret_cast<const wchar_t*>(logon.bytes.data()), logon.bytes.size() / 2);
  EXPECT_EQ(raw.find(L"Sesame"), std::wstring::npos);

  // CredUI's 32-bit layout, plain password, no domain.
  Packed credUi = pack(CRED_PACK_WOW_BUFFER, L"anna@corp.example", L"pw");
  decoded = decode(credUi, CPUS_CREDUI, CREDUIWIN_PACK_32_WOW);
  EXPECT_EQ(valueOf(decoded, L"layout"), L"KERB_INTERACTIVE_UNLOCK_LOGON (32-bit)");
  EXPECT_EQ(valueOf(decoded, L"domain"), L"");
  EXPECT_EQ(valueOf(decoded, L"user"), L"anna@corp.example");
  EXPECT_EQ(valueOf(decoded, L"password"), L"plain");
  EXPECT_EQ(valueOf(decoded, L"error"), L"");
}

TEST(SerializationDecoderTest, ProtectionIsRecognisedAndNegotiateIsKnown) {
  WineOsSeam seam;
  wchar_t secret[] = L"1234";
  DWORD chars = 0;
  ASSERT_FALSE(seam.credProtectW(FALSE, secret, 5, nullptr, &chars, nullptr));
  std::vector<wchar_t> protectedText(chars);
  ASSERT_TRUE(seam.credProtectW(FALSE, secret, 5, protectedText.data(), &chars, nullptr));
  CRED_PROTECTION_TYPE type = CredUnprotected;
  ASSERT_TRUE(seam.credIsProtectedW(protectedText.data(), &type));
  EXPECT_NE(type, CredUnprotected);
  ASSERT_TRUE(seam.credIsProtectedW(secret, &type));
  EXPECT_EQ(type, CredUnprotected);

  char name[] = "Negotiate";
  LSA_STRING package{9, 10, name};
  ULONG id = 99;
  EXPECT_EQ(seam.lsaLookupAuthenticationPackage(nullptr, &package, &id), 0);
  EXPECT_EQ(id, kWineNegotiatePackage);
}

TEST(SerializationDecoderTest, ChangeRequestsAndBrokenBuffersAreNamed) {
  // KERB_CHANGEPASSWORD_REQUEST: 80-byte header, then domain, account, old and new password.
  const std::wstring texts = L"DOManna" L"old!" L"new!!";
  Packed change;
  change.bytes.assign(80 + texts.size() * 2, 0);
  const ULONG type = 7;
  std::memcpy(change.bytes.data(), &type, 4);
  const USHORT lengths[] = {6, 8, 8, 10};
  ULONG64 offset = 80;
  for (int field = 0; field < 4; ++field) {
    std::memcpy(&change.bytes[8 + 16 * field], &lengths[field], 2);
    std::memcpy(&change.bytes[10 + 16 * field], &lengths[field], 2);
    std::memcpy(&change.bytes[16 + 16 * field], &offset, 8);
    offset += lengths[field];
  }
  std::memcpy(&change.bytes[80], texts.data(), texts.size() * 2);
  change.serialization.cbSerialization = static_cast<ULONG>(change.bytes.size());
  change.serialization.rgbSerialization = change.bytes.data();
  DecodedSerialization decoded = decode(change, CPUS_CHANGE_PASSWORD);
  EXPECT_EQ(valueOf(decoded, L"message-type"), L"7 KerbChangePasswordMessage");
  EXPECT_EQ(valueOf(decoded, L"domain"), L"DOM");
  EXPECT_EQ(valueOf(decoded, L"user"), L"anna");
  EXPECT_EQ(valueOf(decoded, L"old-password-length"), L"4");
  EXPECT_EQ(valueOf(decoded, L"new-password-length"), L"5");

  // A user name that points past the end of the buffer.
  Packed broken = pack(0, L"D\\u", L"p");
  const ULONG64 beyond = broken.bytes.size();
  std::memcpy(&broken.bytes[32], &beyond, 8);
  EXPECT_EQ(valueOf(decode(broken, CPUS_LOGON), L"error"), L"user: text beyond the buffer");
  broken.serialization.cbSerialization = 20;
  EXPECT_EQ(valueOf(decode(broken, CPUS_LOGON), L"error"), L"buffer of 20 bytes is shorter than its header");
}

}  // namespace
}  // namespace lm2::host
