#pragma once
// The file a recording is written to, shared between the main thread (open,
// close) and the tap thread (write). The file is only touched under the lock;
// a failed write loses that buffer and recording goes on.
#include "media/AudioFile.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace parlova {

class RecordingSink {
public:
    bool hasFile() const {
        std::lock_guard guard(lock_);
        return file_ != nullptr;
    }
    void setFile(std::unique_ptr<AudioFileWriter> file) {
        std::lock_guard guard(lock_);
        file_ = std::move(file);
        frames_.store(0, std::memory_order_relaxed);
    }
    // Takes the file out (the caller finishes it); null when none was open.
    std::unique_ptr<AudioFileWriter> takeFile() {
        std::lock_guard guard(lock_);
        return std::move(file_);
    }
    void write(const float* const* channels, int frames) {
        std::lock_guard guard(lock_);
        if (!file_) return;
        try {
            file_->write(channels, frames);
            frames_.fetch_add(frames, std::memory_order_relaxed);
        } catch (const VoiceEngineError&) {
            // The buffer is lost; the recording goes on.
        }
    }

    // Frames in the current file so far. Any thread; relaxed: a count to
    // show or compare, nothing else is published through it.
    int64_t framesWritten() const { return frames_.load(std::memory_order_relaxed); }

private:
    mutable std::mutex lock_;
    std::atomic<int64_t> frames_{0};
    std::unique_ptr<AudioFileWriter> file_;
};

}  // namespace parlova
