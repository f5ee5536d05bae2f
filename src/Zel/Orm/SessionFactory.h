#pragma once

#include <Zel/Export.h>
#include <Zel/Orm/Cache.h>
#include <Zel/Orm/Config.h>
#include <Zel/Orm/Model/Model.h>
#include <atomic>
#include <functional>
#include <memory>

namespace Zel::Db {
class Connection;
}
namespace Zel::Events {
class IManager;
}
namespace Zel::Log {
class ILog;
}

namespace Zel::Orm {

class Session;

// Where sessions come from: holds the model, the cache all sessions share and the way to open a
// connection. Declare the classes on model(), call configured() once, then create() a session per
// unit of work (per thread):
//
//     Zel::Orm::SessionFactory factory(log, events, [] { return Zel::Db::Connection::create(path); });
//     factory.model().addClass<Person>("Person").table("tblPerson").property("name", &Person::name);
//     factory.configured();
//     auto session = factory.create();
//
// Thread safety: after configured(), create() and metrics() may be called from any thread; the
// model and the cache are shared by the sessions and safe for concurrent use.
class ZEL_API SessionFactory {
public:
    using ConnectionFactory = std::function<std::unique_ptr<Db::Connection>()>;

    // `log` and `events` may be null (no logging, no change announcements).
    SessionFactory(std::shared_ptr<Log::ILog> log, std::shared_ptr<Events::IManager> events,
                   ConnectionFactory connectionFactory, Config config = {});
    virtual ~SessionFactory();

    SessionFactory(const SessionFactory&) = delete;
    SessionFactory& operator=(const SessionFactory&) = delete;

    // For declaring the classes, before configured().
    Model::Model& model() noexcept { return m_model; }
    const Model::Model& model() const noexcept { return m_model; }
    const Config& config() const noexcept { return m_config; }
    // Ends the declaration and checks it (see Model::setConfigured). A second call throws
    // InvalidOperationException.
    void configured();
    // A session on a fresh connection; InvalidOperationException before configured().
    std::shared_ptr<Session> create();
    Cache::Metrics metrics() const;
    const std::shared_ptr<Cache>& cache() const noexcept { return m_cache; }

private:
    std::shared_ptr<Log::ILog> m_log;
    std::shared_ptr<Events::IManager> m_events;
    ConnectionFactory m_connectionFactory;
    Config m_config;
    Model::Model m_model;
    std::shared_ptr<Cache> m_cache;
    std::atomic<bool> m_configured{false};
};

} // namespace Zel::Orm
