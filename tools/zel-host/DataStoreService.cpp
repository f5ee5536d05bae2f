#include "DataStoreService.h"

#include "Caller.h"
#include "Params.h"

#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>
#include <Zel/Json/Json.h>
#include <Zel/Platform/ServiceException.h>
#include <algorithm>

namespace ZelHost {

namespace {

using Zel::Platform::ServiceException;

// The key column's width, in bytes, so that no key is cut by the database.
constexpr std::size_t maxKeyBytes = 400;

std::string keyParam(const Zel::Variant& params) {
    std::string key = stringParam(params, "key");
    if (key.empty() || key.size() > maxKeyBytes)
        throw ServiceException("badRequest", "Bad parameter | name=key | expected=1 to 400 bytes");
    return key;
}

Zel::Variant listKeys(Zel::Db::Connection& connection, const std::string& prefix) {
    Zel::Variant keys = Zel::Variant::makeVector();
    // STARTING WITH would be Firebird's; a range scan works everywhere and keeps the index. Keys
    // past the prefix's last byte end the range: prefix + "\xff" sorts after every key starting
    // with it under byte-wise (UTF-8 code point) order.
    auto rows =
        prefix.empty()
            ? connection.query("SELECT dsKey FROM zelDataStore ORDER BY dsKey")
            : connection.query("SELECT dsKey FROM zelDataStore WHERE dsKey >= ? ORDER BY dsKey", {prefix});
    for (; !rows->eof(); rows->next()) {
        std::string key = rows->value(0);
        if (!key.starts_with(prefix)) break;
        keys.push_back(Zel::Variant(std::move(key)));
    }
    return keys;
}

} // namespace

DataStoreService::DataStoreService(std::shared_ptr<Database> database, std::chrono::milliseconds idleTimeout)
    : Service("DataStore"), m_database(std::move(database)), m_idleTimeout(idleTimeout) {
    addInterface("IDataStore");
    on("getKey", [this](const Zel::Variant& params) {
        const std::string key = keyParam(params);
        return run(params, [&](Zel::Db::Connection& connection) {
            const Zel::Variant text =
                connection.scalar("SELECT dsValue FROM zelDataStore WHERE dsKey = ?", {key});
            return text.isNull() ? Zel::Variant() : Zel::Json::parse(static_cast<std::string>(text));
        });
    });
    on("setKey", [this](const Zel::Variant& params) {
        const std::string key = keyParam(params);
        const std::string value = anyParam(params, "value").toJson();
        run(params, [&](Zel::Db::Connection& connection) {
            m_database->put(connection, key, value);
            return Zel::Variant();
        });
    });
    on("removeKey", [this](const Zel::Variant& params) {
        const std::string key = keyParam(params);
        return run(params, [&](Zel::Db::Connection& connection) {
            return Zel::Variant(connection.execute("DELETE FROM zelDataStore WHERE dsKey = ?", {key}) > 0);
        });
    });
    on("listKeys", [this](const Zel::Variant& params) {
        const Zel::Variant* prefixValue = optionalParam(params, "prefix");
        if (prefixValue != nullptr && !prefixValue->isString()) badParameter("prefix");
        const std::string prefix = prefixValue != nullptr ? prefixValue->_string() : std::string();
        return run(params, [&](Zel::Db::Connection& connection) { return listKeys(connection, prefix); });
    });
    on("beginTransaction", [this]() { return begin(); });
    on("openTransactions", [this]() {
        const std::lock_guard lock(m_mutex);
        return static_cast<std::int64_t>(m_transactions.size());
    });
    on("commitTransaction", [this](const Zel::Variant& params) { end(params, true); });
    on("rollbackTransaction", [this](const Zel::Variant& params) { end(params, false); });

    m_reaper = std::thread([this] {
        std::unique_lock lock(m_mutex);
        const auto period =
            std::clamp(m_idleTimeout / 4, std::chrono::milliseconds(10), std::chrono::milliseconds(1000));
        while (!m_stopping) {
            m_wake.wait_for(lock, period);
            if (m_stopping) break;
            lock.unlock();
            reapIdle(std::chrono::steady_clock::now());
            lock.lock();
        }
    });
}

DataStoreService::~DataStoreService() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_reaper.join();
    // Connections go back to the pool, which rolls back what they still hold.
}

