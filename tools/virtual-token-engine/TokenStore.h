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

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace lm2::vte {

struct VirtualObject {
  std::uint64_t handle = 0;
  std::uint32_t kind = 0;
  std::string label;
  std::string link;
  std::uint32_t flags = 0;
  std::vector<std::uint8_t> data;
};

struct VirtualToken {
  std::vector<std::uint8_t> id;
  std::string label;
  bool initialized = true;
  std::string pin = "1234";
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

 private:
  VirtualToken parseToken(const void* json);
  mutable std::mutex m_lock;
  std::vector<VirtualToken> m_tokens;
  std::uint64_t m_lastHandle = 0x1000;
};

std::string toHex(const std::vector<std::uint8_t>& bytes);
std::vector<std::uint8_t> fromHex(const std::string& text);

}  // namespace lm2::vte
