#include "provider/CreateInstance.h"

#include <cstdio>
#include <new>
#include <string>

#include "logging/ExtendedResult.h"
#include "logging/TraceLog.h"
#include "platform/TextConversion.h"
#include "provider/LM2Provider.h"
#include "settings/ProviderSettings.h"

namespace lm2 {
namespace {

std::string describeIid(REFIID riid) {
  char text[64];
  std::snprintf(text, sizeof text, "%08lx-%04x-%04x-%02x%02x%02x%02x%02x%02x%02x%02x",
                static_cast<unsigned long>(riid.Data1), riid.Data2, riid.Data3, riid.Data4[0], riid.Data4[1],
                riid.Data4[2], riid.Data4[3], riid.Data4[4], riid.Data4[5], riid.Data4[6], riid.Data4[7]);
  return text;
}

}  // namespace

HRESULT CSample_CreateInstance(REFIID riid, void** ppv) {
  result::setComponentId(result::kModuleComponentId);

  std::string configuration;
  // A path that is not valid UTF-16 counts as no configuration.
  if (utf16ToUtf8(settings::logSettingsPath(), configuration) && !configuration.empty()) {
    logging::configure(configuration);  // a missing or unreadable file keeps the current trace setup
  }

  logging::debugStream(logging::getCategory(logging::categories::kCredentialProvider),
                       "CSample_CreateInstance " + describeIid(riid));

  CLM2Provider* provider = new (std::nothrow) CLM2Provider();
  if (provider == nullptr) return E_OUTOFMEMORY;
  const HRESULT hr = provider->QueryInterface(riid, ppv);
  provider->Release();
  return hr;
}

}  // namespace lm2
