// The render path must never touch the heap: every render block and modulation
// tick of a full chain runs with allocation counting switched on.
#include "engine/VoiceChain.h"
#include "support/MemorySource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

// The sanitizers bring their own allocator: counting only runs in plain builds.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define PARLOVA_COUNT_ALLOCATIONS 1
#endif

namespace {
[[maybe_unused]] thread_local bool counting = false;
std::atomic<long> allocations{0};

[[maybe_unused]] void* counted(std::size_t size) {
    if (counting) allocations.fetch_add(1);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
}  // namespace

#ifdef PARLOVA_COUNT_ALLOCATIONS
void* operator new(std::size_t size) { return counted(size); }
void* operator new[](std::size_t size) { return counted(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

// Also catch C allocations (the shifter library and the Rust shim allocate with malloc).
extern "C" void* __libc_malloc(std::size_t);
extern "C" void* __libc_calloc(std::size_t, std::size_t);
extern "C" void* __libc_realloc(void*, std::size_t);
extern "C" void* malloc(std::size_t size) {
    if (counting) allocations.fetch_add(1);
    return __libc_malloc(size);
}
extern "C" void* calloc(std::size_t n, std::size_t size) {
    if (counting) allocations.fetch_add(1);
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, std::size_t size) {
    if (counting) allocations.fetch_add(1);
    return __libc_realloc(p, size);
}
#endif

using namespace parlova;

TEST(RenderAllocation, ChainRenderAndModulationNeverAllocate) {
#ifndef PARLOVA_COUNT_ALLOCATIONS
    GTEST_SKIP() << "allocation counting is off under the sanitizers";
#endif
    std::vector<float> input(48000 * 2);
    for (size_t i = 0; i < input.size(); ++i) input[i] = 0.3f * static_cast<float>(std::sin(0.02 * i));
    testaudio::MemorySource source({input});
    Voice voice = Voice::builtIns()[0];  // every stage active: shift, vibrato, grain, EQ, reverb, tremolo
    voice.targetPitch = 200;
    VoiceChain chain(voice, &source, {48000, 1});
    std::vector<float> left(256), right(256);
    BufferList list;
    list.count = 2;
    list.data[0] = left.data();
    list.data[1] = right.data();

    counting = true;
    int rendered = 0;
    for (int block = 0; block < 375; ++block, rendered += 256) {
        chain.modulate(rendered / 48000.0);
        if (chain.render(list, 256) != status::ok) break;
    }
    counting = false;
    EXPECT_EQ(rendered, 375 * 256);
    EXPECT_EQ(allocations.load(), 0);
}
