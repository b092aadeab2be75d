// The default layer with the facade binding, against the signed virtual token engine installed in
// the test prefix: signature checks, initialisation, a credential's whole life on a token, the
// engine's faults, and unloading.
#include "tokenengine/TokenEngineAbstractionLayerDefault.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <condition_variable>
#include <future>
#include <regex>

#include "Completions.h"
#include "DebugOutputCapture.h"
#include "EngineControl.h"
#include "EngineVariants.h"
#include "FreedMemoryWatch.h"
#include "InstalledServiceDouble.h"
#include "TestRegistry.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/CredentialObjects.h"
#include "tokenengine/LayerResultCodes.h"

namespace lm2 {
namespace {

using namespace std::chrono_literals;

constexpr char kEmptyToken[] =
    R"({"tokens":[{"id":"4C4D3201","label":"Token A","pin":"1234","objects":[]}]})";
const std::uint8_t kTokenId[] = {0x4C, 0x4D, 0x32, 0x01};

using test::codeOf;
using test::run;

class DefaultLayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    result::setComponentId(result::kModuleComponentId);
    test::enableTrace();
    ASSERT_TRUE(test::installSignedEngine());
  }
  void TearDown() override {
    delete layer_;
    test::installEngineVariant(L"signed");
  }

  // A layer with the engine initialised and loaded with `description`.
  void start(const char* description = kEmptyToken) {
    layer_ = new TokenEngineAbstractionLayerDefault();
    ASSERT_EQ(codeOf(run([&](auto c) { layer_->InitializeAsync(c); })), result::success());
    engine_ = vte::EngineControl::ofLoadedEngine();
    ASSERT_TRUE(engine_.available());
    ASSERT_EQ(engine_.loadDescription(description), 0);
  }

  ExtendedResult initializeWith(const std::wstring& variant, const char* description = nullptr) {
    EXPECT_TRUE(test::installEngineVariant(variant));
    test::VirtualTokenDescription tokens;
    if (description) tokens.describe(description);
    layer_ = new TokenEngineAbstractionLayerDefault();
    return codeOf(run([&](auto c) { layer_->InitializeAsync(c); }));
  }

  ExtendedResult checkPin(const wchar_t* pin) {
    return codeOf(run([&](auto c) { layer_->CheckPINAsync(c, token_, pin); }));
  }

  // The kinds and contents of the objects on the token, as the engine shows them.
  std::vector<std::string> objectsOnToken() {
    const std::string state = engine_.state();
    const std::regex object(R"re("dataHex":"([^"]*)","flags":\d+,"handle":\d+,"kind":(\d))re");
    std::vector<std::string> found;
    for (auto it = std::sregex_iterator(state.begin(), state.end(), object); it != std::sregex_iterator(); ++it) {
      found.push_back((*it)[2].str() + ":" + (*it)[1].str());
    }
    return found;
  }

  std::vector<User> users(const Token& token) {
    auto context = run([&](auto c) { layer_->ListUsersOnTokenAsync(c, token); });
    EXPECT_EQ(codeOf(context), result::success());
    const auto* list = context->getResultAs<AsyncResultListUsers>();
    return list ? list->getUsers() : std::vector<User>{};
  }

  std::wstring passwordOf(const User& user, ExtendedResult* code = nullptr) {
    auto context = run([&](auto c) { layer_->GetPasswordForUserAsync(c, user); });
    if (code) *code = codeOf(context);
    const auto* password = context->getResultAs<AsyncResultWithData<std::wstring>>();
    return password ? password->getData() : L"";
  }

  const Token token_{kTokenId, sizeof kTokenId};
  TokenEngineAbstractionLayerDefault* layer_ = nullptr;
  vte::EngineControl engine_;
  test::DebugOutputCapture trace_;
};

TEST_F(DefaultLayerTest, SignedEngineInitialisesOnceAndOnlyOnce) {
  ASSERT_EQ(initializeWith(L"signed"), result::success());
  HMODULE loaded = ::GetModuleHandleW(L"VestaAccessLibrary.dll");
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->InitializeAsync(c); })), 0x6000000060100007ull);
  EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), loaded);
  delete layer_;
  layer_ = nullptr;
  EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr) << "freed with the layer";
  EXPECT_TRUE(trace_.contains("call unload function in facade library is necessary"));
  EXPECT_TRUE(trace_.contains("free facade library is necessary"));
}

