#pragma once
// Answers the message boxes a provider shows on the UI thread, as the script says (Retry, Cancel,
// ...). Wine with its graphics driver set to "null" makes real dialogs without a display; a
// WH_CBT hook on the UI thread sees each one activate and presses the scripted button. Without a
// display and without that driver MessageBoxW returns -1 at once, and there is nothing to answer.

#include <windows.h>

#include <deque>
#include <string>
#include <vector>

namespace lm2::host {

class MessageBoxAnswerer {
 public:
  struct Box {
    std::wstring caption;
    std::wstring text;
    int answer;
  };

  // Hooks the calling thread (the UI thread); the hook ends with the object.
  MessageBoxAnswerer();
  ~MessageBoxAnswerer();
  MessageBoxAnswerer(const MessageBoxAnswerer&) = delete;
  MessageBoxAnswerer& operator=(const MessageBoxAnswerer&) = delete;

  // The button for the next box (IDRETRY, IDCANCEL, ...). Unscripted boxes are cancelled.
  void queue(int button) { m_answers.push_back(button); }
  // The boxes answered so far, in order.
  const std::vector<Box>& boxes() const { return m_boxes; }

  // "retry" → IDRETRY ...; 0 when the name is unknown.
  static int buttonByName(const std::wstring& name);
  static std::wstring buttonName(int button);

 private:
  static LRESULT CALLBACK hook(int code, WPARAM wParam, LPARAM lParam);
  void answer(HWND dialog);

  HHOOK m_hook = nullptr;
  std::deque<int> m_answers;
  std::vector<Box> m_boxes;
  HWND m_lastAnswered = nullptr;
};

}  // namespace lm2::host
