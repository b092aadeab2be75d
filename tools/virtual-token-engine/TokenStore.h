#pragma once
// The virtual tokens and what is stored on them. Tokens come from a JSON description:
//
//   { "tokens": [ { "id": "4C4D3201", "label": "Token A", "initialized": true, "pin": "1234",
//                   "retries": 3, "nullPin": false, "nullPinPossible": true, "canInitialize": true,
//                   "pinPad": false, "pinPadDelayMs": 500, "pinPadConfirms": true,
//                   "inserted": true,
//                   "objects": [ { "kind": 1, "label": "…", "link": "…", "data": "anna" } ] } ] }
//
// Every member but "id" is optional. Object data is text (stored as UTF-8 with a zero byte, like
// the provider stores it) or, as "dataHex", bytes.
//
// A description may also make the engine's initialisation misbehave, for tests of the provider's
// checks: "initialization": { "result": "C0100000C0100010" (VALInitialize fails with it),
// "delayMs": 400 (VALInitialize takes that long, reporting token events meanwhile),
// "tableSize": 40 (the function table claims this size), "missingEntry": "changePin" (that entry of
// the table is null) }.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "common/SecretText.h"

namespace lm2::vte {

// Bytes that may be a secret (a password object's content, a result stream): wiped whenever they
// are replaced or released. The engine is loaded into the logon host for every demo.
using Bytes = std::basic_string<std::uint8_t>;
using WipedBytes = SecretText<Bytes>;
inline WipedBytes wipedCopy(const std::uint8_t* data, std::size_t size) { return WipedBytes(Bytes(data, size)); }

struct VirtualObject {
  std::uint64_t handle = 0;
  std::uint32_t kind = 0;
  std::string label;
  std::string link;
  std::uint32_t flags = 0;
  WipedBytes data;
};

// Objects of this kind are private: readable only once the token's PIN was presented.
inline constexpr std::uint32_t kPrivateKind = 2;

struct InitializationFault {
  std::uint64_t result = 0;     // VALInitialize fails with it (0: it does not)
  std::uint32_t tableSize = 0;  // the function table's size field (0: the real size)
  std::string missingEntry;     // the entry of the table that is null
  std::uint32_t delayMs = 0;    // VALInitialize returns this much later (events flow meanwhile)
};

struct VirtualToken {
  std::vector<std::uint8_t> id;
  std::string label;
  bool initialized = true;
  SecretString pin{"1234"};
  // A PIN check or PIN pad entry succeeded since the token was connected or initialised.
  bool authenticated = false;
  int retries = 3;
  int retriesLeft = 3;
  bool nullPin = false;
  bool nullPinPossible = true;
  bool canInitialize = true;
  bool pinPad = false;
  unsigned pinPadDelayMs = 500;
  bool pinPadConfirms = true;
  bool inserted = true;
  std::vector<VirtualObject> objects;
};

class TokenStore {
 public:
  // Replaces all tokens; throws std::exception with a message on a bad description.
  void load(const std::string& json);
  // Adds (or replaces) one token described like an entry of "tokens"; returns its id.
  std::vector<std::uint8_t> insert(const std::string& json);
  bool remove(const std::vector<std::uint8_t>& id);
  // The whole state as JSON (objects with "dataHex"), for tests to inspect.
  std::string describe() const;

  std::mutex& lock() { return m_lock; }
  // Under lock(): the inserted token with this id, or null.
  VirtualToken* find(const std::uint8_t* id, std::uint32_t length);
  std::vector<VirtualToken>& tokens() { return m_tokens; }
  std::uint64_t nextHandle() { return ++m_lastHandle; }
  // What the last description said about initialisation.
  InitializationFault initializationFault() const;

 private:
  VirtualToken parseToken(const void* json);
  mutable std::mutex m_lock;
  std::vector<VirtualToken> m_tokens;
  InitializationFault m_initializationFault;
  std::uint64_t m_lastHandle = 0x1000;
};

std::string toHex(const std::vector<std::uint8_t>& bytes);
std::vector<std::uint8_t> fromHex(const std::string& text);

}  // namespace lm2::vte
