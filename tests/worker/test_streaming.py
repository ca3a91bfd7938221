"""Live streaming: block sizes per profile, order, the last partial block, bad blocks."""

from __future__ import annotations

import base64
import random
import time

import numpy as np

from conftest import refs


def pcm(samples: np.ndarray) -> str:
    return base64.b64encode(np.asarray(samples, dtype="<f4").tobytes()).decode()


def decoded(message: dict) -> np.ndarray:
    return np.frombuffer(base64.b64decode(message["stream_out"]), dtype="<f4")


def start(worker, voice, profile=None, rate=16000) -> dict:
    body = {"op": "stream_start", "references": refs(voice), "sample_rate": rate}
    return worker.request({**body, "profile": profile} if profile else body)


def first_block(worker) -> np.ndarray:
    return decoded(worker.wait_for(lambda m: "stream_out" in m))


def test_profiles_trade_block_size_for_context(worker, voices):
    default = worker.request({"op": "stream_start", "references": refs(voices["low"])})
    assert default["profile"] == "balanced" and default["sample_rate"] == 24000
    sizes = {}
    for profile in ("fastest", "balanced", "clearest"):
        reply = start(worker, voices["low"], profile)
        assert reply["ok"] is True, reply
        assert reply["output"] == "" and reply["sample_rate"] == 16000 and reply["profile"] == profile
        assert reply["block_samples"] == round(reply["block_seconds"] * 16000)
        sizes[profile] = reply["block_samples"]
    worker.send({"op": "stream_stop"})
    assert sizes["fastest"] < sizes["balanced"] < sizes["clearest"]
    assert sizes["clearest"] <= 16000 * 0.6  # the delays the app promises are at most ~0.6 s


def test_blocks_come_back_whole_and_in_order(spawn, voices):
    rate, profile = 16000, "fastest"
    worker = spawn()
    started = start(worker, voices["high"], profile, rate)
    block = started["block_samples"]
    # A pattern of loud and silent blocks, then a partial block.
    pattern = [1, 0, 0, 1, 1, 0, 1, 0, 1, 1, 1, 0]
    t = np.arange(block) / rate
    tone = 0.4 * sum(np.sin(2 * np.pi * 140 * k * t) / k for k in range(1, 6))
    source = np.concatenate([tone * on for on in pattern] + [tone[:777]]).astype(np.float32)
    rng = random.Random(5)
    at = 0
    while at < len(source):
        size = rng.randrange(50, 3000)
        worker.send({"op": "stream", "pcm": pcm(source[at:at + size])})
        at += size
    worker.send({"op": "stream_stop"})
    blocks = [worker.wait_for(lambda m: "stream_out" in m, timeout=30) for _ in range(len(pattern) + 1)]
    sizes = [len(decoded(b)) for b in blocks]
    assert sizes == [block] * len(pattern) + [777]
    # Judge each block by its middle, away from the edges where neighbours blend in.
    middle = slice(block // 4, 3 * block // 4)
    levels = [float(np.sqrt(np.mean(decoded(b)[middle] ** 2))) for b in blocks[:-1]]
    loud = min(level for level, on in zip(levels, pattern) if on)
    quiet = max(level for level, on in zip(levels, pattern) if not on)
    assert loud > 0.05 and quiet < 0.2 * loud, levels
    time.sleep(0.3)
    assert len(worker.all_of("stream_out")) == len(pattern) + 1  # nothing after the stop
    assert worker.messages.index(started) < worker.messages.index(blocks[0])


def test_new_stream_replaces_the_running_one(spawn, voices):
    worker = spawn()
    first = start(worker, voices["low"], "fastest")
    worker.send({"op": "stream", "pcm": pcm(np.full(first["block_samples"] // 2, 0.1))})
    second = start(worker, voices["high"], "clearest")
    worker.send({"op": "stream", "pcm": pcm(np.full(second["block_samples"], 0.1))})
    assert len(first_block(worker)) == second["block_samples"]


class TestBadStreamInput:
    def test_bad_blocks_are_dropped_and_the_stream_goes_on(self, spawn, voices):
        worker = spawn()
        block = start(worker, voices["low"], "fastest")["block_samples"]
        worker.send({"op": "stream", "pcm": "not base64 at all!"})
        worker.send({"op": "stream", "pcm": 12})
        worker.send({"op": "stream"})
        worker.send_raw(b'{"op": "stream", "pcm": "AAAA\n')
        # NaN and infinity become silence; a trailing partial sample is ignored.
        bad = np.array([np.nan, np.inf, -np.inf] + [0.2] * (block - 3), dtype="<f4").tobytes() + b"\x01\x02"
        worker.send({"op": "stream", "pcm": base64.b64encode(bad).decode()})
        out = first_block(worker)
        assert len(out) == block and np.all(np.isfinite(out))
        refused = worker.request({"op": "stream", "pcm": "%%%"})
        assert refused["ok"] is False and "base64" in refused["error"]

    def test_stream_start_without_an_id_is_ignored(self, spawn, voices):
        worker = spawn()
        block = start(worker, voices["low"], "fastest")["block_samples"]
        worker.send({"op": "stream_start", "references": refs(voices["high"]), "profile": "clearest"})
        worker.send({"op": "stream", "pcm": pcm(np.full(block, 0.1))})
        assert len(first_block(worker)) == block

    def test_audio_without_a_stream_is_ignored(self, spawn):
        worker = spawn()
        worker.send({"op": "stream", "pcm": pcm(np.zeros(48000))})
        worker.send({"op": "stream_stop"})
        time.sleep(0.3)
        assert worker.all_of("stream_out") == []
        assert worker.request({"op": "stream", "pcm": pcm(np.zeros(10))})["ok"] is False
