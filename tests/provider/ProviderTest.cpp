// The provider from the DLL, driven as LogonUI drives it, with the virtual token engine: its own
// answers, the tiles that follow tokens as they come and go, and the pace of re-enumeration.
// Runs as Windows 7 and Windows 10.
#include <gtest/gtest.h>

#include <thread>

#include "DebugOutputCapture.h"
#include "EngineVariants.h"
#include "Eventually.h"
#include "ProcessCounters.h"
#include "ProviderHarness.h"
#include "ProviderSession.h"
#include "ProviderUser.h"
#include "ProviderUserArray.h"
#include "TestRegistry.h"
#include "platform/ComPtr.h"
#include "platform/ModuleResources.h"
#include "platform/TextConversion.h"
#include "provider/ProviderGuids.h"
#include "settings/ProviderSettings.h"
#include "EngineControl.h"
#include "Watchdog.h"

namespace lm2 {
namespace {

using host::ProviderSession;
using host::TileView;

constexpr char kUninitialisedToken[] = R"({"id":"0A01","initialized":false,"canInitialize":true})";
constexpr char kEmptyToken[] = R"({"id":"0A02","initialized":true})";

std::string tokens(std::initializer_list<const char*> list) {
  std::string json = R"({"tokens":[)";
  for (const char* token : list) json += std::string(json.back() == '[' ? "" : ",") + token;
  return json + "]}";
}

class ProviderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const wchar_t* name : {L"EnableExperimentalCredUI", L"FilterLogon", L"ReenumerateDelay"}) {
      test::deleteValue(settings::kProviderKeyPath, name);
    }
  }
  void TearDown() override { SetUp(); }

  std::wstring message(UINT id) const { return resources::loadString(id); }
  bool windows7() const { return test::expectedWindows() == "win7"; }

  vte::EngineControl engine() const {
    vte::EngineControl control;
    test::eventuallyTrue([&] { return (control = vte::EngineControl::ofLoadedEngine()).available(); });
    return control;
  }

  test::ProviderHarness harness;
};

TEST_F(ProviderTest, ScenariosFieldsAndTheFirstDefault) {
  ComPtr<ICredentialProvider> provider = harness.createProvider();
  ASSERT_TRUE(provider);
  EXPECT_EQ(provider->SetUsageScenario(CPUS_CREDUI, 0), S_OK);
  test::setNumber(settings::kProviderKeyPath, L"EnableExperimentalCredUI", 0);
  EXPECT_EQ(provider->SetUsageScenario(CPUS_CREDUI, 0), E_NOTIMPL);
  EXPECT_EQ(provider->SetUsageScenario(CPUS_PLAP, 0), E_INVALIDARG);
  EXPECT_EQ(provider->SetUsageScenario(CPUS_LOGON, 0), S_OK);

  CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR* descriptor = reinterpret_cast<CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR*>(1);
  EXPECT_EQ(provider->GetFieldDescriptorAt(21, &descriptor), E_INVALIDARG);
  EXPECT_EQ(descriptor, nullptr);
  DWORD count = 0;
  ASSERT_EQ(provider->GetFieldDescriptorCount(&count), S_OK);
  EXPECT_EQ(count, 21u);

  DWORD defaultTile = 77;
  BOOL autoLogon = TRUE;
  ASSERT_EQ(provider->GetCredentialCount(&count, &defaultTile, &autoLogon), S_OK);
  EXPECT_EQ(defaultTile, windows7() ? 0u : CREDENTIAL_PROVIDER_NO_DEFAULT);
  EXPECT_FALSE(autoLogon);
  EXPECT_EQ(count, 1u);
  ComPtr<ICredentialProviderCredential> tile;
  EXPECT_EQ(provider->GetCredentialAt(1, tile.put()), E_INVALIDARG);
  EXPECT_EQ(provider->GetCredentialAt(0, tile.put()), S_OK);
}

