#pragma once
// One lookup of a card id in the directory the administrator configured: connect (each listed host
// in turn, within the time limit), protect the connection as LdapUseSSL says, bind, search, and
// hand back the account names the entries hold. Blocking: the layer runs it on its pool, never on
// LogonUI's thread. Every network step is bounded by a time limit.

#include <string>
#include <vector>

#include "logging/ExtendedResult.h"
#include "settings/KalderaSettings.h"

namespace lm2::kaldera {

class CardDirectoryLookup {
 public:
  explicit CardDirectoryLookup(const settings::KalderaSettings& settings) : settings_(settings) {}

  // The values of LdapAttributeUsername of every entry that names `cardId` (none, one, or more:
  // the caller decides what that means). Success, or the first failure that ended the lookup.
  ExtendedResult lookUp(const std::wstring& cardId, std::vector<std::wstring>& accounts) const;

 private:
  // Refuses a configuration that would send the bind password unprotected or bind as nobody.
  ExtendedResult checkBindPolicy() const;
  ExtendedResult lookUpOnHost(const std::wstring& host, const std::wstring& cardId,
                              std::vector<std::wstring>& accounts, bool& tryNextHost) const;

  const settings::KalderaSettings& settings_;
};

}  // namespace lm2::kaldera
