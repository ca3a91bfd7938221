#!/usr/bin/env python3
"""Figures for the clone worker, with the offline test backend (no model weights):

- start to {"ready": true}: wall time from launching the process to reading the line,
  and to the answer of a first request that needs the audio stack (numpy);
- idle memory: resident set of a ready worker that has loaded no model;
- streaming overhead: per block, the time from writing a "stream" line to reading
  its "stream_out", with live conversion set to pass the audio through unchanged,
  so what is measured is the protocol path alone (JSON, base64, pipes, block
  assembly, threads). The same with the test backend's pitch-shifting conversion
  is shown for comparison.

Run with the worker's environment: worker/.venv/bin/python bench/worker/bench_worker.py
"""

from __future__ import annotations

import base64
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

REPO = Path(__file__).resolve().parents[2]
SCRIPT = REPO / "worker" / "clone_worker.py"


class Worker:
    def __init__(self, **env):
        full = {**os.environ, "PARLOVA_WORKER_BACKEND": "test", "PYTHONUNBUFFERED": "1", **env}
        self.launched = time.perf_counter()
        self.proc = subprocess.Popen([sys.executable, str(SCRIPT)], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=full)
        self.ready_after = None
        first = self.read()
        assert first == {"ready": True}, first
        self.ready_after = time.perf_counter() - self.launched

    def read(self) -> dict:
        line = self.proc.stdout.readline()
        if not line:
            raise RuntimeError("worker ended")
        return json.loads(line)

    def send(self, message: dict) -> None:
        self.proc.stdin.write(json.dumps(message).encode() + b"\n")
        self.proc.stdin.flush()

    def reply(self, rid) -> dict:
        while True:
            message = self.read()
            if message.get("id") == rid:
                return message

    def rss_mb(self) -> float:
        for line in Path(f"/proc/{self.proc.pid}/status").read_text().splitlines():
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) / 1024
        return float("nan")

    def close(self) -> int:
        self.proc.stdin.close()
        return self.proc.wait(10)


def make_reference(folder: Path) -> Path:
    path = folder / "reference.wav"
    subprocess.run(["espeak-ng", "-w", str(path), "This is my voice, reading a few practice sentences for "
                    "the cloning lab so that the model can hear me."], check=True)
    return path


def stream_timings(reference: Path, profile: str, rate: int, blocks: int, passthrough: bool) -> list[float]:
    worker = Worker(PARLOVA_TEST_PASSTHROUGH="1" if passthrough else "0")
    worker.send({"id": 1, "op": "stream_start", "profile": profile, "sample_rate": rate,
                 "references": [{"path": str(reference), "transcript": ""}]})
    started = worker.reply(1)
    assert started["ok"], started
    size = started["block_samples"]
    rng = np.random.default_rng(1)
    times = []
    for _ in range(blocks):
        pcm = base64.b64encode((0.1 * rng.standard_normal(size)).astype("<f4").tobytes()).decode()
        t0 = time.perf_counter()
        worker.send({"op": "stream", "pcm": pcm})
        while "stream_out" not in worker.read():
            pass
        times.append(time.perf_counter() - t0)
    worker.send({"op": "stream_stop"})
    worker.close()
    return times


def describe(times: list[float]) -> str:
    ms = sorted(t * 1000 for t in times)
    p95 = ms[int(0.95 * (len(ms) - 1))]
    return f"median {statistics.median(ms):6.2f} ms   p95 {p95:6.2f} ms   max {ms[-1]:6.2f} ms"


def main() -> None:
    with tempfile.TemporaryDirectory() as folder:
        reference = make_reference(Path(folder))

        starts, answers = [], []
        for _ in range(10):
            worker = Worker()
            starts.append(worker.ready_after)
            # A request that needs the audio stack (numpy, file reading), sent at once.
            worker.send({"id": 1, "op": "transcribe", "source": "/nonexistent/clip.wav"})
            worker.reply(1)
            answers.append(time.perf_counter() - worker.launched)
            worker.close()
        print(f"start to ready (10 runs): {describe(starts)}   (target <= 1000 ms)")
        print(f"start to the first audio request answered: {describe(answers)}")

        worker = Worker()
        # Idle means: ready, the audio stack loaded, the backend made, no model.
        worker.send({"id": 1, "op": "transcribe", "source": "/nonexistent/clip.wav"})
        worker.reply(1)
        time.sleep(1.0)
        idle = worker.rss_mb()
        worker.send({"id": 2, "op": "prepare", "references": [{"path": str(reference), "transcript": ""}]})
        worker.reply(2)
        after_prepare = worker.rss_mb()
        worker.close()
        print(f"idle memory without a model: {idle:.1f} MB resident; after a test-voice prepare "
              f"{after_prepare:.1f} MB   (target <= 100 MB)")

        for profile, rate in (("fastest", 24000), ("balanced", 48000), ("clearest", 48000)):
            overhead = stream_timings(reference, profile, rate, 200, passthrough=True)
            print(f"stream overhead, {profile:8s} @ {rate} Hz, pass-through:   {describe(overhead)}"
                  "   (target <= 10 ms)")
        for profile, rate in (("fastest", 24000), ("clearest", 48000)):
            shifted = stream_timings(reference, profile, rate, 100, passthrough=False)
            print(f"stream round trip, {profile:8s} @ {rate} Hz, test conversion: {describe(shifted)}")


if __name__ == "__main__":
    main()
