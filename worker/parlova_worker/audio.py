"""Audio file input and output, resampling, pitch estimation and a simple pitch shifter.

Everything here works on mono 32-bit float numpy arrays and needs only numpy and
soundfile (with ffmpeg as a fallback decoder), so the worker starts fast and the
test backend runs without any model runtime.
"""

from __future__ import annotations

import base64
import math
import os
import shutil
import subprocess
import threading
from pathlib import Path

import numpy as np

from .errors import RequestError

# The rate at which the speech models take and give audio; references and takes
# are handled at this rate unless a caller asks for another.
MODEL_RATE = 24000

# Above this many input samples the FFT resampler works in overlapping pieces so
# that long recordings do not need gigabytes of spectrum.
_RESAMPLE_PIECE = 1 << 20


def _shorten(text: str, most: int = 120) -> str:
    return text if len(text) <= most else text[: most - 1] + "…"


def _display_name(path: str) -> str:
    return _shorten(Path(path).name or path, 80)


def read_audio(path: str, sample_rate: int = MODEL_RATE, what: str = "audio file", hint: str = "") -> np.ndarray:
    """Reads any audio file as mono float32 at `sample_rate`.

    libsndfile handles WAV, CAF, AIFF, FLAC, OGG and MP3; anything else (m4a, for
    instance) goes through ffmpeg when it is installed.
    """
    p = Path(path)
    try:
        exists, folder = p.exists(), p.is_dir()
    except OSError as e:
        raise RequestError(f"The {what} “{_display_name(path)}” can't be opened: {e.strerror or e}.") from None
    if not exists:
        raise RequestError(f"The {what} “{_display_name(path)}” is missing ({_shorten(path)}).{hint}")
    if folder:
        raise RequestError(f"The {what} “{_display_name(path)}” is a folder, not an audio file.")
    try:
        import soundfile as sf

        data, rate = sf.read(str(p), dtype="float32", always_2d=True)
        audio = data.mean(axis=1) if data.shape[1] > 1 else data[:, 0]
        audio = resample(np.ascontiguousarray(audio, dtype=np.float32), int(rate), sample_rate)
    except RequestError:
        raise
    except Exception:
        audio = _read_with_ffmpeg(p, sample_rate, what)
    audio = np.nan_to_num(audio, nan=0.0, posinf=0.0, neginf=0.0).astype(np.float32, copy=False)
    return audio


