#include <Zel/ArgumentException.h>
#include <Zel/IO/IOException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Net/Detail/TlsContextImpl.h>
#include <Zel/Net/Http/Detail/RequestFramer.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/IRequestHandler.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Server.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/Task.h>
#include <Zel/Version.h>
#include <algorithm>
#include <atomic>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/write.hpp>
#include <condition_variable>
#include <future>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>
#include <unordered_map>

namespace Zel::Net::Http {

namespace {

namespace asio = boost::asio;
namespace ssl = asio::ssl;
using tcp = asio::ip::tcp;
using Clock = std::chrono::steady_clock;

constexpr std::size_t readSize = 16384;
constexpr std::size_t bodyPieceSize = 65536;
// Answers to pipelined requests already read are gathered into one write up to this size.
constexpr std::size_t coalesceLimit = 16384;
// How long a closing connection keeps draining what the peer still sends, so that the kernel does
// not answer those bytes with a reset that could destroy our last response in flight.
constexpr auto lingerTime = std::chrono::milliseconds(1000);

class ConnectionBase;

// What the server and its connections share. A connection whose handler still runs as a task can
// outlive the Server object; it keeps this alive (the io_context included) until it is gone.
struct Shared {
    asio::io_context io;
    Server::Options options;
    Detail::RequestFramer::Limits limits;
    std::shared_ptr<IRequestHandler> handler;
    std::shared_ptr<Tasks::Queue> queue;

    std::mutex mutex;
    std::condition_variable changed;
    std::unordered_map<ConnectionBase*, std::weak_ptr<ConnectionBase>> connections;
    bool stopped = false; // nothing may be posted to io any more
    std::atomic<bool> draining{false};
};

void setStatus(Response& response, int status) {
    response.setStatusCode(status);
    // The status table predates RFC 6585.
    if (status == 431) response.setReasonPhrase("Request Header Fields Too Large");
}

// A fresh answer in the place of the last one: unlike assigning Response(), the headers keep their
// storage, which saves allocations on every request of a connection.
void reset(Response& response) {
    response.setVersion(Version(1, 1));
    response.headers().clear();
    response.clearBody();
    response.setStatusCode(200);
}

// What the server asks of a connection, whatever it runs over. Called on the connection's strand.
class ConnectionBase {
public:
    virtual ~ConnectionBase() = default;
    virtual void drain() = 0;
    virtual void forceClose() = 0;
    virtual asio::any_io_executor executor() = 0;
};

using TlsSocket = ssl::stream<tcp::socket>;

// One connection over a plain socket or over TLS (Stream is tcp::socket or TlsSocket).
template <class Stream>
class Connection final : public ConnectionBase, public std::enable_shared_from_this<Connection<Stream>> {
public:
    static constexpr bool tls = std::is_same_v<Stream, TlsSocket>;

    Connection(std::shared_ptr<Shared> shared, tcp::socket socket) requires(!tls)
        : m_shared(std::move(shared)), m_stream(std::move(socket)), m_timer(m_stream.get_executor()),
          m_framer(m_shared->limits) {}

    // The context is the one current when the connection came: a reload later does not touch it.
    Connection(std::shared_ptr<Shared> shared, tcp::socket socket,
               std::shared_ptr<ssl::context> context) requires tls : m_shared(std::move(shared)),
                                                                     m_context(std::move(context)),
                                                                     m_stream(std::move(socket), *m_context),
                                                                     m_timer(m_stream.get_executor()),
                                                                     m_framer(m_shared->limits) {}

    ~Connection() override {
        const std::lock_guard lock(m_shared->mutex);
        m_shared->connections.erase(this);
        m_shared->changed.notify_all();
    }

    void start() {
        {
            const std::lock_guard lock(m_shared->mutex);
            m_shared->connections.emplace(this, this->weak_from_this());
        }
        boost::system::error_code ignored;
        socket().set_option(tcp::no_delay(true), ignored);
        if constexpr (tls)
            handshake();
        else
            process();
    }

