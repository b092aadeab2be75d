// The session service link against the real service control manager and real named pipes, with
// the service double installed, started and removed by the tests themselves.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "DebugOutputCapture.h"
#include "ForwardingOsSeam.h"
#include "FreedMemoryWatch.h"
#include "InstalledServiceDouble.h"
#include "Watchdog.h"
#include "logging/ExtendedResult.h"
#include "service/ServicePipe.h"
#include "service/SessionServiceStarter.h"
#include "service/TokenAuthenticationNotice.h"

namespace lm2::service {
namespace {

using Bytes = std::vector<std::uint8_t>;

class SessionServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    result::setComponentId(result::kModuleComponentId);
    test::enableTrace();
    test::InstalledServiceDouble::removeExisting();
    record_.tokenIdentification = {0x4C, 0x4D, 0x32, 0x00, 0xFF, 0x10};
    record_.userName = L"W\u00fcrth\\anna";
    record_.secondText = "second field";
  }
  void TearDown() override { test::InstalledServiceDouble::removeExisting(); }

  std::wstring recordFile() const { return test::programDirectory() + L"\\service-request.bin"; }

  static Bytes readFile(const std::wstring& path) {
    std::ifstream in(path.c_str(), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  test::DebugOutputCapture trace_;
  TokenLogonRecord record_;
};

// Watches how the pipe is opened: Wine accepts an impersonation limit but does not enforce it.
class PipeOpenWatch final : public test::ForwardingOsSeam {
 public:
  HANDLE createFileW(LPCWSTR n, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d, DWORD f, HANDLE t) override {
    flags = f;
    return ForwardingOsSeam::createFileW(n, a, s, sa, d, f, t);
  }
  DWORD flags = 0;
};

// The request for `record_` as the stream format lays it out, written out by hand: "n/a" { "ct" 4,
// "pt" { "psi" session, "ptsi" 4C4D3200FF10, "pun" "W\u00fcrth\\anna" (UTF-8), "pus" "second field" } }.
Bytes expectedRequest(DWORD sessionId) {
  Bytes content = {
      0x06, 0x04, 0x00, 0x00, 0x00, 0x6e, 0x2f, 0x61, 0x00, 0x02, 0x00, 0x00, 0x00, 0x03, 0x03, 0x00,
      0x00, 0x00, 0x63, 0x74, 0x00, 0x04, 0x00, 0x00, 0x00, 0x06, 0x03, 0x00, 0x00, 0x00, 0x70, 0x74,
      0x00, 0x04, 0x00, 0x00, 0x00, 0x03, 0x04, 0x00, 0x00, 0x00, 0x70, 0x73, 0x69, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x05, 0x05, 0x00, 0x00, 0x00, 0x70, 0x74, 0x73, 0x69, 0x00, 0x06, 0x00, 0x00, 0x00,
      0x4c, 0x4d, 0x32, 0x00, 0xff, 0x10, 0x01, 0x04, 0x00, 0x00, 0x00, 0x70, 0x75, 0x6e, 0x00, 0x0c,
      0x00, 0x00, 0x00, 0x57, 0xc3, 0xbc, 0x72, 0x74, 0x68, 0x5c, 0x61, 0x6e, 0x6e, 0x61, 0x00, 0x01,
      0x04, 0x00, 0x00, 0x00, 0x70, 0x75, 0x73, 0x00, 0x0d, 0x00, 0x00, 0x00, 0x73, 0x65, 0x63, 0x6f,
      0x6e, 0x64, 0x20, 0x66, 0x69, 0x65, 0x6c, 0x64, 0x00};
  for (int i = 0; i < 4; ++i) content[46 + i] = static_cast<std::uint8_t>(sessionId >> (8 * i));
  return content;
}

TEST_F(SessionServiceTest, AbsentPipeStartsTheServiceAndTheNoticeSucceeds) {
  test::InstalledServiceDouble service(L"--record=\"" + recordFile() + L"\"");
  ASSERT_TRUE(service.installed());
  ASSERT_EQ(service.state(), static_cast<DWORD>(SERVICE_STOPPED));

  PipeOpenWatch watch;
  {
    ScopedOsSeam scope(watch);
    EXPECT_EQ(notifyTokenAuthentification(record_), result::success());
  }
  // Whoever serves the pipe name may identify the provider (SYSTEM in LogonUI), never act as it.
  const DWORD identifyOnly = SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  EXPECT_EQ(watch.flags & (identifyOnly | SECURITY_CONTEXT_TRACKING | SECURITY_EFFECTIVE_ONLY | SECURITY_DELEGATION),
            identifyOnly);
  EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_RUNNING));
  EXPECT_TRUE(trace_.contains("session service pipe not found - starting service (0x8010000080070002)"));
  EXPECT_TRUE(trace_.contains("OpenServicePipe called with name \\\\.\\pipe\\{B41E7C25-93A6-4F1D-8E57-0C29D6A8F314}"));
  EXPECT_TRUE(trace_.contains("TokenEngineAbstractionLayer::notifyTokenAuthentification [START]"));
  EXPECT_TRUE(trace_.contains("TokenEngineAbstractionLayer::notifyTokenAuthentification [END]"));

