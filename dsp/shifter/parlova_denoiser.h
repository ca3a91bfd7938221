#pragma once
// C interface of the speech denoiser (implemented in Rust, src/denoise.rs).
#ifdef __cplusplus
extern "C" {
#endif

typedef struct Denoiser ParlovaDenoiser;

// Samples per frame; the denoiser works at 48000 Hz only.
int parlova_denoiser_frame_size(void);
ParlovaDenoiser* parlova_denoiser_create(void);
// One frame from `input` into `output` (may alias); returns the speech likelihood 0..1.
float parlova_denoiser_process(ParlovaDenoiser* handle, const float* input, float* output);
void parlova_denoiser_destroy(ParlovaDenoiser* handle);

#ifdef __cplusplus
}
#endif
