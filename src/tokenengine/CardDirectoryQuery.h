#pragma once
// What the card-id layer asks the directory for a card: the card id made from the card's
// identification bytes, and the search filter that names it. Nothing here touches Windows, so the
// rules are tested natively as well.

#include <cstddef>
#include <cstdint>
#include <string>

namespace lm2::kaldera {

// Stands for the card id in a configured search filter.
inline constexpr wchar_t kCardIdPlaceholder[] = L"##CARDID##";

// The identification bytes as uppercase hexadecimal with `prefix` in front ("ID-" and 0A FF 00
// give "ID-0AFF00").
std::wstring cardId(const std::uint8_t* identification, std::size_t length, const std::wstring& prefix);

// `value` for an assertion value of an LDAP filter: '*', '(', ')', '\' and NUL written as \2a,
// \28, \29, \5c and \00, so that each matches literally (RFC 4515). A prefix such as "(*)" then
// can neither widen the search to every entry nor break the filter.
std::wstring escapeFilterValue(const std::wstring& value);

// The filter that finds `cardId`: `configured` with every placeholder replaced by the escaped
// card id. A filter without the placeholder (or none) would find the same entries for every card:
// "(<cardIdAttribute>=<card id>)" is searched instead.
std::wstring searchFilter(const std::wstring& configured, const std::wstring& cardIdAttribute,
                          const std::wstring& cardId);

}  // namespace lm2::kaldera
