"""The real models through the real worker, where this machine already has them.

Runs only when the interpreter in PARLOVA_WORKER_PYTHON (default: this one) has
the torch runtime and the weights are in the local model cache; the tests never
download anything and are skipped otherwise, saying what is missing.
"""

from __future__ import annotations

import base64
import functools
import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

from conftest import WorkerProcess, read, refs

PYTHON = os.environ.get("PARLOVA_WORKER_PYTHON", sys.executable)


def _hub_cache() -> Path:
    if os.environ.get("HF_HUB_CACHE"):
        return Path(os.environ["HF_HUB_CACHE"])
    home = Path(os.environ.get("HF_HOME", Path.home() / ".cache" / "huggingface"))
    return home / "hub"


def _cached(repo: str) -> bool:
    snapshots = _hub_cache() / ("models--" + repo.replace("/", "--")) / "snapshots"
    return snapshots.is_dir() and any(snapshots.iterdir())


@functools.lru_cache(maxsize=None)
def _has_runtime(modules: str) -> bool:
    done = subprocess.run([PYTHON, "-c", f"import {modules}"], capture_output=True)
    return done.returncode == 0


def _require(repo: str, modules: str) -> None:
    if not _cached(repo):
        pytest.skip(f"{repo} is not in the local model cache ({_hub_cache()}); these tests never download")
    if not _has_runtime(modules):
        pytest.skip(f"{PYTHON} lacks the torch runtime ({modules}); set PARLOVA_WORKER_PYTHON to one that has it")


@pytest.fixture
def torch_worker():
    env = {"PARLOVA_WORKER_BACKEND": "torch", "HF_HUB_OFFLINE": "1"}
    if not _cached("Systran/faster-whisper-base.en"):
        env["PARLOVA_WHISPER_MODEL"] = os.environ.get("PARLOVA_WHISPER_MODEL", "")
    worker = WorkerProcess(env=env, python=PYTHON)
    worker.wait_for(lambda m: m.get("ready") is True, timeout=60)
    yield worker
    if worker.proc.poll() is None:
        worker.close(timeout=60)


@pytest.mark.parametrize("model,repo,modules", [
    ("chatterbox-turbo", "ResembleAI/chatterbox-turbo", "torch, chatterbox.tts_turbo"),
    ("qwen", "Qwen/Qwen3-TTS-12Hz-1.7B-Base", "torch, qwen_tts"),
])
def test_real_model_speaks_and_checks_the_take(torch_worker, voices, tmp_path, model, repo, modules):
    _require(repo, modules)
    text = "Hello dear, it's so lovely to hear from you."
    reply = torch_worker.request({"model": model, "references": refs(voices["high"], transcript=(
        "This is a recording of my own voice for the cloning lab. I am reading a few practice sentences "
        "slowly and clearly, so that the model can learn how I sound.")), "max_seconds": 15.0, "text": text,
        "output": str(tmp_path / "take.wav"), "seed": 42}, timeout=900)
    assert reply["ok"] is True, reply
    audio, rate = read(reply["output"])
    assert 1.0 < len(audio) / rate < 15.0 and np.max(np.abs(audio)) > 0.05
    if "verified" in reply:
        assert reply["verified"] is True, reply


def test_real_conversion_streams_whole_blocks(torch_worker, voices):
    _require("ResembleAI/chatterbox-turbo", "torch, chatterbox.tts_turbo")
    started = torch_worker.request({"op": "stream_start", "references": refs(voices["high"]),
                                    "profile": "clearest", "sample_rate": 16000}, timeout=900)
    assert started["ok"] is True, started
    speech, rate = read(voices["low"])
    block = started["block_samples"]
    source = np.interp(np.arange(0, len(speech), rate / 16000), np.arange(len(speech)), speech)[: 6 * block]
    for i in range(6):
        chunk = source[i * block:(i + 1) * block].astype("<f4").tobytes()
        torch_worker.send({"op": "stream", "pcm": base64.b64encode(chunk).decode()})
    for _ in range(6):
        out = torch_worker.wait_for(lambda m: "stream_out" in m, timeout=300)
        assert len(base64.b64decode(out["stream_out"])) == 4 * block
