/// @file
/// Counts what the program allocates on the heap, by whatever way. Include it in one source of a test program
/// only: it replaces malloc(3) and its kin for the whole program.

#ifndef TESTS_SUPPORT_ALLOCATIONCOUNT_H
#define TESTS_SUPPORT_ALLOCATIONCOUNT_H

#include <atomic>
#include <cstddef>

namespace allocation_count {

inline std::atomic<unsigned long> count{0};

}  // namespace allocation_count

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// A sanitizer brings an allocator of its own, and hooks to watch it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*,
                                                                             std::size_t),
                                                         void (*free_hook)(const volatile void*));

namespace allocation_count {

inline const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { count.fetch_add(1, std::memory_order_relaxed); },
    [](const volatile void*) {});

}  // namespace allocation_count

#else

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* old, std::size_t size);

extern "C" inline __attribute__((used)) void* malloc(std::size_t size) noexcept {
    allocation_count::count.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

extern "C" inline __attribute__((used)) void* calloc(std::size_t count, std::size_t size) noexcept {
    allocation_count::count.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

extern "C" inline __attribute__((used)) void* realloc(void* old, std::size_t size) noexcept {
    allocation_count::count.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(old, size);
}

#endif

/// Number of allocations so far; operator new counts too, since it calls malloc.
inline unsigned long allocations() {
    return allocation_count::count.load(std::memory_order_relaxed);
}

#endif
