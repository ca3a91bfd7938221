"""Live streaming: block sizes per profile, order, the last partial block, bad blocks."""

from __future__ import annotations

import base64
import random
import time

import numpy as np

from conftest import refs


def pcm(samples) -> str:
    return base64.b64encode(np.asarray(samples, dtype="<f4").tobytes()).decode()


def next_block(worker) -> np.ndarray:
    return np.frombuffer(base64.b64decode(worker.wait_for(lambda m: "stream_out" in m)["stream_out"]), dtype="<f4")


def start(worker, voice, profile="fastest", rate=16000) -> dict:
    return worker.request({"op": "stream_start", "references": refs(voice), "sample_rate": rate, "profile": profile})


def test_profiles_trade_block_size_for_context(worker, voices):
    default = worker.request({"op": "stream_start", "references": refs(voices["low"])})
    assert default["profile"] == "balanced" and default["sample_rate"] == 24000
    sizes = []
    for profile in ("fastest", "balanced", "clearest"):
        reply = start(worker, voices["low"], profile)
        assert reply["output"] == "" and reply["sample_rate"] == 16000 and reply["profile"] == profile, reply
        assert reply["block_samples"] == round(reply["block_seconds"] * 16000)
        sizes.append(reply["block_samples"])
    worker.send({"op": "stream_stop"})
    assert sizes == sorted(set(sizes)) and sizes[-1] <= 16000 * 0.6  # the app promises delays of ~0.6 s at most


def test_blocks_come_back_whole_and_in_order(spawn, voices):
    worker = spawn()
    started = start(worker, voices["high"])
    block = started["block_samples"]
    # A pattern of loud and silent blocks, then a partial block, sent in random pieces.
    pattern = [1, 0, 0, 1, 1, 0, 1, 0, 1, 1, 1, 0]
    t = np.arange(block) / 16000
    tone = 0.4 * sum(np.sin(2 * np.pi * 140 * k * t) / k for k in range(1, 6))
    source = np.concatenate([tone * on for on in pattern] + [tone[:777]])
    rng, at = random.Random(5), 0
    while at < len(source):
        size = rng.randrange(50, 3000)
        worker.send({"op": "stream", "pcm": pcm(source[at:at + size])})
        at += size
    worker.send({"op": "stream_stop"})
    blocks = [next_block(worker) for _ in range(len(pattern) + 1)]
    assert [len(b) for b in blocks] == [block] * len(pattern) + [777]
    # Judge each block by its middle, away from the edges where neighbours blend in.
    levels = [float(np.sqrt(np.mean(b[block // 4:3 * block // 4] ** 2))) for b in blocks[:-1]]
    loud = min(level for level, on in zip(levels, pattern) if on)
    assert loud > 0.05 and max(level for level, on in zip(levels, pattern) if not on) < 0.2 * loud, levels
    time.sleep(0.3)
    assert len(worker.all_with("stream_out")) == len(pattern) + 1  # nothing after the stop


def test_new_stream_replaces_the_running_one_but_only_with_an_id(spawn, voices):
    worker = spawn()
    first = start(worker, voices["low"])
    worker.send({"op": "stream", "pcm": pcm(np.full(first["block_samples"] // 2, 0.1))})
    second = start(worker, voices["high"], "clearest")
    worker.send({"op": "stream_start", "references": refs(voices["low"]), "profile": "fastest"})  # no id: ignored
    worker.send({"op": "stream", "pcm": pcm(np.full(second["block_samples"], 0.1))})
    assert len(next_block(worker)) == second["block_samples"]


def test_bad_blocks_are_dropped_and_the_stream_goes_on(spawn, voices):
    worker = spawn()
    block = start(worker, voices["low"])["block_samples"]
    for bad in ({"pcm": "not base64 at all!"}, {"pcm": 12}, {}):
        worker.send({"op": "stream", **bad})
    worker.send_raw(b'{"op": "stream", "pcm": "AAAA\n')
    # NaN and infinity become silence; a trailing partial sample is ignored.
    bad = np.array([np.nan, np.inf, -np.inf] + [0.2] * (block - 3), dtype="<f4").tobytes() + b"\x01\x02"
    worker.send({"op": "stream", "pcm": base64.b64encode(bad).decode()})
    out = next_block(worker)
    assert len(out) == block and np.all(np.isfinite(out))
    refused = worker.request({"op": "stream", "pcm": "%%%"})
    assert refused["ok"] is False and "base64" in refused["error"]


def test_audio_without_a_stream_is_ignored(spawn):
    worker = spawn()
    worker.send({"op": "stream", "pcm": pcm(np.zeros(48000))})
    worker.send({"op": "stream_stop"})
    time.sleep(0.3)
    assert worker.all_with("stream_out") == []
    assert worker.request({"op": "stream", "pcm": pcm(np.zeros(10))})["ok"] is False
