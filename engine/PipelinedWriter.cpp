#include "engine/PipelinedWriter.h"

#include <algorithm>
#include <cstring>

namespace parlova {

PipelinedWriter::PipelinedWriter(std::unique_ptr<AudioFileWriter> writer, int channels)
    : writer_(std::move(writer)), channels_(channels), chunks_(kChunks) {
    for (auto& chunk : chunks_)
        chunk.samples.assign(static_cast<size_t>(channels), std::vector<float>(kChunkFrames));
    thread_ = std::thread([this] { encodeLoop(); });
}

PipelinedWriter::~PipelinedWriter() {
    {
        std::lock_guard guard(mutex_);
        closing_ = true;
        abandoned_ = true;  // drop whatever is pending: the render failed
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void PipelinedWriter::rethrowIfFailed() {
    if (failure_) std::rethrow_exception(failure_);
}

void PipelinedWriter::write(const float* const* channels, int frames) {
    int done = 0;
    while (done < frames) {
        Chunk& chunk = chunks_[static_cast<size_t>(fill_)];
        const int n = std::min(frames - done, kChunkFrames - chunk.frames);
        for (int c = 0; c < channels_; ++c)
            std::memcpy(chunk.samples[static_cast<size_t>(c)].data() + chunk.frames, channels[c] + done,
                        static_cast<size_t>(n) * sizeof(float));
        chunk.frames += n;
        done += n;
        if (chunk.frames == kChunkFrames) submitCurrent();
    }
}

void PipelinedWriter::submitCurrent() {
    std::unique_lock lock(mutex_);
    rethrowIfFailed();
    ++queued_;
    fill_ = (fill_ + 1) % kChunks;
    changed_.notify_all();
    // The next chunk to fill must not still be waiting for the encoder.
    changed_.wait(lock, [this] { return queued_ < kChunks || failure_; });
    rethrowIfFailed();
    chunks_[static_cast<size_t>(fill_)].frames = 0;
}

void PipelinedWriter::encodeLoop() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return queued_ > 0 || closing_; });
        if (abandoned_ || queued_ == 0) return;
        Chunk& chunk = chunks_[static_cast<size_t>(encode_)];
        lock.unlock();
        std::vector<const float*> pointers;
        for (auto& channel : chunk.samples) pointers.push_back(channel.data());
        std::exception_ptr error;
        try {
            writer_->write(pointers.data(), chunk.frames);
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        if (error && !failure_) failure_ = error;
        encode_ = (encode_ + 1) % kChunks;
        --queued_;
        changed_.notify_all();
        if (failure_) return;
    }
}

void PipelinedWriter::finish() {
    if (chunks_[static_cast<size_t>(fill_)].frames > 0) {
        std::unique_lock lock(mutex_);
        rethrowIfFailed();
        ++queued_;
        changed_.notify_all();
    }
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return queued_ == 0 || failure_; });
        closing_ = true;
    }
    changed_.notify_all();
    thread_.join();
    rethrowIfFailed();
    writer_->finish();
}

}  // namespace parlova
