#pragma once

#include <Zel/Json/IJsonable.h>
#include <Zel/Variant.h>

#include <string>
#include <string_view>

namespace Zel::Json {

// Builds the JSON text of an array from members that are already JSON, without a Variant in
// between: the fast path for replies assembled from pieces.
class ZEL_API Array {
public:
    Array() : m_json("[]") {}
    // Starts from existing array text, for example one that another Array produced.
    explicit Array(const std::string& json) : m_json(json) {}

    // Appends one element; `json` must already be valid JSON.
    Array& addJson(const std::string& json);
    Array& add(const Variant& value) { return addJson(value.toJson()); }
    Array& add(const IJsonable& value) { return addJson(value.toJson()); }

    void clear() { m_json = "[]"; }
    bool empty() const noexcept { return m_json.size() <= 2; }
    const std::string& json() const noexcept { return m_json; }
    operator std::string() const { return m_json; }

private:
    // Opens room for the next member: drops the closing bracket, adds a comma after a member.
    void prepareAdd();

    std::string m_json;
};

} // namespace Zel::Json
