#include <Zel/InvalidOperationException.h>
#include <Zel/Net/ServerSocket.h>
#include <Zel/Net/StreamSocket.h>
#include <Zel/Net/TcpServer.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/Task.h>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_set>

namespace Zel::Net {

// Shared with the connection tasks, which may finish after the server object is gone.
struct TcpServer::Impl {
    Handler handler;
    Options options;
    std::shared_ptr<Tasks::Queue> queue;
    std::optional<ServerSocket> listener;
    std::thread acceptor;
    std::uint16_t port = 0;
    bool running = false;

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::unordered_set<StreamSocket*> active;

    void acceptLoop(const std::shared_ptr<Impl>& self);
    void release(StreamSocket& socket) {
        const std::lock_guard lock(mutex);
        active.erase(&socket);
        socket.close();
        changed.notify_all();
    }
    template <class Predicate>
    void waitFor(std::chrono::milliseconds timeout, Predicate predicate) {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, timeout, predicate);
    }
};

void TcpServer::Impl::acceptLoop(const std::shared_ptr<Impl>& self) {
    while (auto accepted = listener->accept()) {
        auto socket = std::make_shared<StreamSocket>(std::move(*accepted));
        {
            const std::lock_guard lock(mutex);
            if (active.size() >= options.maxConnections) {
                socket->close();
                continue;
            }
            active.insert(socket.get());
        }
        socket->setReadTimeout(options.idleTimeout);
        socket->setWriteTimeout(options.idleTimeout);
        auto task = std::make_shared<Tasks::Task>("tcp-connection", [self, socket](Tasks::RunContext&) {
            try {
                self->handler(*socket);
            } catch (...) {
                // The connection ends with its handler, whatever happened to it.
            }
            self->release(*socket);
            return true;
        });
        try {
            queue->addTask(std::move(task));
        } catch (...) {
            release(*socket);
        }
    }
}

TcpServer::TcpServer(Handler handler, Options options, std::shared_ptr<Tasks::Queue> queue)
    : m_impl(std::make_shared<Impl>()) {
    m_impl->handler = std::move(handler);
    m_impl->options = std::move(options);
    m_impl->queue = std::move(queue);
}

TcpServer::~TcpServer() {
    stop();
}

void TcpServer::start() {
    if (m_impl->running) ZEL_THROW_INVALID_OPERATION();
    m_impl->listener.emplace(m_impl->options.address, m_impl->options.port);
    m_impl->port = m_impl->listener->port();
    m_impl->running = true;
    m_impl->acceptor = std::thread([impl = m_impl] { impl->acceptLoop(impl); });
}

void TcpServer::stop() {
    if (!m_impl->running) return;
    m_impl->running = false;
    m_impl->listener->close();
    m_impl->acceptor.join();
    m_impl->listener.reset();
    const auto drained = [this] { return m_impl->active.empty(); };
    m_impl->waitFor(m_impl->options.drainTimeout, drained);
    {
        const std::lock_guard lock(m_impl->mutex);
        for (StreamSocket* socket : m_impl->active)
            socket->abort();
    }
    m_impl->waitFor(m_impl->options.drainTimeout, drained);
}

std::uint16_t TcpServer::port() const noexcept {
    return m_impl->port;
}

std::size_t TcpServer::connectionCount() const {
    const std::lock_guard lock(m_impl->mutex);
    return m_impl->active.size();
}

} // namespace Zel::Net
