#include "ChaosSession.h"

#include <windows.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <thread>

#include "HostOutput.h"
#include "ScriptRunner.h"

namespace lm2::host {
namespace {

// The provider's class and its end-to-end DLL, registered as a provider and (as the package does) as
// a filter.
constexpr wchar_t kClassAndDll[] =
    L"{6F3C2A91-5D7E-4B08-9C14-2E8A7D5B3F60} \"%HOSTDIR%\\end-to-end\\LM2CredentialProvider.dll\"";
constexpr wchar_t kSettingsKey[] = L"HKLM\\SOFTWARE\\Corvana\\Lumenar2\\CredentialProvider";
constexpr wchar_t kPasswordProvider[] = L"{60B78E88-EAD8-445C-9CFD-0B87F74EA6CD}";
constexpr wchar_t kLabel[] = L"1.3.6.1.4.1.7719.9117.1.1234.8.11";

// What must hold after every step, whatever the person or the engine did.
constexpr const wchar_t* kNeverShown[] = {
    L"An undefined state occurred",               // 118: a result no state expects
    L"The subsequent state can not be resolved",  // 119
};
// Shown only when the session made the engine misbehave on purpose.
constexpr wchar_t kCapabilityFailure[] = L"Failed to fetch token capabilities";

struct TokenKind {
  const wchar_t* id;
  const wchar_t* pin;  // empty: none to type
  std::wstring json;
};

std::wstring credential(const wchar_t* link, const std::wstring& account, const std::wstring& password) {
  return L"{\"kind\": 1, \"label\": \"" + std::wstring(kLabel) + L"\", \"link\": \"" + link + L"\", \"data\": \"" +
         account + L"\"}, {\"kind\": 2, \"label\": \"" + kLabel + L"\", \"link\": \"" + link + L"\", \"data\": \"" +
         password + L"\"}";
}

// One token of each kind the provider meets; their PINs and passwords are words no trace line
// holds by chance.
std::vector<TokenKind> tokenKinds() {
  const std::wstring me = L".\\\\%USERNAME%";
  return {
      {L"5A01", L"Pin-Known-Kq",
       L"{\"id\": \"5A01\", \"label\": \"Known\", \"pin\": \"Pin-Known-Kq\", \"objects\": [" +
           credential(L"K1", me, L"Chaos-Pw-Known") + L"]}"},
      {L"5A02", L"Pin-Shared-Sw",
       L"{\"id\": \"5A02\", \"label\": \"Shared\", \"pin\": \"Pin-Shared-Sw\", \"objects\": [" +
           credential(L"S1", me, L"Chaos-Pw-Mine") + L", " + credential(L"S2", L"LM2TEST\\\\anna", L"Chaos-Pw-Anna") +
           L"]}"},
      {L"5A03", L"Pin-Empty-Ez", L"{\"id\": \"5A03\", \"label\": \"Blank\", \"pin\": \"Pin-Empty-Ez\", \"initialized\": true}"},
      {L"5A04", L"", L"{\"id\": \"5A04\", \"label\": \"New\", \"initialized\": false, \"canInitialize\": true}"},
      {L"5A05", L"",
       L"{\"id\": \"5A05\", \"label\": \"Open\", \"nullPin\": true, \"objects\": [" +
           credential(L"N1", me, L"Chaos-Pw-Open") + L"]}"},
      {L"5A06", L"Pin-Pad-Pd",
       L"{\"id\": \"5A06\", \"label\": \"Pad\", \"pin\": \"Pin-Pad-Pd\", \"pinPad\": true, \"pinPadDelayMs\": 60, "
       L"\"objects\": [" +
           credential(L"P1", me, L"Chaos-Pw-Pad") + L"]}"},
  };
}

class Dice {
 public:
  explicit Dice(std::uint32_t seed) : m_engine(seed) {}
  unsigned below(unsigned n) { return n == 0 ? 0 : static_cast<unsigned>(m_engine() % n); }
  bool chance(unsigned percent) { return below(100) < percent; }
  template <class T>
  const T& of(const std::vector<T>& items) { return items[below(static_cast<unsigned>(items.size()))]; }

