"""The PyTorch backend (Linux; CUDA when present, else CPU).

- "chatterbox-turbo": ChatterboxTurboTTS from chatterbox-tts, conditioned on the
  joined reference audio.
- "qwen": Qwen3-TTS 1.7B Base from qwen-tts, in-context cloning with the samples'
  transcripts.
- Conversion (clips, live streaming, "prepare"): speech-to-speech through the
  Chatterbox Turbo speech decoder: the input is turned into speech tokens by its
  tokenizer and decoded with the target voice's reference embedding, so words and
  timing stay the speaker's and the timbre becomes the voice's. It reuses the
  Turbo weights, so nothing else is downloaded.
- Transcription and the take check: faster-whisper.

Model runtimes are imported on first use, so the worker starts and answers at once.
"""

from __future__ import annotations

import os
import tempfile
import threading
from collections import OrderedDict

import numpy as np

from .. import audio, hub
from ..asr import FasterWhisper, Recogniser
from ..errors import RequestError
from ..references import VoicePrompt
from .base import Backend, LiveConverter, join_with_pauses, split_text

TURBO_REPO = "ResembleAI/chatterbox-turbo"
TURBO_FILES = ["*.safetensors", "*.json", "*.txt", "*.pt", "*.model"]
# What ChatterboxTurboTTS.from_local reads unconditionally.
TURBO_REQUIRED = ["ve.safetensors", "t3_turbo_v1.safetensors", "s3gen_meanflow.safetensors"]
QWEN_REPO = "Qwen/Qwen3-TTS-12Hz-1.7B-Base"
# What Qwen3TTSModel.from_pretrained reads: the model, its generation defaults,
# and the speech tokenizer in its own folder.
QWEN_REQUIRED = ["config.json", "generation_config.json", ("*.safetensors", "*.bin"),
                 "speech_tokenizer/config.json", "speech_tokenizer/preprocessor_config.json",
                 ("speech_tokenizer/*.safetensors", "speech_tokenizer/*.bin")]

_TOKENIZER_RATE = 16000
_DECODER_RATE = 24000
_TOKEN_SAMPLES_16K = 640  # one speech token is 40 ms
_DECODER_REFERENCE_SECONDS = 10.0
_CACHED_VOICES = 8


class _Cache(OrderedDict):
    """Least-recently-used cache of per-voice conditioning."""

    def get_or(self, key, make):
        if key in self:
            self.move_to_end(key)
            return self[key]
        value = make()
        self[key] = value
        while len(self) > _CACHED_VOICES:
            self.popitem(last=False)
        return value


def _missing_runtime(what: str, error: Exception) -> RequestError:
    return RequestError(
        f"The speech runtime for {what} isn't installed ({error}). Set up voice cloning again."
    )


