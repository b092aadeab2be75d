#include "TokenStore.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>

namespace lm2::vte {

using nlohmann::json;

std::string toHex(const std::vector<std::uint8_t>& bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (std::uint8_t b : bytes) {
    text.push_back(kDigits[b >> 4]);
    text.push_back(kDigits[b & 15]);
  }
  return text;
}

std::vector<std::uint8_t> fromHex(const std::string& text) {
  if (text.size() % 2 != 0) throw std::invalid_argument("hex text of odd length: " + text);
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

VirtualToken TokenStore::parseToken(const void* node) {
  const json& t = *static_cast<const json*>(node);
  VirtualToken token;
  token.id = fromHex(t.at("id").get<std::string>());
  if (token.id.empty()) throw std::invalid_argument("token without id");
  token.label = t.value("label", "");
  token.initialized = t.value("initialized", true);
  token.pin = SecretString(t.value("pin", "1234"));
  token.retries = token.retriesLeft = t.value("retries", 3);
  token.nullPin = t.value("nullPin", false);
  token.nullPinPossible = t.value("nullPinPossible", true);
  token.canInitialize = t.value("canInitialize", true);
  token.pinPad = t.value("pinPad", false);
  token.pinPadDelayMs = t.value("pinPadDelayMs", 500u);
  token.pinPadConfirms = t.value("pinPadConfirms", true);
  token.inserted = t.value("inserted", true);
  for (const json& o : t.value("objects", json::array())) {
    VirtualObject object;
    object.handle = nextHandle();
    object.kind = o.value("kind", 1u);
    object.label = o.value("label", "");
    object.link = o.value("link", "");
    object.flags = o.value("flags", 0u);
    if (o.contains("dataHex")) {
      const std::vector<std::uint8_t> bytes = fromHex(o.at("dataHex").get<std::string>());
      object.data = wipedCopy(bytes.data(), bytes.size());
    } else {
      const std::string text = o.value("data", "");
      object.data = wipedCopy(reinterpret_cast<const std::uint8_t*>(text.c_str()), text.size() + 1);
    }
    token.objects.push_back(std::move(object));
  }
  return token;
}

void TokenStore::load(const std::string& text) {
  const json description = json::parse(text);
  std::vector<VirtualToken> tokens;
  for (const json& t : description.value("tokens", json::array())) tokens.push_back(parseToken(&t));
  InitializationFault fault;
  if (const auto found = description.find("initialization"); found != description.end()) {
    fault.result = std::stoull(found->value("result", "0"), nullptr, 16);
    fault.tableSize = found->value("tableSize", 0u);
    fault.missingEntry = found->value("missingEntry", "");
    fault.delayMs = found->value("delayMs", 0u);
  }
  std::lock_guard<std::mutex> guard(m_lock);
  m_tokens = std::move(tokens);
  m_initializationFault = fault;
}

std::vector<std::uint8_t> TokenStore::insert(const std::string& text) {
  const json description = json::parse(text);
  VirtualToken token = parseToken(&description);
  token.inserted = true;
  std::lock_guard<std::mutex> guard(m_lock);
  for (auto& existing : m_tokens) {
    if (existing.id == token.id) {
      existing = token;
      return token.id;
    }
  }
  m_tokens.push_back(token);
  return token.id;
}

bool TokenStore::remove(const std::vector<std::uint8_t>& id) {
  std::lock_guard<std::mutex> guard(m_lock);
  for (auto& token : m_tokens) {
    if (token.id == id && token.inserted) {
      token.inserted = false;
      token.authenticated = false;
      return true;
    }
  }
  return false;
}

VirtualToken* TokenStore::find(const std::uint8_t* id, std::uint32_t length) {
  for (auto& token : m_tokens) {
    if (token.inserted && token.id.size() == length && std::equal(token.id.begin(), token.id.end(), id)) {
      return &token;
    }
  }
  return nullptr;
}

InitializationFault TokenStore::initializationFault() const {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_initializationFault;
}

std::string TokenStore::describe() const {
  std::lock_guard<std::mutex> guard(m_lock);
  json tokens = json::array();
  for (const auto& token : m_tokens) {
    json objects = json::array();
    for (const auto& object : token.objects) {
      const std::vector<std::uint8_t> data(object.data.get().begin(), object.data.get().end());
      objects.push_back({{"handle", object.handle}, {"kind", object.kind}, {"label", object.label},
                         {"link", object.link}, {"flags", object.flags}, {"dataHex", toHex(data)}});
    }
    tokens.push_back({{"id", toHex(token.id)}, {"label", token.label}, {"initialized", token.initialized},
                      {"inserted", token.inserted}, {"retriesLeft", token.retriesLeft}, {"nullPin", token.nullPin},
                      {"authenticated", token.authenticated},
                      {"objects", objects}});
  }
  return json{{"tokens", tokens}}.dump();
}

}  // namespace lm2::vte
