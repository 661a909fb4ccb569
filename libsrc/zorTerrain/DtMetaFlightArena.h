// The storage of the elements one MetaFlight parse makes, and the allocator through
// which boost::allocate_shared takes it.
//
// Internal to the plug-in; not installed.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kelZor {
namespace metaflight {

// The storage of the elements one parse makes. A document has tens of elements per
// kilobyte, each a small heap block of its own: taking them from a few large blocks
// spares the allocator most of its work, and spares it the many small free blocks it
// would have to merge again on the next large request. Elements still end one by one
// (their destructors run, their strings and containers go back at once); an arena's
// blocks go back when the last of its elements ends, from whichever thread that is.
class ElementArena {
public:
    ElementArena() = default;
    ElementArena(const ElementArena&) = delete;
    ElementArena& operator=(const ElementArena&) = delete;

    // Single-threaded: only the parse that opened the arena takes from it.
    void* take(size_t bytes, size_t alignment) {
        char* at = alignUp(at_, alignment);
        if (!at_ || at > end_ || bytes > static_cast<size_t>(end_ - at)) {
            addBlock(bytes + alignment);
            at = alignUp(at_, alignment);
        }
        at_ = at + bytes;
        ++taken_;
        return at;
    }

    // An element's storage is done with (poisoned under AddressSanitizer).
    void giveBack(void* storage, size_t bytes);

    // Ends the parse that opened the arena: from now on it lives while its elements do.
    void close() { release(openerHold - taken_); }

private:
    // While the arena is open, its opener holds it by a count larger than any number of
    // elements, so that elements ending meanwhile never bring it to zero, and each
    // element taken need not be counted with an atomic operation of its own: close
    // trades the hold for the number taken.
    static constexpr size_t openerHold = size_t(1) << 62;

    void release(size_t count = 1) {
        if (users_.fetch_sub(count, std::memory_order_acq_rel) == count)
            delete this;
    }

    struct Block {
        Block* previous;
        size_t size;
    };
    static constexpr size_t firstBlockBytes = 4096;
    static constexpr size_t largestBlockBytes = 64 * 1024 - 64;  // stays below mmap's threshold

    ~ElementArena();

    static char* alignUp(char* at, size_t alignment) {
        const auto address = reinterpret_cast<uintptr_t>(at);
        return reinterpret_cast<char*>((address + alignment - 1) & ~(uintptr_t(alignment) - 1));
    }

    void addBlock(size_t atLeast);

    std::atomic<size_t> users_{openerHold};
    size_t taken_ = 0;  // by the opener's thread only
    Block* last_ = nullptr;
    char* at_ = nullptr;
    char* end_ = nullptr;
    size_t nextBlockBytes_ = firstBlockBytes;
};

// The arena of the parse running on this thread, if any. Defined here, constant
// initialised, so that reading it needs no call.
inline thread_local ElementArena* currentArena = nullptr;

// Opens an arena for the outermost parse on its thread; nested parses share it.
class ArenaScope {
public:
    ArenaScope() : opened_(currentArena == nullptr) {
        if (opened_)
            currentArena = new ElementArena;
    }
    ~ArenaScope() {
        if (opened_) {
            ElementArena* arena = currentArena;
            currentArena = nullptr;
            arena->close();
        }
    }
    ArenaScope(const ArenaScope&) = delete;
    ArenaScope& operator=(const ArenaScope&) = delete;

private:
    bool opened_;
};

// What boost::allocate_shared keeps in each element's control block: copies cost nothing,
// each block taken holds the arena.
template <typename Value>
class ArenaAllocator {
public:
    using value_type = Value;
    explicit ArenaAllocator(ElementArena* arena) : arena_(arena) {}
    template <typename Other>
    ArenaAllocator(const ArenaAllocator<Other>& other) : arena_(other.arena()) {}  // NOLINT

    Value* allocate(size_t count) {
        return static_cast<Value*>(arena_->take(count * sizeof(Value), alignof(Value)));
    }
    void deallocate(Value* storage, size_t count) {
        arena_->giveBack(storage, count * sizeof(Value));
    }

    ElementArena* arena() const { return arena_; }
    template <typename Other>
    bool operator==(const ArenaAllocator<Other>& other) const {
        return arena_ == other.arena();
    }
    template <typename Other>
    bool operator!=(const ArenaAllocator<Other>& other) const {
        return arena_ != other.arena();
    }

private:
    ElementArena* arena_;
};

}  // namespace metaflight
}  // namespace kelZor
