#include "tokenengine/CredentialObjects.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <random>

#include "items/ItemBuffer.h"
#include "items/ItemStream.h"
#include "items/ItemValues.h"
#include "tokenengine/LayerResultCodes.h"

namespace lm2 {
namespace {

using result::hex;

// The two values every descriptor carries: a persistent token object, not restricted further.
constexpr std::uint32_t kDescriptorPersistent = 1;
constexpr std::uint32_t kDescriptorNoRestriction = 0;
// Flag byte: no setting switches it yet, so it is 0 plus one.
constexpr std::uint32_t kDescriptorFlags = 0 + 1;

}  // namespace

std::string CredentialObjects::credentialLabel() {
  char label[64];
  std::snprintf(label, sizeof label, "1.3.6.1.4.1.7719.9117.1.1234.8.%d", 11);
  return label;
}

std::string CredentialObjects::makeLinkText() {
  static const char kAlphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  static thread_local std::mt19937 random{std::random_device{}()};
  std::string link(kLinkLength, '0');
  for (char& c : link) c = kAlphabet[random() % 36];
  return link;
}

SecureBuffer storedText(const std::string& utf8) {
  SecureBuffer content;
  if (!content.allocate(utf8.size() + 1)) throw std::bad_alloc();  // zeroed: the terminator is there
  if (!utf8.empty()) std::memcpy(content.data(), utf8.data(), utf8.size());
  return content;
}

std::string textOf(const SecureBuffer& content) {
  const auto* text = reinterpret_cast<const char*>(content.data());
  return std::string(text, ::strnlen(text, content.size()));
}

CredentialObjects::CredentialObjects(FacadeBinding& binding, const Token& token, logging::Category& log)
    : m_binding(binding), m_token(token), m_log(log) {}

ExtendedResult CredentialObjects::findObjects(std::uint32_t kind, const std::optional<std::string>& link,
                                              std::vector<Found>& found) {
  found.clear();
  items::CItemVector query("q");
  items::CItemULong kindItem(VAL_ITEM_QUERY_KIND, kind);
  items::CItemStringA labelItem(VAL_ITEM_QUERY_LABEL, credentialLabel());
  items::CItemStringA linkItem(VAL_ITEM_QUERY_LINK, link.value_or(""));
  query.addItem(&kindItem, false);
  query.addItem(&labelItem, false);
  if (link) query.addItem(&linkItem, false);
  const SecureBuffer packed = items::packItem(query);

  FacadeBinding::TaskOutcome outcome = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.findObjects(m_token.identification(), m_token.identificationLength(), packed.data(),
                         static_cast<std::uint32_t>(packed.size()), task);
  });
  if (result::failed(outcome.code)) {
    logging::error(m_log, "failed to find objects on token (0x%016llx)", hex(outcome.code));
    return outcome.code == layer_codes::kUnloading ? outcome.code : layer_codes::kFindFailed;
  }
  const auto* list =
      outcome.response ? outcome.response->getItemAs<items::CItemVector>(CITEM_NAME_OBJECT_LIST) : nullptr;
  if (list == nullptr) {
    logging::error(m_log, "failed to parse find result...result object CITEM_NAME_OBJECT_LIST not found");
    return layer_codes::kObjectMissing;
  }

  for (std::size_t i = 0; i < list->count(); ++i) {
    const auto* entry = dynamic_cast<const items::CItemULongLong*>(list->at(i));
    if (entry == nullptr) {
      logging::error(m_log, "failed to cast find result item");
      continue;
    }
    const VAL_OBJECT handle = entry->getValue();
    FacadeBinding::TaskOutcome info = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
      return f.getObjectInfo(m_token.identification(), m_token.identificationLength(), handle, task);
    });
    if (result::failed(info.code)) {
      logging::error(m_log, "failed to get object info (0x%016llx)", hex(info.code));
      return info.code;
    }
    const auto* details =
        info.response ? info.response->getItemAs<items::CItemVector>(CITEM_NAME_OBJECT_INFO) : nullptr;
    const auto* application = details ? details->getItemAs<items::CItemStringA>(VAL_ITEM_INFO_APPLICATION) : nullptr;
    const auto* label = details ? details->getItemAs<items::CItemStringA>(VAL_ITEM_INFO_LABEL) : nullptr;
    const auto* attributes = details ? details->getItemAs<items::CItemULong>(VAL_ITEM_INFO_ATTRIBUTES) : nullptr;
    const auto* size = details ? details->getItemAs<items::CItemULong>(VAL_ITEM_INFO_SIZE) : nullptr;
    if (!application || !label || !attributes || !size) {
      logging::error(m_log, "failed to parse info result...result object CITEM_NAME_OBJECT_INFO not found");
      return layer_codes::kObjectMissing;
    }
    logging::debug(m_log, "add founded token object to result list");
    found.push_back(Found{handle, TokenObject(application->getValue(), label->getValue(),
                                              static_cast<std::int32_t>(attributes->getValue()), size->getValue())});
  }
  return found.empty() ? layer_codes::kNoObjectFound : result::success();
}

