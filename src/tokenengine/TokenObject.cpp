#include "tokenengine/TokenObject.h"

#include "logging/TraceLog.h"

namespace lm2 {

TokenObject::TokenObject(std::string application, std::string label, std::int32_t attributes, std::uint32_t size)
    : m_application(std::move(application)), m_label(std::move(label)), m_attributes(attributes), m_size(size) {
  logging::Category& log = logging::getCategory(logging::categories::kTokenEngineAbstractionLayer);
  logging::debug(log, "tokenobject.application = %s", m_application.c_str());
  logging::debug(log, "tokenobject.label = %s", m_label.c_str());
  logging::debug(log, "tokenobject.attributes = %d", m_attributes);
  logging::debug(log, "tokenobject.size = %u", m_size);
}

}  // namespace lm2