// Windows 7 LogonUI writes the logged-on user shortly before it asks for the tiles.
TEST_F(ProviderTest, OnWindows7AnUnlockTileNamesTheUserLogonUiWroteBeforeAskingForIt) {
  const std::wstring key = test::sessionDataKey();
  test::deleteKeyTree(key);
  ComPtr<ICredentialProvider> provider = harness.createProvider();
  ASSERT_EQ(provider->SetUsageScenario(CPUS_UNLOCK_WORKSTATION, 0), S_OK);
  DWORD count = 0;
  DWORD defaultTile = 0;
  BOOL autoLogon = FALSE;
  ASSERT_EQ(provider->GetCredentialCount(&count, &defaultTile, &autoLogon), S_OK);
  const std::wstring name = test::currentUserName();
  test::setString(key, L"LoggedOnSAMUser", L".\\" + name);
  ComPtr<ICredentialProviderCredential> tile;
  ASSERT_EQ(provider->GetCredentialAt(0, tile.put()), S_OK);
  PWSTR text = nullptr;
  ASSERT_EQ(tile->GetStringValue(3, &text), S_OK);
  EXPECT_EQ(std::wstring(text), windows7() ? name : L"");
  ::CoTaskMemFree(text);
  test::deleteKeyTree(key);
}

TEST_F(ProviderTest, SerializationsAreRefusedUnlessTheyAreOurs) {
  ComPtr<ICredentialProvider> provider = harness.createProvider();
  ASSERT_EQ(provider->SetUsageScenario(CPUS_LOGON, 0), S_OK);
  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION foreign{};
  foreign.clsidCredentialProvider = {0x60b78e88, 0xead8, 0x445c, {0x9c, 0xfd, 0x0b, 0x87, 0xf7, 0x4e, 0xa6, 0xcd}};
  EXPECT_EQ(provider->SetSerialization(&foreign), E_INVALIDARG);
  EXPECT_EQ(provider->SetSerialization(nullptr), E_INVALIDARG);
  test::setNumber(settings::kProviderKeyPath, L"DisableSetSerializationImplementation", 1);
  EXPECT_EQ(provider->SetSerialization(nullptr), E_NOTIMPL);
  test::deleteValue(settings::kProviderKeyPath, L"DisableSetSerializationImplementation");
}

TEST_F(ProviderTest, FilterHidesTheListedProvidersOnly) {
  ComPtr<ICredentialProvider> provider = harness.createProvider();
  ComPtr<ICredentialProviderFilter> filter;
  ASSERT_EQ(provider.queryTo(filter), S_OK);
  GUID providers[2] = {{0x60b78e88, 0xead8, 0x445c, {0x9c, 0xfd, 0x0b, 0x87, 0xf7, 0x4e, 0xa6, 0xcd}},
                       {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}}};
  BOOL allow[2] = {7, 7};
  EXPECT_EQ(filter->Filter(CPUS_LOGON, 0, providers, allow, 2), E_NOTIMPL);
  EXPECT_EQ(allow[0], 7);
  EXPECT_EQ(allow[1], 7);

  test::DebugOutputCapture trace;
  test::setList(settings::kProviderKeyPath, L"FilterLogon", {L"not-a-clsid", L"{60B78E88-EAD8-445C-9CFD-0B87F74EA6CD}"});
  EXPECT_EQ(filter->Filter(CPUS_LOGON, 0, providers, allow, 2), S_OK);
  EXPECT_FALSE(allow[0]);
  EXPECT_TRUE(allow[1]);
  EXPECT_TRUE(trace.contains("failed to convert not-a-clsid to CLSID"));
  EXPECT_EQ(filter->Filter(CPUS_PLAP, 0, providers, allow, 2), E_INVALIDARG);
}

// LogonUI makes each registered filter as an object of its own, before and without any provider,
// asks it once and lets it go: it must start no engine and leave no thread behind.
TEST_F(ProviderTest, AFilterMadeAloneStartsNoEngineAndLeavesNothingBehind) {
  const int threads = test::threadsOfThisProcess();
  test::setList(settings::kProviderKeyPath, L"FilterLogon", {L"{60B78E88-EAD8-445C-9CFD-0B87F74EA6CD}"});
  ComPtr<ICredentialProviderFilter> filter = harness.createFilter();
  ASSERT_TRUE(filter);
  GUID providers[2] = {{0x60b78e88, 0xead8, 0x445c, {0x9c, 0xfd, 0x0b, 0x87, 0xf7, 0x4e, 0xa6, 0xcd}}, kProviderClsid};
  BOOL allow[2] = {TRUE, TRUE};
  EXPECT_EQ(filter->Filter(CPUS_LOGON, 0, providers, allow, 2), S_OK);
  EXPECT_FALSE(allow[0]);
  EXPECT_TRUE(allow[1]);
  filter.reset();
  EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr) << "the token engine was loaded";
  EXPECT_TRUE(test::eventuallyTrue([&] { return test::threadsOfThisProcess() <= threads; }))
      << test::threadsOfThisProcess() << " threads, " << threads << " before";
  EXPECT_EQ(harness.canUnloadNow(), S_OK);
}

