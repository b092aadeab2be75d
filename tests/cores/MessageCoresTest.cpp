// The message states with a command link: where they offer it (scenario, registry, core set, what
// the token can do) and what a click does.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "DebugOutputCapture.h"
#include "TestRegistry.h"
#include "TileHarness.h"
#include "settings/ProviderSettings.h"

namespace lm2 {
namespace {

using Completion = TokenEngineCompletion;
using test::message;
using test::Tile;

const std::uint8_t kTokenId[] = {7, 7};
constexpr DWORD kLink = 19;

class MessageCoresTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { test::loadProviderResources(); }
  void SetUp() override { clear(); }
  void TearDown() override { clear(); }
  static void clear() {
    for (const wchar_t* name : {L"CoreSet", L"DisableTokenInitialization", L"DisallowAddingCredentials",
                                L"TokenInitializationDisallowNullPIN"}) {
      test::deleteValue(settings::kProviderKeyPath, name);
    }
  }

  // A tile bound to a token that can be initialised, moved to the uninitialised or empty state.
  std::unique_ptr<Tile> tileIn(bool emptyToken, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, bool canInitialize = true) {
    auto tile = std::make_unique<Tile>(provider, scenario);
    const Token token(kTokenId, sizeof(kTokenId));
    (*tile)->SetRelatedToken(&token);
    const TokenCapability capability = test::capability(!emptyToken, canInitialize);
    (*tile)->SetTokenCapability(&capability);
    if (emptyToken) {
      (*tile).deliver(Completion::TokenEngineListUsersOnTokenCompletion, test::userList({}));
    } else {
      (*tile).deliver(Completion::TokenEngineGetTokenCapabilitiesCompletion, test::capabilities(false));
    }
    EXPECT_TRUE(tile->waitForMessage(message(emptyToken ? 103 : 102)));
    return tile;
  }

