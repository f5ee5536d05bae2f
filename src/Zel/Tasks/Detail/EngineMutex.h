#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#if defined(__x86_64__) || defined(_M_X64)
#include <immintrin.h>
#endif

namespace Zel::Tasks::Detail {

// The task manager's lock: recursive (event handlers raised under it may call back into the manager)
// and, unlike std::recursive_mutex, it spins briefly before it blocks. Its sections are short and
// taken by the producer and every worker for each task; blocking at once would put a thread to sleep
// and wake it again, a context switch each time, for a wait shorter than the switch.
//
// Meets Lockable, so std::unique_lock and std::condition_variable_any work with it.
class EngineMutex {
public:
    void lock() {
        const std::thread::id self = std::this_thread::get_id();
        if (m_owner.load(std::memory_order_relaxed) == self) {
            ++m_depth;
            return;
        }
        for (int spin = 0; spin < spinLimit; ++spin) {
            if (m_mutex.try_lock()) return acquired(self);
            pause();
        }
        m_mutex.lock();
        acquired(self);
    }

    bool try_lock() {
        const std::thread::id self = std::this_thread::get_id();
        if (m_owner.load(std::memory_order_relaxed) == self) {
            ++m_depth;
            return true;
        }
        if (!m_mutex.try_lock()) return false;
        acquired(self);
        return true;
    }

    void unlock() {
        if (--m_depth > 0) return;
        m_owner.store(std::thread::id(), std::memory_order_relaxed);
        m_mutex.unlock();
    }

private:
    static constexpr int spinLimit = 200;

    static void pause() noexcept {
#if defined(__x86_64__) || defined(_M_X64)
        _mm_pause();
#else
        std::this_thread::yield();
#endif
    }

    void acquired(std::thread::id self) noexcept {
        m_owner.store(self, std::memory_order_relaxed);
        m_depth = 1;
    }

    std::mutex m_mutex;
    // Read without the lock only to compare with the reading thread's own id, which only that thread
    // stores: a stale value can never equal it.
    std::atomic<std::thread::id> m_owner{};
    int m_depth = 0;
};

} // namespace Zel::Tasks::Detail