    void drain() override {
        m_draining = true;
        if (m_phase == Phase::Reading && m_framer.idle()) {
            boost::system::error_code ignored;
            socket().cancel(ignored);
        }
    }

    void forceClose() override { close(); }

    asio::any_io_executor executor() override { return m_stream.get_executor(); }

private:
    enum class Phase { Reading, Handling, Writing, Lingering, Closed };
    enum class AfterWrite { Continue, Response };

    tcp::socket::lowest_layer_type& socket() noexcept { return m_stream.lowest_layer(); }
    std::shared_ptr<Connection> self() { return this->shared_from_this(); }

    // Until the handshake is done the connection counts as reading an idle head, so that stop()
    // ends it at once.
    void handshake() {
        m_phase = Phase::Reading;
        armTimer(Clock::now() + m_shared->options.handshakeTimeout);
        m_stream.async_handshake(ssl::stream_base::server,
                                 [self = self()](const boost::system::error_code& error) {
                                     self->disarmTimer();
                                     // A peer speaking plain HTTP, or a certificate it refused:
                                     // there is no way to answer either, so the connection ends.
                                     if (error || self->m_phase == Phase::Closed || self->m_draining)
                                         return self->close();
                                     self->process();
                                 });
    }

    void process() {
        while (m_phase != Phase::Closed) {
            Detail::RequestFramer::Step step;
            try {
                step = m_framer.next(m_request);
            } catch (const std::exception&) {
                respondRefusal(400);
                return;
            }
            switch (step) {
            case Detail::RequestFramer::Step::NeedMore:
                // Answers gathered from pipelined requests go out before waiting for more.
                if (!m_out.empty()) return write();
                if (m_draining && m_framer.idle()) return close();
                return read();
            case Detail::RequestFramer::Step::SendContinue:
                m_out += "HTTP/1.1 100 Continue\r\n\r\n";
                m_afterWrite = AfterWrite::Continue;
                return write();
            case Detail::RequestFramer::Step::Request:
                m_headStarted = false;
                if (m_shared->queue) return dispatch();
                m_phase = Phase::Handling;
                callHandler();
                if (!respond(false)) return;
                break;
            case Detail::RequestFramer::Step::Refuse:
                return respondRefusal(m_framer.refusalStatus());
            }
        }
    }

    void read() {
        m_phase = Phase::Reading;
        const auto now = Clock::now();
        Clock::time_point deadline;
        if (m_framer.idle()) {
            deadline = now + m_shared->options.idleTimeout;
        } else if (m_framer.readingHead()) {
            // One deadline for the whole head: a peer that trickles a byte at a time gains nothing.
            if (!m_headStarted) {
                m_headStarted = true;
                m_headDeadline = now + m_shared->options.headerTimeout;
            }
            deadline = m_headDeadline;
        } else {
            deadline = now + m_shared->options.readTimeout;
        }
        armTimer(deadline);
        char* room = m_framer.prepare(readSize);
        m_stream.async_read_some(asio::buffer(room, readSize),
                                 [self = self()](const boost::system::error_code& error, std::size_t size) {
                                     self->onRead(error, size);
                                 });
    }

    void onRead(const boost::system::error_code& error, std::size_t size) {
        disarmTimer();
        if (m_phase == Phase::Closed) return;
        if (error) {
            if (m_timedOut && !m_framer.idle()) {
                m_timedOut = false;
                return respondRefusal(408);
            }
            return close();
        }
        // A head that was idle waits no longer than its own deadline from its first byte on.
        m_framer.commit(size);
        process();
    }

    // One timer watches whichever deadline the connection has. Moving the deadline later only
    // notes it: the timer wakes at the earlier time and sleeps on. Cancelling and re-arming for
    // every read and write would cost a timer-queue update and a completion per operation.
    void armTimer(Clock::time_point deadline) {
        m_deadline = deadline;
        m_timedOut = false;
        if (m_timerWaiting && m_timerExpiry <= deadline) return;
        waitFor(deadline);
    }

