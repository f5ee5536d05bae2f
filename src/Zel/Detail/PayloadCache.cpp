#include <Zel/Detail/ExtValue.h>
#include <new>

namespace Zel::Detail {

namespace {

// A per-thread stack of free payload blocks in two sizes. Blocks freed on another thread than
// the one that allocated them simply join that thread's cache; the cache is bounded and is
// handed back to the heap when the thread ends.
thread_local bool cacheGone = false;

class PayloadCache {
public:
    static constexpr std::size_t smallBlock = 48;
    static constexpr std::size_t largeBlock = 96;
    static constexpr std::size_t maxCached = 8192;

    ~PayloadCache() {
        cacheGone = true; // values released later in this thread's exit go straight to the heap
        for (Stack& stack : m_stacks) {
            while (stack.top) {
                Free* next = stack.top->next;
                ::operator delete(stack.top);
                stack.top = next;
            }
        }
    }

    void* allocate(std::size_t size) {
        if (size > largeBlock) return ::operator new(size);
        Stack& stack = m_stacks[size > smallBlock];
        if (!stack.top) return ::operator new(size > smallBlock ? largeBlock : smallBlock);
        Free* block = stack.top;
        stack.top = block->next;
        --stack.count;
        return block;
    }

    void release(void* block, std::size_t size) noexcept {
        if (size > largeBlock || cacheGone) return ::operator delete(block);
        Stack& stack = m_stacks[size > smallBlock];
        if (stack.count == maxCached) return ::operator delete(block);
        stack.top = new (block) Free{stack.top};
        ++stack.count;
    }

private:
    struct Free {
        Free* next;
    };
    struct Stack {
        Free* top = nullptr;
        std::size_t count = 0;
    };
    Stack m_stacks[2];
};

thread_local PayloadCache payloadCache;

} // namespace

void* ExtValue::operator new(std::size_t size) {
    return payloadCache.allocate(size);
}

void ExtValue::operator delete(void* block, std::size_t size) noexcept {
    payloadCache.release(block, size);
}

} // namespace Zel::Detail
