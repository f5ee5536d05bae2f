#include <Zel/Db/Detail/StatementCache.h>

namespace Zel::Db::Detail {

std::shared_ptr<Statement> StatementCache::find(std::string_view sql) {
    auto found = m_index.find(sql);
    if (found == m_index.end()) return nullptr;
    if (found->second != m_entries.begin()) m_entries.splice(m_entries.begin(), m_entries, found->second);
    return found->second->second;
}

void StatementCache::insert(const std::string& sql, std::shared_ptr<Statement> statement) {
    if (m_capacity == 0) return;
    m_entries.emplace_front(sql, std::move(statement));
    m_index.emplace(m_entries.front().first, m_entries.begin());
    trim();
}

void StatementCache::clear() noexcept {
    m_index.clear();
    m_entries.clear();
}

void StatementCache::setCapacity(std::size_t capacity) {
    m_capacity = capacity;
    trim();
}

void StatementCache::trim() {
    while (m_entries.size() > m_capacity) {
        m_index.erase(m_entries.back().first);
        m_entries.pop_back();
    }
}

} // namespace Zel::Db::Detail
