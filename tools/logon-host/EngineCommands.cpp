#include "EngineCommands.h"

#include "HostOutput.h"
#include "ScriptWords.h"

namespace lm2::host {
namespace {

using namespace script_words;

// The facade's task functions, as the virtual engine numbers them.
constexpr Named kTaskFunctions[] = {{L"getTokenList", 1},   {L"getTokenCapabilities", 2}, {L"checkPin", 3},
                                    {L"askPin", 4},         {L"findObjects", 5},          {L"getObjectInfo", 6},
                                    {L"readObject", 7},     {L"writeObject", 8},          {L"createObject", 9},
                                    {L"deleteObject", 10},  {L"initializeToken", 11},     {L"changePin", 12}};

}  // namespace

bool runEngineCommand(const vte::EngineControl& control, const std::vector<std::wstring>& words, const std::wstring& rest,
                      std::wstring& error) {
  const std::wstring& command = words[0];
  unsigned long number = 0;
  if (command == L"engine-delay") {
    if (!needNumber(words, 1, L"milliseconds", number, error)) return false;
    control.delayTasks(number);
    return true;
  }
  if (command == L"engine-fail") {
    // The engine's next task of that function ends with the code (a token that refuses).
    unsigned long function = 0;
    unsigned long long code = 0;
    if (!needWord(words, 2, L"a task function and a result code", error) ||
        !byName(kTaskFunctions, words[1], function) || !toNumber64(words[2], code)) {
      error = L"engine-fail: a task function (" + namesOf(kTaskFunctions) + L") and a code expected";
      return false;
    }
    control.failNextTask(static_cast<std::uint32_t>(function), code);
    return true;
  }
  if (command == L"engine-hold") {
    // Finished tasks keep their results back until released: a result that comes late.
    if (!needWord(words, 1, L"on or off", error)) return false;
    control.holdResults(words[1] == L"on" ? 1 : 0);
    return true;
  }
  if (command == L"engine-release") {
    // engine-release [COUNT] [newest-first]: results that come now, maybe overtaking each other.
    if (words.size() > 1 && words[1] != L"newest-first" && !needNumber(words, 1, L"a count", number, error)) return false;
    control.releaseResults(number, words.back() == L"newest-first" ? 1 : 0);
    return true;
  }
  if (command == L"engine-malform") {
    if (!needNumber(words, 1, L"a kind of damage (1 to 4)", number, error)) return false;
    control.malformNextResult(number);
    return true;
  }
  if (command != L"insert" && command != L"remove") {
    error = command + L": unknown engine command";
    return false;
  }
  const int result = command == L"insert" ? control.insertToken(toUtf8(rest).c_str())
                                          : control.removeToken(toUtf8(rest).c_str());
  if (result != 0) {
    error = command + L": the engine refused " + rest + L" (" + std::to_wstring(result) + L")";
    return false;
  }
  return true;
}

}  // namespace lm2::host
