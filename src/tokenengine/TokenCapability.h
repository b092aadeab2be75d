#pragma once
// What a token supports and whether it is initialised, read from the engine's capability tree:
//   "tcii"   initialised           "tccbi"  can be initialised
//   "tcinpu" used without a PIN    "tcinpp" can be used without a PIN
//   "tcic2"  has a PIN pad (the alternative authentication path), used only when the
//            administrator enables EnableAlternativeAuthenticationPath
//   "tcl"    the token's label (UTF-8)

#include <string>

#include "items/ItemVector.h"

namespace lm2 {

class TokenCapability {
 public:
  explicit TokenCapability(const items::CItemVector& capabilities);

  // An access card: initialised, used without a PIN, never initialisable. Its card id is all the
  // provider reads from it.
  static TokenCapability accessCard();

  bool isInitialized() const noexcept { return m_initialized; }
  bool canBeInitialized() const noexcept { return m_canBeInitialized; }
  bool isNullPinUsed() const noexcept { return m_nullPinUsed; }
  bool hasPinPad() const noexcept { return m_pinPad; }
  bool isNullPinPossible() const noexcept { return m_nullPinPossible; }
  const std::wstring& label() const noexcept { return m_label; }

  // What the token reports once it has been initialised with `label`, with or without a PIN: a
  // tile that initialised its token goes on without asking the engine again.
  TokenCapability initialized(const std::wstring& label, bool withoutPin) const;

 private:
  TokenCapability() = default;

  // In this order, "tcii" first.
  bool m_initialized = false;
  bool m_canBeInitialized = false;
  bool m_nullPinUsed = false;
  bool m_pinPad = false;
  bool m_nullPinPossible = false;
  std::wstring m_label;
};

}  // namespace lm2