TEST_F(DefaultLayerTest, RefusedLibrariesAreNeverLoaded) {
  for (const wchar_t* variant : {L"unsigned", L"tampered", L"untrusted", L"expired", L"partial"}) {
    SCOPED_TRACE(std::string(variant, variant + wcslen(variant)));
    const ExtendedResult code = initializeWith(variant);
    EXPECT_TRUE(result::failed(code));
    EXPECT_NE(code, layer_codes::kFacadeNotInstalled);
    EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr);
    delete layer_;
    layer_ = nullptr;
  }
  EXPECT_EQ(trace_.count("failed to load facade library (0x"), 5u);
}

TEST_F(DefaultLayerTest, EveryInitialisationFailureIsLoggedAndNeverCallsTheLibrary) {
  EXPECT_EQ(initializeWith(L""), 0xE0000000E0100014ull) << "no engine installed: code 20";
  EXPECT_TRUE(trace_.contains("failed to load facade library (0xe0000000e0100014)"));
  delete layer_;

  EXPECT_EQ(initializeWith(L"noinit"), 0x801000008007007Full);  // ERROR_PROC_NOT_FOUND
  EXPECT_TRUE(
      trace_.contains("can not obtain init function from library...GetProcAddress failed (0x801000008007007f)"));
  EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr) << "freed, so a retry loads it once";
  delete layer_;

  EXPECT_EQ(initializeWith(L"signed", R"({"initialization":{"result":"C0100000C01000AC"}})"), 0xC0100000C01000ACull);
  EXPECT_TRUE(trace_.contains("init facade library failed (0xc0100000c01000ac)"));
  EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr);
  delete layer_;

  // A table without an entry the layers call is never called: the library is stopped and freed.
  EXPECT_EQ(initializeWith(L"signed", R"({"initialization":{"missingEntry":"changePin"}})"), 0xE0000000E0100015ull);
  EXPECT_TRUE(trace_.contains("facade library function table has no entry 'changePin'"));
  EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->GetTokenListAsync(c); })), 0xE0000000E0100016ull) << "not initialised";
  delete layer_;

  EXPECT_EQ(initializeWith(L"signed", R"({"initialization":{"tableSize":40}})"), 0xE0000000E0100015ull);
  EXPECT_TRUE(trace_.contains("facade library function table is too small (40 bytes, 128 needed)"));
  // Its unload entry lies beyond the size it claims: freeing it would pull code from its threads.
  EXPECT_TRUE(trace_.contains("facade library can not be stopped...it stays loaded"));
  EXPECT_NE(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr);
}

TEST_F(DefaultLayerTest, ALibraryFileSomebodyMayWriteIsNeverLoaded) {
  wchar_t system[MAX_PATH];
  ::GetSystemDirectoryW(system, MAX_PATH);
  const std::wstring installed = std::wstring(system) + L"\\VestaAccessLibrary.dll";
  // Its content could change between the signature check and the load.
  UniqueHandle writer(::CreateFileW(installed.c_str(), GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                    0, nullptr));
  ASSERT_TRUE(writer);
  layer_ = new TokenEngineAbstractionLayerDefault();
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->InitializeAsync(c); })), 0x8010000080070020ull);  // sharing violation
  EXPECT_TRUE(trace_.contains("failed to load facade library (0x8010000080070020)"));
  EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr);
}

TEST_F(DefaultLayerTest, DependenciesOfTheLibraryNeverComeFromTheProgramFolder) {
  // VteDependency.dll lies beside this test program only.
  EXPECT_EQ(initializeWith(L"dependent"), 0x801000008007007Eull);  // ERROR_MOD_NOT_FOUND
  EXPECT_TRUE(trace_.contains("can not load facade library...LoadLibrary failed (0x801000008007007e)"));
  delete layer_;
  layer_ = nullptr;

  wchar_t system[MAX_PATH];
  ::GetSystemDirectoryW(system, MAX_PATH);
  const std::wstring installed = std::wstring(system) + L"\\VteDependency.dll";
  ASSERT_TRUE(::CopyFileW((test::programDirectory() + L"\\VteDependency.dll").c_str(), installed.c_str(), FALSE));
  layer_ = new TokenEngineAbstractionLayerDefault();
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->InitializeAsync(c); })), result::success()) << "found in system32";
  delete layer_;
  layer_ = nullptr;
  ::DeleteFileW(installed.c_str());
}

