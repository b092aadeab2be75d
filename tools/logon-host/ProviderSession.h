#pragma once
// One logon screen as LogonUI runs it for one provider: usage scenario, user array, advise, field
// descriptors, enumeration, and the tiles advised with the recording sink. When the provider says
// its credentials changed, the session enumerates again on the caller's thread, as LogonUI does
// on its UI thread.

#include <windows.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "RecordingCredentialEvents.h"
#include "RecordingProviderEvents.h"
#include "platform/ComPtr.h"
#include "platform/CredentialProviderApi.h"

namespace lm2::host {

// A field as the provider describes it.
struct FieldDescription {
  CREDENTIAL_PROVIDER_FIELD_TYPE type = CPFT_INVALID;
  std::wstring label;
};

class ProviderSession {
 public:
  ProviderSession(ComPtr<ICredentialProvider> provider, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD flags = 0,
                  ComPtr<ICredentialProviderUserArray> users = nullptr);
  ~ProviderSession();
  ProviderSession(const ProviderSession&) = delete;
  ProviderSession& operator=(const ProviderSession&) = delete;

  // SetUsageScenario, SetUserArray, Advise, the field descriptors, and the first enumeration,
  // `beforeEnumeration` after the rest (a LogonUI that takes its time).
  HRESULT start(std::chrono::milliseconds beforeEnumeration = std::chrono::milliseconds(0));
  // GetCredentialCount and GetCredentialAt; new tiles are advised and read.
  HRESULT enumerate();
  // Enumerates again when the provider asked for it since the last enumeration (true then).
  bool followChanges();

  // What each tile shows now, in enumeration order.
  std::vector<TileView> tiles() const;
  // Waits (following the provider's changes) until `condition` holds for the tiles.
  bool waitFor(const std::function<bool(const std::vector<TileView>&)>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));
  // Waits until some tile's message line (field 6) is `text`.
  bool waitForMessage(const std::wstring& text, std::chrono::milliseconds timeout = std::chrono::seconds(10));

  const std::vector<ComPtr<ICredentialProviderCredential>>& credentials() const { return m_tiles; }
  RecordingProviderEvents& events() const { return *m_events.get(); }
  RecordingCredentialEvents& sink() const { return *m_sink.get(); }
  DWORD defaultTile() const { return m_default; }
  bool autoLogon() const { return m_autoLogon; }
  const std::vector<FieldDescription>& fields() const { return m_fields; }
  ICredentialProvider* provider() const { return m_provider.get(); }

  // UnAdvise every tile and the provider, and let go of them.
  void end();

 private:
  ComPtr<ICredentialProvider> m_provider;
  CREDENTIAL_PROVIDER_USAGE_SCENARIO m_scenario;
  DWORD m_flags;
  ComPtr<ICredentialProviderUserArray> m_users;
  ComPtr<RecordingProviderEvents> m_events;
  ComPtr<RecordingCredentialEvents> m_sink;
  std::vector<CREDENTIAL_PROVIDER_FIELD_TYPE> m_types;
  std::vector<FieldDescription> m_fields;
  std::vector<ComPtr<ICredentialProviderCredential>> m_tiles;
  std::size_t m_changesSeen = 0;
  DWORD m_default = CREDENTIAL_PROVIDER_NO_DEFAULT;
  bool m_autoLogon = false;
  bool m_ended = false;
};

}  // namespace lm2::host
