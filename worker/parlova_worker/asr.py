"""Speech recognisers for the "transcribe" request and the take check.

faster-whisper (CTranslate2) on Linux, mlx-whisper on Apple silicon. The model is
an English Whisper model: "base.en" unless PARLOVA_WHISPER_MODEL names another
size, a model repository, or a local folder holding a converted model.
"""

from __future__ import annotations

import os
import threading
from pathlib import Path

import numpy as np

from . import hub
from .errors import RequestError
from .hub import Status

RATE = 16000  # Whisper listens at 16 kHz
# What faster-whisper loads from a converted model's folder.
WHISPER_REQUIRED = ["model.bin", "config.json"]


def _is_silent(audio: np.ndarray) -> bool:
    return len(audio) < RATE // 10 or float(np.sqrt(np.mean(np.square(audio, dtype=np.float64)))) < 1e-4


class Recogniser:
    """Loads its model on first use; one transcription at a time."""

    def __init__(self, status: Status):
        self._status = status
        self._lock = threading.Lock()
        self._model = None

    def transcribe(self, audio: np.ndarray, checking: bool = False) -> str:
        """English text with punctuation; "" when nothing is said.

        `checking` is set for the take check, which must hear every word, so voice
        activity trimming (meant to keep silence from being heard as words) is off.
        """
        if _is_silent(audio):
            return ""
        with self._lock:
            if self._model is None:
                self._model = self._load()
            return self._run(np.ascontiguousarray(audio, dtype=np.float32), checking).strip()

    def _model_name(self, default: str) -> str:
        return os.environ.get("PARLOVA_WHISPER_MODEL", "").strip() or default

    def _load(self):
        raise NotImplementedError

    def _run(self, audio: np.ndarray, checking: bool) -> str:
        raise NotImplementedError


class FasterWhisper(Recogniser):
    def _load(self):
        try:
            import ctranslate2
            from faster_whisper import WhisperModel
        except ImportError:
            raise RequestError(
                "The speech recogniser (faster-whisper) isn't installed. Set up voice cloning again."
            ) from None
        name = self._model_name("base.en")
        if Path(name).is_dir():
            path = name
        else:
            repo = name if "/" in name else f"Systran/faster-whisper-{name}"
            path = hub.fetch(repo, f"the speech recogniser {name}", self._status, required=WHISPER_REQUIRED)
        cuda = False
        try:
            cuda = ctranslate2.get_cuda_device_count() > 0
        except Exception:
            pass
        try:
            return WhisperModel(path, device="cuda" if cuda else "cpu",
                                compute_type="float16" if cuda else "int8")
        except Exception as e:
            raise RequestError(f"Couldn't load the speech recogniser: {e}.") from None

    def _run(self, audio: np.ndarray, checking: bool) -> str:
        segments, _info = self._model.transcribe(
            audio, language="en", beam_size=5, vad_filter=not checking,
            condition_on_previous_text=False,
        )
        return " ".join(segment.text.strip() for segment in segments)


class MlxWhisper(Recogniser):
    def _load(self):
        try:
            import mlx_whisper  # noqa: F401
        except ImportError:
            raise RequestError(
                "The speech recogniser (mlx-whisper) isn't installed. Set up voice cloning again."
            ) from None
        name = self._model_name("mlx-community/whisper-base.en-mlx")
        if Path(name).is_dir():
            return name
        return hub.fetch(name, "the speech recogniser", self._status)

    def _run(self, audio: np.ndarray, checking: bool) -> str:
        import mlx_whisper

        result = mlx_whisper.transcribe(audio, path_or_hf_repo=self._model, language="en",
                                        condition_on_previous_text=False)
        return str(result.get("text", ""))
