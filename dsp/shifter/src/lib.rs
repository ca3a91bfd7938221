//! Plain C functions over one pitch/formant stretcher, so the C++ effect unit
//! can shift audio without knowing the library's types. The clean-mic
//! denoiser lives beside it in `denoise`, built into the same static library.
//!
//! The library works on interleaved samples while the unit hands us one buffer per
//! channel, so the shim keeps two interleaved scratch buffers. They are sized at
//! creation for `MAX_FRAMES` and longer calls are processed in slices, which keeps
//! the process path free of allocation.

mod denoise;

use signalsmith_stretch::Stretch;
use std::os::raw::{c_float, c_int};

const MAX_FRAMES: usize = 4096;

pub struct Shifter {
    stretch: Stretch,
    channels: usize,
    pitch: f32,
    formant: f32,
    interleaved_in: Vec<f32>,
    interleaved_out: Vec<f32>,
}

/// Creates a shifter for `channels` channels at `sample_rate`: a 60 ms analysis
/// block with a 15 ms interval. Returns null for a channel count below 1.
#[no_mangle]
pub extern "C" fn parlova_shifter_create(channels: c_int, sample_rate: f64) -> *mut Shifter {
    parlova_shifter_create_timed(channels, sample_rate, 0.06, 0.015)
}

/// Creates a shifter with an analysis block of `block_seconds` advanced every
/// `interval_seconds` (both truncated to whole samples). The output trails the
/// input by one block, so a shorter block means less delay, at the cost of
/// frequency resolution on low voices. Returns null for a channel count below 1
/// or a block or interval shorter than a sample.
#[no_mangle]
pub extern "C" fn parlova_shifter_create_timed(
    channels: c_int,
    sample_rate: f64,
    block_seconds: f64,
    interval_seconds: f64,
) -> *mut Shifter {
    if channels < 1 || !(sample_rate > 0.0) {
        return std::ptr::null_mut();
    }
    let block = (sample_rate * block_seconds) as usize;
    let interval = (sample_rate * interval_seconds) as usize;
    if block < 1 || interval < 1 {
        return std::ptr::null_mut();
    }
    let channels = channels as usize;
    let shifter = Shifter {
        stretch: Stretch::new(channels as u32, block, interval),
        channels,
        pitch: 0.0,
        formant: 0.0,
        interleaved_in: vec![0.0; channels * MAX_FRAMES],
        interleaved_out: vec![0.0; channels * MAX_FRAMES],
    };
    Box::into_raw(Box::new(shifter))
}

/// Sets the transpose (semitones, no tonality limit) and the formant shift
/// (semitones, compensated for the pitch shift). The library's setters are
/// costly, so an unchanged pair is ignored.
#[no_mangle]
pub extern "C" fn parlova_shifter_set(handle: *mut Shifter, pitch: c_float, formant: c_float) {
    let Some(shifter) = (unsafe { handle.as_mut() }) else { return };
    if pitch == shifter.pitch && formant == shifter.formant {
        return;
    }
    shifter.pitch = pitch;
    shifter.formant = formant;
    shifter.stretch.set_transpose_factor_semitones(pitch, None);
    shifter.stretch.set_formant_factor_semitones(formant, true);
}

/// Processes `frames` frames from per-channel `inputs` into per-channel `outputs`
/// with equal lengths (no time stretch). Inputs and outputs may not alias.
#[no_mangle]
pub extern "C" fn parlova_shifter_process(
    handle: *mut Shifter,
    inputs: *const *const c_float,
    outputs: *const *mut c_float,
    frames: c_int,
) {
    let Some(shifter) = (unsafe { handle.as_mut() }) else { return };
    if inputs.is_null() || outputs.is_null() || frames <= 0 {
        return;
    }
    let channels = shifter.channels;
    let total = frames as usize;
    let mut done = 0usize;
    while done < total {
        let n = (total - done).min(MAX_FRAMES);
        for ch in 0..channels {
            let src = unsafe { *inputs.add(ch) };
            if src.is_null() {
                continue;
            }
            let src = unsafe { std::slice::from_raw_parts(src.add(done), n) };
            for (i, &x) in src.iter().enumerate() {
                shifter.interleaved_in[i * channels + ch] = x;
            }
        }
        let used = n * channels;
        shifter
            .stretch
            .process(&shifter.interleaved_in[..used], &mut shifter.interleaved_out[..used]);
        for ch in 0..channels {
            let dst = unsafe { *outputs.add(ch) };
            if dst.is_null() {
                continue;
            }
            let dst = unsafe { std::slice::from_raw_parts_mut(dst.add(done), n) };
            for (i, y) in dst.iter_mut().enumerate() {
                *y = shifter.interleaved_out[i * channels + ch];
            }
        }
        done += n;
    }
}

/// The delay from input to output, in samples (what the library reports for
/// its analysis and its synthesis together); 0 for a null handle.
#[no_mangle]
pub extern "C" fn parlova_shifter_latency(handle: *const Shifter) -> c_int {
    let Some(shifter) = (unsafe { handle.as_ref() }) else { return 0 };
    (shifter.stretch.input_latency() + shifter.stretch.output_latency()) as c_int
}

/// Deletes the shifter; null is ignored.
#[no_mangle]
pub extern "C" fn parlova_shifter_destroy(handle: *mut Shifter) {
    if !handle.is_null() {
        drop(unsafe { Box::from_raw(handle) });
    }
}
