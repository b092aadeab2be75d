#include "service/TokenAuthenticationNotice.h"

#include <cstring>

#include "items/ItemBuffer.h"
#include "items/ItemStream.h"
#include "items/ItemValues.h"
#include "logging/LogScope.h"
#include "platform/TextConversion.h"
#include "service/ServicePipe.h"

namespace lm2::service {
namespace {

logging::Category& log() { return logging::getCategory(logging::categories::kTokenEngineAbstractionLayer); }

using result::hex;

}  // namespace

SecureBuffer buildTokenAuthenticationRequest(DWORD sessionId, const TokenLogonRecord& record) {
  using namespace items;
  // Every item lives on this stack frame: the tree holds them not owned.
  CItemVector root("n/a");
  CItemULong command("ct", kTokenAuthenticationCommand);
  CItemVector parameters("pt");
  CItemULong session("psi", sessionId);
  CItemBuffer token("ptsi", const_cast<std::uint8_t*>(record.tokenIdentification.data()),
                    static_cast<std::uint32_t>(record.tokenIdentification.size()), false);
  std::string userName;
  utf16ToUtf8(record.userName, userName);  // a name that is not valid UTF-16 is sent empty
  CItemStringA user("pun", userName);
  CItemStringA second("pus", record.secondText);

  root.addItem(&command, false);
  parameters.addItem(&session, false);
  parameters.addItem(&token, false);
  parameters.addItem(&user, false);
  parameters.addItem(&second, false);
  root.addItem(&parameters, false);
  return packItem(root);
}

ExtendedResult notifyTokenAuthentification(const TokenLogonRecord& record) {
  logging::LogScope scope(log(), "TokenEngineAbstractionLayer::notifyTokenAuthentification");

  DWORD sessionId = 0;
  if (!::ProcessIdToSessionId(::GetCurrentProcessId(), &sessionId)) {
    const ExtendedResult code = result::fromWin32(::GetLastError());
    logging::error(log(), "failed to get current session id (0x%016llx)", hex(code));
    return code;
  }

  // Wiped when it goes out of scope, on every path.
  const SecureBuffer request = buildTokenAuthenticationRequest(sessionId, record);
  SecureBuffer reply;
  UniqueHandle pipe;

  ExtendedResult code = OpenServicePipe(kSessionServicePipe, pipe);
  if (result::failed(code)) {
    logging::error(log(), "failed to open pipe to service (0x%016llx)", hex(code));
  } else {
    code = transactServicePipe(pipe.get(), request.data(), static_cast<DWORD>(request.size()), reply);
    if (result::failed(code)) {
      logging::error(log(), "failed to send data to service (0x%016llx)", hex(code));
    } else if (reply.size() != request.size()) {
      code = kInvalidServiceReply;
      logging::error(log(), "invalid data length received from session service (0x%016llx)", hex(code));
    } else if (std::memcmp(reply.data(), request.data(), request.size()) != 0) {
      code = kInvalidServiceReply;
      logging::error(log(), "invalid data received from session service (0x%016llx", hex(code));
    }
  }
  CloseServicePipe(pipe);
  return code;
}

}  // namespace lm2::service