template <class Work>
Zel::Variant DataStoreService::run(const Zel::Variant& params, Work&& work) {
    if (optionalParam(params, "transactionId") == nullptr) {
        auto connection = m_database->acquire();
        return work(*connection);
    }
    const std::shared_ptr<Transaction> transaction = take(integerParam(params, "transactionId"), false);
    const std::lock_guard lock(transaction->mutex);
    if (transaction->ended)
        throw ServiceException("unknownTransaction",
                               "Unknown transaction | transactionId=" +
                                   std::to_string(integerParam(params, "transactionId")));
    Zel::Variant result = work(*transaction->connection);
    transaction->lastUsed = std::chrono::steady_clock::now();
    return result;
}

std::shared_ptr<DataStoreService::Transaction> DataStoreService::take(std::int64_t id, bool remove) {
    const std::lock_guard lock(m_mutex);
    const auto it = m_transactions.find(id);
    if (it == m_transactions.end())
        throw ServiceException("unknownTransaction",
                               "Unknown transaction | transactionId=" + std::to_string(id));
    if (it->second->owner != CallerScope::current())
        throw ServiceException("forbidden", "The transaction belongs to another plug-in | transactionId=" +
                                                std::to_string(id));
    std::shared_ptr<Transaction> transaction = it->second;
    if (remove) m_transactions.erase(it);
    return transaction;
}

std::int64_t DataStoreService::begin() {
    auto transaction = std::make_shared<Transaction>();
    transaction->owner = CallerScope::current();
    transaction->connection = m_database->acquire();
    transaction->connection->begin();
    transaction->lastUsed = std::chrono::steady_clock::now();
    const std::lock_guard lock(m_mutex);
    const std::int64_t id = m_nextId++;
    m_transactions.emplace(id, std::move(transaction));
    return id;
}

void DataStoreService::end(const Zel::Variant& params, bool commit) {
    const std::int64_t id = integerParam(params, "transactionId");
    const std::shared_ptr<Transaction> transaction = take(id, true);
    const std::lock_guard lock(transaction->mutex);
    if (transaction->ended)
        throw ServiceException("unknownTransaction",
                               "Unknown transaction | transactionId=" + std::to_string(id));
    transaction->ended = true;
    // Whatever happens, the connection goes back: a failed commit leaves nothing open to finish.
    const Zel::Db::PooledConnection connection = std::move(transaction->connection);
    if (commit)
        connection->commit();
    else
        connection->rollback();
}

void DataStoreService::rollbackAllOf(const std::string& owner) {
    std::vector<std::shared_ptr<Transaction>> owned;
    {
        const std::lock_guard lock(m_mutex);
        std::erase_if(m_transactions, [&](const auto& entry) {
            if (entry.second->owner != owner) return false;
            owned.push_back(entry.second);
            return true;
        });
    }
    for (const auto& transaction : owned) {
        const std::lock_guard lock(transaction->mutex);
        transaction->ended = true;
        const Zel::Db::PooledConnection connection = std::move(transaction->connection);
        try {
            if (connection) connection->rollback();
        } catch (...) {
            // The pool drops a connection that cannot roll back.
        }
    }
}

void DataStoreService::reapIdle(std::chrono::steady_clock::time_point now) {
    std::vector<std::shared_ptr<Transaction>> idle;
    {
        const std::lock_guard lock(m_mutex);
        std::erase_if(m_transactions, [&](const auto& entry) {
            Transaction& transaction = *entry.second;
            // A transaction busy with a call is not idle; try_lock keeps this thread from waiting on it.
            std::unique_lock busy(transaction.mutex, std::try_to_lock);
            if (!busy.owns_lock() || now - transaction.lastUsed < m_idleTimeout) return false;
            idle.push_back(entry.second);
            return true;
        });
    }
    for (const auto& transaction : idle) {
        const std::lock_guard lock(transaction->mutex);
        if (transaction->ended) continue;
        transaction->ended = true;
        const Zel::Db::PooledConnection connection = std::move(transaction->connection);
        try {
            connection->rollback();
        } catch (...) {
            // The pool drops a connection that cannot roll back.
        }
    }
}

} // namespace ZelHost
