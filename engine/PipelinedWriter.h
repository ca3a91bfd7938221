#pragma once
// Hands rendered audio to an AudioFileWriter on a second thread, so encoding
// (AAC above all) overlaps with rendering instead of adding to it. Audio is
// passed in chunks through a small ring of preallocated buffers; the first
// writer error is rethrown to the rendering side.
#include "engine/AudioFile.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace parlova {

class PipelinedWriter {
public:
    static constexpr int kChunkFrames = 8192;
    static constexpr int kChunks = 8;

    PipelinedWriter(std::unique_ptr<AudioFileWriter> writer, int channels);
    ~PipelinedWriter();  // abandons the file if finish() was not reached
    PipelinedWriter(const PipelinedWriter&) = delete;
    PipelinedWriter& operator=(const PipelinedWriter&) = delete;

    // Queues frames (planar); blocks while every chunk is waiting to be encoded.
    void write(const float* const* channels, int frames);
    // Writes what is left and closes the file; rethrows the writer's error.
    void finish();

private:
    struct Chunk {
        std::vector<std::vector<float>> samples;
        int frames = 0;
    };
    void encodeLoop();
    void submitCurrent();
    void rethrowIfFailed();

    std::unique_ptr<AudioFileWriter> writer_;
    int channels_;
    std::vector<Chunk> chunks_;
    int fill_ = 0;       // chunk being filled by the renderer
    int encode_ = 0;     // next chunk for the encoder
    int queued_ = 0;     // chunks waiting for the encoder
    bool closing_ = false;
    bool abandoned_ = false;
    std::exception_ptr failure_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::thread thread_;
};

}  // namespace parlova
