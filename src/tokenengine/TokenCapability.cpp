#include "tokenengine/TokenCapability.h"

#include "items/ItemValues.h"
#include "logging/TraceLog.h"
#include "platform/TextConversion.h"
#include "settings/ProviderSettings.h"

namespace lm2 {
namespace {

bool flag(const items::CItemVector& capabilities, const char* name) {
  const auto* item = capabilities.getItemAs<items::CItemBoolean>(name);
  return item != nullptr && item->getValue();
}

}  // namespace

TokenCapability::TokenCapability(const items::CItemVector& capabilities) {
  logging::Category& log = logging::getCategory(logging::categories::kTokenEngineAbstractionLayer);
  m_canBeInitialized = flag(capabilities, "tccbi");
  m_nullPinPossible = flag(capabilities, "tcinpp");
  m_initialized = flag(capabilities, "tcii");
  if (!m_initialized) {
    logging::debug(log, "token is not initialized");
    return;
  }

  if (const auto* label = capabilities.getItemAs<items::CItemStringA>("tcl")) {
    if (!utf8ToUtf16(label->getValue(), m_label)) {
      logging::error(log, "failed to convert label to wide character string");
      m_label.clear();
    }
  } else {
    logging::error(log, "failed to fetch token label");
  }

  m_nullPinUsed = flag(capabilities, "tcinpu");
  if (!m_nullPinUsed) m_pinPad = flag(capabilities, "tcic2");
  // A PIN pad is used only where the administrator enabled it.
  if (m_pinPad && !settings::enableAlternativeAuthenticationPath()) m_pinPad = false;
}

TokenCapability TokenCapability::initialized(const std::wstring& label, bool withoutPin) const {
  TokenCapability after(*this);
  after.m_initialized = true;
  after.m_nullPinUsed = withoutPin;
  after.m_label = label;
  return after;
}

TokenCapability TokenCapability::accessCard() {
  TokenCapability card;
  card.m_initialized = true;
  card.m_nullPinUsed = true;
  return card;
}

}  // namespace lm2
