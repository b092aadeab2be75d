// The default layer with the facade binding, against the signed virtual token engine installed in
// the test prefix: signature checks, initialisation, a credential's whole life on a token, the
// engine's faults, and unloading.
#include "tokenengine/TokenEngineAbstractionLayerDefault.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <condition_variable>
#include <regex>

#include "DebugOutputCapture.h"
#include "EngineControl.h"
#include "TestRegistry.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/CredentialObjects.h"
#include "tokenengine/LayerRegistry.h"
#include "tokenengine/LayerResultCodes.h"

namespace lm2 {
namespace {

using namespace std::chrono_literals;

constexpr char kEmptyToken[] =
    R"({"tokens":[{"id":"4C4D3201","label":"Token A","pin":"1234","objects":[]}]})";
const std::uint8_t kTokenId[] = {0x4C, 0x4D, 0x32, 0x01};

// Starts an operation and waits for its completion.
class Waiter {
 public:
  std::shared_ptr<CtxData> context() {
    return std::make_shared<CtxTokenEngine>([this](CtxData&) {
      std::lock_guard<std::mutex> guard(lock_);
      ++done_;
      changed_.notify_all();
    });
  }
  bool wait(int count = 1, std::chrono::milliseconds timeout = 20000ms) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, timeout, [&] { return done_ >= count; });
  }
  int done() {
    std::lock_guard<std::mutex> guard(lock_);
    return done_;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int done_ = 0;
};

template <class Start>
std::shared_ptr<CtxData> run(Start start) {
  Waiter waiter;
  auto context = waiter.context();
  start(context);
  EXPECT_TRUE(waiter.wait()) << "no completion";
  return context;
}

ExtendedResult codeOf(const std::shared_ptr<CtxData>& context) {
  return context->getResult() ? context->getResult()->getResultCode() : 0;
}

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
    engine_ = test::EngineControl::ofLoadedEngine();
    ASSERT_TRUE(engine_.available());
    ASSERT_EQ(engine_.loadDescription(description), 0);
  }

  ExtendedResult initializeWith(const std::wstring& variant) {
    EXPECT_TRUE(test::installEngineVariant(variant));
    layer_ = new TokenEngineAbstractionLayerDefault();
    return codeOf(run([&](auto c) { layer_->InitializeAsync(c); }));
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
  test::EngineControl engine_;
  test::DebugOutputCapture trace_;
};

TEST_F(DefaultLayerTest, SignedEngineInitialisesOnceAndOnlyOnce) {
  ASSERT_EQ(initializeWith(L"signed"), result::success());
  HMODULE loaded = ::GetModuleHandleW(L"VestaAccessLibrary.dll");
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->InitializeAsync(c); })), layer_codes::kSecondInitialization);
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

TEST_F(DefaultLayerTest, MissingLibraryIsCode20) {
  const ExtendedResult code = initializeWith(L"");
  EXPECT_EQ(code, layer_codes::kFacadeNotInstalled);
  EXPECT_EQ(code & 0x2000000000000000ull, 0x2000000000000000ull);
  EXPECT_EQ(code & 0xFFFF, 20u);
  EXPECT_TRUE(result::failed(code)) << "must not pass as success before code 20 is tested";
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
}

TEST_F(DefaultLayerTest, FailedPrivateWriteLeavesNoHalfCredential) {
  start();
  engine_.failTaskAfter(kValTaskWriteObject, 1, 0xC0100000C01000AAull);  // the public write passes
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CreateCredentialAsync(c, token_, L"Administrators", L"pw"); })),
            0xC0100000C01000AAull);
  EXPECT_TRUE(trace_.contains("fail to write on private object (0xc0100000c01000aa)"));
  EXPECT_EQ(engine_.state().find("\"kind\""), std::string::npos) << engine_.state();
  EXPECT_TRUE(users(token_).empty());
}

