#pragma once
// The host's console output: UTF-8 on stdout, whatever the console's code page, so that German
// texts arrive intact in a terminal, a pipe or a log file.

#include <string>

namespace lm2::host {

void print(const std::wstring& text);
// Silences print and printLine (a benchmark that drives the screen without showing it).
void setQuiet(bool quiet);
void printLine(const std::wstring& text);
std::string toUtf8(const std::wstring& text);
std::wstring fromUtf8(const std::string& text);
// Appends `bytes` to the file at `path` (made when missing); false when it cannot be written.
bool appendToFile(const std::wstring& path, const std::string& bytes);
// "0x8000FFFF": HRESULTs, NTSTATUS codes and other 32-bit results as the host prints them.
std::wstring hexCode(unsigned long code);

}  // namespace lm2::host