    void disarmTimer() { m_deadline = Clock::time_point::max(); }

    void waitFor(Clock::time_point expiry) {
        const unsigned generation = ++m_timerGeneration;
        m_timerExpiry = expiry;
        m_timerWaiting = true;
        m_timer.expires_at(expiry);
        m_timer.async_wait([self = self(), generation](const boost::system::error_code& error) {
            self->onTimer(error, generation);
        });
    }

    void onTimer(const boost::system::error_code& error, unsigned generation) {
        if (generation != m_timerGeneration) return; // a wait replaced by an earlier one
        m_timerWaiting = false;
        if (error || m_phase == Phase::Closed || m_deadline == Clock::time_point::max()) return;
        if (Clock::now() < m_deadline) return waitFor(m_deadline);
        m_deadline = Clock::time_point::max();
        m_timedOut = true;
        boost::system::error_code ignored;
        socket().cancel(ignored);
    }

    void dispatch() {
        m_phase = Phase::Handling;
        auto task = std::make_shared<Tasks::Task>("http-request", [self = self()](Tasks::RunContext&) {
            self->callHandler();
            self->postBack();
            return true;
        });
        try {
            m_shared->queue->addTask(std::move(task));
        } catch (const std::exception&) {
            m_response = Response(503);
            if (respond(false)) process();
        }
    }

    void postBack() {
        const std::lock_guard lock(m_shared->mutex);
        if (m_shared->stopped) return;
        asio::post(m_stream.get_executor(), [self = self()] {
            if (self->respond(false)) self->process();
        });
    }

    void callHandler() {
        reset(m_response);
        try {
            m_shared->handler->handle(m_request, m_response);
        } catch (const HttpException& e) {
            // A status line as message ("404 Not Found") answers that status.
            const std::string_view text = e.what();
            m_response = Response();
            if (text.size() >= 3 && text[0] >= '1' && text[0] <= '5' &&
                std::isdigit(static_cast<unsigned char>(text[1])) &&
                std::isdigit(static_cast<unsigned char>(text[2])))
                setStatus(m_response, (text[0] - '0') * 100 + (text[1] - '0') * 10 + (text[2] - '0'));
            else
                m_response.setStatusCode(500);
        } catch (...) {
            m_response = Response(500);
        }
    }

    void respondRefusal(int status) {
        reset(m_response);
        setStatus(m_response, status);
        respond(true);
    }

    // Appends the answer to m_out. True when the next request may be taken up at once with the
    // answer still unsent (a pipelined one, read already, on the I/O thread); otherwise the answer
    // is being written.
    bool respond(bool refusal) {
        if (m_phase == Phase::Closed) return false;
        Headers& headers = m_response.headers();
        const int status = m_response.statusCode();
        const bool headRequest = !refusal && m_request.method() == "HEAD";
        const bool http10 = !refusal && m_request.version().minor() == 0;
        bool keepAlive = !refusal && !m_draining && !m_shared->draining && m_request.keepAlive();
        if (const auto connection = headers.find("Connection"); connection && *connection == "close")
            keepAlive = false;

        m_body.reset();
        m_chunked = false;
        const bool bodyAllowed = status >= 200 && status != 204 && status != 304;
        if (bodyAllowed && m_response.hasBody()) {
            const auto& body = m_response.body();
            if (!body->can(IO::IStream::LengthKnown)) {
                headers.erase(Headers::CONTENT_LENGTH);
                if (http10)
                    keepAlive = false; // the end of the body is the end of the connection
                else {
                    headers.set("Transfer-Encoding", "chunked");
                    m_chunked = true;
                }
            }
            if (!headRequest) m_body = body;
        } else if (!bodyAllowed) {
            headers.erase(Headers::CONTENT_LENGTH);
        }
        if (!keepAlive)
            headers.set("Connection", "close");
        else if (http10)
            headers.set("Connection", "keep-alive");
        m_keepAlive = keepAlive;

        const std::size_t start = m_out.size();
        m_out += "HTTP/1.1 ";
        m_out += std::to_string(status);
        m_out += ' ';
        m_out += m_response.reasonPhrase();
        m_out += "\r\n";
        headers.appendTo(m_out);
        m_out += "\r\n";
        m_bodyDone = false;
        try {
            fillBody();
        } catch (const std::exception&) {
            // Nothing of this answer has been sent: the answers before it go out, then the
            // connection ends.
            m_out.resize(start);
            m_keepAlive = false;
            m_bodyDone = true;
        }
        m_afterWrite = AfterWrite::Response;
        if (m_bodyDone) {
            m_body.reset();
            if (m_keepAlive && !m_draining && !m_shared->queue && m_out.size() < coalesceLimit) return true;
        }
        if (m_out.empty()) {
            close();
            return false;
        }
        write();
        return false;
    }