class TorchBackend(Backend):
    name = "torch"

    def __init__(self, status):
        super().__init__(status)
        self._recogniser = FasterWhisper(status)
        # One model call at a time: requests and the live stream share the models.
        self._lock = threading.RLock()
        self._device: str | None = None
        self._turbo = None
        self._qwen = None
        self._turbo_voices = _Cache()
        self._decoder_voices = _Cache()
        self._qwen_voices = _Cache()

    def recogniser(self) -> Recogniser:
        return self._recogniser

    # Loading

    def _torch(self):
        try:
            import torch
        except ImportError as e:
            raise _missing_runtime("the voice models", e) from None
        return torch

    def device(self) -> str:
        if self._device is None:
            torch = self._torch()
            self._device = "cuda" if torch.cuda.is_available() else "cpu"
        return self._device

    def _where(self) -> str:
        return "the GPU" if self.device() == "cuda" else "the CPU"

    def _load_turbo(self):
        if self._turbo is None:
            try:
                from chatterbox.tts_turbo import ChatterboxTurboTTS
            except ImportError as e:
                raise _missing_runtime("Chatterbox Turbo", e) from None
            path = hub.fetch(TURBO_REPO, "Chatterbox Turbo", self.status, TURBO_FILES, TURBO_REQUIRED)
            self.status(f"Loading Chatterbox Turbo on {self._where()}…")
            self._turbo = ChatterboxTurboTTS.from_local(path, self.device())
        return self._turbo

    def _load_qwen(self):
        if self._qwen is None:
            torch = self._torch()
            try:
                from qwen_tts import Qwen3TTSModel
            except ImportError as e:
                raise _missing_runtime("Best match (Qwen3-TTS)", e) from None
            path = hub.fetch(QWEN_REPO, "Best match (Qwen3-TTS)", self.status, required=QWEN_REQUIRED)
            self.status(f"Loading Best match (Qwen3-TTS) on {self._where()}…")
            if self.device() == "cuda":
                options = {"device_map": "cuda:0", "dtype": torch.bfloat16}
            else:
                options = {"device_map": "cpu", "dtype": torch.float32}
            self._qwen = Qwen3TTSModel.from_pretrained(path, **options)
        return self._qwen

    def _seed(self, seed: int) -> None:
        torch = self._torch()
        import random

        seed = seed % (2 ** 32)
        random.seed(seed)
        np.random.seed(seed)
        torch.manual_seed(seed)
        if torch.cuda.is_available():
            torch.cuda.manual_seed_all(seed)

    # Generation

    def generate(self, model: str, prompt: VoicePrompt, text: str, seed: int) -> tuple[np.ndarray, int]:
        with self._lock:
            if model == "qwen":
                return self._generate_qwen(prompt, text, seed)
            return self._generate_turbo(prompt, text, seed)

    def _generate_turbo(self, prompt: VoicePrompt, text: str, seed: int) -> tuple[np.ndarray, int]:
        tts = self._load_turbo()

        def conditioning():
            # The model reads its reference from a file and wants a little more than 5 s.
            reference = prompt.audio
            shortest = int(5.05 * prompt.sample_rate)
            if len(reference) < shortest:
                reference = np.concatenate([reference, np.zeros(shortest - len(reference), np.float32)])
            with tempfile.TemporaryDirectory(prefix="parlova-ref-") as folder:
                path = os.path.join(folder, "reference.wav")
                audio.write_wav(path, reference, prompt.sample_rate)
                tts.prepare_conditionals(path)
            return tts.conds

        tts.conds = self._turbo_voices.get_or(prompt.key, conditioning)
        self._seed(seed)
        parts = []
        for piece in split_text(text):
            wav = tts.generate(piece)
            parts.append(wav.squeeze(0).detach().cpu().numpy().astype(np.float32))
        return join_with_pauses(parts, tts.sr), int(tts.sr)

    def _generate_qwen(self, prompt: VoicePrompt, text: str, seed: int) -> tuple[np.ndarray, int]:
        tts = self._load_qwen()
        voice = self._qwen_voices.get_or(
            prompt.key,
            lambda: tts.create_voice_clone_prompt(ref_audio=(prompt.audio, prompt.sample_rate),
                                                  ref_text=prompt.transcript),
        )
        self._seed(seed)
        parts = []
        rate = _DECODER_RATE
        for piece in split_text(text, max_chars=600):
            wavs, rate = tts.generate_voice_clone(text=piece, voice_clone_prompt=voice,
                                                  max_new_tokens=_qwen_most_codes(tts, piece))
            parts.append(np.asarray(wavs[0], dtype=np.float32))
        return join_with_pauses(parts, int(rate)), int(rate)

    # Conversion

    def _decoder_voice(self, prompt: VoicePrompt) -> dict:
        tts = self._load_turbo()

        def embed():
            reference = audio.resample(prompt.audio, prompt.sample_rate, _DECODER_RATE)
            reference = reference[: int(_DECODER_REFERENCE_SECONDS * _DECODER_RATE)]
            return tts.s3gen.embed_ref(reference, _DECODER_RATE, device=self.device())

        return self._decoder_voices.get_or(prompt.key, embed)

    def _respeak(self, voice: dict, speech_16k: np.ndarray, pad_front: bool) -> np.ndarray:
        """Speech tokens of the input, decoded in the voice; 24 kHz out.

        The input is padded with silence to whole tokens: in front for live windows,
        whose end is what counts, behind for clips."""
        tts = self._load_turbo()
        torch = self._torch()
        pad = np.zeros((-len(speech_16k)) % _TOKEN_SAMPLES_16K, np.float32)
        speech_16k = np.concatenate([pad, speech_16k] if pad_front else [speech_16k, pad])
        with torch.inference_mode():
            tokens, _ = tts.s3gen.tokenizer([speech_16k.astype(np.float32)])
            wav, _ = tts.s3gen.inference(speech_tokens=tokens.to(self.device()), ref_dict=voice,
                                         n_cfm_timesteps=2)
        return wav.squeeze(0).detach().float().cpu().numpy()

    def prepare(self, prompt: VoicePrompt) -> None:
        with self._lock:
            self._decoder_voice(prompt)

    def convert(self, prompt: VoicePrompt, source: np.ndarray, sample_rate: int) -> np.ndarray:
        with self._lock:
            voice = self._decoder_voice(prompt)
            tts = self._load_turbo()
            speech = audio.resample(source, sample_rate, _TOKENIZER_RATE)
            # Long clips go in pieces of up to 20 s, cut at the quietest moment near each end.
            parts = []
            for piece in _quiet_cuts(speech, _TOKENIZER_RATE, 20.0):
                length = len(piece) * _DECODER_RATE // _TOKENIZER_RATE
                parts.append(_fit_to(self._respeak(voice, piece, pad_front=False), length))
            converted = np.concatenate(parts) if parts else np.zeros(0, np.float32)
            try:
                converted = tts.watermarker.apply_watermark(converted, sample_rate=_DECODER_RATE)
            except Exception:
                pass
        out = audio.resample(np.asarray(converted, np.float32), _DECODER_RATE, sample_rate)
        return _fit_to(out, len(source))

    def live_converter(self, prompt: VoicePrompt, sample_rate: int) -> LiveConverter:
        with self._lock:
            voice = self._decoder_voice(prompt)
        return _LiveDecoder(self, voice, sample_rate)