  test::TestProvider provider;
};

TEST_F(MessageCoresTest, TheLinkIsOfferedOnlyForLogonAndUnlockWhereAllowed) {
  struct Case {
    bool emptyToken;
    CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario;
    int forbidding;  // the registry value that forbids the link; -1: absent
    const wchar_t* coreSet;
    bool canInitialize;
    bool linkShown;
  };
  const Case cases[] = {
      {false, CPUS_LOGON, -1, L"", true, true},
      {false, CPUS_UNLOCK_WORKSTATION, 0, L"", true, true},
      {false, CPUS_CHANGE_PASSWORD, 0, L"", true, false},
      {false, CPUS_CREDUI, -1, L"", true, false},
      {false, CPUS_LOGON, 1, L"", true, false},
      {false, CPUS_LOGON, -1, L"", false, false},
      {false, CPUS_LOGON, -1, L"Kaldera", true, false},
      {true, CPUS_LOGON, -1, L"", false, true},
      {true, CPUS_UNLOCK_WORKSTATION, 0, L"", false, true},
      {true, CPUS_CHANGE_PASSWORD, -1, L"", false, false},
      {true, CPUS_CREDUI, 0, L"", false, false},
      {true, CPUS_LOGON, 2, L"", false, false},
      {true, CPUS_LOGON, -1, L"Kaldera", false, false},
  };
  for (const Case& c : cases) {
    clear();
    const wchar_t* value = c.emptyToken ? L"DisallowAddingCredentials" : L"DisableTokenInitialization";
    if (c.forbidding >= 0) test::setNumber(settings::kProviderKeyPath, value, static_cast<DWORD>(c.forbidding));
    test::setString(settings::kProviderKeyPath, L"CoreSet", c.coreSet);
    auto tile = tileIn(c.emptyToken, c.scenario, c.canInitialize);
    const host::TileView view = tile->view();
    const std::string what = std::string(c.emptyToken ? "empty" : "uninitialised") + " scenario " +
                             std::to_string(c.scenario) + " value " + std::to_string(c.forbidding);
    EXPECT_EQ(view.shows(kLink), c.linkShown) << what;
    if (c.linkShown) {
      EXPECT_EQ(view.textOf(kLink), message(c.emptyToken ? 158 : 154)) << what;
      EXPECT_EQ(view.focus(), kLink) << what;
    }
  }
}

TEST_F(MessageCoresTest, ClickingTheLinkMovesTheTileToTheOfferedState) {
  test::enableTrace();
  test::DebugOutputCapture trace;
  auto uninitialised = tileIn(false, CPUS_LOGON);
  ASSERT_EQ((*uninitialised)->CommandLinkClicked(kLink), S_OK);
  EXPECT_TRUE(uninitialised->waitForMessage(message(152)));  // label and PIN for the new token
  auto empty = tileIn(true, CPUS_LOGON);
  ASSERT_EQ((*empty)->CommandLinkClicked(kLink), S_OK);
  const auto asksForAccount = [](const host::TileView& view) { return view.textOf(2) == message(162); };
  EXPECT_TRUE(empty->sink().waitFor(empty->get(), asksForAccount, std::chrono::seconds(10)));
  EXPECT_TRUE(trace.contains("to 'lm2::CCredentialCoreInitializeToken'"));
  EXPECT_TRUE(trace.contains("to 'lm2::CCredentialCoreAddCredential'"));

  test::setNumber(settings::kProviderKeyPath, L"DisableTokenInitialization", 1);
  auto refused = tileIn(false, CPUS_LOGON);
  ASSERT_EQ((*refused)->CommandLinkClicked(kLink), S_OK);
  EXPECT_TRUE(trace.contains("command link was clicked but token initialization is not allowed"));
}

TEST_F(MessageCoresTest, AClickTwiceOnTheLinkOpensTheOfferedStateOnce) {
  test::enableTrace();
  test::DebugOutputCapture trace;
  auto empty = tileIn(true, CPUS_LOGON);
  // The second click comes before the tile has moved on (its handler is held back meanwhile): it
  // asks the state that is left.
  (*empty)->PauseResultHandler();
  ASSERT_EQ((*empty)->CommandLinkClicked(kLink), S_OK);
  ASSERT_EQ((*empty)->CommandLinkClicked(kLink), S_OK);
  PWSTR text = nullptr;
  (*empty)->GetStringValue(6, &text);  // LogonUI reads the tile: the handler goes on
  ::CoTaskMemFree(text);
  const auto asksForAccount = [](const host::TileView& view) { return view.textOf(2) == message(162); };
  EXPECT_TRUE(empty->sink().waitFor(empty->get(), asksForAccount, std::chrono::seconds(10)));
  EXPECT_TRUE(test::eventuallyTrue([&] { return trace.contains("dropping a result of state"); }));
  EXPECT_FALSE(trace.contains("invalid state transition detected"));
  EXPECT_EQ(empty->view().textOf(2), message(162));
}

TEST_F(MessageCoresTest, StartingTheInitializationAsTheTokenIsPulledFreezesNothing) {
  auto tile = tileIn(false, CPUS_LOGON);
  ASSERT_EQ((*tile)->CommandLinkClicked(kLink), S_OK);
  ASSERT_TRUE(tile->waitForMessage(message(152)));
  (*tile)->SetStringValue(7, L"Office");
  (*tile)->SetStringValue(8, L"2468");
  (*tile)->SetStringValue(11, L"2468");
  // The provider binds the tile anew (token pulled and connected again): while it holds the
  // tile's token, the user clicks "Initialize token now", whose state reads the token.
  std::atomic<bool> clicked{false};
  std::atomic<bool> started{false};
  std::thread click;
  tile->sink().onCall([&](const std::wstring& call) {
    if (call.rfind(L"DeleteFieldComboBoxItem", 0) != 0 || started.exchange(true)) return;
    click = std::thread([&] {
      (*tile)->CommandLinkClicked(kLink);
      clicked = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  });
  std::atomic<bool> rebound{false};
  std::thread provider([&] {
    const std::uint8_t other[] = {7, 8};
    const Token token(other, sizeof(other));
    (*tile)->SetRelatedToken(&token);
    rebound = true;
  });
  const bool finished = test::eventuallyTrue([&] { return clicked && rebound; }, std::chrono::seconds(10));
  if (!finished) {
    // The two threads wait for each other for good: nothing can end them but the process.
    ADD_FAILURE() << "the click and the new binding wait for each other (deadlock)";
    std::fflush(stdout);
    ::TerminateProcess(::GetCurrentProcess(), 3);
  }
  provider.join();
  click.join();
  tile->sink().onCall(nullptr);
  EXPECT_TRUE(tile->waitForMessage(message(107)));  // the new binding reads the token
}

TEST_F(MessageCoresTest, ATokenWithoutPinIsRefusedWhereTheAdministratorDisallowsIt) {
  test::setNumber(settings::kProviderKeyPath, L"TokenInitializationDisallowNullPIN", 1);
  auto tile = tileIn(false, CPUS_LOGON);
  ASSERT_EQ((*tile)->CommandLinkClicked(kLink), S_OK);
  ASSERT_TRUE(tile->waitForMessage(message(152)));
  EXPECT_FALSE(tile->view().shows(12));
  // A caller that ticks the hidden box all the same.
  EXPECT_EQ((*tile)->SetCheckboxValue(12, TRUE), E_INVALIDARG);
  BOOL checked = TRUE;
  PWSTR label = nullptr;
  ASSERT_EQ((*tile)->GetCheckboxValue(12, &checked, &label), S_OK);
  ::CoTaskMemFree(label);
  EXPECT_FALSE(checked);
}

}  // namespace
}  // namespace lm2
