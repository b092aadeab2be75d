// The layer base: the process-wide instance and its reference count, operations on the pool of
// five, and no completion once the layer is going away.
#include "tokenengine/TokenEngineAbstractionLayer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <thread>

#include "Completions.h"
#include "DebugOutputCapture.h"
#include "service/TokenAuthenticationNotice.h"

namespace lm2 {
namespace {

using namespace std::chrono_literals;

// A layer whose token list operation blocks until the test releases it; the other operations
// are not used here.
class ScriptedLayer final : public TokenEngineAbstractionLayer {
 public:
  explicit ScriptedLayer(std::atomic<bool>* destroyed = nullptr, std::function<void()> onDestroy = nullptr)
      : destroyed_(destroyed), onDestroy_(std::move(onDestroy)) {}
  ~ScriptedLayer() override {
    if (onDestroy_) onDestroy_();
    stopPool();
    if (destroyed_) *destroyed_ = true;
  }

  void InitializeAsync(Context) override {}
  void GetTokenListAsync(Context context) override {
    queueOperation("ScriptedLayer::GetTokenListAsync", std::move(context), [this] {
      std::unique_lock<std::mutex> guard(lock_);
      ++running_;
      changed_.notify_all();
      changed_.wait(guard, [this] { return released_ > 0; });
      --released_;
      return std::make_unique<AsyncResultGetTokenList>(result::success(), std::vector<Token>{});
    });
  }
  void ListUsersOnTokenAsync(Context context, const Token&) override {
    queueOperation("ScriptedLayer::ListUsersOnTokenAsync", std::move(context),
                   []() -> std::unique_ptr<AsyncResult> { throw std::runtime_error("engine exploded"); });
  }
  void GetPasswordForUserAsync(Context, const User&) override {}
  void GetTokenCapabilitiesAsync(Context, const Token&) override {}
  void CheckPINAsync(Context, const User&, const std::wstring&) override {}
  void CheckPINAsync(Context, const Token&, const std::wstring&) override {}
  void AskPINAsync(Context, const User&) override {}
  void ChangePasswordOfUserAsync(Context, const User&, const std::wstring&) override {}
  void InitializeTokenAsync(Context, const Token&, const std::wstring&, const std::wstring&, bool) override {}
  void ChangePINAsync(Context, const Token&, const std::wstring&, const std::wstring&) override {}
  void CreateCredentialAsync(Context, const Token&, const std::wstring&, const std::wstring&) override {}

  void beginShutdown() { stopPool(); }
  bool waitForRunning(int count) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, 5s, [&] { return running_ >= count; });
  }
  void release(int count) {
    std::lock_guard<std::mutex> guard(lock_);
    released_ += count;
    changed_.notify_all();
  }

 private:
  std::atomic<bool>* destroyed_;
  std::function<void()> onDestroy_;
  std::mutex lock_;
  std::condition_variable changed_;
  int running_ = 0;
  int released_ = 0;
};

class LayerBaseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    result::setComponentId(result::kModuleComponentId);
    test::enableTrace();
  }
  void TearDown() override { g_pTokenEngine = nullptr; }

  test::DebugOutputCapture trace_;
};

TEST_F(LayerBaseTest, LastReleaseUnpublishesAndDestroysTheLayer) {
  std::atomic<bool> destroyed{false};
  auto* layer = new ScriptedLayer(&destroyed);
  g_pTokenEngine = layer;
  EXPECT_EQ(layer->AddRef(), 2);
  EXPECT_TRUE(trace_.contains("reference count of TokenEngineAbstractionLayer is 2"));
  EXPECT_EQ(layer->Release(), 1);
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(g_pTokenEngine.load(), layer);
  EXPECT_EQ(layer->Release(), 0);
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(g_pTokenEngine.load(), nullptr);
  EXPECT_TRUE(trace_.contains("reference count of TokenEngineAbstractionLayer is 0"));
  EXPECT_TRUE(trace_.contains("destruct thread pool is necessary"));
  EXPECT_FALSE(trace_.contains("g_pTokenEngine was not me"));

  // A layer that is no longer the published one leaves the global alone.
  destroyed = false;
  auto* old = new ScriptedLayer(&destroyed);
  ScriptedLayer current;
  g_pTokenEngine = &current;
  EXPECT_EQ(old->Release(), 0);
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(g_pTokenEngine.load(), &current);
  EXPECT_TRUE(trace_.contains("g_pTokenEngine was not me"));
}

