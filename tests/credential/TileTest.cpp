// The tile as LogonUI sees it: field calls with their checks, the combo box shifted by one, the
// event wrappers, secret texts, the tile image and the tile's user. Runs as Windows 7 and
// Windows 10, and in German.
#include <gtest/gtest.h>

#include <windows.h>
#include <sddl.h>
#include <shlwapi.h>


#include "CoTaskMemWatch.h"
#include "DebugOutputCapture.h"
#include "ProviderUser.h"
#include "TestRegistry.h"
#include "TileHarness.h"
#include "cores/CredentialCoreBase.h"
#include "platform/UniqueResource.h"
#include "settings/ProviderSettings.h"

namespace lm2 {
namespace {

using test::message;
using test::Tile;

constexpr wchar_t kCurrentUserSid[] = L"S-1-5-21-0-0-0-1000";

// A state that answers the combo box itself and remembers what the tile asked.
class ComboCore final : public CCredentialCoreBase {
 public:
  using CCredentialCoreBase::CCredentialCoreBase;
  HRESULT Load() override { return S_OK; }
  void PreUnload(const CtxTokenEngine4CP*) override {}
  void Unload() override {}
  void Update(const CtxTokenEngine4CP*) override {}
  std::type_index GetTypeIndex() const override { return typeid(ComboCore); }
  HRESULT GetComboBoxValueCount(DWORD, DWORD* count, DWORD* selected) override {
    *count = 2;
    *selected = 1;
    return S_OK;
  }
  HRESULT GetComboBoxValueAt(DWORD, DWORD index, PWSTR* text) override {
    askedIndex = index;
    return ::SHStrDupW(L"anna", text);
  }
  HRESULT SetComboBoxSelectedValue(DWORD, DWORD index) override {
    selectedIndex = index;
    return S_OK;
  }
  DWORD askedIndex = 0xDEAD;
  DWORD selectedIndex = 0xDEAD;
};

std::wstring taken(PWSTR text) {
  std::wstring result = text ? text : L"(null)";
  ::CoTaskMemFree(text);
  return result;
}

std::wstring sidText(const std::vector<BYTE>& sid) {
  PWSTR text = nullptr;
  if (sid.empty() || !::ConvertSidToStringSidW(const_cast<BYTE*>(sid.data()), &text)) return L"";
  std::wstring result = text;
  ::LocalFree(text);
  return result;
}

class TileTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { test::loadProviderResources(); }
  void SetUp() override { test::deleteValue(settings::kProviderKeyPath, L"TileImage"); }
  void TearDown() override { test::deleteValue(settings::kProviderKeyPath, L"TileImage"); }

