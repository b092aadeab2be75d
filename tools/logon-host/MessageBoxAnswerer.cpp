#include "MessageBoxAnswerer.h"

#include "HostOutput.h"

namespace lm2::host {
namespace {

// The one answerer of the UI thread (the hook procedure has no context of its own).
thread_local MessageBoxAnswerer* t_answerer = nullptr;

struct ButtonName {
  const wchar_t* name;
  int id;
};
constexpr ButtonName kButtons[] = {{L"ok", IDOK},         {L"cancel", IDCANCEL},     {L"abort", IDABORT},
                                   {L"retry", IDRETRY},   {L"ignore", IDIGNORE},     {L"yes", IDYES},
                                   {L"no", IDNO},         {L"tryagain", IDTRYAGAIN}, {L"continue", IDCONTINUE}};

std::wstring windowText(HWND window) {
  wchar_t text[2048] = L"";
  ::GetWindowTextW(window, text, 2048);
  return text;
}

}  // namespace

MessageBoxAnswerer::MessageBoxAnswerer() {
  t_answerer = this;
  m_hook = ::SetWindowsHookExW(WH_CBT, &MessageBoxAnswerer::hook, nullptr, ::GetCurrentThreadId());
}

MessageBoxAnswerer::~MessageBoxAnswerer() {
  if (m_hook) ::UnhookWindowsHookEx(m_hook);
  t_answerer = nullptr;
}

int MessageBoxAnswerer::buttonByName(const std::wstring& name) {
  for (const ButtonName& button : kButtons) {
    if (name == button.name) return button.id;
  }
  return 0;
}

std::wstring MessageBoxAnswerer::buttonName(int button) {
  for (const ButtonName& entry : kButtons) {
    if (entry.id == button) return entry.name;
  }
  return std::to_wstring(button);
}

LRESULT CALLBACK MessageBoxAnswerer::hook(int code, WPARAM wParam, LPARAM lParam) {
  // A dialog activates twice; the second activation comes without a window.
  if (code == HCBT_ACTIVATE && t_answerer != nullptr && wParam != 0) {
    HWND window = reinterpret_cast<HWND>(wParam);
    wchar_t className[32] = L"";
    ::GetClassNameW(window, className, 32);
    if (std::wstring(className) == L"#32770" && window != t_answerer->m_lastAnswered) t_answerer->answer(window);
  }
  return ::CallNextHookEx(nullptr, code, wParam, lParam);
}

void MessageBoxAnswerer::answer(HWND dialog) {
  m_lastAnswered = dialog;
  Box box;
  box.caption = windowText(dialog);
  // The message text is the static control with id 0xFFFF.
  if (HWND text = ::GetDlgItem(dialog, 0xFFFF)) box.text = windowText(text);
  if (!m_answers.empty()) {
    box.answer = m_answers.front();
    m_answers.pop_front();
  } else {
    // Unscripted: the button that backs out (Cancel, or OK when it is the only one).
    box.answer = ::GetDlgItem(dialog, IDCANCEL) ? IDCANCEL : IDOK;
  }
  printLine(L"message box \"" + box.caption + L"\": " + box.text + L"\n  -> " + buttonName(box.answer));
  m_boxes.push_back(box);
  ::PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(box.answer, BN_CLICKED), 0);
}

}  // namespace lm2::host
