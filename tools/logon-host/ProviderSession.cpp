#include "ProviderSession.h"

#include <objbase.h>

#include <thread>
#include <utility>

namespace lm2::host {

ProviderSession::ProviderSession(ComPtr<ICredentialProvider> provider, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario,
                                 DWORD flags, ComPtr<ICredentialProviderUserArray> users)
    : m_provider(std::move(provider)),
      m_scenario(scenario),
      m_flags(flags),
      m_users(std::move(users)),
      m_events(ComPtr<RecordingProviderEvents>::adopt(new RecordingProviderEvents())),
      m_sink(ComPtr<RecordingCredentialEvents>::adopt(new RecordingCredentialEvents())) {}

ProviderSession::~ProviderSession() { end(); }

HRESULT ProviderSession::start(std::chrono::milliseconds beforeEnumeration) {
  HRESULT hr = m_provider->SetUsageScenario(m_scenario, m_flags);
  if (FAILED(hr)) return hr;
  if (m_users) {
    ComPtr<ICredentialProviderSetUserArray> setter;
    if (SUCCEEDED(m_provider.queryTo(setter))) setter->SetUserArray(m_users.get());
  }
  hr = m_provider->Advise(m_events.get(), 0x4C4D32);
  if (FAILED(hr)) return hr;
  DWORD count = 0;
  m_provider->GetFieldDescriptorCount(&count);
  m_types.clear();
  m_fields.clear();
  for (DWORD index = 0; index < count; ++index) {
    CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR* descriptor = nullptr;
    FieldDescription field;
    if (SUCCEEDED(m_provider->GetFieldDescriptorAt(index, &descriptor)) && descriptor) {
      field.type = descriptor->cpft;
      field.label = descriptor->pszLabel ? descriptor->pszLabel : L"";
      ::CoTaskMemFree(descriptor->pszLabel);
      ::CoTaskMemFree(descriptor);
    }
    m_types.push_back(field.type);
    m_fields.push_back(std::move(field));
  }
  if (beforeEnumeration.count() > 0) ::Sleep(static_cast<DWORD>(beforeEnumeration.count()));
  return enumerate();
}

HRESULT ProviderSession::enumerate() {
  m_changesSeen = m_events->calls().size();
  DWORD count = 0;
  BOOL autoLogon = FALSE;
  const HRESULT hr = m_provider->GetCredentialCount(&count, &m_default, &autoLogon);
  if (FAILED(hr)) return hr;
  m_autoLogon = autoLogon != FALSE;
  std::vector<ComPtr<ICredentialProviderCredential>> tiles;
  for (DWORD index = 0; index < count; ++index) {
    ComPtr<ICredentialProviderCredential> tile;
    if (FAILED(m_provider->GetCredentialAt(index, tile.put()))) continue;
    bool known = false;
    for (const auto& old : m_tiles) known = known || old.get() == tile.get();
    if (!known) {
      tile->Advise(m_sink.get());
      m_sink->readTile(tile.get(), m_types);
    }
    tiles.push_back(tile);
  }
  for (const auto& old : m_tiles) {
    bool kept = false;
    for (const auto& tile : tiles) kept = kept || old.get() == tile.get();
    if (!kept) old->UnAdvise();
  }
  m_tiles = std::move(tiles);
  return S_OK;
}

bool ProviderSession::followChanges() {
  const auto calls = m_events->calls();
  for (std::size_t index = m_changesSeen; index < calls.size(); ++index) {
    if (SUCCEEDED(calls[index].answer)) {
      enumerate();
      return true;
    }
  }
  m_changesSeen = calls.size();
  return false;
}

std::vector<TileView> ProviderSession::tiles() const {
  std::vector<TileView> views;
  for (const auto& tile : m_tiles) views.push_back(m_sink->view(tile.get()));
  return views;
}

bool ProviderSession::waitFor(const std::function<bool(const std::vector<TileView>&)>& condition,
                              std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    followChanges();
    if (condition(tiles())) return true;
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

bool ProviderSession::waitForMessage(const std::wstring& text, std::chrono::milliseconds timeout) {
  return waitFor(
      [&](const std::vector<TileView>& views) {
        for (const TileView& view : views) {
          if (view.textOf(6) == text) return true;
        }
        return false;
      },
      timeout);
}

void ProviderSession::end() {
  if (m_ended) return;
  m_ended = true;
  for (const auto& tile : m_tiles) tile->UnAdvise();
  m_tiles.clear();
  if (m_provider) m_provider->UnAdvise();
  m_provider.reset();
}

}  // namespace lm2::host
