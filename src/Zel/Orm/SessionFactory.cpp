#include <Zel/Db/Connection.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Orm/Session.h>
#include <Zel/Orm/SessionFactory.h>
#include <algorithm>
#include <utility>

namespace Zel::Orm {

SessionFactory::SessionFactory(std::shared_ptr<Log::ILog> log, std::shared_ptr<Events::IManager> events,
                               ConnectionFactory connectionFactory, Config config)
    : m_log(std::move(log)), m_events(std::move(events)), m_connectionFactory(std::move(connectionFactory)),
      m_config(std::move(config)),
      m_cache(std::make_shared<Cache>(static_cast<std::size_t>(std::max(m_config.cacheCapacity, 0)))) {
    m_model.setIdSequence(m_config.idSequence).setObjectInfoTable(m_config.objectInfoTable);
}

SessionFactory::~SessionFactory() = default;

void SessionFactory::configured() {
    if (m_configured) ZEL_THROW_INVALID_OPERATION();
    m_model.setConfigured();
    m_configured = true;
}

std::shared_ptr<Session> SessionFactory::create() {
    if (!m_configured) ZEL_THROW_INVALID_OPERATION();
    std::shared_ptr<Db::Connection> connection = m_connectionFactory();
    auto session = std::make_shared<Session>(m_model, m_cache, m_log, m_events);
    session->open(std::move(connection));
    return session;
}

Cache::Metrics SessionFactory::metrics() const {
    return m_cache->metrics();
}

} // namespace Zel::Orm
