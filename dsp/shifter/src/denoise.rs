//! Speech denoising for the clean mic: RNNoise (the `nnnoiseless` port, its
//! model built into the crate) behind three C functions.
//!
//! The network works on 10 ms frames at 48 kHz of samples scaled like 16-bit
//! integers; the shim takes ordinary floats in -1..1 and scales them through a
//! scratch frame made at creation, so processing never allocates. Its output
//! trails its input by one frame (the analysis window overlaps the previous
//! frame).

use nnnoiseless::DenoiseState;
use std::os::raw::{c_float, c_int};

const SCALE: f32 = 32768.0;

pub struct Denoiser {
    state: Box<DenoiseState<'static>>,
    scaled_in: [f32; DenoiseState::FRAME_SIZE],
    scaled_out: [f32; DenoiseState::FRAME_SIZE],
}

/// Samples per call of `parlova_denoiser_process` (at 48 kHz).
#[no_mangle]
pub extern "C" fn parlova_denoiser_frame_size() -> c_int {
    DenoiseState::FRAME_SIZE as c_int
}

/// Creates a denoiser. The library sets up its shared tables on
/// first use; a throw-away state runs one frame here so that happens now,
/// not on the audio thread.
#[no_mangle]
pub extern "C" fn parlova_denoiser_create() -> *mut Denoiser {
    let mut warm = DenoiseState::new();
    let probe: Vec<f32> = (0..DenoiseState::FRAME_SIZE).map(|i| ((i * 7919) % 200) as f32 - 100.0).collect();
    let mut sink = vec![0.0f32; DenoiseState::FRAME_SIZE];
    warm.process_frame(&mut sink, &probe);
    let denoiser = Denoiser {
        state: DenoiseState::new(),
        scaled_in: [0.0; DenoiseState::FRAME_SIZE],
        scaled_out: [0.0; DenoiseState::FRAME_SIZE],
    };
    Box::into_raw(Box::new(denoiser))
}

/// Denoises one frame of `parlova_denoiser_frame_size()` samples from `input`
/// into `output` (which may be the same buffer). Returns the network's
/// estimate that the frame holds speech (0..1), or -1 for a null argument.
#[no_mangle]
pub extern "C" fn parlova_denoiser_process(handle: *mut Denoiser, input: *const c_float, output: *mut c_float) -> c_float {
    let Some(denoiser) = (unsafe { handle.as_mut() }) else { return -1.0 };
    if input.is_null() || output.is_null() {
        return -1.0;
    }
    let n = DenoiseState::FRAME_SIZE;
    let input = unsafe { std::slice::from_raw_parts(input, n) };
    for (scaled, &x) in denoiser.scaled_in.iter_mut().zip(input) {
        *scaled = x * SCALE;
    }
    let speech = denoiser.state.process_frame(&mut denoiser.scaled_out, &denoiser.scaled_in);
    let output = unsafe { std::slice::from_raw_parts_mut(output, n) };
    for (y, &scaled) in output.iter_mut().zip(denoiser.scaled_out.iter()) {
        *y = scaled / SCALE;
    }
    speech
}

/// Deletes the denoiser; null is ignored.
#[no_mangle]
pub extern "C" fn parlova_denoiser_destroy(handle: *mut Denoiser) {
    if !handle.is_null() {
        drop(unsafe { Box::from_raw(handle) });
    }
}
