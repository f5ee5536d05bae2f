#pragma once

#include <Zel/Db/Statement.h>
#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Zel::Db::Detail {

// Prepared statements by SQL text, the least recently used one dropped when the capacity is reached.
// A dropped statement lives on while a recordset still holds it.
class StatementCache {
public:
    explicit StatementCache(std::size_t capacity) : m_capacity(capacity) {}

    // The statement for that text, now the most recently used; null on a miss.
    std::shared_ptr<Statement> find(std::string_view sql);
    // Adds a statement not yet cached; drops the least recently used past the capacity.
    void insert(const std::string& sql, std::shared_ptr<Statement> statement);
    void clear() noexcept;

    std::size_t size() const noexcept { return m_entries.size(); }
    std::size_t capacity() const noexcept { return m_capacity; }
    void setCapacity(std::size_t capacity);

private:
    using Entry = std::pair<std::string, std::shared_ptr<Statement>>;
    void trim();

    std::size_t m_capacity;
    std::list<Entry> m_entries; // most recently used first
    // Keys view the strings of m_entries, whose nodes never move.
    std::unordered_map<std::string_view, std::list<Entry>::iterator> m_index;
};

} // namespace Zel::Db::Detail
