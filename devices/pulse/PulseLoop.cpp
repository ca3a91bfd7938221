#include "devices/pulse/PulseLoop.h"

namespace parlova::pulse {

PulseLoop::PulseLoop(const char* clientName) {
    loop_ = pa_threaded_mainloop_new();
    if (!loop_) {
        error_ = PA_ERR_INTERNAL;
        return;
    }
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Parlova");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ID, PARLOVA_APP_ID);
    pa_proplist_sets(props, PA_PROP_APPLICATION_ICON_NAME, "audio-input-microphone");
    context_ = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_), clientName, props);
    pa_proplist_free(props);
    if (!context_) {
        error_ = PA_ERR_INTERNAL;
        return;
    }
    pa_context_set_state_callback(context_, &PulseLoop::contextState, this);
    if (pa_threaded_mainloop_start(loop_) < 0) {
        error_ = PA_ERR_INTERNAL;
        return;
    }
    Lock lock(*this);
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        error_ = pa_context_errno(context_);
        return;
    }
    for (;;) {
        const pa_context_state_t state = pa_context_get_state(context_);
        if (state == PA_CONTEXT_READY) break;
        if (!PA_CONTEXT_IS_GOOD(state)) {
            error_ = pa_context_errno(context_);
            if (error_ == 0) error_ = PA_ERR_CONNECTIONREFUSED;
            break;
        }
        pa_threaded_mainloop_wait(loop_);
    }
}

PulseLoop::~PulseLoop() {
    if (context_) {
        if (loop_) pa_threaded_mainloop_lock(loop_);
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        if (loop_) pa_threaded_mainloop_unlock(loop_);
    }
    if (loop_) {
        pa_threaded_mainloop_stop(loop_);
        pa_threaded_mainloop_free(loop_);
    }
}

bool PulseLoop::isReady() const {
    if (!context_ || error_ != 0) return false;
    Lock lock(*this);
    return pa_context_get_state(context_) == PA_CONTEXT_READY;
}

bool PulseLoop::wait(pa_operation* op) const {
    if (!op) return false;
    // The context's state callback also signals, so a dying server cancels the
    // operation and wakes us instead of leaving us waiting forever.
    pa_operation_state_t state;
    while ((state = pa_operation_get_state(op)) == PA_OPERATION_RUNNING) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context_))) break;
        pa_threaded_mainloop_wait(loop_);
    }
    if (state == PA_OPERATION_RUNNING) pa_operation_cancel(op);
    pa_operation_unref(op);
    return state == PA_OPERATION_DONE;
}

bool PulseLoop::waitFor(const std::function<bool()>& done) const {
    while (!done()) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context_))) return false;
        pa_threaded_mainloop_wait(loop_);
    }
    return true;
}

void PulseLoop::setStateObserver(std::function<void(pa_context_state_t)> observer) {
    Lock lock(*this);
    observer_ = std::move(observer);
}

void PulseLoop::signalCallback(pa_context*, int, void* userdata) {
    static_cast<PulseLoop*>(userdata)->signal();
}

void PulseLoop::contextState(pa_context* c, void* userdata) {
    auto* self = static_cast<PulseLoop*>(userdata);
    if (self->observer_) self->observer_(pa_context_get_state(c));
    self->signal();
}

std::string errorText(int error) {
    const char* text = pa_strerror(error);
    return text ? text : "unknown error";
}

}  // namespace parlova::pulse