TEST_F(ProviderTest, TokensPresentAtTheStartAndASecondTokenGetTilesOfTheirOwn) {
  harness.describeTokens(tokens({kUninitialisedToken}));
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_TRUE(session.waitForMessage(message(102)));
  ASSERT_EQ(engine().insertToken(kEmptyToken), 0);
  ASSERT_TRUE(session.waitFor([&](const std::vector<TileView>& tiles) {
    return tiles.size() == 2 && tiles[1].textOf(6) == message(103);
  }));
  EXPECT_EQ(session.tiles()[0].textOf(6), message(102));
}

TEST_F(ProviderTest, ANewScenarioMakesTilesThatStartFromWhatTheEngineReported) {
  harness.describeTokens(tokens({kEmptyToken}));
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_TRUE(session.waitForMessage(message(103)));
  // LogonUI switches the scenario on the same provider: the tiles are made anew.
  ASSERT_EQ(session.provider()->SetUsageScenario(CPUS_UNLOCK_WORKSTATION, 0), S_OK);
  ASSERT_EQ(session.enumerate(), S_OK);
  EXPECT_TRUE(session.waitForMessage(message(103)));
}

// LogonUI of Windows 8 and later shows its users: each gets a tile for the token, and the table
// decides per tile whether its user is on the token.
TEST_F(ProviderTest, EveryUserOfLogonUiGetsATileForTheToken) {
  harness.describeTokens(tokens({kEmptyToken}));
  std::vector<ComPtr<ICredentialProviderUser>> users;
  for (const wchar_t* sid : {L"S-1-5-21-0-0-0-1000", L"S-1-5-21-0-0-0-1001"}) {
    users.push_back(ComPtr<ICredentialProviderUser>::adopt(
        new host::ProviderUser(sid, Identity_LocalUserProvider, std::wstring(L".\\user-") + sid)));
  }
  auto array = ComPtr<ICredentialProviderUserArray>::adopt(new host::ProviderUserArray(users));
  ProviderSession session(harness.createProvider(), CPUS_LOGON, 0, array);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_TRUE(session.waitFor([&](const std::vector<TileView>& tiles) {
    return tiles.size() == 2 && tiles[0].textOf(6) == message(103) && tiles[1].textOf(6) == message(103);
  }));
  PWSTR sid = nullptr;
  ComPtr<ICredentialProviderCredential2> second;
  ASSERT_EQ(session.credentials()[1].queryTo(second), S_OK);
  ASSERT_EQ(second->GetUserSid(&sid), S_OK);
  EXPECT_STREQ(sid, L"S-1-5-21-0-0-0-1001");
  ::CoTaskMemFree(sid);
}

// LogonUI may make the tiles anew (a scenario set again) while one of them still waits in
// GetSerialization on another thread for the token's answer: the provider lets go of that tile, so
// its wait ends at once, as for a pulled token; the answer, when it comes, finds no tile and is
// dropped.
TEST_F(ProviderTest, ATileLetGoOfStopsWaitingForTheToken) {
  test::DebugOutputCapture trace;
  std::string account;
  ASSERT_TRUE(utf16ToUtf8(L".\\\\" + test::currentUserName(), account));
  const std::string label = R"("label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1")";
  const std::string token = R"({"id":"0E01","pin":"1234","objects":[{"kind":1,)" + label + R"(,"data":")" + account +
                            R"("},{"kind":2,)" + label + R"(,"data":"Held-Pw-1"}]})";
  harness.describeTokens(tokens({token.c_str()}));
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_TRUE(session.waitFor([](const std::vector<TileView>& tiles) { return !tiles.empty() && tiles[0].shows(8); }));
  ComPtr<ICredentialProviderCredential> tile = session.credentials()[0];
  ASSERT_EQ(tile->SetStringValue(8, L"1234"), S_OK);
  vte::EngineControl control = engine();
  control.holdResults(1);
  const std::uint64_t before = control.tasksStarted();

  HRESULT hr = S_OK;
  CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE response = CPGSR_RETURN_CREDENTIAL_FINISHED;
  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION serialization{};
  PWSTR status = nullptr;
  CREDENTIAL_PROVIDER_STATUS_ICON icon = CPSI_NONE;
  std::thread logonUi([&] { hr = tile->GetSerialization(&response, &serialization, &status, &icon); });
  const bool checking = test::eventuallyTrue([&] { return control.tasksStarted() > before; });
  test::finishesWithin(std::chrono::seconds(10), "GetSerialization of a tile the provider let go of", [&] {
    EXPECT_EQ(session.provider()->SetUsageScenario(CPUS_LOGON, 0), S_OK);
    EXPECT_EQ(session.enumerate(), S_OK);
    logonUi.join();
  });
  ASSERT_TRUE(checking) << "the PIN check never started";
  EXPECT_EQ(hr, E_UNEXPECTED);
  EXPECT_EQ(response, CPGSR_NO_CREDENTIAL_NOT_FINISHED);
  EXPECT_EQ(serialization.rgbSerialization, nullptr);
  ::CoTaskMemFree(status);
  control.releaseResults(0, 0);
  control.holdResults(0);
  EXPECT_TRUE(test::eventuallyTrue([&] { return trace.contains("can not find related stub"); }));
}

