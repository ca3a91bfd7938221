#pragma once
// Denormal floats (below about 1e-38) send x86 and ARM cores into slow
// microcode. The chain's recursive filters, its reverb tail, the shifter's
// spectra and the denoiser's network all decay into that range within a
// second of digital silence (a muted microphone, the gate closed between
// words), and a chain fed silence then costs about twenty times its usual
// CPU. While a DenormalsFlushed lives, this thread's floating point reads and
// writes them as zero; they lie some 750 dB below full scale, so nothing
// audible changes. The earlier mode comes back when it ends, so guards nest
// and a caller's thread is left as it was found.
//
// Real-time safe: a register read and, where the mode changes, a write.
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <xmmintrin.h>
#endif

namespace parlova {

class DenormalsFlushed {
public:
    DenormalsFlushed() noexcept : saved_(read()) {
        if ((saved_ & kFlushBits) != kFlushBits) write(saved_ | kFlushBits);
    }
    ~DenormalsFlushed() {
        if ((saved_ & kFlushBits) != kFlushBits) write(saved_);
    }
    DenormalsFlushed(const DenormalsFlushed&) = delete;
    DenormalsFlushed& operator=(const DenormalsFlushed&) = delete;

    // For a thread that does nothing but audio: flushes for the rest of its life.
    static void forThisThread() noexcept { write(read() | kFlushBits); }
    // Whether this thread flushes now.
    static bool active() noexcept { return kFlushBits != 0 && (read() & kFlushBits) == kFlushBits; }

private:
#if defined(__x86_64__) || defined(__i386__)
    // MXCSR: flush results to zero (bit 15) and read denormal inputs as zero (bit 6).
    static constexpr uint64_t kFlushBits = 0x8040;
    static uint64_t read() noexcept { return _mm_getcsr(); }
    static void write(uint64_t mode) noexcept { _mm_setcsr(static_cast<unsigned>(mode)); }
#elif defined(__aarch64__)
    // FPCR: flush to zero (bit 24) covers both inputs and results.
    static constexpr uint64_t kFlushBits = uint64_t{1} << 24;
    static uint64_t read() noexcept {
        uint64_t mode;
        asm volatile("mrs %0, fpcr" : "=r"(mode));
        return mode;
    }
    static void write(uint64_t mode) noexcept { asm volatile("msr fpcr, %0" : : "r"(mode)); }
#else
    static constexpr uint64_t kFlushBits = 0;
    static uint64_t read() noexcept { return 0; }
    static void write(uint64_t) noexcept {}
#endif

    uint64_t saved_;
};

}  // namespace parlova
