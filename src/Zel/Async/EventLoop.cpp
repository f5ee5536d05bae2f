#include <Zel/Async/EventLoop.h>

#include <Zel/Log/ILog.h>
#include <Zel/Log/Macros.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <exception>
#include <thread>
#include <utility>

namespace Zel::Async {

namespace asio = boost::asio;

namespace {

// How long the loop keeps looking for calls before it sleeps.
constexpr std::chrono::microseconds spinTime{50};

void runUntilStopped(asio::io_context& context) {
    while (!context.stopped()) {
        if (context.poll() != 0) continue;
        // Nothing is ready. A call posted in the next moments would have to wake a sleeping loop, which
        // costs more than watching for it a little while.
        const auto until = std::chrono::steady_clock::now() + spinTime;
        bool ran = false;
        while (!ran && !context.stopped() && std::chrono::steady_clock::now() < until) {
            std::this_thread::yield();
            ran = context.poll() != 0;
        }
        if (!ran && !context.stopped()) context.run_one();
    }
}

} // namespace

struct EventLoop::Impl {
    explicit Impl(std::shared_ptr<Log::ILog> logger)
        : context(1), work(asio::make_work_guard(context)), log(std::move(logger)) {}

    // One thread runs the loop, so Asio can skip the locking it needs for several.
    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> work;
    std::shared_ptr<Log::ILog> log;
};

EventLoop::EventLoop(std::shared_ptr<Log::ILog> log) : m_impl(std::make_unique<Impl>(std::move(log))) {}

EventLoop::~EventLoop() = default;

void EventLoop::call(UniqueFunction<void()> function) {
    asio::post(m_impl->context, [function = std::move(function)]() mutable { function(); });
}

void EventLoop::call(UniqueFunction<void()> function, std::chrono::milliseconds delay) {
    if (delay.count() <= 0) {
        call(std::move(function));
        return;
    }
    // The handler owns its timer: a pending call keeps the timer alive and is destroyed with it when
    // the loop goes away first.
    auto timer = std::make_shared<asio::steady_timer>(m_impl->context, delay);
    asio::steady_timer& waiting = *timer;
    waiting.async_wait([timer = std::move(timer),
                        function = std::move(function)](const boost::system::error_code& error) mutable {
        if (!error) function();
    });
}

void EventLoop::run() {
    for (;;) {
        try {
            runUntilStopped(m_impl->context);
            return;
        } catch (const std::exception& exception) {
            ZEL_LOG_ERROR(m_impl->log, std::string("Event loop: a call threw an std::exception | message=") +
                                           exception.what());
        } catch (...) {
            ZEL_LOG_ERROR(m_impl->log, "Event loop: a call threw an unknown exception");
        }
        // Asio leaves the context usable after a handler threw; run() picks up where it left off.
    }
}

void EventLoop::stopAsync() {
    m_impl->context.stop();
}

bool EventLoop::stopped() const {
    return m_impl->context.stopped();
}

bool EventLoop::runningInThisThread() const {
    return m_impl->context.get_executor().running_in_this_thread();
}

} // namespace Zel::Async
