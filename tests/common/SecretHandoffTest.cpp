// The password read from a token crosses from the result handler's thread to LogonUI's, which may
// stop waiting at any moment. Run under ThreadSanitizer as well: the two sides below are ordered
// by nothing but the handoff itself, so a handoff that does not guard its secret is reported.
#include "common/SecretHandoff.h"

#include <gtest/gtest.h>

#include <thread>

namespace lm2 {
namespace {

TEST(SecretHandoffTest, ASecretArrivingWhileTheWaiterGivesUpIsTakenWholeOrDroppedNeverKept) {
  SecretHandoff handoff;
  handoff.open();
  bool handed = false;
  std::thread receiver([&] { handed = handoff.hand(L"password arriving late"); });
  SecretWString taken;
  const bool obtained = handoff.take(taken);
  receiver.join();

  if (obtained) {
    EXPECT_TRUE(handed);
    EXPECT_EQ(taken.get(), L"password arriving late");
  } else {
    EXPECT_TRUE(taken.get().empty());
  }
  SecretWString left;
  EXPECT_FALSE(handoff.take(left)) << "a secret handed after the wait ended was kept";
  EXPECT_TRUE(left.get().empty());
}

TEST(SecretHandoffTest, OnlyTheWaitOpenNowReceivesASecret) {
  SecretHandoff handoff;
  SecretWString taken;
  EXPECT_FALSE(handoff.hand(L"nobody waits")) << "handed before any wait";

  handoff.open();
  ASSERT_TRUE(handoff.hand(L"first"));
  handoff.open();  // the first wait was abandoned: its secret must not answer the second
  EXPECT_FALSE(handoff.take(taken));
  EXPECT_TRUE(taken.get().empty());

  handoff.open();
  ASSERT_TRUE(handoff.hand(L"second"));
  ASSERT_TRUE(handoff.take(taken));
  EXPECT_EQ(taken.get(), L"second");
  EXPECT_FALSE(handoff.hand(L"third")) << "handed after the wait was over";
}

}  // namespace
}  // namespace lm2