TEST_F(DefaultLayerTest, FailedPrivateCreationDeletesThePublicObject) {
  start();
  engine_.failTaskAfter(kValTaskCreateObject, 1, 0xC0100000C01000ABull);
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CreateCredentialAsync(c, token_, L"Administrators", L"pw"); })),
            0xC0100000C01000ABull);
  EXPECT_TRUE(trace_.contains("fail to create private object (0xc0100000c01000ab)"));
  EXPECT_EQ(engine_.state().find("\"kind\""), std::string::npos) << engine_.state();
}

TEST_F(DefaultLayerTest, SecondPasswordObjectIsToleratedWithAWarning) {
  start(R"({"tokens":[{"id":"4C4D3201","objects":[
      {"kind":1,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"Administrators"},
      {"kind":2,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"first"},
      {"kind":2,"label":"1.3.6.1.4.1.7719.9117.1.1234.8.11","link":"L1","data":"second"}]}]})");
  const auto listed = users(token_);
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(passwordOf(listed[0]), L"first");
  EXPECT_TRUE(trace_.contains(
      "more than one password object for user 'Administrators' exist...token data may be corrupted"));
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
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CheckPINAsync(c, token_, L"0000"); })), facade::kWrongPin);
  EXPECT_TRUE(trace_.contains("failed to check pin for token (0xc0100000c0100001)"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->AskPINAsync(c, User(L"x", &token_)); })), result::success());
  EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
}

TEST_F(DefaultLayerTest, CapabilitiesAndTokenInitialisation) {
  start(R"({"tokens":[{"id":"4C4D3201","initialized":false,"label":"ignored","canInitialize":true}]})");
  auto context = run([&](auto c) { layer_->GetTokenCapabilitiesAsync(c, token_); });
  const auto* capability = context->getResultAs<AsyncResultWithData<TokenCapability>>();
  ASSERT_NE(capability, nullptr);
  EXPECT_FALSE(capability->getData().isInitialized());
  EXPECT_TRUE(capability->getData().canBeInitialized());
  EXPECT_EQ(capability->getData().label(), L"");

  EXPECT_EQ(codeOf(run([&](auto c) { layer_->InitializeTokenAsync(c, token_, L"Firmen-Token", L"9876", false); })),
            result::success());
  context = run([&](auto c) { layer_->GetTokenCapabilitiesAsync(c, token_); });
  capability = context->getResultAs<AsyncResultWithData<TokenCapability>>();
  ASSERT_NE(capability, nullptr);
  EXPECT_TRUE(capability->getData().isInitialized());
  EXPECT_EQ(capability->getData().label(), L"Firmen-Token");
  EXPECT_EQ(codeOf(run([&](auto c) { layer_->CheckPINAsync(c, token_, L"9876"); })), result::success());
}

TEST_F(DefaultLayerTest, TokenListAndTokenEvents) {
  start(R"({"tokens":[{"id":"4C4D3201"},{"id":"AA","inserted":false}]})");
  std::mutex lock;
  std::vector<std::pair<bool, std::vector<std::uint8_t>>> events;
  layer_->setTokenEventHandler([&](bool added, const Token& token) {
    std::lock_guard<std::mutex> guard(lock);
    events.push_back({added, std::vector<std::uint8_t>(token.identification(),
                                                       token.identification() + token.identificationLength())});
  });
  auto context = run([&](auto c) { layer_->GetTokenListAsync(c); });
  const auto* list = context->getResultAs<AsyncResultGetTokenList>();
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->getTokens().size(), 1u);
  EXPECT_TRUE(list->getTokens()[0].sameToken(token_));

  EXPECT_EQ(engine_.insertToken(R"({"id":"BEEF"})"), 0);
  EXPECT_EQ(engine_.removeToken("4C4D3201"), 0);
  run([&](auto c) { layer_->GetTokenListAsync(c); });  // events are delivered in order before it
  std::lock_guard<std::mutex> guard(lock);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_TRUE(events[0].first);
  EXPECT_EQ(events[0].second, (std::vector<std::uint8_t>{0xBE, 0xEF}));
  EXPECT_FALSE(events[1].first);
}