 private:
  std::mt19937 m_engine;
};

}  // namespace

ChaosSession chaosSession(std::uint32_t seed) {
  Dice dice(seed);
  ChaosSession session;
  auto& out = session.lines;
  const std::vector<TokenKind> kinds = tokenKinds();
  session.secrets = {L"Chaos-Pw-Known", L"Chaos-Pw-Mine", L"Chaos-Pw-Anna", L"Chaos-Pw-Open", L"Chaos-Pw-Pad",
                     L"Chaos-New-Pw-7", L"Chaos-Typed-Pw-5", L"Pin-Wrong-Wx", L"Pin-New-Nv"};
  for (const TokenKind& kind : kinds) {
    if (*kind.pin) session.secrets.push_back(kind.pin);
  }

  out.push_back(L"# chaos session " + std::to_wstring(seed));
  out.push_back(L"wall-clock 0");
  out.push_back(L"register " + std::wstring(kClassAndDll) + L" \"Lumenar 2\"");
  out.push_back(L"service");
  out.push_back(L"reg set HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI "
                L"LastLoggedOnSAMUser sz \".\\%USERNAME%\"");
  // Mostly as Windows has it: the session's user recorded where Windows 7 LogonUI records it, and a
  // user array that names the user whose password is changed. Now and then Windows names nobody.
  const std::wstring sessionData = L"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI\\SessionData\\1";
  const bool named = !dice.chance(15);
  out.push_back(named ? L"reg set " + sessionData + L" LoggedOnSAMUser sz \".\\%USERNAME%\""
                      : L"reg delete " + sessionData + L" LoggedOnSAMUser");
  static const std::vector<std::wstring> kScenarios = {L"logon", L"logon", L"unlock", L"change-password", L"credui"};
  const std::wstring scenario = dice.of(kScenarios);
  out.push_back(L"scenario " + scenario);
  out.push_back(dice.chance(50) || (scenario == L"change-password" && named) ? L"users as-windows" : L"users none");
  // The package registers the filter on every install; an administrator may have it hide Windows'
  // password provider in this scenario (a value of another session stays unless replaced).
  out.push_back(L"register-filter " + std::wstring(kClassAndDll));
  static const std::vector<std::wstring> kFilterValues = {L"FilterLogon", L"FilterUnlockWorkstation",
                                                          L"FilterChangePassword", L"FilterCredUi"};
  for (const std::wstring& value : kFilterValues) {
    out.push_back(dice.chance(50) ? L"reg set " + std::wstring(kSettingsKey) + L" " + value + L" multi " + kPasswordProvider
                                  : L"reg delete " + std::wstring(kSettingsKey) + L" " + value);
  }
  // Some tokens are there before the screen starts.
  std::vector<bool> present(kinds.size(), false);
  std::wstring initial;
  for (std::size_t index = 0; index < kinds.size(); ++index) {
    if (!dice.chance(25)) continue;
    present[index] = true;
    initial += (initial.empty() ? L"" : L", ") + kinds[index].json;
  }
  out.push_back(L"tokens {\"tokens\": [" + initial + L"]}");
  out.push_back(L"start");
  // Tokens come and go once the engine runs (it reads its tokens when it starts).
  out.push_back(L"wait for nowhere containing \"Token Engine is initializing\"");

  bool faults = false;   // the engine was made to misbehave: a failed read may show
  const auto check = [&] {
    for (const wchar_t* text : kNeverShown) out.push_back(L"expect nowhere containing \"" + std::wstring(text) + L"\"");
    if (!faults) out.push_back(L"expect nowhere containing \"" + std::wstring(kCapabilityFailure) + L"\"");
  };
  const auto presentKinds = [&] {
    std::vector<std::size_t> result;
    for (std::size_t index = 0; index < kinds.size(); ++index) {
      if (present[index]) result.push_back(index);
    }
    return result;
  };
  static const std::vector<std::wstring> kVerdicts = {L"0", L"0xC000006D", L"0xC0000224", L"0xC0000071",
                                                      L"0xC000006C", L"0xC0000064"};
  // Names go where names are typed (they may be traced), passwords where passwords are.
  static const std::vector<std::wstring> kNames = {L"LM2TEST\\anna", L".\\%USERNAME%", L"", L"Label-Q"};
  static const std::vector<std::wstring> kPasswords = {L"Chaos-New-Pw-7", L"Chaos-Typed-Pw-5", L""};
  const unsigned steps = 12 + dice.below(20);
  for (unsigned step = 0; step < steps; ++step) {
    const unsigned roll = dice.below(100);
    const std::size_t kindIndex = dice.below(static_cast<unsigned>(kinds.size()));
    const TokenKind& kind = kinds[kindIndex];
    if (roll < 14) {
      if (present[kindIndex]) {
        out.push_back(L"remove " + std::wstring(kind.id));
        present[kindIndex] = false;
      } else {
        out.push_back(L"insert " + kind.json);
        present[kindIndex] = true;
      }
    } else if (roll < 20) {
      // Pulled and connected again at once, as a loose contact does.
      if (present[kindIndex]) out.push_back(L"remove " + std::wstring(kind.id));
      out.push_back(L"insert " + kind.json);
      if (dice.chance(50)) {
        out.push_back(L"remove " + std::wstring(kind.id));
        out.push_back(L"insert " + kind.json);
      }
      present[kindIndex] = true;
    } else if (roll < 28) {
      out.push_back(L"try click 19");
      if (dice.chance(50)) out.push_back(L"try click 19");
    } else if (roll < 40) {
      // The right PIN of some token, or a wrong one, typed where PINs go.
      const std::wstring pin = dice.chance(70) && *kind.pin ? kind.pin : L"Pin-Wrong-Wx";
      static const std::vector<std::wstring> kPinFields = {L"8", L"8", L"17", L"9", L"10", L"11"};
      out.push_back(L"try type " + dice.of(kPinFields) + L" \"" + pin + L"\"");
    } else if (roll < 48) {
      if (dice.chance(35)) {
        out.push_back(std::wstring(L"try type ") + (dice.chance(70) ? L"4" : L"7") + L" \"" + dice.of(kNames) + L"\"");
      } else {
        static const std::vector<std::wstring> kPasswordFields = {L"13", L"14", L"15", L"16"};
        out.push_back(L"try type " + dice.of(kPasswordFields) + L" \"" + dice.of(kPasswords) + L"\"");
      }
    } else if (roll < 51) {
      out.push_back(std::wstring(L"try check 12 ") + (dice.chance(50) ? L"on" : L"off"));
    } else if (roll < 54) {
      out.push_back(L"try choose 5 " + std::to_wstring(1 + dice.below(3)));
    } else if (roll < 57) {
      out.push_back(L"try select " + std::to_wstring(1 + dice.below(3)));
    } else if (roll < 72) {
      // A submit, early or repeated, sometimes with the token pulled while it waits; then
      // Windows' verdict, sometimes twice.
      const std::vector<std::size_t> inserted = presentKinds();
      unsigned pulledAfter = 0;
      if (!inserted.empty() && dice.chance(20)) {
        const std::size_t pulled = inserted[dice.below(static_cast<unsigned>(inserted.size()))];
        pulledAfter = 1 + dice.below(150);
        out.push_back(L"remove " + std::wstring(kinds[pulled].id) + L" after " + std::to_wstring(pulledAfter));
        present[pulled] = false;
      }
      out.push_back(L"try submit");
      // The token is gone before the next step (which may connect it again).
      if (pulledAfter) out.push_back(L"sleep " + std::to_wstring(pulledAfter + 50));
      if (dice.chance(25)) out.push_back(L"try submit");
      if (dice.chance(70)) {
        const std::wstring verdict = dice.of(kVerdicts);
        out.push_back(L"try report " + verdict);
        if (dice.chance(25)) out.push_back(L"try report " + verdict);
      }
    } else if (roll < 76) {
      static const std::vector<std::wstring> kDelays = {L"0", L"0", L"30", L"150"};
      out.push_back(L"engine-delay " + dice.of(kDelays));
    } else if (roll < 80) {
      static const std::vector<std::wstring> kFailing = {L"checkPin", L"getTokenCapabilities", L"listObjects",
                                                         L"readObject", L"initializeToken", L"createObject"};
      out.push_back(L"try engine-fail " + dice.of(kFailing) + L" 0xE0000000E0100010");
      faults = true;
    } else if (roll < 82) {
      out.push_back(L"engine-malform " + std::to_wstring(1 + dice.below(4)));
      faults = true;
      session.losesResults = true;
    } else if (roll < 88) {
      // Results held back for a while and then let go, maybe the newest first (results that
      // overtake others). The engine lets them go by itself: a submit LogonUI makes meanwhile (an
      // automatic logon) waits for them, as it waits for a slow token.
      const unsigned held = 100 + dice.below(500);
      out.push_back(L"engine-hold on");
      out.push_back(L"later " + std::to_wstring(held) + L" engine-hold off");
      out.push_back(L"later " + std::to_wstring(held + 10) + L" engine-release" +
                    (dice.chance(50) ? L" newest-first" : L""));
    } else if (roll < 91) {
      static const std::vector<std::wstring> kServices = {L"service", L"service --fault=close --faulty-requests=1",
                                                          L"service --fault=change-byte", L"service --delay-ms=300",
                                                          L"service --fault=hang --faulty-requests=1"};
      out.push_back(dice.of(kServices));
    } else if (roll < 94) {
      out.push_back(L"sleep " + std::to_wstring(20 + dice.below(300)));
    } else if (roll < 97) {
      // The wall clock set back or forward (time synchronisation at boot, an administrator):
      // delays and deadlines count on the monotonic clock, so nothing waits for the step.
      static const std::vector<std::wstring> kSteps = {L"-3600", L"-86400", L"3600", L"600", L"0"};
      out.push_back(L"wall-clock " + dice.of(kSteps));
    } else {
      // LogonUI lets go of the screen while the provider's worker and the tiles may still be busy
      // (a result on its way, a submit just made), and opens a new one on the tokens still there.
      out.push_back(L"end");
      std::wstring still;
      for (std::size_t index = 0; index < kinds.size(); ++index) {
        if (present[index]) still += (still.empty() ? L"" : L", ") + kinds[index].json;
      }
      out.push_back(L"tokens {\"tokens\": [" + still + L"]}");
      out.push_back(L"start");
      out.push_back(L"wait for nowhere containing \"Token Engine is initializing\"");
    }
    check();
  }
  out.push_back(L"engine-hold off");
  out.push_back(L"engine-release");
  // Once things settle without tokens, every tile asks for one.
  out.push_back(L"engine-delay 0");
  for (std::size_t index = 0; index < kinds.size(); ++index) {
    if (present[index]) out.push_back(L"remove " + std::wstring(kinds[index].id));
  }
  out.push_back(L"wait for every tile text-in 6 \"Please connect token | Search for connected token ...\"");
  check();
  out.push_back(L"end");
  out.push_back(L"expect threads as-before-start");
  return session;
}

namespace {

// The lines that end a session once its tokens are gone: everything after the last step of the
// session proper, without its removals.
std::vector<std::wstring> endingWithoutTokens(const ChaosSession& session) {
  std::size_t from = session.lines.size();
  while (from > 0 && session.lines[from - 1] != L"engine-hold off") --from;
  std::vector<std::wstring> ending;
  if (from > 0) ending.push_back(L"engine-hold off");
  for (std::size_t index = from; index < session.lines.size(); ++index) {
    if (session.lines[index].rfind(L"remove ", 0) != 0) ending.push_back(session.lines[index]);
  }
  return ending;
}

}  // namespace

unsigned runChaosSessions(ScriptRunner& runner, std::uint32_t first, std::uint32_t count, unsigned watchdogSeconds,
                          const std::wstring& secretsFile) {
  // A wait for a lost result is ended by the person this much later.
  constexpr std::uint64_t kPatienceMs = 5000;
  std::mutex lock;
  std::wstring current;
  std::atomic<std::uint64_t> stepStarted{0};
  std::atomic<bool> finished{false};
  std::atomic<bool> losesResults{false};
  std::atomic<bool> pulled{false};
  std::thread watchdog([&] {
    while (!finished) {
      ::Sleep(200);
      const std::uint64_t started = stepStarted.load();
      if (started == 0) continue;
      const std::uint64_t waited = ::GetTickCount64() - started;
      if (losesResults && !pulled && waited >= kPatienceMs) {
        // Every token out, from this thread, as a person would while LogonUI waits.
        const vte::EngineControl control = vte::EngineControl::ofLoadedEngine();
        for (const TokenKind& kind : tokenKinds()) {
          if (control.available()) control.removeToken(toUtf8(kind.id).c_str());  // absent ones refuse
        }
        pulled = true;
        continue;
      }
      if (waited < watchdogSeconds * 1000ull) continue;
      std::lock_guard<std::mutex> guard(lock);
      printLine(L"\nchaos: HANG " + current + L" (no answer within " + std::to_wstring(watchdogSeconds) + L" s)");
      ::TerminateProcess(::GetCurrentProcess(), 3);
    }
  });
  unsigned failed = 0;
  unsigned rescued = 0;
  const auto started = std::chrono::steady_clock::now();
  for (std::uint32_t seed = first; seed - first < count; ++seed) {
    ChaosSession session = chaosSession(seed);
    losesResults = session.losesResults;
    pulled = false;
    if (!secretsFile.empty()) {
      std::string bytes;
      for (const std::wstring& secret : session.secrets) bytes += toUtf8(secret) + "\n";
      appendToFile(secretsFile, bytes);
    }
    printLine(L"chaos: session " + std::to_wstring(seed));
    for (std::size_t step = 0; step < session.lines.size(); ++step) {
      {
        std::lock_guard<std::mutex> guard(lock);
        current = L"session " + std::to_wstring(seed) + L" step " + std::to_wstring(step + 1) + L": " +
                  session.lines[step];
      }
      stepStarted = ::GetTickCount64();
      std::wstring error;
      const bool ok = runner.run(session.lines[step], error);
      stepStarted = 0;
      if (pulled && step + 1 < session.lines.size()) {
        ++rescued;
        printLine(L"chaos: session " + std::to_wstring(seed) + L" step " + std::to_wstring(step + 1) +
                  L" waited for a lost result until the tokens were pulled");
        // The session goes on as it ends, without tokens (its remaining steps assumed them).
        std::vector<std::wstring> ending = endingWithoutTokens(session);
        session.lines.resize(step + 1);
        session.lines.insert(session.lines.end(), ending.begin(), ending.end());
        losesResults = false;
        pulled = false;
        if (ok) continue;
      }
      if (ok) continue;
      ++failed;
      printLine(L"chaos: FAILED session " + std::to_wstring(seed) + L" step " + std::to_wstring(step + 1) + L": " +
                session.lines[step] + L"\n  " + error);
      std::wstring ignored;
      runner.run(L"end", ignored);
      break;
    }
  }
  finished = true;
  watchdog.join();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - started);
  printLine(L"chaos: " + std::to_wstring(count) + L" sessions from seed " + std::to_wstring(first) + L", " +
            std::to_wstring(failed) + L" failed, " + std::to_wstring(rescued) +
            L" waited for a lost result until the tokens were pulled, " + std::to_wstring(seconds.count()) + L" s");
  return failed;
}

}  // namespace lm2::host
