"""The test backend: deterministic speech-like audio without any model weights.

Selected only explicitly (PARLOVA_WORKER_BACKEND=test or --test-backend); the app
never does. Speech comes from espeak-ng, with the voice (male or female variant)
and base pitch chosen so that the result's pitch lands near the reference's, and
the delivery (speed, pitch offset) derived from the seed, so one seed always gives
the same file. Conversion shifts the pitch of the input toward the reference's.
Transcription and the take check use the real recogniser.

PARLOVA_TEST_SKIP_WORDS (comma-separated words) makes takes leave those words
out, so that tests can see the take check catch a take with missing words.
PARLOVA_TEST_PASSTHROUGH=1 makes live conversion return its input unchanged, so
that the streaming path itself can be timed without any conversion work.
"""

from __future__ import annotations

import os
import shutil
import subprocess
import tempfile
import threading

import numpy as np

from .. import audio
from ..asr import FasterWhisper, Recogniser
from ..errors import RequestError
from ..references import VoicePrompt
from .base import Backend, LiveConverter, split_text

_VOICES = ("en-us", "en-us+f3")
_PITCH_STEPS = (0, 25, 50, 75, 99)
_CALIBRATION_TEXT = "Hello there, this is how my voice sounds today."


def _espeak() -> str:
    found = shutil.which("espeak-ng")
    if found is None:
        raise RequestError("The test voice needs espeak-ng. Install it with: apt-get install espeak-ng")
    return found


def _speak(text: str, voice: str, pitch: int, speed: int) -> np.ndarray:
    with tempfile.TemporaryDirectory(prefix="parlova-espeak-") as folder:
        wav = os.path.join(folder, "speech.wav")
        try:
            done = subprocess.run(
                [_espeak(), "-v", voice, "-p", str(pitch), "-s", str(speed), "-w", wav, "--stdin"],
                input=text.encode("utf-8", errors="replace"), stdout=subprocess.DEVNULL,
                stderr=subprocess.PIPE, timeout=120, check=False,
            )
        except (OSError, subprocess.SubprocessError) as e:
            raise RequestError(f"The test voice (espeak-ng) failed to run: {e}.") from None
        if done.returncode != 0 or not os.path.exists(wav):
            raise RequestError("The test voice (espeak-ng) couldn't speak that text.")
        return audio.read_audio(wav, audio.MODEL_RATE)


class _PitchFollower(LiveConverter):
    """Shifts each window's pitch toward the reference's; unvoiced windows keep the last ratio."""

    def __init__(self, target: float | None, sample_rate: int):
        self.target = target
        self.sample_rate = sample_rate
        self.ratio = 1.0

    def convert(self, window: np.ndarray, tail: int) -> np.ndarray:
        if self.target:
            heard = audio.estimate_pitch(window, self.sample_rate)
            if heard:
                self.ratio = float(np.clip(self.target / heard, 0.5, 2.0))
        shifted = audio.shift_pitch(window, self.ratio, self.sample_rate)
        return shifted[len(shifted) - tail:] if tail else shifted[:0]


class _Passthrough(LiveConverter):
    def convert(self, window: np.ndarray, tail: int) -> np.ndarray:
        return window[len(window) - tail:]


class SyntheticBackend(Backend):
    name = "test"

    def __init__(self, status):
        super().__init__(status)
        self._recogniser = FasterWhisper(status)
        self._calibration: dict[str, list[float]] = {}
        self._pitches: dict[str, float | None] = {}
        self._lock = threading.Lock()

    def recogniser(self) -> Recogniser:
        return self._recogniser

    def _reference_pitch(self, prompt: VoicePrompt) -> float | None:
        with self._lock:
            if prompt.key not in self._pitches:
                self._pitches[prompt.key] = audio.estimate_pitch(prompt.audio, prompt.sample_rate)
            return self._pitches[prompt.key]

    def _pitch_table(self, voice: str) -> list[float]:
        """Measured pitch of the espeak voice at each pitch setting (monotonic)."""
        if voice not in self._calibration:
            table = []
            for step in _PITCH_STEPS:
                measured = audio.estimate_pitch(_speak(_CALIBRATION_TEXT, voice, step, 175), audio.MODEL_RATE)
                table.append(measured or (table[-1] if table else 100.0))
            self._calibration[voice] = list(np.maximum.accumulate(table))
        return self._calibration[voice]

    def _voice_for(self, target: float | None) -> tuple[str, int, float]:
        """espeak voice and pitch setting nearest the target, and the pitch they give."""
        if not target:
            return _VOICES[0], 50, 0.0
        best = None
        for voice in _VOICES:
            table = self._pitch_table(voice)
            setting = float(np.interp(target, table, _PITCH_STEPS))
            reached = float(np.interp(setting, _PITCH_STEPS, table))
            miss = abs(np.log(reached / target))
            # Prefer the voice whose range holds the target nearest its middle.
            middle = abs(setting - 50) / 100
            score = (round(miss, 2), middle)
            if best is None or score < best[0]:
                best = (score, voice, int(round(setting)), reached)
        return best[1], best[2], best[3]

    def generate(self, model: str, prompt: VoicePrompt, text: str, seed: int) -> tuple[np.ndarray, int]:
        skipped = {w.strip().lower() for w in os.environ.get("PARLOVA_TEST_SKIP_WORDS", "").split(",") if w.strip()}
        if skipped:
            text = " ".join(w for w in text.split() if w.strip(".,!?;:\"'").lower() not in skipped)
        target = self._reference_pitch(prompt)
        voice, setting, reached = self._voice_for(target)
        # The seed picks the delivery: speed and a small pitch offset.
        speed = 150 + (seed * 7919) % 31
        setting = int(np.clip(setting + (seed * 104729) % 9 - 4, 0, 99))
        parts = [_speak(piece, voice, setting, speed) for piece in split_text(text)]
        speech = np.concatenate(parts) if parts else np.zeros(0, dtype=np.float32)
        if target and reached and abs(np.log(target / reached)) > np.log(1.15):
            # Beyond espeak's range: shift the rest of the way.
            speech = audio.shift_pitch(speech, float(np.clip(target / reached, 0.5, 2.0)), audio.MODEL_RATE)
        return audio.peak_normalise(speech), audio.MODEL_RATE

    def prepare(self, prompt: VoicePrompt) -> None:
        self._reference_pitch(prompt)

    def convert(self, prompt: VoicePrompt, source: np.ndarray, sample_rate: int) -> np.ndarray:
        target = self._reference_pitch(prompt)
        heard = audio.estimate_pitch(source, sample_rate)
        ratio = float(np.clip(target / heard, 0.5, 2.0)) if target and heard else 1.0
        return audio.shift_pitch(source, ratio, sample_rate)

    def live_converter(self, prompt: VoicePrompt, sample_rate: int) -> LiveConverter:
        if os.environ.get("PARLOVA_TEST_PASSTHROUGH") == "1":
            return _Passthrough()
        return _PitchFollower(self._reference_pitch(prompt), sample_rate)
