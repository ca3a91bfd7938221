#pragma once
// The file a recording is written to, shared between the main thread (open,
// close) and the tap thread (write). The file is only touched under the lock;
// a failed write loses that buffer and recording goes on.
#include "engine/AudioFile.h"

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
        } catch (const VoiceEngineError&) {
            // The buffer is lost; the recording goes on.
        }
    }

private:
    mutable std::mutex lock_;
    std::unique_ptr<AudioFileWriter> file_;
};

}  // namespace parlova
