#pragma once

#include "Database.h"

#include <Zel/Platform/Service.h>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace ZelHost {

// "DataStore": key-value JSON values in the host's database, one row per key. Without a
// "transactionId" each operation commits before it replies; with one it runs in that transaction,
// which holds a database connection of its own until commit or rollback. A transaction is the
// property of the plug-in that began it; the host rolls it back when that plug-in is de-initialised
// or leaves it idle for longer than the idle timeout.
class DataStoreService : public Zel::Platform::Service {
public:
    DataStoreService(std::shared_ptr<Database> database, std::chrono::milliseconds idleTimeout);
    ~DataStoreService() override;

    // Rolls back every transaction of `owner` (a plug-in's name).
    void rollbackAllOf(const std::string& owner);

private:
    struct Transaction {
        std::string owner;
        Zel::Db::PooledConnection connection;
        std::mutex mutex; // one call at a time inside a transaction
        std::chrono::steady_clock::time_point lastUsed;
        bool ended = false;
    };

    template <class Work>
    Zel::Variant run(const Zel::Variant& params, Work&& work);
    std::shared_ptr<Transaction> take(std::int64_t id, bool remove);
    std::int64_t begin();
    void end(const Zel::Variant& params, bool commit);
    void reapIdle(std::chrono::steady_clock::time_point now);

    std::shared_ptr<Database> m_database;
    std::chrono::milliseconds m_idleTimeout;
    std::mutex m_mutex;
    std::map<std::int64_t, std::shared_ptr<Transaction>> m_transactions;
    std::int64_t m_nextId = 1;
    std::condition_variable m_wake;
    bool m_stopping = false;
    std::thread m_reaper;
};

} // namespace ZelHost