    // Appends the next piece of the body to m_out; sets m_bodyDone after the last.
    void fillBody() {
        if (!m_body) {
            m_bodyDone = true;
            return;
        }
        if (!m_chunked) {
            // A body of known length gets room for what is left of it, not a whole piece: growing
            // the buffer zeroes the new room, and most answers are far smaller than a piece.
            std::size_t piece = bodyPieceSize;
            const bool lengthKnown = m_body->can(IO::IStream::LengthKnown);
            if (lengthKnown) {
                const std::int64_t left = m_body->getLength() - m_body->getPosition();
                piece = static_cast<std::size_t>(std::clamp<std::int64_t>(left, 0, bodyPieceSize));
            }
            const std::size_t before = m_out.size();
            m_out.resize(before + piece);
            std::size_t filled = 0;
            while (filled < piece) {
                const std::size_t got = m_body->read(m_out.data() + before + filled, piece - filled);
                if (got == 0) {
                    m_bodyDone = true;
                    break;
                }
                filled += got;
            }
            m_out.resize(before + filled);
            if (lengthKnown && m_body->getPosition() >= m_body->getLength()) m_bodyDone = true;
            return;
        }
        m_piece.resize(bodyPieceSize);
        const std::size_t got = m_body->read(m_piece.data(), m_piece.size());
        if (got == 0) {
            m_out += "0\r\n\r\n";
            m_bodyDone = true;
            return;
        }
        char size[20];
        const int length = std::snprintf(size, sizeof size, "%zx\r\n", got);
        m_out.append(size, static_cast<std::size_t>(length));
        m_out.append(m_piece.data(), got);
        m_out += "\r\n";
    }

    void write() {
        m_phase = Phase::Writing;
        armTimer(Clock::now() + m_shared->options.writeTimeout);
        asio::async_write(
            m_stream, asio::buffer(m_out),
            [self = self()](const boost::system::error_code& error, std::size_t) { self->onWritten(error); });
    }

    void onWritten(const boost::system::error_code& error) {
        disarmTimer();
        if (error || m_phase == Phase::Closed) return close();
        m_out.clear();
        if (m_afterWrite == AfterWrite::Continue) {
            m_afterWrite = AfterWrite::Response;
            m_phase = Phase::Reading;
            return process();
        }
        if (!m_bodyDone) {
            try {
                fillBody();
            } catch (const std::exception&) {
                return close();
            }
            return write();
        }
        m_body.reset();
        if (m_keepAlive && !m_draining) return process();
        linger();
    }

    // Half-closes and reads what the peer still sends until it closes too, for at most lingerTime.
    // Over TLS the close notification goes out instead, and the peer's answer to it (or its
    // closing) is awaited for as long.
    void linger() {
        m_phase = Phase::Lingering;
        armTimer(Clock::now() + std::min<Clock::duration>(lingerTime, m_shared->options.readTimeout));
        if constexpr (tls) {
            m_stream.async_shutdown([self = self()](const boost::system::error_code&) { self->close(); });
        } else {
            boost::system::error_code ignored;
            socket().shutdown(tcp::socket::shutdown_send, ignored);
            discard();
        }
    }

