"""How models listen to samples, and the live profiles: plain data, cheap to import."""

from __future__ import annotations

from dataclasses import dataclass


@dataclass(frozen=True)
class ModelRules:
    """How one model listens to a voice's samples."""

    label: str
    default_max_seconds: float
    min_seconds: float
    whole_samples: bool  # a sample that does not fit is skipped rather than cut
    needs_transcripts: bool


MODELS = {
    "chatterbox-turbo": ModelRules("Chatterbox Turbo", 15.0, 5.0, whole_samples=False, needs_transcripts=False),
    "qwen": ModelRules("Best match", 40.0, 3.0, whole_samples=True, needs_transcripts=True),
}

# Conversion (clip and live) conditions the decoder on the first ten seconds or so.
CONVERSION = ModelRules("Voice conversion", 15.0, 3.0, whole_samples=False, needs_transcripts=False)


@dataclass(frozen=True)
class Sample:
    path: str
    transcript: str


@dataclass(frozen=True)
class Profile:
    """A live delay setting: block length, and how much earlier audio each block is converted with."""

    block_seconds: float
    context_seconds: float


PROFILES = {
    "fastest": Profile(0.20, 0.60),
    "balanced": Profile(0.30, 1.20),
    "clearest": Profile(0.50, 2.00),
}
DEFAULT_PROFILE = "balanced"
DEFAULT_RATE = 24000
