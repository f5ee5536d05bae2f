#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace Zel {

template <class Signature>
class UniqueFunction;

// A move-only std::function: it can hold callables that own move-only state (a promise, a
// unique_ptr), which task callbacks and event-loop posts often do. Calling an empty one throws
// std::bad_function_call.
//
// A callable of up to three pointers that moves without throwing (a lambda capturing a few pointers
// or a shared_ptr) is kept inside the object: a task or a posted call then costs no allocation for
// its callback. Larger ones live on the heap.
template <class R, class... Args>
class UniqueFunction<R(Args...)> {
    static constexpr std::size_t inlineSize = 3 * sizeof(void*);

    template <class F>
    static constexpr bool
        storedInline = sizeof(F) <= inlineSize &&
                       alignof(F) <= alignof(void*) && std::is_nothrow_move_constructible_v<F>;

public:
    UniqueFunction() noexcept = default;
    UniqueFunction(std::nullptr_t) noexcept {}

    template <class F>
    requires(!std::is_same_v<std::decay_t<F>, UniqueFunction> &&
             std::is_invocable_r_v<R, std::decay_t<F>&, Args...>) UniqueFunction(F&& callable) {
        using Stored = std::decay_t<F>;
        if constexpr (storedInline<Stored>) {
            ::new (static_cast<void*>(m_storage)) Stored(std::forward<F>(callable));
        } else {
            *reinterpret_cast<Stored**>(m_storage) = new Stored(std::forward<F>(callable));
        }
        m_ops = &opsFor<Stored>;
    }

    UniqueFunction(UniqueFunction&& other) noexcept { take(other); }
    UniqueFunction& operator=(UniqueFunction&& other) noexcept {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    UniqueFunction(const UniqueFunction&) = delete; // the held callable may own move-only state
    UniqueFunction& operator=(const UniqueFunction&) = delete;
    ~UniqueFunction() { reset(); }

    UniqueFunction& operator=(std::nullptr_t) noexcept {
        reset();
        return *this;
    }

    explicit operator bool() const noexcept { return m_ops != nullptr; }

    R operator()(Args... args) const {
        if (!m_ops) throw std::bad_function_call();
        return m_ops->call(const_cast<unsigned char*>(m_storage), std::forward<Args>(args)...);
    }

private:
    struct Ops {
        R (*call)(void* storage, Args&&... args);
        // Move-constructs the callable into `to` and destroys it in `from`.
        void (*relocate)(void* from, void* to) noexcept;
        void (*destroy)(void* storage) noexcept;
    };

    template <class F>
    static F& target(void* storage) noexcept {
        if constexpr (storedInline<F>) {
            return *std::launder(reinterpret_cast<F*>(storage));
        } else {
            return **reinterpret_cast<F**>(storage);
        }
    }

    template <class F>
    static constexpr Ops opsFor{
        [](void* storage, Args&&... args) -> R {
            if constexpr (std::is_void_v<R>) {
                std::invoke(target<F>(storage), std::forward<Args>(args)...);
            } else {
                return std::invoke(target<F>(storage), std::forward<Args>(args)...);
            }
        },
        [](void* from, void* to) noexcept {
            if constexpr (storedInline<F>) {
                F& source = target<F>(from);
                ::new (to) F(std::move(source));
                source.~F();
            } else {
                *static_cast<F**>(to) = *static_cast<F**>(from);
            }
        },
        [](void* storage) noexcept {
            if constexpr (storedInline<F>) {
                target<F>(storage).~F();
            } else {
                delete *static_cast<F**>(storage);
            }
        },
    };

    void take(UniqueFunction& other) noexcept {
        if (!other.m_ops) return;
        other.m_ops->relocate(other.m_storage, m_storage);
        m_ops = std::exchange(other.m_ops, nullptr);
    }
    void reset() noexcept {
        // Moved out and cleared before the callable goes: its destructor may assign to this object.
        if (const Ops* ops = std::exchange(m_ops, nullptr)) {
            alignas(void*) unsigned char dying[inlineSize];
            ops->relocate(m_storage, dying);
            ops->destroy(dying);
        }
    }

    const Ops* m_ops = nullptr;
    alignas(void*) unsigned char m_storage[inlineSize];
};

} // namespace Zel