TEST_F(DefaultLayerTest, CredentialLifeCycleOnAVirtualToken) {
  start();
  EXPECT_TRUE(users(token_).empty()) << "an empty token has no users and is no failure";

  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CreateCredentialAsync(c, token_, L"Administrators", L"S3cret!"); })),
            result::success());
  auto listed = users(token_);
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(listed[0].qualifiedName(), L"Administrators");
  ASSERT_NE(listed[0].token(), nullptr);
  EXPECT_TRUE(listed[0].token()->sameToken(token_));
  EXPECT_TRUE(trace_.contains("add user 'Administrators' to list"));
  EXPECT_TRUE(trace_.contains("tokenobject.label = 1.3.6.1.4.1.7719.9117.1.1234.8.11"));
  ExtendedResult code = 0;
  EXPECT_EQ(passwordOf(listed[0], &code), L"");
  EXPECT_EQ(code, 0xC0100000C0100007ull) << "the password object is private until the PIN was presented";
  EXPECT_EQ(checkPin(L"1234"), result::success());
  EXPECT_EQ(passwordOf(listed[0]), L"S3cret!");

  EXPECT_EQ(codeOf(run([&](auto c) { layer_->ChangePasswordOfUserAsync(c, listed[0], L"N\u00e9w-P4ss"); })),
            result::success());
  EXPECT_EQ(passwordOf(listed[0]), L"N\u00e9w-P4ss");
  // A user known only by name (typed on the tile) finds the same credential.
  EXPECT_EQ(passwordOf(User(L"administrators", &token_)), L"N\u00e9w-P4ss");

  // On the token: one pair, both labelled, tied by a 30-character link text.
  const std::string state = engine_.state();
  const std::regex object(R"re("kind":(\d),"label":"([^"]*)","link":"([^"]*)")re");
  int objects = 0;
  std::string links[3];
  for (auto it = std::sregex_iterator(state.begin(), state.end(), object); it != std::sregex_iterator(); ++it) {
    ++objects;
    EXPECT_EQ((*it)[2].str(), "1.3.6.1.4.1.7719.9117.1.1234.8.11");
    EXPECT_TRUE(std::regex_match((*it)[3].str(), std::regex("[0-9A-Z]{30}"))) << (*it)[3].str();
    links[std::stoi((*it)[1].str())] = (*it)[3].str();
  }
  EXPECT_EQ(objects, 2);
  EXPECT_EQ(links[1], links[2]);
  // Every link text keeps to the alphabet, not just one (a zero byte would cut it short).
  const std::regex alphabet("[0-9A-Z]{30}");
  for (int i = 0; i < 2000; ++i) {
    const std::string link = CredentialObjects::makeLinkText();
    ASSERT_TRUE(std::regex_match(link, alphabet)) << i;
  }
}

TEST_F(DefaultLayerTest, FailedCredentialCreationLeavesNoHalfCredential) {
  start();
  engine_.failTaskAfter(kValTaskWriteObject, 1, 0xC0100000C01000AAull);  // the public write passes
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CreateCredentialAsync(c, token_, L"Administrators", L"pw"); })),
            0xC0100000C01000AAull);
  EXPECT_TRUE(trace_.contains("fail to write on private object (0xc0100000c01000aa)"));
  EXPECT_TRUE(objectsOnToken().empty()) << engine_.state();

  engine_.failTaskAfter(kValTaskCreateObject, 1, 0xC0100000C01000ABull);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CreateCredentialAsync(c, token_, L"Administrators", L"pw"); })),
            0xC0100000C01000ABull);
  EXPECT_TRUE(trace_.contains("fail to create private object (0xc0100000c01000ab)"));
  EXPECT_TRUE(objectsOnToken().empty()) << engine_.state();
}