TEST_F(LayerBaseTest, CompletionRunsOnAWorkerWithTheResultAlsoWhenTheOperationFails) {
  ScriptedLayer layer;
  test::Completions completions;
  layer.GetTokenListAsync(completions.context());
  layer.release(1);
  ASSERT_TRUE(completions.waitFor(1));
  EXPECT_NE(completions.thread(), std::this_thread::get_id());
  EXPECT_EQ(completions.code(), result::success());
  EXPECT_TRUE(trace_.contains("ScriptedLayer::GetTokenListAsync [START]"));

  const std::uint8_t id[] = {1};
  layer.ListUsersOnTokenAsync(completions.context(), Token(id, 1));  // throws on the worker
  ASSERT_TRUE(completions.waitFor(2));
  EXPECT_EQ(completions.code(), 0x801000008000FFFFull);  // E_UNEXPECTED
}

TEST_F(LayerBaseTest, ACompletionThatThrowsIsCalledAgainSoThatTheResultArrives) {
  ScriptedLayer layer;
  test::Completions completions;
  const std::shared_ptr<CtxData> delivered = completions.context();
  std::atomic<int> calls{0};
  // The hand-over runs out of memory once (the provider's queue could not take the result).
  auto context = std::make_shared<CtxTokenEngine>([&](CtxData& done) {
    if (++calls == 1) throw std::bad_alloc();
    delivered->setResult(std::make_unique<AsyncResult>(done.getResult()->getResultCode()));
    delivered->complete();
  });
  layer.GetTokenListAsync(context);
  layer.release(1);
  ASSERT_TRUE(completions.waitFor(1, std::chrono::seconds(5))) << "the result was lost";
  EXPECT_EQ(calls.load(), 2);
  EXPECT_EQ(completions.code(), result::success());
  EXPECT_TRUE(trace_.contains("the completion of a token engine operation failed...trying again"));
}

TEST_F(LayerBaseTest, LastReleaseFromACompletionDestroysTheLayerOnAnotherThread) {
  std::atomic<bool> destroyed{false};
  auto* layer = new ScriptedLayer(&destroyed);
  g_pTokenEngine = layer;
  // The completion runs on a worker of the layer and drops the last reference: destroying the
  // layer there would join the worker from itself and end the process.
  auto context = std::make_shared<CtxTokenEngine>([layer](CtxData&) { layer->Release(); });
  layer->GetTokenListAsync(context);
  layer->release(1);
  for (int i = 0; i < 100 && !destroyed; ++i) std::this_thread::sleep_for(50ms);
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(g_pTokenEngine.load(), nullptr);
}

TEST_F(LayerBaseTest, AddRefDoesNotBringBackALayerThatIsGoingAway) {
  std::promise<void> destroying;
  std::promise<void> mayFinish;
  std::shared_future<void> finish = mayFinish.get_future().share();
  auto* layer = new ScriptedLayer(nullptr, [&] {
    destroying.set_value();
    finish.wait();
  });
  g_pTokenEngine = layer;
  std::thread last([layer] { layer->Release(); });
  destroying.get_future().wait();
  EXPECT_EQ(layer->AddRef(), 0) << "a reference to a layer in destruction";
  mayFinish.set_value();
  last.join();
  EXPECT_EQ(TokenEngineAbstractionLayer::acquirePublished(), nullptr);
}

TEST_F(LayerBaseTest, NothingCompletesOnceShutdownHasBegun) {
  test::Completions completions;
  {
    ScriptedLayer layer;
    for (int i = 0; i < 6; ++i) layer.GetTokenListAsync(completions.context());
    ASSERT_TRUE(layer.waitForRunning(5));
    std::thread stopper([&] { layer.beginShutdown(); });  // waits for the five running ones
    std::this_thread::sleep_for(100ms);
    layer.GetTokenListAsync(completions.context());  // requested while stopping: dropped
    layer.release(6);
    stopper.join();
    EXPECT_EQ(completions.count(), 5) << "the queued sixth and the late seventh never start";
  }
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(completions.count(), 5);
}

TEST_F(LayerBaseTest, TokenLogonRecordCarriesTheTokenTheNameAndTheSid) {
  const std::uint8_t id[] = {0x4C, 0x4D};
  const Token token(id, sizeof id);
  const service::TokenLogonRecord record = TokenEngineAbstractionLayer::logonRecordOf(User(L"Administrators", &token));
  EXPECT_EQ(record.tokenIdentification, (std::vector<std::uint8_t>{0x4C, 0x4D}));
  EXPECT_EQ(record.userName, L"Administrators");
  EXPECT_EQ(record.secondText, "S-1-5-32-544");
}

}  // namespace
}  // namespace lm2