class _LiveDecoder(LiveConverter):
    def __init__(self, backend: TorchBackend, voice: dict, sample_rate: int):
        self.backend = backend
        self.voice = voice
        self.sample_rate = sample_rate

    def convert(self, window: np.ndarray, tail: int) -> np.ndarray:
        speech = audio.resample(window, self.sample_rate, _TOKENIZER_RATE)
        with self.backend._lock:
            out = self.backend._respeak(self.voice, speech, pad_front=True)
        out = audio.resample(out, _DECODER_RATE, self.sample_rate)
        return out[len(out) - tail:] if len(out) >= tail else out


def _qwen_most_codes(tts, text: str) -> int:
    """How many speech codes a take of `text` may run to.

    A take ends when the model emits its end code; when that never comes, the
    model's own limit (2048 codes, nearly three minutes) would be spoken, taking
    many minutes on a CPU. Speech runs at about 15 characters a second; a take may
    last 3 s plus one second per 5 characters, three times slower than that."""
    try:
        tokenizer = tts.model.speech_tokenizer
        codes_per_second = tokenizer.get_output_sample_rate() / tokenizer.get_decode_upsample_rate()
    except Exception:
        codes_per_second = 12.5
    wanted = int(np.ceil(codes_per_second * (3.0 + len(text) / 5.0)))
    configured = (getattr(tts, "generate_defaults", None) or {}).get("max_new_tokens", 2048)
    return max(1, min(int(configured), wanted))


def _fit_to(x: np.ndarray, length: int) -> np.ndarray:
    if len(x) >= length:
        return x[:length]
    return np.concatenate([x, np.zeros(length - len(x), np.float32)])


def _quiet_cuts(x: np.ndarray, rate: int, longest: float) -> list[np.ndarray]:
    size = int(longest * rate)
    if len(x) <= size:
        return [x]
    pieces = []
    start = 0
    frame = rate // 50
    while len(x) - start > size:
        # The quietest 20 ms frame in the last quarter of the piece.
        lo, hi = start + size * 3 // 4, start + size
        region = x[lo:hi]
        frames = region[: len(region) // frame * frame].reshape(-1, frame)
        cut = lo + int(np.argmin((frames ** 2).sum(axis=1))) * frame + frame // 2
        pieces.append(x[start:cut])
        start = cut
    pieces.append(x[start:])
    return pieces