def _read_with_ffmpeg(p: Path, sample_rate: int, what: str) -> np.ndarray:
    unreadable = RequestError(
        f"Couldn't read the {what} “{_display_name(str(p))}”: it isn't an audio file that can be opened."
    )
    ffmpeg = shutil.which("ffmpeg")
    if ffmpeg is None:
        raise unreadable
    try:
        done = subprocess.run(
            [ffmpeg, "-nostdin", "-v", "error", "-i", str(p), "-vn",
             "-f", "f32le", "-ac", "1", "-ar", str(sample_rate), "-"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            timeout=600, check=False,
        )
    except (OSError, subprocess.SubprocessError):
        raise unreadable from None
    if done.returncode != 0:
        raise unreadable
    usable = len(done.stdout) - len(done.stdout) % 4
    return np.frombuffer(done.stdout[:usable], dtype="<f4").astype(np.float32)


def write_wav(path: str, audio: np.ndarray, sample_rate: int) -> None:
    """Writes 16-bit PCM WAV, atomically: a reader never sees a half-written take."""
    import soundfile as sf

    target = Path(path)
    try:
        target.parent.mkdir(parents=True, exist_ok=True)
    except OSError as e:
        raise RequestError(
            f"Couldn't create the folder for {_display_name(str(target))}: {e.strerror or e}."
        ) from None
    temporary = target.with_name(f".parlova-{os.getpid()}-{threading.get_ident()}.part")
    clipped = np.clip(np.nan_to_num(audio), -1.0, 1.0)
    try:
        sf.write(str(temporary), clipped, int(sample_rate), subtype="PCM_16", format="WAV")
        os.replace(temporary, target)
    except Exception as e:
        try:
            temporary.unlink()
        except OSError:
            pass
        reason = getattr(e, "strerror", None) or str(e) or type(e).__name__
        raise RequestError(f"Couldn't write the audio file {_shorten(str(target))}: {reason}.") from None


def resample(x: np.ndarray, rate_in: int, rate_out: int) -> np.ndarray:
    """Band-limited resampling through the spectrum (an ideal low-pass)."""
    x = np.asarray(x, dtype=np.float32)
    if rate_in == rate_out or len(x) == 0:
        return x.copy()
    g = math.gcd(int(rate_in), int(rate_out))
    step_in, step_out = rate_in // g, rate_out // g
    n_out = (len(x) * step_out) // step_in
    if len(x) <= _RESAMPLE_PIECE:
        return _resample_whole(x, n_out)
    # Long input: pieces whose lengths map to whole output samples, each with a
    # margin on both sides so that the spectral method's wrap-around stays outside.
    piece = step_in * max(1, _RESAMPLE_PIECE // step_in)
    margin = step_in * max(1, 8192 // step_in)
    out = np.empty(n_out, dtype=np.float32)
    written = 0
    for start in range(0, len(x), piece):
        lo = max(0, start - margin)
        hi = min(len(x), start + piece + margin)
        seg = x[lo:hi]
        seg_out = _resample_whole(seg, (len(seg) * step_out) // step_in)
        skip = ((start - lo) * step_out) // step_in
        want = min(n_out - written, (min(piece, len(x) - start) * step_out) // step_in)
        out[written:written + want] = seg_out[skip:skip + want]
        written += want
    return out[:written]


def _resample_whole(x: np.ndarray, n_out: int) -> np.ndarray:
    if n_out <= 0:
        return np.zeros(0, dtype=np.float32)
    spectrum = np.fft.rfft(x.astype(np.float64))
    bins = n_out // 2 + 1
    if bins <= len(spectrum):
        spectrum = spectrum[:bins]
    else:
        spectrum = np.concatenate([spectrum, np.zeros(bins - len(spectrum), dtype=spectrum.dtype)])
    y = np.fft.irfft(spectrum, n_out) * (n_out / len(x))
    return y.astype(np.float32)


def estimate_pitch(x: np.ndarray, sample_rate: int, fmin: float = 60.0, fmax: float = 420.0) -> float | None:
    """Median fundamental frequency of the voiced parts, in Hz; None for unvoiced audio.

    YIN at 8 kHz: per 30 ms frame, every 10 ms, the cumulative-mean-normalised
    difference function; the first dip under the threshold gives the period.
    Quiet frames (below 5% of the loudest frame's energy) are not considered.
    """
    rate = 8000
    y = np.asarray(x, dtype=np.float32)
    if sample_rate != rate:
        y = resample(y, sample_rate, rate)
    width = int(0.03 * rate)
    max_lag = int(rate / fmin) + 1
    min_lag = max(2, int(rate / fmax))
    hop = int(0.01 * rate)
    span = width + max_lag
    if len(y) < span:
        return None
    frames = np.lib.stride_tricks.sliding_window_view(y.astype(np.float64), span)[::hop]
    head = frames[:, :width]
    energy = (head ** 2).sum(axis=1)
    loudest = energy.max()
    if loudest <= width * 1e-7:
        return None
    frames = frames[energy > loudest * 0.05]
    head = frames[:, :width]

    # d(t) = sum over the window of (x[j] - x[j+t])^2, from energies and one FFT
    # cross-correlation per frame.
    n_fft = 1 << int(np.ceil(np.log2(span + width)))
    cross = np.fft.irfft(
        np.fft.rfft(frames, n_fft, axis=1) * np.conj(np.fft.rfft(head, n_fft, axis=1)), n_fft, axis=1
    )[:, :max_lag + 1]
    squares = np.cumsum(np.concatenate([np.zeros((len(frames), 1)), frames ** 2], axis=1), axis=1)
    lags = np.arange(max_lag + 1)
    shifted_energy = squares[:, lags + width] - squares[:, lags]
    diff = squares[:, width:width + 1] + shifted_energy - 2 * cross
    diff[:, 0] = 0.0
    running = np.cumsum(diff[:, 1:], axis=1)
    cmnd = np.ones_like(diff)
    cmnd[:, 1:] = diff[:, 1:] * lags[1:] / np.maximum(running, 1e-12)

    region = cmnd[:, min_lag:max_lag]
    below = region < 0.15
    first = np.where(below.any(axis=1), below.argmax(axis=1), region.argmin(axis=1))
    rows = np.arange(len(region))
    # Walk from the first dip down to its local minimum.
    for _ in range(max_lag):
        step = (first + 1 < region.shape[1]) & (region[rows, np.minimum(first + 1, region.shape[1] - 1)] < region[rows, first])
        if not step.any():
            break
        first = first + step
    voiced = region[rows, first] < 0.35
    if voiced.sum() < 3:
        return None
    lag = first[voiced] + min_lag
    d = cmnd[voiced]
    idx = np.arange(len(lag))
    a, b, c = d[idx, lag - 1], d[idx, lag], d[idx, np.minimum(lag + 1, max_lag)]
    denom = a - 2 * b + c
    shift = np.where(np.abs(denom) > 1e-12, 0.5 * (a - c) / np.where(denom == 0, 1, denom), 0.0)
    f0 = rate / (lag + np.clip(shift, -0.5, 0.5))
    return float(np.median(f0))


def shift_pitch(x: np.ndarray, ratio: float, sample_rate: int) -> np.ndarray:
    """Phase-vocoder pitch shift by `ratio`, keeping the duration.

    Each STFT bin's magnitude moves to the bin `ratio` times higher, carrying its
    measured instantaneous frequency (scaled by `ratio`); phases are re-accumulated
    from those frequencies. Formants move with the pitch: good enough for a
    stand-in voice, cheap and fully deterministic.
    """
    x = np.asarray(x, dtype=np.float32)
    n = len(x)
    if n == 0 or abs(ratio - 1.0) < 1e-4:
        return x.copy()
    size = 1 << max(8, int(round(math.log2(0.04 * sample_rate))))
    hop = size // 4
    window = np.hanning(size)
    padded = np.concatenate([np.zeros(size), x.astype(np.float64), np.zeros(size + hop)])
    frames = np.lib.stride_tricks.sliding_window_view(padded, size)[::hop] * window
    spectrum = np.fft.rfft(frames, axis=1)
    magnitude = np.abs(spectrum)
    phase = np.angle(spectrum)
    bins = size // 2 + 1
    expected = 2 * np.pi * hop * np.arange(bins) / size
    advance = np.diff(phase, axis=0, prepend=phase[:1] - expected) - expected
    advance = (advance + np.pi) % (2 * np.pi) - np.pi
    frequency = (expected + advance) / hop  # radians per sample, per frame and bin

    # Bin k moves to round(k * ratio); several bins landing on one add up, and the
    # target carries their magnitude-weighted frequency.
    target = np.rint(np.arange(bins) * ratio).astype(int)
    keep = target < bins
    mapping = np.zeros((bins, bins))
    mapping[np.arange(bins)[keep], target[keep]] = 1.0
    new_magnitude = magnitude @ mapping
    weighted = (magnitude * frequency * ratio) @ mapping
    new_frequency = np.where(new_magnitude > 1e-12, weighted / np.maximum(new_magnitude, 1e-12), 0.0)
    new_phase = np.cumsum(new_frequency * hop, axis=0)
    frames_out = np.fft.irfft(new_magnitude * np.exp(1j * new_phase), n=size, axis=1) * window

    out = np.zeros(len(padded) + size)
    norm = np.zeros(len(padded) + size)
    for i in range(4):
        # Frames i, i+4, i+8... sit a whole frame apart and tile without overlap.
        part = frames_out[i::4]
        if len(part) == 0:
            continue
        start = i * hop
        run = part.reshape(-1)
        out[start:start + len(run)] += run
        norm[start:start + len(run)] += np.tile(window ** 2, len(part))
    y = out[size:size + n] / np.maximum(norm[size:size + n], 1e-3)
    return y.astype(np.float32)


def peak_normalise(x: np.ndarray, peak: float = 0.89) -> np.ndarray:
    top = float(np.max(np.abs(x))) if len(x) else 0.0
    if top < 1e-6:
        return x.astype(np.float32, copy=True)
    return (x * (peak / top)).astype(np.float32)


def encode_pcm(samples: np.ndarray) -> str:
    """Base64 of 32-bit little-endian floats: the form of "stream" and "stream_out" audio."""
    return base64.b64encode(np.asarray(samples, dtype="<f4").tobytes()).decode("ascii")


def decode_pcm(text: str) -> np.ndarray:
    """Inverse of encode_pcm; a trailing partial sample is dropped, non-finite values become 0."""
    raw = base64.b64decode(text, validate=True)
    usable = len(raw) - len(raw) % 4
    samples = np.frombuffer(raw[:usable], dtype="<f4").astype(np.float32)
    return np.nan_to_num(samples, nan=0.0, posinf=0.0, neginf=0.0)
