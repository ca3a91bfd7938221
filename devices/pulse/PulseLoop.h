#pragma once
// One connection to the sound server: a PulseAudio threaded main loop with its
// context. Parlova keeps two of them: one for enumeration and control, one for
// the live audio streams, so that a slow query never delays audio.
//
// Callers take the loop's lock (Lock) around every call into libpulse and wait
// for operations with wait(); callbacks wake the waiter with signal().
#include <pulse/pulseaudio.h>

#include <functional>
#include <string>

namespace parlova::pulse {

class PulseLoop {
public:
    // Creates the loop and its context and connects to the server named by the
    // usual client configuration (PULSE_SERVER, client.conf), never spawning
    // one. Check isReady() or error() afterwards.
    explicit PulseLoop(const char* clientName);
    ~PulseLoop();
    PulseLoop(const PulseLoop&) = delete;
    PulseLoop& operator=(const PulseLoop&) = delete;

    bool isReady() const;          // the context is connected and usable
    int error() const { return error_; }  // PulseAudio error code of a failed connection

    pa_threaded_mainloop* loop() const { return loop_; }
    pa_context* context() const { return context_; }

    class Lock {
    public:
        explicit Lock(const PulseLoop& l) : loop_(l.loop_) { pa_threaded_mainloop_lock(loop_); }
        ~Lock() { pa_threaded_mainloop_unlock(loop_); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* loop_;
    };

    // Waits (lock held) until `op` is done or cancelled, then releases it.
    // Returns false when the operation was null or did not complete.
    bool wait(pa_operation* op) const;
    // Waits (lock held) until `done` is true or the context has failed.
    bool waitFor(const std::function<bool()>& done) const;
    // Wakes every waiter; callable from the loop thread's callbacks.
    void signal() const { pa_threaded_mainloop_signal(loop_, 0); }

    // Called on the loop thread whenever the context's state changes after the
    // connection was made (for instance when the server goes away).
    void setStateObserver(std::function<void(pa_context_state_t)> observer);

    // Convenience callback for libpulse: userdata is the PulseLoop.
    static void signalCallback(pa_context*, int, void* userdata);

private:
    static void contextState(pa_context* c, void* userdata);

    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    int error_ = 0;
    std::function<void(pa_context_state_t)> observer_;
};

// Pulse's own text for an error code.
std::string errorText(int error);

}  // namespace parlova::pulse
