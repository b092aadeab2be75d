#include "logging/ExtendedResult.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace lm2 {
namespace {

class ExtendedResultTest : public ::testing::Test {
 protected:
  void SetUp() override { result::setComponentId(result::kModuleComponentId); }
  void TearDown() override { result::setComponentId(result::kModuleComponentId); }
};

std::string printed(ExtendedResult code) {
  char text[32];
  std::snprintf(text, sizeof text, "(0x%016llx)", static_cast<unsigned long long>(code));
  return text;
}

TEST_F(ExtendedResultTest, ConstructionRulesCarryTheComponentId) {
  EXPECT_EQ(result::success(), 0x2000000020100000ull);
  EXPECT_EQ(result::fromWin32(2), 0x8010000080070002ull);
  EXPECT_EQ(result::fromWin32(1332), 0x8010000080070534ull);
  // Only the low 16 bits of a Win32 code fit HRESULT_FROM_WIN32 (bit 20 would change the facility).
  EXPECT_EQ(result::fromWin32(0x100002), 0x8010000080070002ull);
  EXPECT_EQ(result::fromWin32(0), result::success());
  EXPECT_EQ(result::allocationFailure(), 0xE0000000E0100010ull);
  // NTSTATUS values have the HRESULT shape.
  EXPECT_EQ(result::fromHResult(static_cast<std::int32_t>(0xC000006D)), 0xC0100000C000006Dull);
  EXPECT_EQ(result::fromHResult(static_cast<std::int32_t>(0xC0000224)), 0xC0100000C0000224ull);
  EXPECT_EQ(result::fromHResult(static_cast<std::int32_t>(0x8007000E)), 0x801000008007000Eull);
  EXPECT_EQ(result::fromHResult(0), 0x0010000000000000ull);
}

TEST_F(ExtendedResultTest, ComponentIdIsTakenAtConstructionTime) {
  result::setComponentId(0);
  const ExtendedResult before = result::fromWin32(2);
  result::setComponentId(0x0ABC);
  EXPECT_EQ(before, 0x8000000080070002ull);
  EXPECT_EQ(result::fromWin32(2), 0x8ABC000080070002ull);
  EXPECT_EQ(result::success(), 0x200000002ABC0000ull);
  EXPECT_EQ(result::allocationFailure(), 0xE0000000EABC0010ull);
}

TEST_F(ExtendedResultTest, CountsAsFailed) {
  EXPECT_FALSE(result::failed(0));
  EXPECT_FALSE(result::failed(result::success()));
  EXPECT_FALSE(result::failed(0x6000000060100007ull));  // second initialisation: information
  EXPECT_FALSE(result::failed(0x6000000060100009ull));
  EXPECT_FALSE(result::failed(result::fromHResult(0)));

  EXPECT_TRUE(result::failed(result::fromWin32(2)));
  EXPECT_TRUE(result::failed(result::allocationFailure()));
  EXPECT_TRUE(result::failed(0xe0000001e010000bull));
  EXPECT_TRUE(result::failed(0xE0000000E0100004ull));
  EXPECT_TRUE(result::failed(0xC0100000C000006Dull));
  // Only one half informational, or one half in error, is a failure.
  EXPECT_TRUE(result::failed(0x4000000000000000ull));
  EXPECT_TRUE(result::failed(0x0000000040000000ull));
  EXPECT_TRUE(result::failed(0x0000000080000000ull));
  EXPECT_TRUE(result::failed(0x8000000000000000ull));
  EXPECT_TRUE(result::succeeded(0x4000000040000000ull));
}

TEST_F(ExtendedResultTest, PrintsAsSixteenHexDigits) {
  EXPECT_EQ(printed(result::fromWin32(2)), "(0x8010000080070002)");
  EXPECT_EQ(printed(result::fromHResult(0)), "(0x0010000000000000)");
}

}  // namespace
}  // namespace lm2