// An account with a stale second password object, as damaged token data may have it.
constexpr char kTwoPasswordObjects[] = R"({"tokens":[{"id":"4C4D3201","objects":[
    {"kind":1,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"Administrators"},
    {"kind":2,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"first"},
    {"kind":2,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"second"}]}]})";
// "Administrators", "first", "second" and "new" as stored (UTF-8 with the zero byte), in hex.
constexpr char kAccount[] = "1:41646D696E6973747261746F727300";
constexpr char kFirst[] = "2:666972737400";
constexpr char kSecond[] = "2:7365636F6E6400";
constexpr char kNew[] = "2:6E657700";

TEST_F(DefaultLayerTest, ASecondPasswordObjectIsToleratedAndAChangeReplacesBoth) {
  start(kTwoPasswordObjects);
  ASSERT_EQ(checkPin(L"1234"), result::success());
  const User user = users(token_).at(0);
  EXPECT_EQ(passwordOf(user), L"first");
  EXPECT_TRUE(trace_.contains(
      "more than one password object for user 'Administrators' exist...token data may be corrupted"));
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->ChangePasswordOfUserAsync(c, user, L"new"); })), result::success());
  EXPECT_EQ(objectsOnToken(), (std::vector<std::string>{kAccount, kNew}));
  EXPECT_EQ(passwordOf(user), L"new");
}

TEST_F(DefaultLayerTest, AFailedPasswordChangeKeepsTheOldPassword) {
  start(kTwoPasswordObjects);
  ASSERT_EQ(checkPin(L"1234"), result::success());
  const User user = users(token_).at(0);
  const std::vector<std::string> before = {kAccount, kFirst, kSecond};
  auto change = [&] { return codeOf(run([&](auto c) { layer_->ChangePasswordOfUserAsync(c, user, L"new"); })); };

  engine_.failNextTask(kValTaskCreateObject, 0xC0100000C01000B1ull);
  EXPECT_EQ(change(), 0xC0100000C01000B1ull);
  EXPECT_TRUE(trace_.contains("failed to create password object on token (0xc0100000c01000b1)"));
  EXPECT_EQ(objectsOnToken(), before);

  engine_.failNextTask(kValTaskWriteObject, 0xC0100000C01000B2ull);
  EXPECT_EQ(change(), 0xC0100000C01000B2ull);
  EXPECT_TRUE(trace_.contains("failed to write new password on token (0xc0100000c01000b2)"));
  EXPECT_EQ(objectsOnToken(), before) << "the new object is removed again";

  engine_.failNextTask(kValTaskDeleteObject, 0xC0100000C01000B3ull);
  EXPECT_EQ(change(), 0xC0100000C01000B3ull);
  EXPECT_TRUE(trace_.contains("failed to delete password object on token (0xc0100000c01000b3)"));
  EXPECT_EQ(objectsOnToken(), before);
  EXPECT_EQ(passwordOf(user), L"first");
}

TEST_F(DefaultLayerTest, AccountWithoutPasswordObjectIsCode19) {
  start(R"({"tokens":[{"id":"4C4D3201","objects":[
      {"kind":1,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"Administrators"}]}]})");
  ExtendedResult code = 0;
  EXPECT_EQ(passwordOf(users(token_).at(0), &code), L"");
  EXPECT_EQ(code, layer_codes::kObjectMissing);
  EXPECT_TRUE(trace_.contains("no password object for user 'Administrators' exist...token data are corrupted"));
}

TEST_F(DefaultLayerTest, BlackListedDomainsAreNotOffered) {
  start(R"({"tokens":[{"id":"4C4D3201","objects":[
      {"kind":1,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"LAB\\anna"},
      {"kind":1,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L2","data":"Administrators"},
      {"kind":1,"label":"other label","link":"L3","data":"stranger"}]}]})");
  const std::vector<std::wstring> lab = {L"lab"};
  EXPECT_TRUE(TokenEngineAbstractionLayerDefault::isInDomainList(User(L"LAB\\anna"), lab));
  EXPECT_TRUE(TokenEngineAbstractionLayerDefault::isInDomainList(User(L"anna@lab.example.com"), lab));
  EXPECT_FALSE(TokenEngineAbstractionLayerDefault::isInDomainList(User(L"LABOR\\anna"), lab));
  // Without a DomainBlackList every account with the credential label is listed.
  EXPECT_EQ(users(token_).size(), 2u);

  test::setList(settings::kProviderKeyPath, L"DomainBlackList", {L"lab"});
  const auto offered = users(token_);
  test::deleteValue(settings::kProviderKeyPath, L"DomainBlackList");
  ASSERT_EQ(offered.size(), 1u);
  EXPECT_EQ(offered[0].qualifiedName(), L"Administrators");
}

