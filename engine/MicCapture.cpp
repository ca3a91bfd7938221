#include "engine/MicCapture.h"

namespace parlova {

MicCapture::MicCapture(AudioBackend& backend, const DeviceEntry& device, double sampleRate, StreamFaults faults,
                       double blockSeconds)
    : sampleRate_(sampleRate), bridge_(std::make_shared<MicBridge>(sampleRate, kCushionSeconds)) {
    for (auto& slot : listeners_) slot.store(nullptr, std::memory_order_relaxed);
    stream_ = backend.openCapture(device, sampleRate, blockSeconds, *this, std::move(faults));
}

MicCapture::~MicCapture() { stream_.reset(); }

bool MicCapture::addListener(CaptureListener* listener) {
    for (auto& slot : listeners_) {
        CaptureListener* empty = nullptr;
        if (slot.compare_exchange_strong(empty, listener, std::memory_order_acq_rel)) return true;
    }
    return false;
}

void MicCapture::removeListener(CaptureListener* listener) {
    for (auto& slot : listeners_) {
        CaptureListener* expected = listener;
        slot.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel);
    }
}

void MicCapture::capturedAudio(const float* mono, int frames) noexcept {
    // Audio thread.
    for (auto& slot : listeners_)
        if (CaptureListener* listener = slot.load(std::memory_order_acquire)) listener->capturedAudio(mono, frames);
    bridge_->write(mono, 1, frames);
}

}  // namespace parlova
