#include "TestRegistry.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/UniqueResource.h"

namespace lm2::test {

void deleteKeyTree(const std::wstring& path) {
  const LSTATUS status = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
  ASSERT_TRUE(status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND) << "RegDeleteTreeW " << status;
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str());
}

void createKey(const std::wstring& path) {
  UniqueHkey key;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              key.put(), nullptr),
            ERROR_SUCCESS);
}

void setRaw(const std::wstring& path, const wchar_t* name, DWORD type, const void* data, DWORD size) {
  UniqueHkey key;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              key.put(), nullptr),
            ERROR_SUCCESS);
  ASSERT_EQ(::RegSetValueExW(key.get(), name, 0, type, static_cast<const BYTE*>(data), size), ERROR_SUCCESS);
}

void setString(const std::wstring& path, const wchar_t* name, const std::wstring& value) {
  setRaw(path, name, REG_SZ, value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

void setStringWithoutTerminator(const std::wstring& path, const wchar_t* name, const std::wstring& value) {
  setRaw(path, name, REG_SZ, value.data(), static_cast<DWORD>(value.size() * sizeof(wchar_t)));
}

void setNumber(const std::wstring& path, const wchar_t* name, DWORD value) {
  setRaw(path, name, REG_DWORD, &value, sizeof value);
}

void setList(const std::wstring& path, const wchar_t* name, const std::vector<std::wstring>& values) {
  std::wstring block;
  for (const auto& value : values) {
    block += value;
    block.push_back(L'\0');
  }
  block.push_back(L'\0');
  setRaw(path, name, REG_MULTI_SZ, block.data(), static_cast<DWORD>(block.size() * sizeof(wchar_t)));
}

void deleteValue(const std::wstring& path, const wchar_t* name) {
  UniqueHkey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, key.put()) == ERROR_SUCCESS) {
    ::RegDeleteValueW(key.get(), name);
  }
}

namespace {

// The program's file name without folder and ".exe": NAME[_version][_de].
std::string programName() {
  char path[MAX_PATH] = {};
  ::GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string name = path;
  name = name.substr(name.find_last_of("\\/") + 1);
  return name.substr(0, name.rfind('.'));
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string expectedWindows() {
  std::string name = programName();
  if (endsWith(name, "_de")) name.resize(name.size() - 3);
  for (const char* version : {"vista", "win7", "win81", "win10"}) {
    if (endsWith(name, std::string("_") + version)) return version;
  }
  return "";
}

bool expectsGerman() { return endsWith(programName(), "_de"); }

std::wstring currentUserName() {
  wchar_t name[256];
  DWORD length = 256;
  return ::GetUserNameW(name, &length) ? std::wstring(name) : std::wstring();
}

std::wstring sessionDataKey() {
  DWORD session = 0;
  ::ProcessIdToSessionId(::GetCurrentProcessId(), &session);
  return L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI\\SessionData\\" +
         std::to_wstring(session);
}

}  // namespace lm2::test
