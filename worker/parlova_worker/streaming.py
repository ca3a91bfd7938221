"""Live conversion: input audio in, converted blocks out, in order.

Input arrives as "stream" lines of any size. It is cut into blocks of the
profile's length; each block is converted together with the audio just before
it (the context), which lets the model hear whole syllables, and exactly one
block of converted audio goes out per block in. Longer blocks and context give
clearer words at the cost of delay.
"""

from __future__ import annotations

import queue
import sys
import threading
import time
from collections import deque
from typing import Callable

import numpy as np

from . import audio
from .backends.base import LiveConverter, fit_length
from .rules import Profile


# Input that has waited longer than this when its turn comes is skipped: live
# speech must stay live when conversion is slower than real time.
_MOST_BEHIND_SECONDS = 2.0

_STOP = object()


class StreamSession:
    """One live stream. `feed` and `stop` are called from the reader; blocks are
    converted and sent on the session's own thread, once it is started."""

    def __init__(self, profile: Profile, sample_rate: int, send: Callable[[dict], None]):
        self.profile = profile
        self.sample_rate = sample_rate
        self.block = max(1, int(round(profile.block_seconds * sample_rate)))
        self.context = int(round(profile.context_seconds * sample_rate))
        self._send = send
        self._inbox: queue.SimpleQueue = queue.SimpleQueue()
        self._thread: threading.Thread | None = None
        self._closed = threading.Event()

    def feed(self, samples: np.ndarray) -> None:
        if not self._closed.is_set() and len(samples):
            self._inbox.put((samples, time.monotonic()))

    def stop(self, flush: bool = True) -> None:
        """Ends the stream; with `flush`, what is left of a partial block goes out first."""
        if not self._closed.is_set():
            self._closed.set()
            self._inbox.put((_STOP, flush))

    def start(self, converter: LiveConverter) -> None:
        self._thread = threading.Thread(target=self._run, args=(converter,), name="stream", daemon=True)
        self._thread.start()

    def join(self, timeout: float) -> None:
        if self._thread is not None:
            self._thread.join(timeout)

    def _run(self, converter: LiveConverter) -> None:
        history = np.zeros(0, dtype=np.float32)
        pending: deque = deque()  # [samples, arrival time] in order
        held = 0
        while True:
            items = [self._inbox.get()]
            # Take everything already waiting, so a backlog is seen as one.
            while True:
                try:
                    items.append(self._inbox.get_nowait())
                except queue.Empty:
                    break
            stop = None
            for item in items:
                if item[0] is _STOP:
                    stop = item
                    break
                pending.append(list(item))
                held += len(item[0])
            dropped = 0
            while held >= self.block:
                block, arrived = _take(pending, self.block)
                held -= self.block
                if time.monotonic() - arrived > _MOST_BEHIND_SECONDS:
                    # This input waited too long: conversion is slower than speech.
                    # Skip it so that what the listener hears stays live.
                    dropped += len(block)
                    history = np.concatenate([history, block])[-self.context:] if self.context else history
                    continue
                history = self._emit(converter, history, block)
            if dropped:
                print(f"stream: conversion is behind; skipped {dropped / self.sample_rate:.2f} s of input",
                      file=sys.stderr)
            if stop is not None:
                if stop[1] and held:
                    self._emit(converter, history, _take(pending, held)[0])
                return

    def _emit(self, converter: LiveConverter, history: np.ndarray, block: np.ndarray) -> np.ndarray:
        window = np.concatenate([history, block]) if len(history) else block
        try:
            out = converter.convert(window, len(block))
        except Exception as e:  # a failed block becomes silence; the stream goes on
            print(f"stream: conversion failed: {e!r}", file=sys.stderr)
            out = np.zeros(len(block), dtype=np.float32)
        out = fit_length(np.nan_to_num(out), len(block))
        self._send({"stream_out": audio.encode_pcm(out)})
        return window[-self.context:] if self.context else window[:0]


def _take(pending: deque, count: int) -> tuple[np.ndarray, float]:
    """The first `count` waiting samples, and when the first of them arrived."""
    arrived = pending[0][1]
    parts = []
    while count:
        samples = pending[0][0]
        if len(samples) <= count:
            parts.append(samples)
            count -= len(samples)
            pending.popleft()
        else:
            parts.append(samples[:count])
            pending[0][0] = samples[count:]
            count = 0
    return (np.concatenate(parts) if len(parts) > 1 else parts[0]), arrived


def convert_blockwise(converter: LiveConverter, source: np.ndarray, profile: Profile, sample_rate: int) -> np.ndarray:
    """A whole clip through the live path, block by block: what live mode would make of it."""
    block = max(1, int(round(profile.block_seconds * sample_rate)))
    context = int(round(profile.context_seconds * sample_rate))
    out = np.zeros(len(source), dtype=np.float32)
    for start in range(0, len(source), block):
        window = source[max(0, start - context): start + block]
        length = min(block, len(source) - start)
        out[start:start + length] = fit_length(converter.convert(window, length), length)
    return out