  bool windows7() const { return test::expectedWindows() == "win7"; }
  test::TestProvider provider;
};

TEST_F(TileTest, NewTileShowsTheEngineStartingUnderTheProductTitle) {
  Tile tile(provider);
  const host::TileView view = tile.view();
  EXPECT_EQ(view.textOf(6), message(117));
  EXPECT_EQ(view.state[6], CPFS_DISPLAY_IN_BOTH);
  EXPECT_EQ(view.textOf(1), L"Lumenar 2");
  EXPECT_FALSE(view.shows(3));
  EXPECT_EQ(view.submitNeighbour, 20u);
  EXPECT_EQ(view.comboItems, std::vector<std::wstring>{message(121)});
  EXPECT_EQ(view.comboSelected, 0u);
  EXPECT_EQ(message(117), test::expectsGerman() ? L"Token Engine wird initialisiert ..."
                                                : L"Token Engine is initializing ...");
  // Initialize comes before LogonUI advises: the first state's Load reaches only the tile's copy.
  EXPECT_EQ(tile.initializeResult(), E_UNEXPECTED);
  EXPECT_GT(provider.stamps.load(), 0);
}

// A state that overrides no field call offers an empty choice, an unchecked box and nothing to
// submit; a field that never had a text is answered by the state all the same.
TEST_F(TileTest, AMessageStateOffersNothingToChooseOrSubmit) {
  Tile tile(provider);
  BOOL checked = TRUE;
  PWSTR text = nullptr;
  ASSERT_EQ(tile->GetCheckboxValue(12, &checked, &text), S_OK);
  EXPECT_FALSE(checked);
  EXPECT_EQ(taken(text), L"");
  text = reinterpret_cast<PWSTR>(1);
  EXPECT_EQ(tile->GetStringValue(7, &text), S_OK);
  EXPECT_EQ(text, nullptr);
  auto response = static_cast<CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE>(77);
  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION serialization{};
  serialization.cbSerialization = 99;
  EXPECT_EQ(tile->GetSerialization(&response, &serialization, nullptr, nullptr), S_OK);
  EXPECT_EQ(response, CPGSR_NO_CREDENTIAL_NOT_FINISHED);
  EXPECT_EQ(serialization.cbSerialization, 0u);
  auto icon = CPSI_ERROR;
  text = reinterpret_cast<PWSTR>(1);
  EXPECT_EQ(tile->ReportResult(static_cast<NTSTATUS>(0xC000006D), 0, &text, &icon), S_OK);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(icon, CPSI_NONE);
}

TEST_F(TileTest, BadFieldIdsAndTypesAreRefusedWithTheirTexts) {
  test::enableTrace();
  test::DebugOutputCapture trace;
  Tile tile(provider, CPUS_LOGON, nullptr, false);
  CREDENTIAL_PROVIDER_FIELD_STATE state = CPFS_DISPLAY_IN_SELECTED_TILE;
  CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE interactive = CPFIS_DISABLED;
  EXPECT_EQ(tile->GetFieldState(21, &state, &interactive), E_INVALIDARG);
  EXPECT_EQ(state, CPFS_DISPLAY_IN_SELECTED_TILE);
  EXPECT_EQ(interactive, CPFIS_DISABLED);
  PWSTR text = nullptr;
  EXPECT_EQ(tile->GetStringValue(21, &text), E_INVALIDARG);
  EXPECT_EQ(tile->SetStringValue(6, L"x"), E_INVALIDARG);
  EXPECT_EQ(tile->SetStringValue(21, L"x"), E_INVALIDARG);
  BOOL checked = FALSE;
  EXPECT_EQ(tile->GetCheckboxValue(13, &checked, &text), E_INVALIDARG);
  EXPECT_EQ(tile->SetCheckboxValue(21, TRUE), E_INVALIDARG);
  HBITMAP bitmap = nullptr;
  EXPECT_EQ(tile->GetBitmapValue(1, &bitmap), E_INVALIDARG);
  DWORD adjacent = 0;
  EXPECT_EQ(tile->GetSubmitButtonValue(17, &adjacent), E_INVALIDARG);
  DWORD count = 0;
  DWORD selected = 0;
  EXPECT_EQ(tile->GetComboBoxValueCount(4, &count, &selected), E_INVALIDARG);
  EXPECT_EQ(tile->GetComboBoxValueAt(12, 0, &text), E_INVALIDARG);
  EXPECT_EQ(tile->SetComboBoxSelectedValue(21, 0), E_INVALIDARG);
  EXPECT_EQ(tile->CommandLinkClicked(18), E_INVALIDARG);

  EXPECT_EQ(trace.count("dwFieldID < ARRAYSIZE (21 < &d)"), 4u);  // state, string, set string, set checkbox
  EXPECT_TRUE(trace.contains("dwFieldID < ARRAYSIZE (6 < &d) or not (EDIT_TEXT || PW_TEXT)"));
  EXPECT_TRUE(trace.contains("dwFieldID < ARRAYSIZE (13 < &d) or not CHECKBOX"));
  EXPECT_TRUE(trace.contains("dwFieldID != TILEIMAGE"));
  EXPECT_TRUE(trace.contains("dwFieldID != SUBMIT_BUTTON"));
}

TEST_F(TileTest, ComboBoxItemZeroIsTheTilesOwnAndTheCoreCountsFromZero) {
  Tile tile(provider);
  auto owned = std::make_unique<ComboCore>(tile.get());
  ComboCore* core = owned.get();
  tile->ChangeCurrentCore(std::move(owned), false);

  DWORD count = 0;
  DWORD selected = 0;
  ASSERT_EQ(tile->GetComboBoxValueCount(5, &count, &selected), S_OK);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(selected, 2u);
  PWSTR text = nullptr;
  ASSERT_EQ(tile->GetComboBoxValueAt(5, 0, &text), S_OK);
  EXPECT_EQ(taken(text), message(121));
  EXPECT_EQ(core->askedIndex, 0xDEADu);
  ASSERT_EQ(tile->GetComboBoxValueAt(5, 2, &text), S_OK);
  EXPECT_EQ(taken(text), L"anna");
  EXPECT_EQ(core->askedIndex, 1u);
  tile->SetComboBoxSelectedValue(5, 0);
  EXPECT_EQ(core->selectedIndex, 0xFFFFFFFFu);
  tile->SetComboBoxSelectedValue(5, 3);
  EXPECT_EQ(core->selectedIndex, 2u);

  // The wrappers address the one combo box and check box, shifted the same way.
  tile->CPCEAppendFieldComboBoxItem(9, L"bert");
  tile->CPCESetFieldComboBoxSelectedItem(9, 1);
  tile->CPCEDeleteFieldComboBoxItem(9, 0);
  tile->CPCESetFieldCheckbox(3, TRUE, L"No PIN");
  const std::vector<std::wstring> calls = tile.view().calls;
  const std::vector<std::wstring> expected = {L"AppendFieldComboBoxItem 5 bert", L"SetFieldComboBoxSelectedItem 5 2",
                                              L"DeleteFieldComboBoxItem 5 1", L"SetFieldCheckbox 12 0 No PIN"};
  ASSERT_GE(calls.size(), expected.size());
  EXPECT_EQ(std::vector<std::wstring>(calls.end() - 4, calls.end()), expected);
}

TEST_F(TileTest, WrappersKeepTheTilesCopyAndReachTheSinkEvenWithoutAChange) {
  Tile tile(provider);
  EXPECT_EQ(tile->SetFieldState(6, CPFS_DISPLAY_IN_BOTH), S_FALSE);
  EXPECT_EQ(tile->CPCESetFieldState(6, CPFS_DISPLAY_IN_BOTH), S_OK);
  EXPECT_EQ(tile.view().calls.back(), L"SetFieldState 6 3");

  tile.sink().answerWith(E_FAIL);
  EXPECT_EQ(tile->CPCESetFieldString(2, L"refused"), E_FAIL);
  EXPECT_EQ(tile->GetFieldString(2), L"refused");

  Tile hidden(provider, CPUS_LOGON, nullptr, false);
  EXPECT_EQ(hidden->CPCESetFieldString(2, L"kept"), E_UNEXPECTED);
  EXPECT_EQ(hidden->GetFieldString(2), L"kept");
  EXPECT_EQ(hidden->CPCE2BeginFieldUpdates(), S_FALSE);
  EXPECT_EQ(hidden->CPCE2EndFieldUpdates(), S_FALSE);
  EXPECT_EQ(hidden->CPCESetFieldSubmitButton(18, 13), E_UNEXPECTED);
  DWORD adjacent = 0;
  EXPECT_EQ(hidden->GetSubmitButtonValue(18, &adjacent), S_OK);
  EXPECT_EQ(adjacent, 13u);
}

// LogonUI's user for a tile: its SID; for a user of another provider (a connected account) also
// the local account its name maps to.
TEST_F(TileTest, TheTilesUserAndTheLocalAccountItMapsTo) {
  Tile plain(provider);
  PWSTR sid = reinterpret_cast<PWSTR>(1);
  EXPECT_EQ(plain->GetUserSid(&sid), S_FALSE);
  EXPECT_EQ(sid, nullptr);

  const std::wstring me = L".\\" + test::currentUserName();
  auto* local = new host::ProviderUser(kCurrentUserSid, Identity_LocalUserProvider, me);
  Tile withUser(provider, CPUS_LOGON, local);
  local->Release();
  ASSERT_EQ(withUser->GetUserSid(&sid), S_OK);
  EXPECT_EQ(taken(sid), kCurrentUserSid);
  EXPECT_TRUE(withUser->isLocalUser());
  EXPECT_TRUE(withUser->getConnectedAccountSid().empty());

  auto* connected = new host::ProviderUser(L"S-1-5-21-7-7-7-1001", test::kOtherProvider, me);
  Tile withConnected(provider, CPUS_LOGON, connected);
  connected->Release();
  EXPECT_FALSE(withConnected->isLocalUser());
  EXPECT_EQ(sidText(withConnected->getConnectedAccountSid()), kCurrentUserSid);
}

TEST_F(TileTest, SecretsAreWipedWhereTheyLie) {
  const wchar_t secret[] = L"9876-secret";
  test::CoTaskMemWatch watch(secret);
  ASSERT_TRUE(watch.registered());
  {
    Tile tile(provider);
    for (DWORD id : {13, 14, 15, 16, 8, 9, 10, 11}) ASSERT_EQ(tile->SetStringValue(id, secret), S_OK);
    ASSERT_EQ(watch.liveBlocksWithSecret(), 8);
    tile->ClearAllCriticalStrings();
    EXPECT_EQ(watch.liveBlocksWithSecret(), 0);
    EXPECT_EQ(tile->GetFieldString(13), L"");

    tile->SetStringValue(13, secret);
    tile->SetStringValue(13, L"replaced");
    tile->SetFieldString(8, secret);
    tile->FreeCriticalString(8);
    tile->SetStringValue(14, secret);
    tile->SetDeselected();  // empties the password field 13 only
    tile->SetStringValue(17, secret);
    EXPECT_EQ(watch.liveBlocksWithSecret(), 2);  // 14 and 17 go with the tile
  }
  EXPECT_EQ(watch.liveBlocksWithSecret(), 0);
  EXPECT_EQ(watch.releasedWithSecret(), 0);
  EXPECT_GT(watch.blocksSeen(), 0);
}

// A 24-bit bitmap file of the given size.
void writeBitmap(const std::wstring& path, int width, int height) {
  const int stride = (width * 3 + 3) & ~3;
  BITMAPFILEHEADER file{};
  BITMAPINFOHEADER info{};
  info.biSize = sizeof(info);
  info.biWidth = width;
  info.biHeight = height;
  info.biPlanes = 1;
  info.biBitCount = 24;
  file.bfType = 0x4D42;
  file.bfOffBits = sizeof(file) + sizeof(info);
  file.bfSize = file.bfOffBits + stride * height;
  std::string bytes(reinterpret_cast<const char*>(&file), sizeof(file));
  bytes.append(reinterpret_cast<const char*>(&info), sizeof(info));
  bytes.append(static_cast<std::size_t>(stride * height), '\x40');
  UniqueHandle out(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD written = 0;
  ASSERT_TRUE(::WriteFile(out.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
}

LONG bitmapWidth(CCredentialStub* tile) {
  HBITMAP bitmap = nullptr;
  if (tile->GetBitmapValue(0, &bitmap) != S_OK) return -1;
  BITMAP info{};
  ::GetObjectW(bitmap, sizeof(info), &info);
  ::DeleteObject(bitmap);
  return info.bmWidth;
}

TEST_F(TileTest, TileImageIsTheConfiguredFileElseTheBitmapOfTheWindowsVersion) {
  Tile tile(provider);
  EXPECT_EQ(bitmapWidth(tile.get()), windows7() ? 128 : 192);

  wchar_t folder[MAX_PATH];
  ::GetTempPathW(MAX_PATH, folder);
  const std::wstring path = std::wstring(folder) + L"lm2-tile-image.bmp";
  writeBitmap(path, 24, 8);
  test::setString(settings::kProviderKeyPath, L"TileImage", path);
  EXPECT_EQ(bitmapWidth(tile.get()), 24);
  ::DeleteFileW(path.c_str());
  EXPECT_EQ(bitmapWidth(tile.get()), windows7() ? 128 : 192);
}

// Changing the password is for the user who is logged on; Windows 7 names that user only in its
// session data, whose SID then becomes the tile's. A user that cannot be resolved is shown as
// "Unbekannt" in every language.
TEST_F(TileTest, ChangingThePasswordShowsTheLoggedOnUser) {
  const std::wstring me = L".\\" + test::currentUserName();
  struct Case {
    std::wstring loggedOn;
    const wchar_t* shown;
    const wchar_t* sidOnWindows7;
  };
  const Case cases[] = {{me, nullptr, kCurrentUserSid}, {L"nobody-here", L"Unbekannt", L"S-1-5-21-9-9-9-500"}};
  for (const Case& c : cases) {
    test::setString(test::sessionDataKey(), L"LoggedOnSAMUser", c.loggedOn);
    auto* user = new host::ProviderUser(L"S-1-5-21-9-9-9-500", Identity_LocalUserProvider, c.loggedOn);
    Tile tile(provider, CPUS_CHANGE_PASSWORD, user);
    user->Release();
    EXPECT_TRUE(tile.view().shows(3));
    EXPECT_EQ(tile.view().textOf(3), c.shown ? c.shown : test::currentUserName());
    EXPECT_EQ(tile->getUserSidString(), windows7() ? c.sidOnWindows7 : L"S-1-5-21-9-9-9-500");
  }
  test::deleteKeyTree(test::sessionDataKey());
}

}  // namespace
}  // namespace lm2