TEST_F(DefaultLayerTest, MalformedResultsNeverReachAWaiterAndUnloadingEndsTheWait) {
  start();
  Waiter waiter;
  engine_.malformNextResult(1);  // root named "result"
  layer_->GetTokenListAsync(waiter.context());
  engine_.malformNextResult(0);
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(waiter.done(), 0);
  EXPECT_TRUE(trace_.contains("sanity check failed for result 0x0000000000000001"));

  // The waiting worker polls every 100 ms: unloading ends its wait within about that.
  const auto begin = std::chrono::steady_clock::now();
  delete layer_;
  layer_ = nullptr;
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
  RecordProperty("unload_ms", static_cast<int>(took.count()));
  std::printf("layer destroyed %d ms after unloading began\n", static_cast<int>(took.count()));
  EXPECT_LT(took, 600ms);
  EXPECT_TRUE(trace_.contains("abort waiting for result from token engine...unload was called"));
  const int completed = waiter.done();
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(waiter.done(), completed) << "nothing completes after the layer is gone";
}

TEST_F(DefaultLayerTest, ResultWithoutTaskFunctionFailsTheSanityCheck) {
  start();
  Waiter waiter;
  engine_.malformNextResult(2);
  layer_->GetTokenListAsync(waiter.context());
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(waiter.done(), 0);
  EXPECT_TRUE(trace_.contains("sanity check failed for result 0x0000000000000001"));
  engine_.malformNextResult(3);
  layer_->GetTokenListAsync(waiter.context());
  std::this_thread::sleep_for(500ms);
  EXPECT_TRUE(trace_.contains("failed to unpack result vector from stream for result 0x0000000000000002"));
  EXPECT_EQ(waiter.done(), 0);
}

TEST_F(DefaultLayerTest, DeletingAnUnknownTaskIsLogged) {
  FacadeBinding binding(logging::getCategory(logging::categories::kTokenEngineAbstractionLayer));
  binding.deleteTaskResult(0x1234);
  EXPECT_TRUE(trace_.contains("can not delete non existing task '0x0000000000001234'"));
}

TEST_F(DefaultLayerTest, LayerNamesFallBackToDefault) {
  EXPECT_EQ(registeredLayerName("Default"), "Default");
  EXPECT_EQ(registeredLayerName("Kaldera"), "Kaldera");
  EXPECT_EQ(registeredLayerName("Unknown"), "Default");
  TokenEngineAbstractionLayer* layer = createTokenEngineLayer("Unknown");
  EXPECT_NE(dynamic_cast<TokenEngineAbstractionLayerDefault*>(layer), nullptr);
  layer->Release();
}

TEST_F(DefaultLayerTest, DescriptionFileNamedByTheEnvironment) {
  wchar_t directory[MAX_PATH];
  wchar_t file[MAX_PATH];
  ASSERT_TRUE(::GetTempPathW(MAX_PATH, directory) && ::GetTempFileNameW(directory, L"vte", 0, file));
  HANDLE handle = ::CreateFileW(file, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  const char description[] = R"({"tokens":[{"id":"0102"},{"id":"0304"}]})";
  DWORD written = 0;
  ::WriteFile(handle, description, sizeof description - 1, &written, nullptr);
  ::CloseHandle(handle);
  ::SetEnvironmentVariableW(L"LM2_VIRTUAL_TOKENS", file);
  layer_ = new TokenEngineAbstractionLayerDefault();
  ASSERT_EQ(codeOf(run([&](auto c) { layer_->InitializeAsync(c); })), result::success());
  auto context = run([&](auto c) { layer_->GetTokenListAsync(c); });
  ::SetEnvironmentVariableW(L"LM2_VIRTUAL_TOKENS", nullptr);
  ::DeleteFileW(file);
  const auto* list = context->getResultAs<AsyncResultGetTokenList>();
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->getTokens().size(), 2u);
}

}  // namespace
}  // namespace lm2