TEST_F(ProviderTest, WithoutAnEngineTheTileSaysSoWithTheCode) {
  test::DebugOutputCapture trace;
  ASSERT_TRUE(test::installEngineVariant(L""));
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  // The engine answers before LogonUI enumerates: the tile made afterwards still moves on.
  ASSERT_TRUE(session.waitFor([&](const std::vector<TileView>& tiles) {
    return !tiles.empty() && tiles[0].textOf(6).rfind(message(106) + L" (0x", 0) == 0;
  }));
  const std::wstring text = session.tiles()[0].textOf(6);
  EXPECT_EQ(text.substr(text.size() - 5), L"0014)");
}

TEST_F(ProviderTest, AFailingEngineCanBeStartedAgainOnceRepaired) {
  harness.describeTokens(R"({"tokens":[],"initialization":{"result":"C0100000C0100010"}})");
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_TRUE(session.waitForMessage(message(124) + L" (0xc0100000c0100010)"));
  EXPECT_EQ(session.tiles()[0].textOf(19), message(142));

  // Started again and failing otherwise: the tile shows the new code.
  harness.describeTokens(R"({"tokens":[],"initialization":{"result":"C0100000C0100011"}})");
  ASSERT_EQ(session.credentials()[0]->CommandLinkClicked(19), S_OK);
  ASSERT_TRUE(session.waitForMessage(message(124) + L" (0xc0100000c0100011)"));
  harness.describeTokens(tokens({}));
  ASSERT_EQ(session.credentials()[0]->CommandLinkClicked(19), S_OK);
  EXPECT_TRUE(session.waitForMessage(message(120)));
  EXPECT_EQ(session.tiles()[0].textOf(19), L"");
}

TEST_F(ProviderTest, ATokenListedTwiceGetsItsTilesOnce) {
  test::DebugOutputCapture trace;
  harness.describeTokens(tokens({kEmptyToken}));
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_TRUE(session.waitForMessage(message(103)));
  ASSERT_EQ(engine().insertToken(kEmptyToken), 0);  // reported again
  ASSERT_TRUE(test::eventuallyTrue([&] { return trace.contains("token added event occurred for known token...ignore it"); }));
  session.followChanges();
  EXPECT_EQ(session.tiles().size(), 1u);
}

