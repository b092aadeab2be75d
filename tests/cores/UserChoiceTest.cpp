// The combo box of a token with several users, as LogonUI reads it: what the flows on the logon
// host never ask (an entry past the end, a submit with nothing chosen).
#include <gtest/gtest.h>

#include "TileHarness.h"

namespace lm2 {
namespace {

using Completion = TokenEngineCompletion;
using test::message;
using test::Tile;

const std::uint8_t kTokenId[] = {5, 5};
constexpr DWORD kUsers = 5;

class UserChoiceTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { test::loadProviderResources(); }

  // A tile whose token holds an unknown account and the running user, in that order.
  std::unique_ptr<Tile> tileWithUsers(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario) {
    auto tile = std::make_unique<Tile>(provider, scenario);
    const Token token(kTokenId, sizeof(kTokenId));
    (*tile)->SetRelatedToken(&token);
    tile->deliver(Completion::TokenEngineListUsersOnTokenCompletion,
                  test::userList({L"NOWHERE\\ghost", L".\\" + test::currentUserName()}));
    EXPECT_TRUE(tile->sink().waitFor(tile->get(), [](const host::TileView& view) { return view.comboItems.size() == 3; }));
    return tile;
  }

  test::TestProvider provider;
};

TEST_F(UserChoiceTest, TheBoxListsTheTilesEntryAndTheUsersAndRefusesEntriesPastTheEnd) {
  for (auto scenario : {CPUS_LOGON, CPUS_CREDUI}) {
    auto tile = tileWithUsers(scenario);
    DWORD count = 0;
    DWORD selected = 0;
    ASSERT_EQ((*tile)->GetComboBoxValueCount(kUsers, &count, &selected), S_OK);
    EXPECT_EQ(count, 3u);
    // Outside CredUI the first user who can log on; in CredUI nothing (the tile's own entry).
    EXPECT_EQ(selected, scenario == CPUS_CREDUI ? 0u : 2u) << scenario;

    PWSTR text = reinterpret_cast<PWSTR>(1);
    EXPECT_EQ((*tile)->GetComboBoxValueAt(kUsers, 3, &text), E_INVALIDARG);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ((*tile)->SetComboBoxSelectedValue(kUsers, 3), E_INVALIDARG);
    ASSERT_EQ((*tile)->GetComboBoxValueAt(kUsers, 1, &text), S_OK);
    EXPECT_STREQ(text, L"NOWHERE\\ghost");
    ::CoTaskMemFree(text);
  }
}

TEST_F(UserChoiceTest, ASubmitWithNothingChosenOrAnUnknownAccountIsRefused) {
  auto tile = tileWithUsers(CPUS_LOGON);
  struct Case {
    DWORD entry;
    UINT text;
  };
  for (const Case c : {Case{0, 129}, Case{1, 122}}) {
    ASSERT_EQ((*tile)->SetComboBoxSelectedValue(kUsers, c.entry), S_OK);
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE response = CPGSR_RETURN_CREDENTIAL_FINISHED;
    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION serialization{};
    PWSTR status = nullptr;
    CREDENTIAL_PROVIDER_STATUS_ICON icon = CPSI_NONE;
    EXPECT_EQ((*tile)->GetSerialization(&response, &serialization, &status, &icon), E_UNEXPECTED) << c.entry;
    EXPECT_EQ(response, CPGSR_NO_CREDENTIAL_NOT_FINISHED);
    EXPECT_EQ(icon, CPSI_ERROR);
    EXPECT_EQ(status ? std::wstring(status) : L"", message(c.text)) << c.entry;
    ::CoTaskMemFree(status);
  }
}

}  // namespace
}  // namespace lm2
