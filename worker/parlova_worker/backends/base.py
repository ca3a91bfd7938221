"""What every speech backend offers the worker."""

from __future__ import annotations

import re

import numpy as np

from ..asr import Recogniser
from ..hub import Status
from ..references import VoicePrompt


class LiveConverter:
    """Re-speaks live audio in a prepared voice, one window at a time."""

    def convert(self, window: np.ndarray, tail: int) -> np.ndarray:
        """Converts `window` (earlier context followed by the new block) and returns
        the converted audio of its last `tail` samples, at the window's rate."""
        raise NotImplementedError


class Backend:
    name = "base"

    def __init__(self, status: Status):
        self.status = status

    def recogniser(self) -> Recogniser:
        raise NotImplementedError

    def generate(self, model: str, prompt: VoicePrompt, text: str, seed: int) -> tuple[np.ndarray, int]:
        """Speaks `text` in the prompt's voice; returns mono float32 audio and its rate."""
        raise NotImplementedError

    def prepare(self, prompt: VoicePrompt) -> None:
        """Loads the conversion model and computes the voice's conditioning ahead of use."""
        raise NotImplementedError

    def convert(self, prompt: VoicePrompt, source: np.ndarray, sample_rate: int) -> np.ndarray:
        """Re-speaks a whole clip in the voice, at the clip's rate and about its length."""
        raise NotImplementedError

    def live_converter(self, prompt: VoicePrompt, sample_rate: int) -> LiveConverter:
        raise NotImplementedError


def split_text(text: str, max_chars: int = 280) -> list[str]:
    """Splits long text at sentence ends (then at commas) into pieces a model speaks well."""
    text = " ".join(text.split())
    if len(text) <= max_chars:
        return [text]
    sentences = re.split(r"(?<=[.!?;])\s+", text)
    pieces: list[str] = []
    for sentence in sentences:
        while len(sentence) > max_chars:
            cut = sentence.rfind(", ", 0, max_chars)
            if cut <= 0:
                cut = sentence.rfind(" ", 0, max_chars)
            if cut <= 0:
                cut = max_chars
            pieces.append(sentence[: cut + 1].strip())
            sentence = sentence[cut + 1:].strip()
        if pieces and len(pieces[-1]) + 1 + len(sentence) <= max_chars:
            pieces[-1] = pieces[-1] + " " + sentence
        elif sentence:
            pieces.append(sentence)
    return [p for p in pieces if p]


def join_with_pauses(parts: list[np.ndarray], sample_rate: int, pause: float = 0.15) -> np.ndarray:
    gap = np.zeros(int(pause * sample_rate), dtype=np.float32)
    out: list[np.ndarray] = []
    for i, part in enumerate(parts):
        if i:
            out.append(gap)
        out.append(np.asarray(part, dtype=np.float32))
    return np.concatenate(out) if out else np.zeros(0, dtype=np.float32)


def fit_length(audio: np.ndarray, length: int) -> np.ndarray:
    """The last `length` samples, padded with leading silence when there are fewer."""
    audio = np.asarray(audio, dtype=np.float32)
    if len(audio) >= length:
        return audio[len(audio) - length:]
    return np.concatenate([np.zeros(length - len(audio), dtype=np.float32), audio])