TEST_F(DefaultLayerTest, PinChecksAndThePinPad) {
  start(R"({"tokens":[{"id":"4C4D3201","pin":"1234","retries":3,"pinPad":true,"pinPadDelayMs":300}]})");
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CheckPINAsync(c, token_, L"1234"); })), result::success());
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CheckPINAsync(c, token_, L"0000"); })), VAL_E_WRONG_PIN);
  EXPECT_TRUE(trace_.contains("failed to check pin for token (0xc0100000c0100001)"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->AskPINAsync(c, User(L"x", &token_)); })), result::success());
  EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
}

TEST_F(DefaultLayerTest, ResultsAreReadByTheirLiteralItemNames) {
  start();
  // A token list result written out by hand: "res" { "ti" 1, "tfi" 1, "te" success,
  // "resp" { "tl" { "t" 4C4D3201, "t" BEEF } } }.
  const std::uint8_t golden[] = {
      0x53, 0x52, 0x70, 0x00, 0x00, 0x00, 0x06, 0x04, 0x00, 0x00, 0x00, 0x72, 0x65, 0x73, 0x00, 0x04,
      0x00, 0x00, 0x00, 0x04, 0x03, 0x00, 0x00, 0x00, 0x74, 0x69, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x03, 0x04, 0x00, 0x00, 0x00, 0x74, 0x66, 0x69, 0x00, 0x01, 0x00, 0x00, 0x00,
      0x04, 0x03, 0x00, 0x00, 0x00, 0x74, 0x65, 0x00, 0x00, 0x00, 0x10, 0x20, 0x00, 0x00, 0x00, 0x20,
      0x06, 0x05, 0x00, 0x00, 0x00, 0x72, 0x65, 0x73, 0x70, 0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x03,
      0x00, 0x00, 0x00, 0x74, 0x6c, 0x00, 0x02, 0x00, 0x00, 0x00, 0x05, 0x02, 0x00, 0x00, 0x00, 0x74,
      0x00, 0x04, 0x00, 0x00, 0x00, 0x4c, 0x4d, 0x32, 0x01, 0x05, 0x02, 0x00, 0x00, 0x00, 0x74, 0x00,
      0x02, 0x00, 0x00, 0x00, 0xbe, 0xef, 0x2e, 0xf0, 0x7f, 0xe9, 0x42, 0x57};
  engine_.deliverNextResult(golden, sizeof golden);
  auto context = run([&](auto c) { layer_->GetTokenListAsync(c); });
  const auto* list = context->getResultAs<AsyncResultGetTokenList>();
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->getResultCode(), 0x2000000020100000ull);
  ASSERT_EQ(list->getTokens().size(), 2u);
  EXPECT_TRUE(list->getTokens()[0].sameToken(token_));
}

TEST_F(DefaultLayerTest, MalformedResultsNeverReachAWaiter) {
  start();
  test::Completions waiter;
  struct Case {
    std::uint32_t how;
    const char* text;
  };
  const Case cases[] = {{1, "sanity check failed for result 0x0000000000000001"},  // root "result"
                        {2, "sanity check failed for result 0x0000000000000002"},  // no "tfi"
                        {4, "sanity check failed for result 0x0000000000000003"},  // no "te"
                        {3, "failed to unpack result vector from stream for result 0x0000000000000004"}};
  for (const Case& malformed : cases) {
    engine_.malformNextResult(malformed.how);
    layer_->GetTokenListAsync(waiter.context());
    std::this_thread::sleep_for(400ms);
    EXPECT_TRUE(trace_.contains(malformed.text)) << malformed.how;
  }
  EXPECT_EQ(waiter.count(), 0);
  // Unloading ends the four waits, whose completions report to the waiter: the layer goes first.
  delete layer_;
  layer_ = nullptr;
  EXPECT_EQ(waiter.count(), 4);
}

