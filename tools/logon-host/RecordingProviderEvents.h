#pragma once
// LogonUI's provider event sink: records each CredentialsChanged (with the advise context and the
// moment it came) and can refuse a number of them, as a busy LogonUI may.

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "UiDoorbell.h"
#include "platform/CredentialProviderApi.h"

namespace lm2::host {

class RecordingProviderEvents final : public ICredentialProviderEvents {
 public:
  struct Call {
    UINT_PTR adviseContext;
    std::uint64_t tickMs;  // GetTickCount64 when it came
    HRESULT answer;
  };

  RecordingProviderEvents() = default;

  std::vector<Call> calls() const;
  // How many calls were answered with success.
  int accepted() const;
  // The next `count` calls are answered E_FAIL.
  void refuseNext(int count) { m_refusals = count; }
  // Rung after every call (the logon host hands the call to its UI thread).
  UiDoorbell& doorbell() { return m_doorbell; }

  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override;
  IFACEMETHODIMP_(ULONG) Release() override;
  IFACEMETHODIMP CredentialsChanged(UINT_PTR adviseContext) override;

 private:
  ~RecordingProviderEvents() = default;

  LONG m_refCount = 1;
  std::atomic<int> m_refusals{0};
  mutable std::mutex m_lock;
  std::vector<Call> m_calls;
  UiDoorbell m_doorbell;
};

}  // namespace lm2::host
