#pragma once

#include <Zel/Json/IJsonable.h>
#include <Zel/Variant.h>

#include <string>
#include <string_view>

namespace Zel::Json {

// Builds the JSON text of an object from members that are already JSON, without a Variant in
// between: the fast path for replies assembled from pieces.
class ZEL_API Object {
public:
    Object() : m_json("{}") {}
    // Starts from existing object text, for example one that another Object produced.
    explicit Object(const std::string& json) : m_json(json) {}

    // Appends "key":json; `json` must already be valid JSON.
    Object& addJson(std::string_view key, const std::string& json);
    Object& add(std::string_view key, const Variant& value) { return addJson(key, value.toJson()); }
    Object& add(std::string_view key, const IJsonable& value) { return addJson(key, value.toJson()); }

    void clear() { m_json = "{}"; }
    bool empty() const noexcept { return m_json.size() <= 2; }
    const std::string& json() const noexcept { return m_json; }
    operator std::string() const { return m_json; }

private:
    // Opens room for the next member: drops the closing bracket, adds a comma after a member.
    void prepareAdd();

    std::string m_json;
};

} // namespace Zel::Json
