// The tile's result handler: results wait while the tile is paused and are handled in arrival
// order, the stop event ends the handler in any case, and the transition table's outcomes (stay
// and update, change, no edge, no core) reach the screen.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "DebugOutputCapture.h"
#include "ProcessCounters.h"
#include "Watchdog.h"
#include "TestRegistry.h"
#include "TileHarness.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/LayerResultCodes.h"

namespace lm2 {
namespace {

using test::message;
using test::Tile;
using Completion = TokenEngineCompletion;

const std::uint8_t kTokenId[] = {1, 2, 3, 4};

std::size_t indexOf(const std::vector<std::string>& lines, const std::string& text) {
  for (std::size_t index = 0; index < lines.size(); ++index) {
    if (lines[index].find(text) != std::string::npos) return index;
  }
  return lines.size();
}

class ResultHandlerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { test::loadProviderResources(); }
  void SetUp() override {
    test::deleteValue(settings::kProviderKeyPath, L"CoreSet");
    test::enableTrace();
  }
  void TearDown() override { test::deleteValue(settings::kProviderKeyPath, L"CoreSet"); }

  static void bindToken(Tile& tile) {
    const Token token(kTokenId, sizeof(kTokenId));
    tile->SetRelatedToken(&token);
  }

  test::TestProvider provider;
};

TEST_F(ResultHandlerTest, ResultsWaitWhilePausedAndAreHandledInArrivalOrder) {
  Tile tile(provider);
  tile->PauseResultHandler();
  // In order, the first moves the tile to a message (row 27) that keeps the second (row 67); the
  // other way round the tile would search for tokens (row 26) and drop the first.
  tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(layer_codes::kFacadeNotInstalled));
  tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(tile.view().textOf(6), message(117)) << "handled while paused";

  tile->Advise(&tile.sink());  // LogonUI shows the tile again
  EXPECT_TRUE(tile.waitForMessage(message(106) + L" (0xe0000000e0100014)"));
}

TEST_F(ResultHandlerTest, StopEndsTheHandlerEvenWhilePaused) {
  test::DebugOutputCapture trace;
  {
    Tile tile(provider);
    tile->PauseResultHandler();
    tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));
  }
  EXPECT_TRUE(trace.contains("cancel AsyncResultHandlerFunction because stop event was set"));
  EXPECT_FALSE(trace.contains("async result available for processing"));
}

// A sink LogonUI handed the tile may let go of the tile while the tile calls it from its handler
// thread: the tile then goes on that thread, which can neither wait for itself nor touch the tile
// once it returns from the sink.
TEST_F(ResultHandlerTest, ATileLetGoOfInsideASinkCallGoesOnItsHandlerThread) {
  const int threads = test::threadsOfThisProcess();
  auto sink = ComPtr<host::RecordingCredentialEvents>::adopt(new host::RecordingCredentialEvents());
  std::atomic<CCredentialStub*> held{new CCredentialStub()};
  held.load()->Initialize(CPUS_LOGON, 0, nullptr, 0, &provider);  // before Advise: E_UNEXPECTED, as always
  held.load()->Advise(sink.get());
  sink->readTile(held.load(), test::fieldTypes());
  const UniqueHandle released(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  sink->onCall([&](const std::wstring& call) {
    if (call.rfind(L"SetFieldString 6", 0) != 0) return;
    CCredentialStub* last = held.exchange(nullptr);
    if (last == nullptr) return;
    last->UnInitialize();
    last->Release();  // LogonUI's only reference, dropped on the tile's handler thread
    ::SetEvent(released.get());
  });
  CtxTokenEngine4CP context(nullptr, held.load(), nullptr, nullptr, typeid(void),
                            Completion::TokenEngineInitAsyncCompletion);
  context.setResult(test::plainResult(test::kSuccess));  // row 26: the search message
  held.load()->EnqueueAsyncContext(context);
  test::finishesWithin(std::chrono::seconds(10), "the release of a tile on its handler thread",
                       [&] { ::WaitForSingleObject(released.get(), INFINITE); });
  EXPECT_TRUE(test::eventuallyTrue([&] { return test::threadsOfThisProcess() <= threads; }))
      << test::threadsOfThisProcess() << " threads, " << threads << " before";
}

TEST_F(ResultHandlerTest, AResultKeepingTheStateUpdatesItWithoutUnloadOrLoad) {
  test::DebugOutputCapture trace;
  Tile tile(provider);
  bindToken(tile);
  ASSERT_TRUE(tile.waitForMessage(message(107)));
  tile.deliver(Completion::TokenEngineGetTokenCapabilitiesCompletion, test::capabilities(true));  // row 1
  tile.deliver(Completion::TokenEngineGetTokenCapabilitiesCompletion,
               test::plainResult(layer_codes::kInvalidResponse));  // row 8
  ASSERT_TRUE(tile.waitForMessage(message(125) + L" (0xe0000000e0100006)"));

  const std::vector<std::string> lines = trace.lines();
  EXPECT_EQ(trace.count("Loading Core lm2::CCredentialCoreLoadTokenMessage"), 1u);
  const std::size_t update = indexOf(lines, "CCredentialCoreLoadTokenMessage::Update [START]");
  const std::size_t unload = indexOf(lines, "Unloading Core lm2::CCredentialCoreLoadTokenMessage");
  ASSERT_LT(update, lines.size());
  EXPECT_LT(update, unload);
}

TEST_F(ResultHandlerTest, AResultWithoutEdgeShowsMessage118OnlyWithAToken) {
  test::DebugOutputCapture trace;
  Tile tile(provider);
  tile.deliver(Completion::TokenEngineCheckPINCompletion, test::plainResult(test::kSuccess));
  tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));  // row 26
  ASSERT_TRUE(tile.waitForMessage(message(120)));
  EXPECT_TRUE(trace.contains("invalid state transition detected from core 'lm2::CCredentialCoreInitializeEngineMessage'"));

  bindToken(tile);
  tile.deliver(Completion::TokenEngineCheckPINCompletion, test::plainResult(test::kSuccess));
  EXPECT_TRUE(tile.waitForMessage(message(118)));
}