TEST_F(DefaultLayerTest, UnloadingEndsAPendingWait) {
  start();
  test::Completions waiter;
  engine_.malformNextResult(1);
  layer_->GetTokenListAsync(waiter.context());
  std::this_thread::sleep_for(300ms);
  // The waiting worker polls every 100 ms: unloading ends its wait within about that.
  const auto begin = std::chrono::steady_clock::now();
  delete layer_;
  layer_ = nullptr;
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
  std::printf("layer destroyed %d ms after unloading began\n", static_cast<int>(took.count()));
  EXPECT_LT(took, 600ms);
  EXPECT_TRUE(trace_.contains("abort waiting for result from token engine...unload was called"));
  const int completed = waiter.count();
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(waiter.count(), completed) << "nothing completes after the layer is gone";
}

TEST_F(DefaultLayerTest, LastReleaseFromATokenEventDestroysTheLayerElsewhere) {
  start();
  std::promise<void> destroyed;
  layer_->setTokenEventHandler([&](bool, const Token&) {
    // The engine's own thread drops the last reference: destroying here would stop the engine
    // from inside its thread.
    layer_->Release();
    layer_ = nullptr;
    destroyed.set_value();
  });
  EXPECT_EQ(engine_.insertToken(R"({"id":"BEEF"})"), 0);
  ASSERT_EQ(destroyed.get_future().wait_for(10s), std::future_status::ready);
  for (int i = 0; i < 50 && ::GetModuleHandleW(L"VestaAccessLibrary.dll") != nullptr; ++i) {
    std::this_thread::sleep_for(100ms);
  }
  EXPECT_EQ(::GetModuleHandleW(L"VestaAccessLibrary.dll"), nullptr) << "destroyed and freed";
}

TEST_F(DefaultLayerTest, PinsPasswordsAndDroppedTasksLeaveNoSecretInReleasedMemory) {
  // Secrets long enough to live on the heap; the test's own copies outlive every watch.
  start(R"({"tokens":[{"id":"4C4D3201","pin":"PIN-39172846","objects":[
      {"kind":1,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"Administrators"},
      {"kind":2,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"Pw-5ec2e7-Geheim"}]}]})");
  const std::wstring pin = L"PIN-39172846";
  const User user = users(token_).at(0);
  {
    test::FreedMemoryWatch watch("PIN-39172846");
    EXPECT_EQ(codeOf(run([&](auto c) { layer_->CheckPINAsync(c, token_, pin); })), result::success());
    EXPECT_EQ(watch.unwipedBlocks(), 0);
  }
  {
    test::FreedMemoryWatch watch("Pw-5ec2e7-Geheim");
    auto context = run([&](auto c) { layer_->GetPasswordForUserAsync(c, user); });
    const auto* password = context->getResultAs<AsyncResultWithData<std::wstring>>();
    ASSERT_NE(password, nullptr);
    EXPECT_TRUE(password->getData() == L"Pw-5ec2e7-Geheim");
    for (int i = 0; i < 100 && context.use_count() > 1; ++i) std::this_thread::sleep_for(10ms);
    context.reset();  // the last reference: the result goes with it
    EXPECT_EQ(watch.unwipedBlocks(), 0);
  }
  // Five slow operations occupy the workers; a PIN check queued behind them is dropped unstarted.
  engine_.delayTasks(1000);
  test::Completions busy;
  for (int i = 0; i < 5; ++i) layer_->GetTokenListAsync(busy.context());
  std::this_thread::sleep_for(200ms);
  test::FreedMemoryWatch watch("PIN-39172846");
  test::Completions dropped;
  layer_->CheckPINAsync(dropped.context(), token_, pin);
  delete layer_;
  layer_ = nullptr;
  EXPECT_EQ(dropped.count(), 0);
  EXPECT_EQ(watch.unwipedBlocks(), 0);
  EXPECT_GT(watch.releasedBlocks(), 0);
}

}  // namespace
}  // namespace lm2
