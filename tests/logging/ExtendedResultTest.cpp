#include "logging/ExtendedResult.h"

#include <gtest/gtest.h>

namespace lm2 {
namespace {

class ExtendedResultTest : public ::testing::Test {
 protected:
  void SetUp() override { result::setComponentId(result::kModuleComponentId); }
  void TearDown() override { result::setComponentId(result::kModuleComponentId); }
};

TEST_F(ExtendedResultTest, ConstructionRulesCarryTheComponentIdOfTheirTime) {
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

  result::setComponentId(0);
  const ExtendedResult before = result::fromWin32(2);
  result::setComponentId(0x0ABC);
  EXPECT_EQ(before, 0x8000000080070002ull);
  EXPECT_EQ(result::fromWin32(2), 0x8ABC000080070002ull);
  EXPECT_EQ(result::success(), 0x200000002ABC0000ull);
  EXPECT_EQ(result::allocationFailure(), 0xE0000000EABC0010ull);
}

TEST_F(ExtendedResultTest, CountsAsFailed) {
  using Codes = std::initializer_list<ExtendedResult>;
  // Both halves must be success or information (a second initialisation is information).
  for (ExtendedResult code : Codes{0, result::success(), 0x6000000060100007ull, 0x4000000040000000ull}) {
    EXPECT_FALSE(result::failed(code)) << std::hex << code;
  }
  for (ExtendedResult code : Codes{result::fromWin32(2), result::allocationFailure(), 0xe0000001e010000bull,
                                   0xC0100000C000006Dull, 0x4000000000000000ull, 0x0000000040000000ull,
                                   0x0000000080000000ull, 0x8000000000000000ull}) {
    EXPECT_TRUE(result::failed(code)) << std::hex << code;
  }
}

}  // namespace
}  // namespace lm2
