#include "TileHarness.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "items/ItemValues.h"
#include "items/ItemVector.h"
#include "platform/ModuleResources.h"
#include "provider/FieldDescriptorTable.h"
#include "tokenengine/TokenCapability.h"

namespace lm2::test {

void TestProvider::GuiChangedHandler(DWORD reason) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_guiChanges.push_back(reason);
}

bool TestProvider::IsReenumeratePossible(long long& waitMilliseconds) {
  ++asks;
  if (refusals.load() > 0) {
    --refusals;
    waitMilliseconds = refusalWait;
    return false;
  }
  waitMilliseconds = 0;
  return true;
}

std::vector<DWORD> TestProvider::guiChanges() const {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_guiChanges;
}

void loadProviderResources() {
  static const HMODULE module = ::LoadLibraryW(resources::kModuleFileName);
  ASSERT_NE(module, nullptr) << "the provider DLL is not beside the test program";
}

std::wstring message(UINT id) { return resources::loadString(id); }

std::vector<CREDENTIAL_PROVIDER_FIELD_TYPE> fieldTypes() {
  std::vector<CREDENTIAL_PROVIDER_FIELD_TYPE> types;
  for (DWORD id = 0; id < fields::kFieldCount; ++id) types.push_back(fields::fieldDescriptor(id).fieldType);
  return types;
}

std::unique_ptr<AsyncResult> userList(const std::vector<std::wstring>& names, ExtendedResult code) {
  std::vector<User> users;
  for (const std::wstring& name : names) users.emplace_back(name);
  return std::make_unique<AsyncResultListUsers>(code, std::move(users));
}

TokenCapability capability(bool initialized, bool canBeInitialized) {
  items::CItemVector tree("tc");
  for (const auto& [name, value] : {std::pair{"tcii", initialized}, std::pair{"tccbi", canBeInitialized}}) {
    auto flag = std::make_unique<items::CItemBoolean>(name);
    flag->setValue(value);
    tree.addItem(std::move(flag));
  }
  return TokenCapability(tree);
}

std::unique_ptr<AsyncResult> capabilities(bool initialized, bool canBeInitialized) {
  return std::make_unique<AsyncResultWithData<TokenCapability>>(kSuccess, capability(initialized, canBeInitialized));
}

std::unique_ptr<AsyncResult> plainResult(ExtendedResult code) { return std::make_unique<AsyncResult>(code); }

Tile::Tile(TestProvider& provider, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, ICredentialProviderUser* user,
           bool advise)
    : m_provider(provider), m_tile(new CCredentialStub()), m_sink(ComPtr<host::RecordingCredentialEvents>::adopt(
                                                               new host::RecordingCredentialEvents())) {
  m_initializeResult = m_tile->Initialize(scenario, 0, user, 0, &provider);
  if (advise) {
    m_tile->Advise(m_sink.get());
    m_sink->readTile(m_tile, fieldTypes());
  }
}

Tile::~Tile() {
  m_tile->UnInitialize();
  m_tile->Release();
}

void Tile::deliver(TokenEngineCompletion routine, std::unique_ptr<AsyncResult> result, std::type_index target,
                   std::shared_ptr<CtxData> data, std::uint64_t binding) {
  CtxTokenEngine4CP context(nullptr, m_tile, nullptr, std::move(data), target, routine);
  context.setResult(std::move(result));
  context.setBinding(binding);
  m_tile->EnqueueAsyncContext(context);
}

bool Tile::waitForMessage(const std::wstring& text) const {
  return m_sink->waitFor(m_tile, [&](const host::TileView& view) { return view.textOf(fields::kMessage) == text; });
}

std::wstring Tile::messageText() const {
  PWSTR text = nullptr;
  m_tile->GetStringValue(fields::kMessage, &text);
  std::wstring result = text ? text : L"";
  ::CoTaskMemFree(text);
  return result;
}

}  // namespace lm2::test
