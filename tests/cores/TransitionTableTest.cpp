// The transition table: which row a result takes in each state, on Windows 7 and Windows 10, and
// the factory registry behind it. Each row is reached by a case of its own, so every predicate is
// seen holding; the rows after it show where it does not.
#include <gtest/gtest.h>

#include <optional>

#include "DomainMemberSeam.h"
#include "ProviderUser.h"
#include "TestRegistry.h"
#include "TileHarness.h"
#include "cores/AddCredentialCore.h"
#include "cores/ChangePasswordIsMandatoryCore.h"
#include "cores/ChangePasswordOnTokenCore.h"
#include "cores/ChangePasswordWithTokenCore.h"
#include "cores/InitializeTokenCore.h"
#include "cores/KnownUserLogonCores.h"
#include "cores/MultiUserTokenLogonCore.h"
#include "cores/MessageCores.h"
#include "cores/StateTransitionTable.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/LayerResultCodes.h"

namespace lm2 {
namespace {

using Completion = TokenEngineCompletion;
using test::Tile;

constexpr ExtendedResult kWrongPassword = 0xC0100000C000006Dull;
constexpr ExtendedResult kPasswordMustChange = 0xC0100000C0000224ull;

enum class TileKind { Generic, CredUI, User, Connected, ChangePassword, UnnamedChangePassword };

struct Row {
  const char* what;
  std::type_index state;
  TileKind tile;
  Completion routine;
  std::function<std::unique_ptr<AsyncResult>()> result;
  std::size_t win7Row;
  std::size_t win10Row;
  std::type_index target = typeid(void);
  std::optional<std::type_index> startedFrom = std::nullopt;
  bool disallowAdding = false;
};

class TransitionTableTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { test::loadProviderResources(); }
  void SetUp() override { test::deleteValue(settings::kProviderKeyPath, L"DisallowAddingCredentials"); }
  void TearDown() override { test::deleteValue(settings::kProviderKeyPath, L"DisallowAddingCredentials"); }

  static bool windows7() { return test::expectedWindows() == "win7"; }

  Tile& tile(TileKind kind) {
    auto& slot = m_tiles[static_cast<int>(kind)];
    if (!slot) {
      const std::wstring me = L".\\" + test::currentUserName();
      ICredentialProviderUser* user = nullptr;
      auto scenario = CPUS_LOGON;
      if (kind == TileKind::CredUI) scenario = CPUS_CREDUI;
      if (kind == TileKind::User || kind == TileKind::ChangePassword) {
        user = new host::ProviderUser(L"S-1-5-21-0-0-0-1000", Identity_LocalUserProvider, me);
      }
      if (kind == TileKind::Connected) user = new host::ProviderUser(L"S-1-5-21-7-7-7-1001", test::kOtherProvider, me);
      if (kind == TileKind::ChangePassword || kind == TileKind::UnnamedChangePassword) scenario = CPUS_CHANGE_PASSWORD;
      slot = std::make_unique<Tile>(m_provider, scenario, user, false);
      if (user) user->Release();
    }
    return *slot;
  }

  std::size_t rowFor(const Row& row) {
    Tile& target = tile(row.tile);
    std::shared_ptr<CtxData> data;
    if (row.startedFrom) data = std::make_shared<CtxDataWithData<std::type_index>>(nullptr, *row.startedFrom);
    CtxTokenEngine4CP context(nullptr, target.get(), nullptr, data, row.target, row.routine);
    context.setResult(row.result());
    target->setHandledCompletion(row.routine);
    return StateTransitionTable::instance().find(row.state, target.get(), &context).row;
  }

