#pragma once
// Writing test values into the real (Wine) registry under HKEY_LOCAL_MACHINE, in the shapes an
// administrator or a broken installer might leave them.

#include <windows.h>

#include <string>
#include <vector>

namespace lm2::test {

// Deletes the key with everything below it; a missing key is fine.
void deleteKeyTree(const std::wstring& path);

void setString(const std::wstring& path, const wchar_t* name, const std::wstring& value);
// A REG_SZ whose stored bytes are exactly `value` (no terminating NUL unless it contains one).
void setStringWithoutTerminator(const std::wstring& path, const wchar_t* name, const std::wstring& value);
void setNumber(const std::wstring& path, const wchar_t* name, DWORD value);
void setList(const std::wstring& path, const wchar_t* name, const std::vector<std::wstring>& values);
void setRaw(const std::wstring& path, const wchar_t* name, DWORD type, const void* data, DWORD size);
void createKey(const std::wstring& path);
void deleteValue(const std::wstring& path, const wchar_t* name);

// The Windows version this test program was started for ("vista", "win7", "win81", "win10"; empty
// when none), read from its own name.
std::string expectedWindows();
// Whether the program runs with a German user interface (its name ends in "_de").
bool expectsGerman();
// The account running the tests (a local account under Wine).
std::wstring currentUserName();
// LogonUI's session data key of this process's session, where Windows 7 names the logged-on user.
std::wstring sessionDataKey();

}  // namespace lm2::test