TEST_F(ResultHandlerTest, AStateWithoutCoreShowsMessage119) {
  test::DebugOutputCapture trace;
  Tile tile(provider);
  bindToken(tile);
  tile.deliver(Completion::TokenEngineListUsersOnTokenCompletion, test::userList({}, layer_codes::kFindFailed));
  ASSERT_TRUE(tile.waitForMessage(message(123) + L" (0xe0000000e0100004)"));  // row 9
  // Row 67 takes the named target, a state the registry cannot make.
  struct NoSuchState {};
  tile.deliver(Completion::None, test::plainResult(test::kSuccess), typeid(NoSuchState));
  ASSERT_TRUE(tile.waitForMessage(message(119)));
  EXPECT_TRUE(trace.contains("state transition results in core change from 'lm2::CCredentialCoreMessage' to 'lm2::"));
  EXPECT_TRUE(trace.contains("can not resolve type 'lm2::"));
}

TEST_F(ResultHandlerTest, ACoreSetWithoutTheStateFallsBackToTheDefaultCore) {
  test::setString(settings::kProviderKeyPath, L"CoreSet", L"Kaldera");
  Tile tile(provider);
  bindToken(tile);
  tile.deliver(Completion::TokenEngineListUsersOnTokenCompletion, test::userList({}, layer_codes::kFindFailed));
  EXPECT_TRUE(tile.waitForMessage(message(123) + L" (0xe0000000e0100004)"));  // row 9
}

TEST_F(ResultHandlerTest, AChangeWaitsUntilTheProviderAllowsIt) {
  Tile tile(provider);
  provider.refusals = 3;
  tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));
  ASSERT_TRUE(tile.waitForMessage(message(120)));
  EXPECT_EQ(provider.asks.load(), 4);
  EXPECT_EQ(provider.refusals.load(), 0);
}

TEST_F(ResultHandlerTest, ATileWhoseProviderIsGoneNeverChangesState) {
  test::DebugOutputCapture trace;
  {
    Tile tile(provider);
    tile->UnInitialize();
    tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));
    ASSERT_TRUE(test::eventuallyTrue([&] { return trace.contains("state transition results in core change"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(tile.messageText(), message(117));
  }
  EXPECT_FALSE(trace.contains("Loading Core lm2::CCredentialCoreSearchForTokenMessage"));
  EXPECT_EQ(provider.asks.load(), 0);
}

// A result that changed fields is reported to the provider only when LogonUI did not see it
// through a sink, or for CredUI.
TEST_F(ResultHandlerTest, TheProviderHearsOfAChangedLookOnlyWithoutSinkOrInCredUI) {
  struct Case {
    CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario;
    bool advise;
    std::vector<DWORD> expected;
  };
  for (const Case& c : {Case{CPUS_LOGON, false, {1}}, Case{CPUS_LOGON, true, {}}, Case{CPUS_CREDUI, true, {1}}}) {
    test::TestProvider own;
    Tile tile(own, c.scenario, nullptr, c.advise);
    tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));
    ASSERT_TRUE(test::eventuallyTrue([&] { return tile.messageText() == message(120); }));
    tile.deliver(Completion::TokenEngineCheckPINCompletion, test::plainResult(test::kSuccess));  // no edge, no change
    tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));
    ASSERT_TRUE(test::eventuallyTrue([&] { return own.asks.load() >= 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(own.guiChanges(), c.expected) << c.scenario << " advised " << c.advise;
  }
}

TEST_F(ResultHandlerTest, AResultAskedForAnEarlierBindingOfTheTokenIsDropped) {
  test::DebugOutputCapture trace;
  Tile tile(provider);
  bindToken(tile);
  const std::uint64_t first = tile->bindingId();
  bindToken(tile);  // pulled and connected again at once
  ASSERT_NE(tile->bindingId(), first);
  ASSERT_TRUE(tile.waitForMessage(message(107)));
  // The capability read of the first connection failed (its token was gone); then the new one's.
  tile.deliver(Completion::TokenEngineGetTokenCapabilitiesCompletion, test::plainResult(layer_codes::kInvalidResponse),
               typeid(void), nullptr, first);
  tile.deliver(Completion::TokenEngineGetTokenCapabilitiesCompletion, test::capabilities(false), typeid(void), nullptr,
               tile->bindingId());
  EXPECT_TRUE(tile.waitForMessage(message(102)));  // row 3: not initialised, no failure shown
  EXPECT_TRUE(trace.contains("dropping a result of token binding"));
}

TEST_F(ResultHandlerTest, ATileWhoseProviderIsGoneLooksAgainOnlyNowAndThen) {
  test::DebugOutputCapture trace;
  Tile tile(provider);
  tile->UnInitialize();
  // A state change that would wait for the provider's leave, which never comes.
  tile.deliver(Completion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  std::size_t looks = 0;
  for (const std::string& line : trace.lines()) {
    if (line.find("no provider...state change waits") != std::string::npos) ++looks;
  }
  EXPECT_GE(looks, 1u);
  EXPECT_LE(looks, 10u) << "the handler spins";
  EXPECT_EQ(tile.view().textOf(6), message(117));  // and never changes the state
}

}  // namespace
}  // namespace lm2
