"""Voice samples of a request, and the reference audio a model listens to."""

from __future__ import annotations

import hashlib
import os
from dataclasses import dataclass, field

import numpy as np

from . import audio
from .errors import RequestError
from .rules import ModelRules, Sample

# Below this many seconds left under the limit, further samples are not worth taking.
_SMALLEST_USEFUL = 0.5


@dataclass
class VoicePrompt:
    """The reference audio, in sample order, cut to the model's limit."""

    audio: np.ndarray
    sample_rate: int
    transcript: str
    samples_used: int
    key: str  # identifies the audio and transcripts, for caching conditioning
    cache: dict = field(default_factory=dict)

    @property
    def seconds(self) -> float:
        return len(self.audio) / self.sample_rate


def load_prompt(samples: list[Sample], max_seconds: float, rules: ModelRules,
                sample_rate: int = audio.MODEL_RATE) -> VoicePrompt:
    """Concatenates the samples in order, the first ones first, up to `max_seconds`.

    With `rules.whole_samples` a sample that does not fit in what is left is
    skipped, except the first, which is always used whole.
    """
    if not samples:
        raise RequestError("This voice has no samples yet. Record or add a sample first.")
    pieces: list[np.ndarray] = []
    transcripts: list[str] = []
    taken = 0.0
    digest = hashlib.sha256(f"{rules.label}|{max_seconds}|{sample_rate}".encode())
    for sample in samples:
        remaining = max_seconds - taken
        if remaining < _SMALLEST_USEFUL and pieces:
            break
        if rules.needs_transcripts and not sample.transcript.strip():
            raise RequestError(f"{rules.label} needs a transcript for every sample it uses.")
        clip = audio.read_audio(sample.path, sample_rate, what="voice sample",
                                hint=" Remove it from the voice, or add it again.")
        seconds = len(clip) / sample_rate
        if seconds <= remaining:
            pieces.append(clip)
        elif not pieces and rules.whole_samples:
            pieces.append(clip)
        elif rules.whole_samples:
            continue
        else:
            pieces.append(clip[: int(remaining * sample_rate)])
        taken += len(pieces[-1]) / sample_rate
        transcripts.append(sample.transcript.strip())
        try:
            stat = os.stat(sample.path)
            digest.update(f"{sample.path}|{stat.st_size}|{stat.st_mtime_ns}|{sample.transcript}".encode())
        except OSError:
            digest.update(sample.path.encode())
    joined = np.concatenate(pieces) if pieces else np.zeros(0, dtype=np.float32)
    seconds = len(joined) / sample_rate
    if seconds < rules.min_seconds:
        raise RequestError(
            f"The voice samples hold only {seconds:.1f} s of audio; {rules.label} needs at least "
            f"{rules.min_seconds:g} s. Record a longer sample."
        )
    return VoicePrompt(
        audio=joined.astype(np.float32, copy=False),
        sample_rate=sample_rate,
        transcript=" ".join(t for t in transcripts if t),
        samples_used=len(pieces),
        key=digest.hexdigest(),
    )
