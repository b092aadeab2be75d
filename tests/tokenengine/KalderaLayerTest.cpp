// The card-id layer against the signed virtual token engine (the cards) and the test directory
// (their accounts): the account a card names, cards that name nobody or several accounts, a
// directory that cannot be reached, and the credential operations a card cannot serve.
#include "tokenengine/TokenEngineAbstractionLayerKaldera.h"

#include <gtest/gtest.h>

#include <string>

#include "Completions.h"
#include "EngineControl.h"
#include "EngineVariants.h"
#include "TestDirectory.h"
#include "TestRegistry.h"
#include "settings/KalderaSettings.h"
#include "tokenengine/DirectoryResultCodes.h"
#include "tokenengine/LayerResultCodes.h"
#include "tokenengine/TokenCapability.h"

namespace lm2 {
namespace {

constexpr char kCards[] = R"({"tokens":[{"id":"04A1B2C3","label":"Card"},{"id":"0BADCAFE","label":"Twin card"},
  {"id":"0FFFFFFF","label":"Unknown card"},{"id":"04C0FFEE","label":"Literal card"},
  {"id":"04B0B0B0","label":"Bob's card"}]})";

using test::codeOf;
using test::run;

class KalderaLayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    result::setComponentId(result::kModuleComponentId);
    ASSERT_TRUE(test::installSignedEngine());
    const std::wstring key = settings::kKalderaKeyPath;
    test::deleteKeyTree(key);
    test::setString(key, L"LdapServer", L"127.0.0.1:" + std::to_wstring(test::testDirectoryPort("ldaps")));
    test::setString(key, L"LdapAuthDn", L"cn=reader,dc=lm2,dc=test");
    test::setString(key, L"LdapAuthPw", L"reader-secret");
    test::setString(key, L"LdapSearchBase", L"ou=people,dc=lm2,dc=test");
    test::setString(key, L"LdapAttributeCardId", L"employeeNumber");
    test::setString(key, L"LdapAttributeUsername", L"uid");
    test::setString(key, L"UserDefaultDomain", L"LM2TEST");
    layer_ = new TokenEngineAbstractionLayerKaldera();
    ASSERT_EQ(codeOf(run([&](auto c) { layer_->InitializeAsync(c); })), result::success());
    engine_ = vte::EngineControl::ofLoadedEngine();
    ASSERT_TRUE(engine_.available());
    ASSERT_EQ(engine_.loadDescription(kCards), 0);
  }

  void TearDown() override {
    delete layer_;
    test::deleteKeyTree(settings::kKalderaKeyPath);
  }

  static Token card(std::uint32_t id) {
    const std::uint8_t bytes[] = {static_cast<std::uint8_t>(id >> 24), static_cast<std::uint8_t>(id >> 16),
                                  static_cast<std::uint8_t>(id >> 8), static_cast<std::uint8_t>(id)};
    return Token(bytes, sizeof bytes);
  }

  std::vector<std::wstring> accountsOf(const Token& token, ExtendedResult expected = result::success()) {
    auto context = run([&](auto c) { layer_->ListUsersOnTokenAsync(c, token); });
    EXPECT_EQ(codeOf(context), expected);
    std::vector<std::wstring> names;
    if (const auto* list = context->getResultAs<AsyncResultListUsers>()) {
      for (const User& user : list->getUsers()) {
        names.push_back(user.qualifiedName());
        EXPECT_TRUE(user.token() && user.token()->sameToken(token));
      }
    }
    return names;
  }

  TokenEngineAbstractionLayerKaldera* layer_ = nullptr;
  vte::EngineControl engine_;
};

using Names = std::vector<std::wstring>;

TEST_F(KalderaLayerTest, ACardNamesTheAccountOfItsDirectoryEntryInItsDomain) {
  EXPECT_EQ(accountsOf(card(0x04A1B2C3)), Names{L"LM2TEST\\alice"});
  EXPECT_EQ(accountsOf(card(0x04B0B0B0)), Names{L"LAB\\bob"});  // a domain of its own stays
  test::setString(settings::kKalderaKeyPath, L"LdapPrependToCardId", L"(*)");
  EXPECT_EQ(accountsOf(card(0x04C0FFEE)), Names{L"LM2TEST\\literal"});
  EXPECT_EQ(accountsOf(card(0x04A1B2C3)), Names{});
}

TEST_F(KalderaLayerTest, ACardOfNobodyHasNoUserOneOfSeveralIsAnErrorAndAFailureKeepsItsCode) {
  EXPECT_EQ(accountsOf(card(0x0FFFFFFF)), Names{});
  EXPECT_EQ(accountsOf(card(0x0BADCAFE), directory_codes::kAmbiguousCard), Names{});
  test::setString(settings::kKalderaKeyPath, L"LdapAttributeUsername", L"description");
  EXPECT_EQ(accountsOf(card(0x04A1B2C3), directory_codes::kEntryWithoutAccount), Names{});
  test::setString(settings::kKalderaKeyPath, L"LdapAuthPw", L"");
  EXPECT_EQ(accountsOf(card(0x04A1B2C3), directory_codes::kEmptyBindPassword), Names{});
}

TEST_F(KalderaLayerTest, ACardIsInitialisedWithoutPinAndItsCredentialOperationsNeverReachTheEngine) {
  auto capability = run([&](auto c) { layer_->GetTokenCapabilitiesAsync(c, card(0x04A1B2C3)); });
  const auto* card0 = capability->getResultAs<AsyncResultWithData<TokenCapability>>();
  ASSERT_NE(card0, nullptr);
  EXPECT_TRUE(card0->getData().isInitialized());
  EXPECT_TRUE(card0->getData().isNullPinUsed());
  EXPECT_FALSE(card0->getData().canBeInitialized());

  const std::uint64_t tasks = engine_.tasksStarted();
  const Token token = card(0x04A1B2C3);
  const User user(L"LM2TEST\\alice", &token);
  const ExtendedResult refused = layer_codes::kNotForAccessCards;
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->GetPasswordForUserAsync(c, user); })), refused);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CheckPINAsync(c, user, L"1234"); })), refused);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CheckPINAsync(c, token, L"1234"); })), refused);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->AskPINAsync(c, user); })), refused);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->ChangePasswordOfUserAsync(c, user, L"New-Pw-1"); })), refused);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->InitializeTokenAsync(c, token, L"label", L"1234", false); })), refused);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->ChangePINAsync(c, token, L"1234", L"5678"); })), refused);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CreateCredentialAsync(c, token, L"alice", L"Pw-1"); })), refused);
  EXPECT_EQ(engine_.tasksStarted(), tasks);
  // The cards themselves come through the engine.
  auto list = run([&](auto c) { layer_->GetTokenListAsync(c); });
  ASSERT_NE(list->getResultAs<AsyncResultGetTokenList>(), nullptr);
  EXPECT_EQ(list->getResultAs<AsyncResultGetTokenList>()->getTokens().size(), 5u);
}

}  // namespace
}  // namespace lm2
