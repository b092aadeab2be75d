// Which tile LogonUI selects after the first enumeration: the tile a state marked, and a tile in
// auto-logon mode before all others.
#include <gtest/gtest.h>

#include "TestRegistry.h"
#include "TileHarness.h"
#include "credential/CredentialStub.h"
#include "provider/LM2Provider.h"

namespace lm2 {
namespace {

struct Enumeration {
  DWORD count = 0;
  DWORD defaultTile = 0;
  BOOL autoLogon = FALSE;
};

Enumeration enumerate(CLM2Provider* provider) {
  Enumeration result;
  EXPECT_EQ(provider->GetCredentialCount(&result.count, &result.defaultTile, &result.autoLogon), S_OK);
  return result;
}

CCredentialStub* tileAt(CLM2Provider* provider, DWORD index) {
  ComPtr<ICredentialProviderCredential> tile;
  EXPECT_EQ(provider->GetCredentialAt(index, tile.put()), S_OK);
  // The same binary made it: the tile itself.
  return static_cast<CCredentialStub*>(static_cast<ICredentialProviderCredential2*>(tile.get()));
}

TEST(DefaultTileTest, MarkedAndAutoLogonTilesAreTheDefault) {
  test::loadProviderResources();
  auto* provider = new CLM2Provider();
  ASSERT_EQ(provider->SetUsageScenario(CPUS_LOGON, 0), S_OK);
  ASSERT_EQ(enumerate(provider).count, 1u);  // the first enumeration's default is the version's
  EXPECT_EQ(enumerate(provider).defaultTile, CREDENTIAL_PROVIDER_NO_DEFAULT);
  CCredentialStub* tile = tileAt(provider, 0);
  tile->SetDefaultTile(true);
  Enumeration marked = enumerate(provider);
  EXPECT_EQ(marked.defaultTile, 0u);
  EXPECT_FALSE(marked.autoLogon);
  tile->SetDefaultTile(false);
  tile->SetAutoLogonMode(true);
  Enumeration automatic = enumerate(provider);
  EXPECT_EQ(automatic.defaultTile, 0u);
  EXPECT_TRUE(automatic.autoLogon);
  provider->Release();
}

}  // namespace
}  // namespace lm2
