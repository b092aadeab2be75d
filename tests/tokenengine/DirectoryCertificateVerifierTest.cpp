// The check of the directory server's certificate, against real certificates the build made: a
// certificate of the machine's trusted CA for the configured host is accepted; an unknown CA, an
// expired certificate, another host's certificate and a client certificate are refused.
#include <gtest/gtest.h>

#include <windows.h>
#include <wincrypt.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "InstalledServiceDouble.h"
#include "tokenengine/DirectoryCertificateVerifier.h"

namespace lm2::kaldera {
namespace {

std::vector<BYTE> readCertificate(const std::wstring& name) {
  const std::wstring path = test::programDirectory() + L"\\directory-certs\\" + name;
  std::ifstream file(path.c_str(), std::ios::binary);
  return std::vector<BYTE>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

class Certificate {
 public:
  explicit Certificate(const std::wstring& name) {
    const std::vector<BYTE> der = readCertificate(name);
    context_ = ::CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()));
  }
  ~Certificate() {
    if (context_ != nullptr) ::CertFreeCertificateContext(context_);
  }
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;
  PCCERT_CONTEXT get() const { return context_; }

 private:
  PCCERT_CONTEXT context_ = nullptr;
};

class DirectoryCertificateVerifierTest : public ::testing::Test {
 protected:
  // The machine trusts the test directory CA, as an administrator's deployment would.
  static void SetUpTestSuite() {
    const std::vector<BYTE> der = readCertificate(L"directory-ca.cer");
    ASSERT_FALSE(der.empty()) << "the build made no directory certificates";
    HCERTSTORE root = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
    ASSERT_NE(root, nullptr);
    EXPECT_TRUE(::CertAddEncodedCertificateToStore(root, X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()),
                                                   CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
    ::CertCloseStore(root, 0);
  }

  static ExtendedResult verify(const wchar_t* certificate, const wchar_t* host) {
    Certificate server(certificate);
    EXPECT_NE(server.get(), nullptr) << "no certificate " << std::string(certificate, certificate + wcslen(certificate));
    return DirectoryCertificateVerifier(host).verify(server.get());
  }
};

TEST_F(DirectoryCertificateVerifierTest, TheTrustedCasCertificateForTheConfiguredHostIsAccepted) {
  EXPECT_EQ(verify(L"localhost.cer", L"localhost"), result::success());
  // Host names compare without regard to case.
  EXPECT_EQ(verify(L"localhost.cer", L"LOCALHOST"), result::success());
}

TEST_F(DirectoryCertificateVerifierTest, UnknownCaExpiredOtherHostAndClientCertificatesAreRefused) {
  // Alone, the stranger's certificate leads to no root; sent with its CA, to a root nobody trusts.
  EXPECT_EQ(verify(L"stranger.cer", L"localhost"), result::fromHResult(CERT_E_CHAINING));
  {
    Certificate server(L"stranger.cer");
    Certificate issuer(L"stranger-ca.cer");
    HCERTSTORE presented = ::CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
    ASSERT_NE(presented, nullptr);
    EXPECT_TRUE(::CertAddCertificateContextToStore(presented, issuer.get(), CERT_STORE_ADD_ALWAYS, nullptr));
    EXPECT_EQ(DirectoryCertificateVerifier(L"localhost").verify(server.get(), presented),
              result::fromHResult(CERT_E_UNTRUSTEDROOT));
    ::CertCloseStore(presented, 0);
  }
  EXPECT_EQ(verify(L"expired.cer", L"localhost"), result::fromHResult(CERT_E_EXPIRED));
  EXPECT_EQ(verify(L"other-host.cer", L"localhost"), result::fromHResult(CERT_E_CN_NO_MATCH));
  EXPECT_TRUE(result::failed(verify(L"client-only.cer", L"localhost")));
  // The host is what the administrator configured, not what the certificate says.
  EXPECT_EQ(verify(L"localhost.cer", L"ldap.other.example"), result::fromHResult(CERT_E_CN_NO_MATCH));
  // Nothing to check against is no reason to trust.
  EXPECT_TRUE(result::failed(DirectoryCertificateVerifier(L"").verify(Certificate(L"localhost.cer").get())));
  EXPECT_TRUE(result::failed(DirectoryCertificateVerifier(L"localhost").verify(nullptr)));
}

}  // namespace
}  // namespace lm2::kaldera