    void discard() {
        m_piece.resize(readSize);
        m_stream.async_read_some(asio::buffer(m_piece.data(), readSize),
                                 [self = self()](const boost::system::error_code& error, std::size_t) {
                                     if (error) return self->close();
                                     self->discard();
                                 });
    }

    void close() {
        if (m_phase == Phase::Closed) return;
        m_phase = Phase::Closed;
        disarmTimer();
        m_timer.cancel();
        boost::system::error_code ignored;
        socket().shutdown(tcp::socket::shutdown_both, ignored);
        socket().close(ignored);
    }

    std::shared_ptr<Shared> m_shared;
    std::shared_ptr<ssl::context> m_context; // TLS only; outlives m_stream, which refers to it
    Stream m_stream;
    asio::steady_timer m_timer;
    unsigned m_timerGeneration = 0;
    Clock::time_point m_deadline = Clock::time_point::max();
    Clock::time_point m_timerExpiry;
    bool m_timerWaiting = false;
    bool m_timedOut = false;
    Detail::RequestFramer m_framer;
    Request m_request;
    Response m_response;
    std::string m_out;
    std::string m_piece;
    std::shared_ptr<IO::IStream> m_body;
    bool m_chunked = false;
    bool m_bodyDone = true;
    bool m_keepAlive = false;
    bool m_draining = false;
    bool m_headStarted = false;
    Clock::time_point m_headDeadline;
    Phase m_phase = Phase::Reading;
    AfterWrite m_afterWrite = AfterWrite::Response;
};

} // namespace

class Server::Impl {
public:
    Impl(std::shared_ptr<IRequestHandler> handler, Options options, std::shared_ptr<Tasks::Queue> queue)
        : m_handler(std::move(handler)), m_options(std::move(options)), m_queue(std::move(queue)) {}

    void start() {
        if (m_running) ZEL_THROW_INVALID_OPERATION();
        if (m_options.tls && !m_options.tls->isServer())
            throw ArgumentException("Server: TLS needs a server context | address=" + m_options.address);
        auto shared = std::make_shared<Shared>();
        shared->options = m_options;
        shared->limits = {m_options.maxHeadSize, m_options.maxHeaderCount, m_options.maxBodySize};
        shared->handler = m_handler;
        shared->queue = m_queue;
        try {
            const tcp::endpoint endpoint(asio::ip::make_address(m_options.address), m_options.port);
            m_acceptor.emplace(shared->io);
            m_acceptor->open(endpoint.protocol());
            m_acceptor->set_option(tcp::acceptor::reuse_address(true));
            m_acceptor->bind(endpoint);
            m_acceptor->listen(asio::socket_base::max_listen_connections);
            m_port = m_acceptor->local_endpoint().port();
        } catch (const boost::system::system_error& e) {
            m_acceptor.reset();
            throw IO::IOException("Server: cannot listen | address=" + m_options.address + " | port=" +
                                  std::to_string(m_options.port) + " | error=" + e.code().message());
        }
        m_shared = shared;
        m_work.emplace(shared->io.get_executor());
        accept();
        const int threads = std::max(1, m_options.ioThreads);
        for (int i = 0; i < threads; ++i)
            m_threads.emplace_back([shared] { shared->io.run(); });
        m_running = true;
    }

