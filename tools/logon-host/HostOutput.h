#pragma once
// The host's console output: UTF-8 on stdout, whatever the console's code page, so that German
// texts arrive intact in a terminal, a pipe or a log file.

#include <string>

namespace lm2::host {

void print(const std::wstring& text);
void printLine(const std::wstring& text);
std::string toUtf8(const std::wstring& text);
std::wstring fromUtf8(const std::string& text);

}  // namespace lm2::host
