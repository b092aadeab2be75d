// Reading a token's capabilities: the order of the reads, and the PIN pad only where the
// administrator enabled it.
#include "tokenengine/TokenCapability.h"

#include <gtest/gtest.h>

#include "DebugOutputCapture.h"
#include "TestRegistry.h"
#include "items/ItemValues.h"
#include "settings/ProviderSettings.h"

namespace lm2 {
namespace {

using items::CItemBoolean;
using items::CItemStringA;
using items::CItemVector;

// A capability tree with the given flags (all present) and label.
std::unique_ptr<CItemVector> capabilities(bool initialized, bool nullPinUsed, bool pinPad, const std::string& label,
                                          bool withLabel = true) {
  auto root = std::make_unique<CItemVector>("tc");
  auto add = [&](const char* name, bool value) {
    auto item = std::make_unique<CItemBoolean>(name);
    item->setValue(value);
    root->addItem(std::move(item));
  };
  add("tcii", initialized);
  add("tccbi", true);
  add("tcinpu", nullPinUsed);
  add("tcic2", pinPad);
  add("tcinpp", true);
  if (withLabel) root->addItem(std::make_unique<CItemStringA>("tcl", label));
  return root;
}

class TokenCapabilityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::enableTrace();
    test::deleteValue(settings::kProviderKeyPath, L"EnableAlternativeAuthenticationPath");
  }
  void TearDown() override { test::deleteValue(settings::kProviderKeyPath, L"EnableAlternativeAuthenticationPath"); }

  test::DebugOutputCapture trace_;
};

TEST_F(TokenCapabilityTest, UninitialisedTokenReadsNothingElse) {
  test::setNumber(settings::kProviderKeyPath, L"EnableAlternativeAuthenticationPath", 1);
  const TokenCapability capability(*capabilities(false, true, true, "Token A"));
  EXPECT_FALSE(capability.isInitialized());
  EXPECT_TRUE(capability.canBeInitialized());
  EXPECT_TRUE(capability.isNullPinPossible());
  EXPECT_FALSE(capability.isNullPinUsed());
  EXPECT_FALSE(capability.hasPinPad());
  EXPECT_EQ(capability.label(), L"");
  EXPECT_TRUE(trace_.contains("token is not initialized"));
}

TEST_F(TokenCapabilityTest, PinPadNeedsAPinAndTheAdministratorsConsent) {
  test::setNumber(settings::kProviderKeyPath, L"EnableAlternativeAuthenticationPath", 1);
  const TokenCapability capability(*capabilities(true, true, true, "Token A"));
  EXPECT_TRUE(capability.isNullPinUsed());
  EXPECT_FALSE(capability.hasPinPad());
  EXPECT_EQ(capability.label(), L"Token A");

  test::deleteValue(settings::kProviderKeyPath, L"EnableAlternativeAuthenticationPath");
  EXPECT_FALSE(TokenCapability(*capabilities(true, false, true, "T")).hasPinPad());
  test::setNumber(settings::kProviderKeyPath, L"EnableAlternativeAuthenticationPath", 0);
  EXPECT_FALSE(TokenCapability(*capabilities(true, false, true, "T")).hasPinPad());
  test::setNumber(settings::kProviderKeyPath, L"EnableAlternativeAuthenticationPath", 1);
  EXPECT_TRUE(TokenCapability(*capabilities(true, false, true, "T")).hasPinPad());
  EXPECT_FALSE(TokenCapability(*capabilities(true, false, false, "T")).hasPinPad());
}

TEST_F(TokenCapabilityTest, LabelProblemsGiveAnEmptyLabel) {
  const TokenCapability invalid(*capabilities(true, false, false, "bad \xC3\x28 utf8"));
  EXPECT_EQ(invalid.label(), L"");
  EXPECT_TRUE(trace_.contains("failed to convert label to wide character string"));

  const TokenCapability missing(*capabilities(true, false, false, "", false));
  EXPECT_EQ(missing.label(), L"");
  EXPECT_TRUE(trace_.contains("failed to fetch token label"));

  EXPECT_EQ(TokenCapability(*capabilities(true, false, false, "Gr\xC3\xBCn")).label(), L"Gr\u00fcn");
}

}  // namespace
}  // namespace lm2
