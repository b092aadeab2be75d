// What the DLL carries for the screen: the tile fields with their labels, and the texts by id in
// English, German and language-neutral form. The German run sees the German table.
#include <gtest/gtest.h>

#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <string>

#include "TestRegistry.h"
#include "platform/ModuleResources.h"
#include "provider/FieldDescriptorTable.h"

namespace lm2 {
namespace {

class ResourcesTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { s_module = ::LoadLibraryW(resources::kModuleFileName); }
  void SetUp() override { ASSERT_NE(s_module, nullptr); }

  static std::wstring label(DWORD id) {
    CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR* descriptor = nullptr;
    EXPECT_EQ(fields::copyFieldDescriptor(id, &descriptor), S_OK);
    std::wstring text = descriptor && descriptor->pszLabel ? descriptor->pszLabel : L"(null)";
    if (descriptor) ::CoTaskMemFree(descriptor->pszLabel);
    ::CoTaskMemFree(descriptor);
    return text;
  }
  static const wchar_t* inLanguage(const wchar_t* english, const wchar_t* german) {
    return test::expectsGerman() ? german : english;
  }

  // The string `id` of the table in `language`, read from the resource block itself: the loader
  // would pick the user interface language, and Wine never picks the neutral table.
  static std::wstring stringIn(UINT id, LANGID language) {
    HRSRC block = ::FindResourceExW(s_module, RT_STRING, MAKEINTRESOURCEW(id / 16 + 1), language);
    if (block == nullptr) return L"(no block)";
    const auto* data = static_cast<const WCHAR*>(::LockResource(::LoadResource(s_module, block)));
    for (UINT index = 0; index < id % 16; ++index) data += 1 + *data;
    return std::wstring(data + 1, *data);
  }

  static HMODULE s_module;
};
HMODULE ResourcesTest::s_module = nullptr;

TEST_F(ResourcesTest, FieldTableGivesIdsTypesGuidsAndLabels) {
  const GUID logo = {0x2d837775, 0xf6cd, 0x464e, {0xa7, 0x45, 0x48, 0x2f, 0xd0, 0xb4, 0x74, 0x93}};
  const GUID providerLabel = {0x286bbff3, 0xbad4, 0x438f, {0xb0, 0x07, 0x79, 0xb7, 0x26, 0x7c, 0x3d, 0x48}};
  for (DWORD id = 0; id < fields::kFieldCount; ++id) {
    CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR* descriptor = nullptr;
    ASSERT_EQ(fields::copyFieldDescriptor(id, &descriptor), S_OK) << id;
    EXPECT_EQ(descriptor->dwFieldID, id);
    const GUID expected = id == 0 ? logo : id == 1 ? providerLabel : GUID{};
    EXPECT_TRUE(IsEqualGUID(descriptor->guidFieldType, expected)) << id;
    ::CoTaskMemFree(descriptor->pszLabel);
    ::CoTaskMemFree(descriptor);
  }
  CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR* descriptor = nullptr;
  ASSERT_EQ(fields::copyFieldDescriptor(20, &descriptor), S_OK);
  EXPECT_EQ(descriptor->cpft, CPFT_SMALL_TEXT);
  EXPECT_STREQ(descriptor->pszLabel, L"conclusion message");
  ::CoTaskMemFree(descriptor->pszLabel);
  ::CoTaskMemFree(descriptor);
  EXPECT_EQ(fields::copyFieldDescriptor(21, &descriptor), E_INVALIDARG);
  EXPECT_EQ(descriptor, nullptr);
  EXPECT_EQ(fields::fieldDescriptor(5).fieldType, CPFT_COMBOBOX);
  EXPECT_EQ(fields::fieldDescriptor(12).fieldType, CPFT_CHECKBOX);
  EXPECT_EQ(fields::fieldDescriptor(19).fieldType, CPFT_COMMAND_LINK);
}

TEST_F(ResourcesTest, ResourceLabelsFollowTheLanguageTextLabelsDoNot) {
  EXPECT_EQ(label(4), inLanguage(L"User name", L"Nutzername"));
  EXPECT_EQ(label(13), inLanguage(L"Password", L"Kennwort"));
  EXPECT_EQ(label(11), inLanguage(L"Confirm PIN", L"PIN bestätigen"));
  EXPECT_EQ(label(8), L"PIN");
  EXPECT_EQ(label(17), label(8));
  EXPECT_EQ(label(12), L"");  // empty, not null
  const std::pair<DWORD, const wchar_t*> untranslated[] = {{0, L"Image"},        {1, L"Tooltip"},
                                                           {2, L"small text"},   {3, L"username"},
                                                           {5, L"select username"}, {6, L"message text"},
                                                           {18, L"Submit"},      {19, L"initialize command link"}};
  for (const auto& [id, text] : untranslated) EXPECT_EQ(label(id), text) << id;
}

TEST_F(ResourcesTest, TextsStandExactlyAsCatalogued) {
  EXPECT_EQ(resources::loadString(131),
            inLanguage(L"The password on the token is invalid . Please enter the correct password .",
                       L"Das Kennwort auf dem Token ist ungültig. Bitte geben Sie das korrekte Kennwort ein."));
  EXPECT_EQ(resources::loadString(128),
            inLanguage(L"The authentication data could not be processed. Please try again. ",
                       L"Die Authentifizierungsdaten konnten nicht aufbereitet werden. Bitte versuchen Sie es erneut."));
  EXPECT_EQ(resources::loadString(109),
            inLanguage(L"Please enter your PIN at the external device.", L"Bitte externes PIN-Pad beachten."));
  EXPECT_EQ(resources::loadString(160), inLanguage(L"Please click \"OK\" to logon.", L"Zur Anmeldung bitte \"OK\" klicken."));
  const std::wstring monitoring = resources::loadString(139);
  EXPECT_NE(monitoring.find(inLanguage(L"for monitoring.\nIf you", L"angemeldet werden.\nBei vielen")),
            std::wstring::npos);
  EXPECT_EQ(std::count(monitoring.begin(), monitoring.end(), L'\n'), 3);
  EXPECT_NE(resources::loadString(105).find(inLanguage(L"occured", L"aufgetreten")), std::wstring::npos);
  EXPECT_EQ(resources::loadString(141), L"");  // not in the catalogue
  EXPECT_EQ(resources::loadString(179), L"");
}

TEST_F(ResourcesTest, EveryIdIsInEveryTableAndNeutralIsEnglish) {
  constexpr LANGID kEnglish = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
  constexpr LANGID kGerman = MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN);
  constexpr LANGID kNeutral = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);
  static_assert(kNeutral == 1024 && kEnglish == 1033 && kGerman == 1031);
  for (UINT id = 101; id <= 178; ++id) {
    if (id == 141 || id == 143) continue;
    EXPECT_FALSE(stringIn(id, kEnglish).empty()) << id;
    EXPECT_FALSE(stringIn(id, kGerman).empty()) << id;
    EXPECT_EQ(stringIn(id, kNeutral), stringIn(id, kEnglish)) << id;
  }
  EXPECT_EQ(stringIn(166, kGerman).back(), L' ');
  EXPECT_EQ(stringIn(168, kEnglish), L"Updating token data failed. ");
}

}  // namespace
}  // namespace lm2