  test::DomainMemberSeam m_domain;
  ScopedOsSeam m_seam{m_domain};
  test::TestProvider m_provider;
  std::unique_ptr<Tile> m_tiles[6];
};

auto ok() { return [] { return test::plainResult(test::kSuccess); }; }
auto code(ExtendedResult value) { return [value] { return test::plainResult(value); }; }
auto users(std::vector<std::wstring> names, ExtendedResult result = test::kSuccess) {
  return [names, result] { return test::userList(names, result); };
}
auto caps(bool initialized) { return [initialized] { return test::capabilities(initialized); }; }

std::wstring me() { return L".\\" + test::currentUserName(); }

TEST_F(TransitionTableTest, EveryRowIsTakenWhereItsPredicatesHold) {
  using LoadToken = CCredentialCoreLoadTokenMessage;
  using KnownUser = CCredentialCoreKnownUserLogon;
  using MultiUser = CCredentialCoreMultiUserTokenLogon;
  using OnToken = CCredentialCoreChangePasswordOnToken;
  using WithToken = CCredentialCoreChangePasswordWithToken;
  using Mandatory = CCredentialCoreChangePasswordIsMandatory;
  using Init = Completion;
  // An account of another domain, resolved through the domain member seam.
  const std::wstring anna = L"CORP\\anna";
  const std::type_index loadToken = typeid(LoadToken);
  const auto G = TileKind::Generic;
  const auto U = TileKind::User;
  const std::vector<Row> rows = {
      {"capabilities, initialised", loadToken, G, Init::TokenEngineGetTokenCapabilitiesCompletion, caps(true), 1, 1},
      {"engine started while loading", loadToken, G, Init::TokenEngineInitAsyncCompletion, ok(), 2, 2},
      {"capabilities, not initialised", loadToken, G, Init::TokenEngineGetTokenCapabilitiesCompletion, caps(false), 3,
       3},
      {"named target", typeid(CCredentialCoreTokenNotInitialized), G, Init::None, ok(), 4, 4,
       typeid(CCredentialCoreInitializeToken)},
      {"initialised, adding allowed", typeid(CCredentialCoreTokenNotInitialized), G,
       Init::TokenEngineInitializeTokenCompletion, ok(), 5, 5},
      {"initialised, adding disallowed", typeid(CCredentialCoreTokenNotInitialized), G,
       Init::TokenEngineInitializeTokenCompletion, ok(), 6, 6, typeid(void), std::nullopt, true},
      {"initialisation failed", typeid(CCredentialCoreTokenNotInitialized), G,
       Init::TokenEngineInitializeTokenCompletion, code(layer_codes::kFindFailed), 7, 7},
      {"capabilities failed", loadToken, G, Init::TokenEngineGetTokenCapabilitiesCompletion,
       code(layer_codes::kFindFailed), 8, 8},
      {"user list failed", loadToken, G, Init::TokenEngineListUsersOnTokenCompletion,
       users({}, layer_codes::kFindFailed), 9, 9},
      {"generic tile, one account", loadToken, G, Init::TokenEngineListUsersOnTokenCompletion, users({me()}), 10, 10},
      {"CredUI, one user without account", loadToken, TileKind::CredUI, Init::TokenEngineListUsersOnTokenCompletion,
       users({L"nobody-a"}), 11, 11},
      {"tile user among several", loadToken, U, Init::TokenEngineListUsersOnTokenCompletion, users({anna, me()}),
       12, 12},
      {"tile user alone", loadToken, U, Init::TokenEngineListUsersOnTokenCompletion, users({me()}), 10, 12},
      {"generic tile, two accounts", loadToken, G, Init::TokenEngineListUsersOnTokenCompletion, users({anna, me()}),
       13, 13},
      {"CredUI, two users without account", loadToken, TileKind::CredUI, Init::TokenEngineListUsersOnTokenCompletion,
       users({L"nobody-a", L"nobody-b"}), 14, 14},
      {"connected account on token", loadToken, TileKind::Connected, Init::TokenEngineListUsersOnTokenCompletion,
       users({me()}), 10, 15},
      {"no user", loadToken, G, Init::TokenEngineListUsersOnTokenCompletion, users({}), 16, 16},
      {"tile user not on token", loadToken, U, Init::TokenEngineListUsersOnTokenCompletion, users({anna}), 10, 17},
      {"known user: PIN checked", typeid(KnownUser), G, Init::TokenEngineCheckPINCompletion, ok(), 18, 18},
      {"known user: password read", typeid(KnownUser), G, Init::TokenEngineGetPasswordCompletion, ok(), 19, 19},
      {"known user: logon reported", typeid(KnownUser), G, Init::TokenEngineNotifyTokenAuthentificationCompletion,
       ok(), 20, 20},
      {"known user: PIN pad", typeid(KnownUser), G, Init::TokenEngineAskPINCompletion, ok(), 21, 21},
      {"several users: PIN checked", typeid(MultiUser), G, Init::TokenEngineCheckPINCompletion, ok(), 22, 22},
      {"several users: password read", typeid(MultiUser), G, Init::TokenEngineGetPasswordCompletion, ok(), 23, 23},
      {"several users: logon reported", typeid(MultiUser), G, Init::TokenEngineNotifyTokenAuthentificationCompletion,
       ok(), 24, 24},
      {"several users: PIN pad", typeid(MultiUser), G, Init::TokenEngineAskPINCompletion, ok(), 25, 25},
      {"engine started", typeid(CCredentialCoreInitializeEngineMessage), G, Init::TokenEngineInitAsyncCompletion, ok(),
       26, 26},
      {"no engine installed", typeid(CCredentialCoreInitializeEngineMessage), G, Init::TokenEngineInitAsyncCompletion,
       code(layer_codes::kFacadeNotInstalled), 27, 27},
      {"engine failed", typeid(CCredentialCoreInitializeEngineMessage), G, Init::TokenEngineInitAsyncCompletion,
       code(layer_codes::kIncompatibleLibrary), 28, 28},
      {"engine started on retry", typeid(CCredentialCoreTEInitializationFailed), G,
       Init::TokenEngineInitAsyncCompletion, ok(), 29, 29},
      {"no engine on retry", typeid(CCredentialCoreTEInitializationFailed), G, Init::TokenEngineInitAsyncCompletion,
       code(layer_codes::kFacadeNotInstalled), 30, 30},
      {"engine failed again", typeid(CCredentialCoreTEInitializationFailed), G, Init::TokenEngineInitAsyncCompletion,
       code(layer_codes::kIncompatibleLibrary), 31, 31},
      {"no user with an account", loadToken, G, Init::TokenEngineListUsersOnTokenCompletion, users({L"nobody-a"}), 32,
       32},
      {"known user: wrong password", typeid(KnownUser), G, Init::None, code(kWrongPassword), 33, 33},
      {"several users: wrong password", typeid(MultiUser), G, Init::None, code(kWrongPassword), 34, 34},
      {"on token: wrong password", typeid(OnToken), G, Init::None, code(kWrongPassword), 35, 35},
      {"on token: PIN checked", typeid(OnToken), G, Init::TokenEngineCheckPINCompletion, ok(), 36, 36},
      {"on token: changed", typeid(OnToken), G, Init::TokenEngineChangePasswordOnTokenCompletion, ok(), 37, 37},
      {"on token: logon reported", typeid(OnToken), G, Init::TokenEngineNotifyTokenAuthentificationCompletion, ok(),
       38, 38},
      {"on token: back to known user", typeid(OnToken), G, Init::None, code(layer_codes::kObjectMissing), 39, 39,
       typeid(void), std::type_index(typeid(KnownUser))},
      {"on token: back to several users", typeid(OnToken), G, Init::None, code(layer_codes::kObjectMissing), 40, 40,
       typeid(void), std::type_index(typeid(MultiUser))},
      {"change password: user not on token", loadToken, TileKind::ChangePassword,
       Init::TokenEngineListUsersOnTokenCompletion, users({anna}), 41, 41},
      {"change password: user on token", loadToken, TileKind::ChangePassword,
       Init::TokenEngineListUsersOnTokenCompletion, users({anna, me()}), 42, 42},
      {"with token: PIN checked", typeid(WithToken), G, Init::TokenEngineCheckPINCompletion, ok(), 43, 43},
      {"with token: changed", typeid(WithToken), G, Init::TokenEngineChangePasswordOnTokenCompletion, ok(), 44, 44},
      {"known user: must change", typeid(KnownUser), G, Init::None, code(kPasswordMustChange), 45, 45},
      {"several users: must change", typeid(MultiUser), G, Init::None, code(kPasswordMustChange), 46, 46},
      {"mandatory: PIN checked", typeid(Mandatory), G, Init::TokenEngineCheckPINCompletion, ok(), 47, 47},
      {"mandatory: changed", typeid(Mandatory), G, Init::TokenEngineChangePasswordOnTokenCompletion, ok(), 48, 48},
      {"mandatory: logon reported", typeid(Mandatory), G, Init::TokenEngineNotifyTokenAuthentificationCompletion, ok(),
       49, 49},
      {"on token: must change", typeid(OnToken), G, Init::None, code(kPasswordMustChange), 50, 50},
      {"mandatory: wrong password", typeid(Mandatory), G, Init::None, code(kWrongPassword), 51, 51},
      {"with token: password read", typeid(WithToken), G, Init::TokenEngineGetPasswordCompletion, ok(), 52, 52},
      {"mandatory: password read", typeid(Mandatory), G, Init::TokenEngineGetPasswordCompletion, ok(), 53, 53},
      {"token initialised, adding allowed", typeid(CCredentialCoreInitializeToken), G,
       Init::TokenEngineInitializeTokenCompletion, ok(), 54, 54},
      {"token initialised, adding disallowed", typeid(CCredentialCoreInitializeToken), G,
       Init::TokenEngineInitializeTokenCompletion, ok(), 55, 55, typeid(void), std::nullopt, true},
      {"token initialisation failed", typeid(CCredentialCoreInitializeToken), G,
       Init::TokenEngineInitializeTokenCompletion, code(layer_codes::kFindFailed), 56, 56},
      {"empty token: named target", typeid(CCredentialCoreEmptyToken), G, Init::None, ok(), 57, 57,
       typeid(CCredentialCoreAddCredential)},
      {"empty token: users listed", typeid(CCredentialCoreEmptyToken), G, Init::TokenEngineListUsersOnTokenCompletion,
       users({me()}), 58, 58},
      {"adding: PIN checked", typeid(CCredentialCoreAddCredential), G, Init::TokenEngineCheckPINCompletion, ok(), 59,
       59},
      {"adding: PIN pad", typeid(CCredentialCoreAddCredential), G, Init::TokenEngineAskPINCompletion, ok(), 60, 60},
      {"adding: created", typeid(CCredentialCoreAddCredential), G, Init::TokenEngineCreateCredentialCompletion, ok(),
       61, 61},
      {"adding: logon reported", typeid(CCredentialCoreAddCredential), G,
       Init::TokenEngineNotifyTokenAuthentificationCompletion, ok(), 62, 62},
      {"adding: users listed", typeid(CCredentialCoreAddCredential), G, Init::TokenEngineListUsersOnTokenCompletion,
       users({me()}), 63, 63},
      {"adding: must change", typeid(CCredentialCoreAddCredential), G, Init::None, code(kPasswordMustChange), 64, 64},
      {"adding: listing failed", typeid(CCredentialCoreAddCredential), G, Init::TokenEngineListUsersOnTokenCompletion,
       users({}, layer_codes::kFindFailed), 65, 65},
      {"adding: no user listed", typeid(CCredentialCoreAddCredential), G, Init::TokenEngineListUsersOnTokenCompletion,
       users({}), 66, 66},
      {"a message keeps everything", typeid(CCredentialCoreMessage), G, Init::TokenEngineCheckPINCompletion,
       code(layer_codes::kFindFailed), 67, 67},
      {"known user: card looked up again", typeid(CCredentialCoreKnownUserLogon), G,
       Init::TokenEngineListUsersOnTokenCompletion, users({me()}), 68, 68},
      {"change password: Windows named no user", loadToken, TileKind::UnnamedChangePassword,
       Init::TokenEngineListUsersOnTokenCompletion, users({anna, me()}), 69, 69},
      {"searching has no edge", typeid(CCredentialCoreSearchForTokenMessage), G, Init::TokenEngineInitAsyncCompletion,
       ok(), 0, 0},
      {"loading ignores a PIN check", loadToken, G, Init::TokenEngineCheckPINCompletion, ok(), 0, 0},
  };
  for (const Row& row : rows) {
    if (row.disallowAdding) test::setNumber(settings::kProviderKeyPath, L"DisallowAddingCredentials", 1);
    EXPECT_EQ(rowFor(row), windows7() ? row.win7Row : row.win10Row) << row.what;
    test::deleteValue(settings::kProviderKeyPath, L"DisallowAddingCredentials");
  }
}

TEST_F(TransitionTableTest, OnWindows7ATileUserAmongSeveralTakesTheKnownUserRowBeforeTheMultiUserRow) {
  const Row row{"", typeid(CCredentialCoreLoadTokenMessage), TileKind::User,
                Completion::TokenEngineListUsersOnTokenCompletion, users({L"CORP\\anna", me()}), 12, 12};
  EXPECT_EQ(rowFor(row), 12u);
  Tile& userTile = tile(TileKind::User);
  CtxTokenEngine4CP context(nullptr, userTile.get(), nullptr, nullptr, typeid(void), row.routine);
  context.setResult(row.result());
  EXPECT_EQ(StateTransitionTable::instance().edges()[12]->holds(userTile.get(), &context), windows7()) << "row 13";
}

TEST_F(TransitionTableTest, ChangingThePasswordNeverTakesTheLogonRows) {
  const std::vector<std::vector<std::wstring>> lists = {
      {me()}, {L"CORP\\anna"}, {L"CORP\\anna", me()}, {L"nobody-a"}, {L"nobody-a", L"nobody-b"}};
  for (const auto& list : lists) {
    const std::size_t row = rowFor({"", typeid(CCredentialCoreLoadTokenMessage), TileKind::ChangePassword,
                                    Completion::TokenEngineListUsersOnTokenCompletion, users(list), 0, 0});
    EXPECT_TRUE(row < 10 || row > 17) << row;
  }
}

TEST_F(TransitionTableTest, PredicatesWithoutTileOrContextNeverHold) {
  Tile& generic = tile(TileKind::Generic);
  CtxTokenEngine4CP context(nullptr, generic.get(), nullptr, nullptr, typeid(CCredentialCoreMessage),
                            Completion::TokenEngineInitAsyncCompletion);
  context.setResult(test::plainResult(test::kSuccess));
  for (const auto& edge : StateTransitionTable::instance().edges()) {
    for (TransitionPredicate predicate : edge->predicates()) {
      EXPECT_FALSE(predicate(nullptr, &context));
      EXPECT_FALSE(predicate(generic.get(), nullptr));
    }
  }
  EXPECT_EQ(StateTransitionTable::instance().edges().size(), 69u);
}

}  // namespace
}  // namespace lm2