  // What went over the pipe is exactly the packed tree, in its child order.
  DWORD sessionId = 0;
  ASSERT_TRUE(::ProcessIdToSessionId(::GetCurrentProcessId(), &sessionId));
  const Bytes content = expectedRequest(sessionId);
  const Bytes sent = readFile(recordFile());
  ASSERT_EQ(sent.size(), content.size() + 12);
  EXPECT_EQ(Bytes(sent.begin() + 6, sent.end() - 6), content);
  const SecureBuffer built = buildTokenAuthenticationRequest(sessionId, record_);
  EXPECT_EQ(Bytes(built.data(), built.data() + built.size()), sent);
  ::DeleteFileW(recordFile().c_str());
}

TEST_F(SessionServiceTest, PipeThatNeverAppearsFailsAfterAHundredAttempts) {
  // No service installed: every attempt fails with "not found" and tries to start it.
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(notifyTokenAuthentification(record_), 0x8010000080070002ull);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(elapsed, std::chrono::milliseconds(100 * 100 - 500));
  EXPECT_EQ(trace_.count("session service pipe not found - starting service (0x8010000080070002)"), 100u);
  EXPECT_TRUE(trace_.contains("failed to to open pipe (0x8010000080070002)"));
  EXPECT_TRUE(trace_.contains("failed to open pipe to service (0x8010000080070002)"));
}

