// The card id and the directory filter of the card-id layer: what an administrator configures and
// what a card carries must never widen the search or break the filter.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tokenengine/CardDirectoryQuery.h"

namespace lm2::kaldera {
namespace {

TEST(CardDirectoryQueryTest, TheCardIdIsItsBytesInUppercaseHexAfterThePrefix) {
  const std::uint8_t bytes[] = {0x0A, 0xFF, 0x00, 0x5C};
  EXPECT_EQ(cardId(bytes, sizeof bytes, L""), L"0AFF005C");
  EXPECT_EQ(cardId(bytes, sizeof bytes, L"CORP-"), L"CORP-0AFF005C");
  EXPECT_EQ(cardId(bytes, 1, L"(*)"), L"(*)0A");
}

TEST(CardDirectoryQueryTest, FilterMetacharactersAreEscapedToMatchLiterally) {
  EXPECT_EQ(escapeFilterValue(L"0AFF"), L"0AFF");
  EXPECT_EQ(escapeFilterValue(L"a*b(c)d\\e"), L"a\\2ab\\28c\\29d\\5ce");
  EXPECT_EQ(escapeFilterValue(std::wstring(L"x\0y", 3)), L"x\\00y");
  // Characters outside ASCII pass as they are: wldap32 sends them as UTF-8.
  EXPECT_EQ(escapeFilterValue(L"Kärtchen"), L"Kärtchen");
}

TEST(CardDirectoryQueryTest, EveryPlaceholderOfTheConfiguredFilterBecomesTheEscapedCardId) {
  EXPECT_EQ(searchFilter(L"(&(objectClass=inetOrgPerson)(employeeNumber=##CARDID##))", L"employeeID", L"(*)0A"),
            L"(&(objectClass=inetOrgPerson)(employeeNumber=\\28\\2a\\290A))");
  EXPECT_EQ(searchFilter(L"(|(badge=##CARDID##)(oldBadge=##CARDID##))", L"employeeID", L"0A"),
            L"(|(badge=0A)(oldBadge=0A))");
  // Text around and after the last placeholder stays.
  EXPECT_EQ(searchFilter(L"(badge=##CARDID##*)", L"employeeID", L"0A"), L"(badge=0A*)");
}

TEST(CardDirectoryQueryTest, AFilterWithoutThePlaceholderSearchesTheCardIdAttribute) {
  EXPECT_EQ(searchFilter(L"", L"employeeNumber", L"0A*"), L"(employeeNumber=0A\\2a)");
  // Such a filter would find the same entries for every card.
  EXPECT_EQ(searchFilter(L"(objectClass=user)", L"employeeID", L"0A"), L"(employeeID=0A)");
  EXPECT_EQ(searchFilter(L"(badge=##CARDID#)", L"employeeID", L"0A"), L"(employeeID=0A)");
}

}  // namespace
}  // namespace lm2::kaldera
