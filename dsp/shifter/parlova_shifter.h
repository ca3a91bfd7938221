#pragma once
// C interface of the pitch/formant shifter (implemented in Rust, src/lib.rs).
#ifdef __cplusplus
extern "C" {
#endif

typedef struct Shifter ParlovaShifter;

ParlovaShifter* parlova_shifter_create(int channels, double sampleRate);
void parlova_shifter_set(ParlovaShifter* handle, float pitchSemitones, float formantSemitones);
void parlova_shifter_process(ParlovaShifter* handle, const float* const* inputs, float* const* outputs,
                             int frames);
void parlova_shifter_destroy(ParlovaShifter* handle);

#ifdef __cplusplus
}
#endif