TEST_F(SessionServiceTest, ABusyPipeIsWaitedForWithoutStartingTheService) {
  const wchar_t kName[] = L"\\\\.\\pipe\\lm2-busy-pipe-test";
  UniqueHandle server(::CreateNamedPipeW(kName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1,
                                         512, 512, 0, nullptr));
  ASSERT_TRUE(server);
  UniqueHandle first(::CreateFileW(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(first);
  std::thread freeing([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(350));
    first.reset();
    ::DisconnectNamedPipe(server.get());
    ::ConnectNamedPipe(server.get(), nullptr);
  });
  UniqueHandle pipe;
  EXPECT_EQ(OpenServicePipe(kName, pipe), result::success());
  freeing.join();
  EXPECT_EQ(trace_.count("starting service"), 0u) << "the pipe exists: the service runs";
}

TEST_F(SessionServiceTest, OneChangedByteInTheEchoIsRejected) {
  test::InstalledServiceDouble service(L"--fault=change-byte");
  ASSERT_TRUE(startSessionService());
  EXPECT_EQ(notifyTokenAuthentification(record_), kInvalidServiceReply);
  EXPECT_TRUE(trace_.contains("invalid data received from session service (0xe0000001e010000b"));
  EXPECT_FALSE(trace_.contains("(0xe0000001e010000b)")) << "the text has no closing parenthesis";
  EXPECT_FALSE(trace_.contains("invalid data length"));
}

TEST_F(SessionServiceTest, LongerReplyIsReadWhollyAndRejectedForItsLength) {
  test::InstalledServiceDouble service(L"--fault=longer");
  ASSERT_TRUE(startSessionService());

  UniqueHandle pipe;
  ASSERT_EQ(OpenServicePipe(kSessionServicePipe, pipe), result::success());
  const SecureBuffer request = buildTokenAuthenticationRequest(1, record_);
  SecureBuffer reply;
  ASSERT_EQ(transactServicePipe(pipe.get(), request.data(), static_cast<DWORD>(request.size()), reply),
            result::success());
  // Three echoes and five more bytes: the reply buffer had to double twice.
  ASSERT_EQ(reply.size(), 3 * request.size() + 5);
  EXPECT_EQ(std::memcmp(reply.data() + 2 * request.size(), request.data(), request.size()), 0);
  EXPECT_EQ(std::memcmp(reply.data() + 3 * request.size(), "long!", 5), 0);
  CloseServicePipe(pipe);

  EXPECT_EQ(notifyTokenAuthentification(record_), kInvalidServiceReply);
  EXPECT_TRUE(trace_.contains("invalid data length received from session service (0xe0000001e010000b)"));
}

TEST_F(SessionServiceTest, HangingUpWithoutAReplyIsAReadFailure) {
  test::InstalledServiceDouble service(L"--fault=close");
  ASSERT_TRUE(startSessionService());
  const ExtendedResult code = notifyTokenAuthentification(record_);
  EXPECT_TRUE(result::failed(code));
  EXPECT_NE(code, kInvalidServiceReply);
  EXPECT_EQ(result::high(code), 0x80100000u);
  EXPECT_TRUE(trace_.contains("failed to read data from session service (0x"));
  EXPECT_TRUE(trace_.contains("failed to send data to service (0x"));
}

TEST_F(SessionServiceTest, SlowReplyIsWaitedForAndRequestAndReplyAreWiped) {
  test::InstalledServiceDouble service(L"--fault=delay --delay-ms=1500");
  ASSERT_TRUE(startSessionService());
  const auto start = std::chrono::steady_clock::now();
  test::FreedMemoryWatch watch(std::string_view("LM2\0\xFF\x10", 6));  // the token's identification
  EXPECT_EQ(notifyTokenAuthentification(record_), result::success());
  EXPECT_EQ(watch.unwipedBlocks(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1400));
}

// A service that takes the request and never answers (or whoever took the pipe name) costs the
// exchange's time limit, not LogonUI's logon for good; the next exchange with a service that
// answers again succeeds.
TEST_F(SessionServiceTest, AServiceThatNeverAnswersCostsTheTimeLimitOnly) {
  test::InstalledServiceDouble service(L"--fault=hang --faulty-requests=1");
  ASSERT_TRUE(startSessionService());
  ExtendedResult code = result::success();
  const auto took = test::finishesWithin(std::chrono::seconds(30), "notifyTokenAuthentification",
                                         [&] { code = notifyTokenAuthentification(record_); });
  EXPECT_EQ(code, result::fromWin32(ERROR_TIMEOUT));
  EXPECT_GE(took.count(), static_cast<long long>(kServiceExchangeTimeoutMs) - 100);
  EXPECT_LT(took.count(), static_cast<long long>(kServiceExchangeTimeoutMs) + 3000);
  EXPECT_TRUE(trace_.contains("session service did not answer within 5000 ms"));
  EXPECT_TRUE(trace_.contains("failed to send data to service (0x"));
  test::finishesWithin(std::chrono::seconds(30), "the second notice",
                       [&] { code = notifyTokenAuthentification(record_); });
  EXPECT_EQ(code, result::success());
}

TEST_F(SessionServiceTest, StartWaitFollowsTheCheckPointAndGivesUpWithoutProgress) {
  using std::chrono::steady_clock;
  {
    // Longer than its wait hint, but its check point advances every 1.5 s.
    test::InstalledServiceDouble service(L"--start-pending-ms=4500 --start-steps=2 --start-wait-hint-ms=2000");
    EXPECT_TRUE(startSessionService());
    EXPECT_EQ(service.state(), static_cast<DWORD>(SERVICE_RUNNING));
  }
  // No progress: given up once the 2 s hint has passed (polls each second), long before it runs.
  test::InstalledServiceDouble service(L"--start-pending-ms=8000 --start-wait-hint-ms=2000");
  const auto start = steady_clock::now();
  EXPECT_FALSE(startSessionService());
  const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
  EXPECT_GE(waited.count(), 2000);
  EXPECT_LT(waited.count(), 6000);
}

TEST_F(SessionServiceTest, ServiceThatCannotStartIsReported) {
  EXPECT_FALSE(startSessionService()) << "not installed";
  test::InstalledServiceDouble service(L"--fault=fail-start");
  EXPECT_FALSE(startSessionService());
  EXPECT_NE(service.state(), static_cast<DWORD>(SERVICE_RUNNING));
}

}  // namespace
}  // namespace lm2::service