ExtendedResult CredentialObjects::readObject(VAL_OBJECT object, SecureBuffer& content) {
  content.reset();
  FacadeBinding::TaskOutcome outcome = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.readObject(m_token.identification(), m_token.identificationLength(), object, task);
  });
  if (result::failed(outcome.code)) {
    logging::error(m_log, "read object failed (0x%016llx)", hex(outcome.code));
    return outcome.code;
  }
  const auto* data =
      outcome.response ? outcome.response->getItemAs<items::CItemBuffer>(CITEM_NAME_OBJECT_DATA) : nullptr;
  if (data == nullptr) {
    logging::error(m_log, "read object failed...result object CITEM_NAME_OBJECT_DATA not found");
    return layer_codes::kInvalidResponse;
  }
  if (!content.allocate(data->getLength())) return result::allocationFailure();
  if (data->getLength() > 0) std::memcpy(content.data(), data->getData(), data->getLength());
  return outcome.code;
}

ExtendedResult CredentialObjects::writeObject(VAL_OBJECT object, const SecureBuffer& content) {
  FacadeBinding::TaskOutcome outcome = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.writeObject(m_token.identification(), m_token.identificationLength(), object, content.data(),
                         static_cast<std::uint32_t>(content.size()), task);
  });
  if (result::failed(outcome.code)) logging::error(m_log, "write object failed (0x%016llx)", hex(outcome.code));
  return outcome.code;
}

ExtendedResult CredentialObjects::createObject(std::uint32_t kind, const std::string& link, VAL_OBJECT& object) {
  items::CItemVector descriptor("d");
  items::CItemULong kindItem(VAL_ITEM_QUERY_KIND, kind);
  items::CItemStringA labelItem(VAL_ITEM_QUERY_LABEL, credentialLabel());
  items::CItemStringA linkItem(VAL_ITEM_QUERY_LINK, link);
  items::CItemULong flags("flags", kDescriptorFlags);
  items::CItemULong first("v1", kDescriptorPersistent);
  items::CItemULong second("v2", kDescriptorNoRestriction);
  for (items::CItem* item : std::initializer_list<items::CItem*>{&kindItem, &labelItem, &linkItem, &flags, &first,
                                                                 &second}) {
    descriptor.addItem(item, false);
  }
  const SecureBuffer packed = items::packItem(descriptor);

  FacadeBinding::TaskOutcome outcome = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.createObject(m_token.identification(), m_token.identificationLength(), packed.data(),
                          static_cast<std::uint32_t>(packed.size()), task);
  });
  if (result::failed(outcome.code)) {
    logging::error(m_log, "create object failed (0x%016llx)", hex(outcome.code));
    return outcome.code;
  }
  const auto* handle =
      outcome.response ? outcome.response->getItemAs<items::CItemULongLong>(CITEM_NAME_OBJECT) : nullptr;
  if (handle == nullptr) {
    logging::error(m_log, "create object failed...result object CITEM_NAME_OBJECT not found");
    return layer_codes::kInvalidResponse;
  }
  object = handle->getValue();
  return outcome.code;
}

ExtendedResult CredentialObjects::deleteObject(VAL_OBJECT object) {
  FacadeBinding::TaskOutcome outcome = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.deleteObject(m_token.identification(), m_token.identificationLength(), object, task);
  });
  if (result::failed(outcome.code)) logging::error(m_log, "delete object failed (0x%016llx)", hex(outcome.code));
  return outcome.code;
}

}  // namespace lm2
