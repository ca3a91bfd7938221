"""The MLX backend (Apple silicon), through mlx-audio and mlx-whisper.

The same models and the same conversion method as the PyTorch backend, in their
MLX conversions: "mlx-community/chatterbox-turbo-fp16" and
"mlx-community/Qwen3-TTS-12Hz-1.7B-Base-bf16" (the cache folders the app looks at
to tell whether a model is downloaded).
"""

from __future__ import annotations

import threading
from pathlib import Path

import numpy as np

from .. import audio, hub
from ..asr import MlxWhisper, Recogniser
from ..errors import RequestError
from ..references import VoicePrompt
from .base import Backend, LiveConverter, join_with_pauses, split_text
from .torch_backend import _Cache, _fit_to, _quiet_cuts

TURBO_REPO = "mlx-community/chatterbox-turbo-fp16"
QWEN_REPO = "mlx-community/Qwen3-TTS-12Hz-1.7B-Base-bf16"
_DECODER_RATE = 24000
_TOKENIZER_RATE = 16000
_TOKEN_SAMPLES_16K = 640


class MlxBackend(Backend):
    name = "mlx"

    def __init__(self, status):
        super().__init__(status)
        self._recogniser = MlxWhisper(status)
        self._lock = threading.RLock()
        self._models: dict[str, object] = {}
        self._turbo_voices = _Cache()

    def recogniser(self) -> Recogniser:
        return self._recogniser

    def _load(self, repo: str, label: str):
        if repo not in self._models:
            try:
                from mlx_audio.tts.utils import load_model
            except ImportError as e:
                raise RequestError(
                    f"The speech runtime for {label} isn't installed ({e}). Set up voice cloning again."
                ) from None
            path = hub.fetch(repo, label, self.status)
            self.status(f"Loading {label}…")
            self._models[repo] = load_model(Path(path))
        return self._models[repo]

    def _turbo_conditioning(self, prompt: VoicePrompt):
        tts = self._load(TURBO_REPO, "Chatterbox Turbo")

        def prepare():
            reference = prompt.audio
            shortest = int(5.05 * prompt.sample_rate)
            if len(reference) < shortest:
                reference = np.concatenate([reference, np.zeros(shortest - len(reference), np.float32)])
            tts.prepare_conditionals(reference, sample_rate=prompt.sample_rate)
            return tts._conds

        return tts, self._turbo_voices.get_or(prompt.key, prepare)

    def generate(self, model: str, prompt: VoicePrompt, text: str, seed: int) -> tuple[np.ndarray, int]:
        try:
            import mlx.core as mx
        except ImportError as e:
            raise RequestError(f"The speech runtime (MLX) isn't installed ({e}). Set up voice cloning again.") from None

        with self._lock:
            mx.random.seed(seed % (2 ** 32))
            parts = []
            if model == "qwen":
                tts = self._load(QWEN_REPO, "Best match (Qwen3-TTS)")
                reference = mx.array(prompt.audio)
                for piece in split_text(text, max_chars=600):
                    for result in tts.generate(text=piece, ref_audio=reference, ref_text=prompt.transcript):
                        parts.append(np.array(result.audio, dtype=np.float32).reshape(-1))
                rate = int(getattr(tts, "sample_rate", _DECODER_RATE))
            else:
                tts, conds = self._turbo_conditioning(prompt)
                tts._conds = conds
                for piece in split_text(text):
                    for result in tts.generate(text=piece):
                        parts.append(np.array(result.audio, dtype=np.float32).reshape(-1))
                rate = int(tts.sample_rate)
            return join_with_pauses(parts, rate), rate

    def _respeak(self, conds, speech_16k: np.ndarray, pad_front: bool) -> np.ndarray:
        import mlx.core as mx
        from mlx_audio.tts.models.chatterbox_turbo.models.s3tokenizer import log_mel_spectrogram

        tts = self._models[TURBO_REPO]
        pad = np.zeros((-len(speech_16k)) % _TOKEN_SAMPLES_16K, np.float32)
        speech_16k = np.concatenate([pad, speech_16k] if pad_front else [speech_16k, pad])
        mel = mx.expand_dims(log_mel_spectrogram(mx.array(speech_16k)), 0)
        tokens, _ = tts._s3tokenizer(mel, mx.array([mel.shape[2]]))
        wav, _ = tts.s3gen.inference(speech_tokens=tokens, ref_dict=conds.gen, n_cfm_timesteps=2)
        return np.array(wav, dtype=np.float32).reshape(-1)

    def prepare(self, prompt: VoicePrompt) -> None:
        with self._lock:
            self._turbo_conditioning(prompt)

    def convert(self, prompt: VoicePrompt, source: np.ndarray, sample_rate: int) -> np.ndarray:
        with self._lock:
            _, conds = self._turbo_conditioning(prompt)
            speech = audio.resample(source, sample_rate, _TOKENIZER_RATE)
            parts = []
            for piece in _quiet_cuts(speech, _TOKENIZER_RATE, 20.0):
                length = len(piece) * _DECODER_RATE // _TOKENIZER_RATE
                parts.append(_fit_to(self._respeak(conds, piece, pad_front=False), length))
        converted = np.concatenate(parts) if parts else np.zeros(0, np.float32)
        return _fit_to(audio.resample(converted, _DECODER_RATE, sample_rate), len(source))

    def live_converter(self, prompt: VoicePrompt, sample_rate: int) -> LiveConverter:
        with self._lock:
            _, conds = self._turbo_conditioning(prompt)
        return _LiveDecoder(self, conds, sample_rate)


class _LiveDecoder(LiveConverter):
    def __init__(self, backend: MlxBackend, conds, sample_rate: int):
        self.backend = backend
        self.conds = conds
        self.sample_rate = sample_rate

    def convert(self, window: np.ndarray, tail: int) -> np.ndarray:
        speech = audio.resample(window, self.sample_rate, _TOKENIZER_RATE)
        with self.backend._lock:
            out = self.backend._respeak(self.conds, speech, pad_front=True)
        out = audio.resample(out, _DECODER_RATE, self.sample_rate)
        return out[len(out) - tail:] if len(out) >= tail else out