// Re-enumeration waits for the provider's pause (100 ms after its creation on Windows 10, 1 s on
// Windows 7), and every success shortens it to a tenth.
// Another provider of the process started the engine: the token list answers at once, before
// LogonUI enumerates. The tile is made once, by the enumeration, and reads the token once.
TEST_F(ProviderTest, ATokenListedBeforeTheFirstEnumerationGetsItsTileOnce) {
  test::DebugOutputCapture trace;
  harness.describeTokens(tokens({kEmptyToken}));
  ProviderSession first(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(first.start(), S_OK);
  ASSERT_TRUE(first.waitForMessage(message(103)));
  ProviderSession second(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(second.start(std::chrono::milliseconds(600)), S_OK);
  ASSERT_TRUE(second.waitForMessage(message(103)));
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  second.followChanges();
  EXPECT_EQ(second.tiles().size(), 1u);
  EXPECT_EQ(second.tiles()[0].textOf(6), message(103));
  EXPECT_FALSE(trace.contains("invalid state transition detected"));
}

// LogonUI advises again (after UnAdvise): the tiles, past the engine's start, stay where they are.
TEST_F(ProviderTest, AdvisingAgainMovesNoTileBack) {
  test::DebugOutputCapture trace;
  harness.describeTokens(tokens({kEmptyToken}));
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_TRUE(session.waitForMessage(message(103)));
  ASSERT_EQ(session.provider()->UnAdvise(), S_OK);
  ASSERT_EQ(session.provider()->Advise(&session.events(), 0x4C4D32), S_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  EXPECT_EQ(session.tiles()[0].textOf(6), message(103));
  EXPECT_FALSE(trace.contains("invalid state transition detected"));
}

TEST_F(ProviderTest, ReenumerationWaitsAndThePauseShrinks) {
  test::DebugOutputCapture trace;
  harness.describeTokens(tokens({}));
  const std::uint64_t created = ::GetTickCount64();
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_TRUE(session.waitForMessage(message(120)));
  vte::EngineControl control = engine();
  for (const char* id : {"0B01", "0B02", "0B03"}) {
    const int before = session.events().accepted();
    ASSERT_EQ(control.insertToken((std::string(R"({"id":")") + id + R"(","initialized":true})").c_str()), 0);
    ASSERT_TRUE(test::eventuallyTrue([&] { return session.events().accepted() > before; }));
    session.enumerate();
  }
  const std::vector<std::string> lines = trace.lines();
  // The tile left "Token Engine is initializing ..." before LogonUI advised it: the first change.
  ASSERT_FALSE(session.events().calls().empty());
  EXPECT_GE(session.events().calls()[0].tickMs - created, windows7() ? 1000u : 100u);
  const std::vector<std::string> expected = windows7() ? std::vector<std::string>{"100 ms", "10 ms", "1 ms"}
                                                       : std::vector<std::string>{"10 ms", "1 ms", "0 ms"};
  std::vector<std::string> delays;
  for (const std::string& line : lines) {
    const auto at = line.find("re-enumeration delay is now ");
    if (at != line.npos) delays.push_back(line.substr(at + 28));
  }
  ASSERT_GE(delays.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(delays.begin(), delays.begin() + 3), expected);
}

TEST_F(ProviderTest, ARefusedReenumerationIsAskedAgainHalfASecondLater) {
  test::DebugOutputCapture trace;
  test::setNumber(settings::kProviderKeyPath, L"ReenumerateDelay", 0);
  harness.describeTokens(tokens({kEmptyToken}));
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  session.events().refuseNext(1);
  ASSERT_EQ(session.start(), S_OK);
  ASSERT_EQ(engine().insertToken(kUninitialisedToken), 0);  // a second token: new tiles
  // At least one: the new token's tiles may be announced right after the retry (no pause is
  // configured), and a poll that comes late must not miss the moment when exactly one was accepted.
  ASSERT_TRUE(test::eventuallyTrue([&] { return session.events().accepted() >= 1; }));
  const auto calls = session.events().calls();
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[0].answer, E_FAIL);
  EXPECT_GE(calls[1].tickMs - calls[0].tickMs, 500u);
  EXPECT_EQ(calls[1].adviseContext, 0x4C4D32u);
  EXPECT_TRUE(trace.contains("failed to invoke CredentialChanged 0x80004005"));
}

TEST_F(ProviderTest, AResultBeforeTheEngineStartedWaitsForItInSteps) {
  test::DebugOutputCapture trace;
  // The token not connected tells when the engine has read its description: it then still starts.
  harness.describeTokens(R"({"tokens":[{"id":"0F0F","inserted":false}],"initialization":{"delayMs":400}})");
  ProviderSession session(harness.createProvider(), CPUS_LOGON);
  ASSERT_EQ(session.start(), S_OK);
  vte::EngineControl control = engine();
  ASSERT_TRUE(test::eventuallyTrue([&] { return control.state().find("0F0F") != std::string::npos; }));
  ASSERT_EQ(control.insertToken(kEmptyToken), 0);  // reported while the engine still starts
  ASSERT_TRUE(session.waitForMessage(message(103)));
  const std::vector<std::string> lines = trace.lines();
  std::size_t waits = 0;
  std::size_t initialised = lines.size();
  std::size_t added = lines.size();
  for (std::size_t index = 0; index < lines.size(); ++index) {
    const std::string& line = lines[index];
    if (line.find("token engine completion event was not yet processed...reenqueue context with delay") != line.npos) {
      ++waits;
    }
    if (line.find("TokenEngineInitAsyncCompletion [START]") != line.npos) initialised = std::min(initialised, index);
    if (line.find("TokenEngineTokenAddedCallback [START]") != line.npos) added = std::min(added, index);
  }
  EXPECT_GE(waits, 2u);
  EXPECT_LT(initialised, added);
}

}  // namespace
}  // namespace lm2
