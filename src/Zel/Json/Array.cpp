#include <Zel/Json/Array.h>

namespace Zel::Json {

void Array::prepareAdd() {
    if (!m_json.empty()) m_json.pop_back();
    if (m_json.size() > 1) m_json += ',';
}

Array& Array::addJson(const std::string& json) {
    prepareAdd();
    m_json += json;
    m_json += ']';
    return *this;
}

} // namespace Zel::Json
