#include "DoubleOptions.h"

#include <cwchar>

namespace lm2::tools {
namespace {

bool startsWith(const std::wstring& text, const wchar_t* prefix, std::wstring& rest) {
  const std::size_t n = std::wcslen(prefix);
  if (text.compare(0, n, prefix) != 0) return false;
  rest = text.substr(n);
  return true;
}

}  // namespace

bool DoubleOptions::parse(int argc, wchar_t** argv, std::wstring& error) {
  for (int i = 1; i < argc; ++i) {
    const std::wstring argument = argv[i];
    std::wstring value;
    if (argument == L"--console") {
      console = true;
    } else if (startsWith(argument, L"--fault=", value)) {
      if (value == L"echo") fault = Fault::kEcho;
      else if (value == L"change-byte") fault = Fault::kChangeByte;
      else if (value == L"longer") fault = Fault::kLonger;
      else if (value == L"close") fault = Fault::kClose;
      else if (value == L"delay") fault = Fault::kDelay;
      else if (value == L"hang") fault = Fault::kHang;
      else if (value == L"fail-start") fault = Fault::kFailStart;
      else {
        error = L"unknown fault " + value;
        return false;
      }
    } else if (startsWith(argument, L"--delay-ms=", value)) {
      delayMs = static_cast<unsigned>(std::wcstoul(value.c_str(), nullptr, 10));
    } else if (startsWith(argument, L"--start-pending-ms=", value)) {
      startPendingMs = static_cast<unsigned>(std::wcstoul(value.c_str(), nullptr, 10));
    } else if (startsWith(argument, L"--start-steps=", value)) {
      startSteps = static_cast<unsigned>(std::wcstoul(value.c_str(), nullptr, 10));
    } else if (startsWith(argument, L"--start-wait-hint-ms=", value)) {
      startWaitHintMs = static_cast<unsigned>(std::wcstoul(value.c_str(), nullptr, 10));
    } else if (startsWith(argument, L"--faulty-requests=", value)) {
      faultyRequests = static_cast<unsigned>(std::wcstoul(value.c_str(), nullptr, 10));
    } else if (startsWith(argument, L"--record=", value)) {
      recordFile = value;
    } else {
      error = L"unknown argument " + argument;
      return false;
    }
  }
  return true;
}

}  // namespace lm2::tools
