#include "zorTerrain/DtMetaFlightArena.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define ZOR_ARENA_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZOR_ARENA_POISONS 1
#endif
#endif
#ifdef ZOR_ARENA_POISONS
#include <sanitizer/asan_interface.h>
#endif

namespace kelZor {
namespace metaflight {

void ElementArena::giveBack(void* storage, size_t bytes) {
#ifdef ZOR_ARENA_POISONS
    ASAN_POISON_MEMORY_REGION(storage, bytes);
#else
    (void)storage;
    (void)bytes;
#endif
    release();
}

ElementArena::~ElementArena() {
    while (last_) {
        Block* previous = last_->previous;
#ifdef ZOR_ARENA_POISONS
        ASAN_UNPOISON_MEMORY_REGION(last_, last_->size);
#endif
        std::free(last_);
        last_ = previous;
    }
}

void ElementArena::addBlock(size_t atLeast) {
    size_t size = nextBlockBytes_;
    nextBlockBytes_ = std::min(nextBlockBytes_ * 2, largestBlockBytes);
    size = std::max(size, atLeast + sizeof(Block));
    auto* block = static_cast<Block*>(std::malloc(size));
    if (!block)
        throw std::bad_alloc();
    *block = Block{last_, size};
    last_ = block;
    at_ = reinterpret_cast<char*>(block + 1);
    end_ = reinterpret_cast<char*>(block) + size;
}

}  // namespace metaflight
}  // namespace kelZor
