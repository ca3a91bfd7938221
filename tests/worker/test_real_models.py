"""The real models through the real worker, where this machine already has them.

Runs only when the interpreter in PARLOVA_WORKER_PYTHON (default: this one) has
the torch runtime and the weights are in the local model cache; the tests never
download anything and are skipped otherwise, saying what is missing.
"""

from __future__ import annotations

import base64
import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

from conftest import REFERENCE_TEXT, read, refs, started

PYTHON = os.environ.get("PARLOVA_WORKER_PYTHON", sys.executable)
HUB = Path(os.environ.get("HF_HUB_CACHE") or Path(os.environ.get("HF_HOME", Path.home() / ".cache/huggingface")) / "hub")


def cached(repo: str) -> bool:
    snapshots = HUB / ("models--" + repo.replace("/", "--")) / "snapshots"
    return snapshots.is_dir() and any(snapshots.iterdir())


def require(repo: str, modules: str) -> None:
    if not cached(repo):
        pytest.skip(f"{repo} is not in the local model cache ({HUB}); these tests never download")
    if subprocess.run([PYTHON, "-c", f"import {modules}"], capture_output=True).returncode != 0:
        pytest.skip(f"{PYTHON} lacks the torch runtime ({modules}); set PARLOVA_WORKER_PYTHON to one that has it")


@pytest.fixture
def torch_worker():
    env = {"PARLOVA_WORKER_BACKEND": "torch", "HF_HUB_OFFLINE": "1"}
    if not cached("Systran/faster-whisper-base.en"):
        env["PARLOVA_WHISPER_MODEL"] = os.environ.get("PARLOVA_WHISPER_MODEL", "")
    worker = started(env=env, python=PYTHON)
    yield worker
    worker.reap()


@pytest.mark.parametrize("model,repo,modules", [
    ("chatterbox-turbo", "ResembleAI/chatterbox-turbo", "torch, chatterbox.tts_turbo"),
    ("qwen", "Qwen/Qwen3-TTS-12Hz-1.7B-Base", "torch, qwen_tts"),
])
def test_real_model_speaks_and_checks_the_take(torch_worker, voices, tmp_path, model, repo, modules):
    require(repo, modules)
    reply = torch_worker.request({"model": model, "references": refs(voices["high"], transcript=REFERENCE_TEXT),
                                  "max_seconds": 15.0, "text": "Hello dear, it's so lovely to hear from you.",
                                  "output": str(tmp_path / "take.wav"), "seed": 42}, timeout=900)
    assert reply["ok"] is True and reply.get("verified", True) is True, reply
    audio, rate = read(reply["output"])
    assert 1.0 < len(audio) / rate < 15.0 and np.max(np.abs(audio)) > 0.05


def test_real_conversion_streams_whole_blocks(torch_worker, voices):
    require("ResembleAI/chatterbox-turbo", "torch, chatterbox.tts_turbo")
    begun = torch_worker.request({"op": "stream_start", "references": refs(voices["high"]), "profile": "clearest",
                                  "sample_rate": 16000}, timeout=900)
    assert begun["ok"] is True, begun
    speech, rate = read(voices["low"])
    block = begun["block_samples"]
    source = np.interp(np.arange(0, len(speech), rate / 16000), np.arange(len(speech)), speech).astype("<f4")
    for i in range(6):
        torch_worker.send({"op": "stream", "pcm": base64.b64encode(source[i * block:(i + 1) * block].tobytes()).decode()})
    for _ in range(6):
        out = torch_worker.wait_for(lambda m: "stream_out" in m, timeout=300)
        assert len(base64.b64decode(out["stream_out"])) == 4 * block
