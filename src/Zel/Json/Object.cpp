#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>

namespace Zel::Json {

void Object::prepareAdd() {
    if (!m_json.empty()) m_json.pop_back();
    if (m_json.size() > 1) m_json += ',';
}

Object& Object::addJson(std::string_view key, const std::string& json) {
    prepareAdd();
    m_json += _encodeString(key);
    m_json += ':';
    m_json += json;
    m_json += '}';
    return *this;
}

} // namespace Zel::Json