    void stop() {
        if (!m_running) return;
        Shared& shared = *m_shared;
        // Before running() turns false: whoever sees the server stopping sees it draining.
        shared.draining = true;
        m_running = false;
        std::promise<void> closed;
        asio::post(shared.io, [this, &closed] {
            boost::system::error_code ignored;
            m_acceptor->close(ignored);
            closed.set_value();
        });
        closed.get_future().wait();

        forEachConnection([](ConnectionBase& connection) { connection.drain(); });
        {
            std::unique_lock lock(shared.mutex);
            shared.changed.wait_for(lock, m_options.drainTimeout, [&] { return shared.connections.empty(); });
        }
        forEachConnection([](ConnectionBase& connection) { connection.forceClose(); });
        {
            std::unique_lock lock(shared.mutex);
            shared.changed.wait_for(lock, m_options.drainTimeout, [&] { return shared.connections.empty(); });
            shared.stopped = true;
        }
        m_work.reset();
        shared.io.stop();
        for (auto& thread : m_threads)
            thread.join();
        m_threads.clear();
        // Completions queued on the closed sockets hold their connections: let them run out here so
        // that nothing keeps the io_context, which they share, alive.
        shared.io.restart();
        shared.io.poll();
        m_acceptor.reset();
        m_shared.reset();
    }

    bool running() const noexcept { return m_running; }
    std::uint16_t port() const { return m_port; }
    std::size_t connectionCount() const noexcept {
        const auto shared = m_shared;
        if (!shared) return 0;
        const std::lock_guard lock(shared->mutex);
        return shared->connections.size();
    }
    const Options& options() const noexcept { return m_options; }

private:
    void accept() {
        m_acceptor->async_accept(
            asio::make_strand(m_shared->io),
            // Weak: a handler still queued when the server stops must not keep its io_context alive.
            [this, weak = std::weak_ptr<Shared>(m_shared)](const boost::system::error_code& error,
                                                           tcp::socket socket) {
                const auto shared = weak.lock();
                if (!shared || error == asio::error::operation_aborted || !m_acceptor->is_open()) return;
                if (!error) {
                    bool full;
                    {
                        const std::lock_guard lock(shared->mutex);
                        full = shared->connections.size() >= shared->options.maxConnections;
                    }
                    if (full || shared->draining) {
                        boost::system::error_code ignored;
                        socket.close(ignored);
                    } else if (shared->options.tls) {
                        auto connection = std::make_shared<Connection<TlsSocket>>(
                            shared, std::move(socket),
                            Net::Detail::TlsContextAccess::impl(*shared->options.tls)->current());
                        asio::post(connection->executor(), [connection] { connection->start(); });
                    } else {
                        auto connection =
                            std::make_shared<Connection<tcp::socket>>(shared, std::move(socket));
                        asio::post(connection->executor(), [connection] { connection->start(); });
                    }
                }
                accept();
            });
    }

    template <class Action>
    void forEachConnection(Action action) {
        std::vector<std::shared_ptr<ConnectionBase>> alive;
        {
            const std::lock_guard lock(m_shared->mutex);
            for (auto& [pointer, weak] : m_shared->connections)
                if (auto connection = weak.lock()) alive.push_back(std::move(connection));
        }
        for (auto& connection : alive)
            asio::post(connection->executor(), [connection, action] { action(*connection); });
    }

    std::shared_ptr<IRequestHandler> m_handler;
    Options m_options;
    std::shared_ptr<Tasks::Queue> m_queue;
    std::shared_ptr<Shared> m_shared;
    std::optional<tcp::acceptor> m_acceptor;
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> m_work;
    std::vector<std::thread> m_threads;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_running{false};
};

Server::Server(std::shared_ptr<IRequestHandler> handler, Options options, std::shared_ptr<Tasks::Queue> queue)
    : m_impl(std::make_shared<Impl>(std::move(handler), std::move(options), std::move(queue))) {}

Server::~Server() {
    stop();
}

void Server::start() {
    m_impl->start();
}

void Server::stop() {
    m_impl->stop();
}

bool Server::running() const noexcept {
    return m_impl->running();
}

std::uint16_t Server::port() const {
    return m_impl->port();
}

std::size_t Server::connectionCount() const noexcept {
    return m_impl->connectionCount();
}

const Server::Options& Server::options() const noexcept {
    return m_impl->options();
}

} // namespace Zel::Net::Http
