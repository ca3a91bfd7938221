#pragma once
// C interface of the pitch/formant shifter (implemented in Rust, src/lib.rs).
#ifdef __cplusplus
extern "C" {
#endif

typedef struct Shifter ParlovaShifter;

// A 60 ms block advanced every 15 ms.
ParlovaShifter* parlova_shifter_create(int channels, double sampleRate);
// A block and interval of the given lengths; the output trails the input by one block.
ParlovaShifter* parlova_shifter_create_timed(int channels, double sampleRate, double blockSeconds,
                                             double intervalSeconds);
void parlova_shifter_set(ParlovaShifter* handle, float pitchSemitones, float formantSemitones);
void parlova_shifter_process(ParlovaShifter* handle, const float* const* inputs, float* const* outputs,
                             int frames);
// The delay from input to output in samples.
int parlova_shifter_latency(const ParlovaShifter* handle);
void parlova_shifter_destroy(ParlovaShifter* handle);

#ifdef __cplusplus
}
#endif
