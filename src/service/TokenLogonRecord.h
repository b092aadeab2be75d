#pragma once
// What the session service is told about one token logon.

#include <cstdint>
#include <string>
#include <vector>

namespace lm2::service {

struct TokenLogonRecord {
  // The token's identification block as the token engine delivered it (without length prefix).
  std::vector<std::uint8_t> tokenIdentification;
  // The account that logged on.
  std::wstring userName;
  // The record's second text field, filled by the tile that logged on and passed on unchanged.
  std::string secondText;
};

}  // namespace lm2::service
