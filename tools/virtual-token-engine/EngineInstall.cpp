// Installs a token engine library where the provider looks for it and trusts the root its
// signature chains to:
//
//   engine_install.exe ENGINE_DLL ROOT_CERTIFICATE.cer
//
// The library is copied to <system directory>\VestaAccessLibrary.dll; the certificate (DER) is
// added to the local machine's trusted root store.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

int wmain(int argc, wchar_t** argv) {
  if (argc != 3) {
    std::fwprintf(stderr, L"usage: engine_install ENGINE_DLL ROOT_CERTIFICATE.cer\n");
    return 2;
  }
  wchar_t system[MAX_PATH];
  ::GetSystemDirectoryW(system, MAX_PATH);
  const std::wstring target = std::wstring(system) + L"\\VestaAccessLibrary.dll";
  if (!::CopyFileW(argv[1], target.c_str(), FALSE)) {
    std::fwprintf(stderr, L"engine_install: copying %ls to %ls failed with %lu\n", argv[1], target.c_str(),
                  ::GetLastError());
    return 1;
  }

  std::ifstream file(argv[2], std::ios::binary);
  const std::vector<unsigned char> der((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  HCERTSTORE root = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
  if (root == nullptr || der.empty() ||
      !::CertAddEncodedCertificateToStore(root, X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()),
                                          CERT_STORE_ADD_REPLACE_EXISTING, nullptr)) {
    std::fwprintf(stderr, L"engine_install: trusting %ls failed with %lu\n", argv[2], ::GetLastError());
    if (root) ::CertCloseStore(root, 0);
    return 1;
  }
  ::CertCloseStore(root, 0);
  std::fwprintf(stderr, L"engine_install: installed %ls\n", target.c_str());
  return 0;
}
