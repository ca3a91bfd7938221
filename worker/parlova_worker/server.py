"""The worker: reads requests, runs them, answers each with its id.

Threads:
- the reader (main thread) parses lines, answers malformed or invalid requests at
  once, feeds live audio to the stream, and queues the rest;
- the job thread runs queued requests one at a time (generation, prepare,
  transcribe, convert, stream_start), since a model serves one request at a time;
- a stream thread per live stream converts and sends its blocks.
"""

from __future__ import annotations

import json
import os
import queue
import sys
import threading
import time
import traceback
from dataclasses import dataclass
from typing import Any, BinaryIO, Callable

from . import protocol, rules
from .errors import RequestError
from .protocol import Channel
from .rules import CONVERSION, MODELS, Sample

# numpy and everything built on it (audio, references, streaming, the backends) are
# imported on the job thread right after the ready line, so that the worker is
# answering within a fraction of a second; a request that needs them before that
# simply waits for the import to finish.


# How long an ending worker waits for the live stream to send its last block.
_EXIT_GRACE_SECONDS = 3.0


@dataclass
class Job:
    id: Any
    run: Callable[[], dict]
    started: float


def _samples(message: dict) -> list[Sample]:
    value = message.get("references")
    if value is None:
        raise RequestError("The request is missing “references” (the voice's samples).")
    if not isinstance(value, list):
        raise RequestError("The request's “references” must be a list of samples.")
    samples = []
    for item in value:
        if not isinstance(item, dict):
            raise RequestError("Each of the request's “references” must be an object with a “path”.")
        path = protocol.path_field(item, "path")
        transcript = item.get("transcript")
        samples.append(Sample(path, transcript if isinstance(transcript, str) else ""))
    return samples


class Worker:
    def __init__(self, channel: Channel, make_backend: Callable[[], Any]):
        self.channel = channel
        self._make_backend = make_backend
        self._backend = None
        self._backend_lock = threading.Lock()
        self._jobs: queue.SimpleQueue = queue.SimpleQueue()
        self._stream = None  # the running StreamSession
        self._stream_lock = threading.Lock()
        self._job_thread = threading.Thread(target=self._run_jobs, name="jobs", daemon=True)

    @property
    def backend(self):
        with self._backend_lock:
            if self._backend is None:
                self._backend = self._make_backend()
            return self._backend

    def _warm_up(self) -> None:
        try:
            from . import audio, references, streaming  # noqa: F401  (loaded ahead of use)

            self.backend
        except Exception:
            traceback.print_exc(file=sys.stderr)

    # Reader side

    def serve(self, stdin: BinaryIO) -> None:
        self._job_thread.start()
        self.channel.send({"ready": True})
        for raw in protocol.read_lines(stdin):
            try:
                self.handle_line(raw)
            except Exception:
                traceback.print_exc(file=sys.stderr)
        self.shutdown()

    def handle_line(self, raw: bytes | None) -> None:
        if raw is not None and not raw.strip():
            return
        try:
            message = json.loads(raw.decode("utf-8", errors="replace")) if raw is not None else None
        except (ValueError, RecursionError):
            message = None
            parsed = False
        else:
            parsed = raw is not None
        if not parsed:
            found = protocol.id_in_malformed(raw)
            if found is not None:
                self._fail(found, "The request wasn't valid JSON, so it was ignored.")
            return
        if not isinstance(message, dict):
            return
        rid = protocol.request_id(message)
        op = message.get("op")
        if rid is None and op not in ("stream", "stream_stop"):
            # Nobody could receive the answer, so the work would be wasted; a
            # stream_start without an id must not end the running stream either.
            return
        try:
            if op is None or op == "generate":
                self._queue(rid, self._generation(message))
            elif op == "stream":
                self._stream_audio(message, rid)
            elif op == "stream_stop":
                self._stop_stream()
                if rid is not None:
                    self.channel.send({"id": rid, "ok": True, "output": ""})
            elif op == "stream_start":
                self._queue(rid, self._stream_start(message))
            elif op == "prepare":
                self._queue(rid, self._prepare(message))
            elif op == "transcribe":
                self._queue(rid, self._transcribe(message))
            elif op == "convert":
                self._queue(rid, self._convert(message))
            else:
                shown = op if isinstance(op, str) else json.dumps(op)
                raise RequestError(
                    f"The voice worker doesn't know the request “{shown[:80]}”. Update the voice worker "
                    "(set up voice cloning again)."
                )
        except RequestError as e:
            if rid is not None:
                self._fail(rid, e.message)

    def _queue(self, rid: Any, run: Callable[[], dict]) -> None:
        self._jobs.put(Job(rid, run, time.monotonic()))

    def _fail(self, rid: Any, message: str) -> None:
        self.channel.send({"id": rid, "ok": False, "error": message})

    # Requests. Each reads and checks its fields here, on the reader, and returns
    # the work to run on the job thread.

    def _generation(self, message: dict) -> Callable[[], dict]:
        model = protocol.text_field(message, "model", required=False, default="chatterbox-turbo")
        model_rules = MODELS.get(model)
        if model_rules is None:
            raise RequestError(
                f"Unknown voice model “{model[:80]}”: use “chatterbox-turbo” or “qwen”."
            )
        text = protocol.text_field(message, "text")
        if not text.strip():
            raise RequestError("There's no text to say. Type something first.")
        output = protocol.path_field(message, "output")
        seed = protocol.int_field(message, "seed", 42)
        max_seconds = protocol.number_field(message, "max_seconds", model_rules.default_max_seconds, 0.0, 3600.0)
        samples = _samples(message)

        def run() -> dict:
            from . import audio
            from .references import load_prompt

            self.channel.status(f"Listening to the voice samples ({model_rules.label})…")
            prompt = load_prompt(samples, max_seconds, model_rules)
            self.channel.status("Speaking…")
            speech, rate = self.backend.generate(model, prompt, text.strip(), seed)
            audio.write_wav(output, speech, rate)
            reply = {"output": output, "audio_seconds": round(len(speech) / rate, 3),
                     "samples_used": prompt.samples_used}
            reply.update(self._check_take(text, speech, rate))
            return reply

        return run

    def _check_take(self, text: str, speech, rate: int) -> dict:
        """Transcribes the take; "verified" is true only when every word of the text was heard.
        Without a working recogniser the take goes unchecked and "verified" is left out."""
        from . import audio
        from .takecheck import missing_words

        self.channel.status("Checking the take…")
        try:
            heard = self.backend.recogniser().transcribe(audio.resample(speech, rate, 16000), checking=True)
        except RequestError as e:
            self.channel.status(f"The take wasn't checked: {e.message}")
            return {}
        except Exception as e:
            print(f"take check failed: {e!r}", file=sys.stderr)
            return {}
        missing = missing_words(text, heard)
        return {"verified": not missing, "heard": heard, "missing_words": missing}

    def _prepare(self, message: dict) -> Callable[[], dict]:
        samples = _samples(message)
        max_seconds = protocol.number_field(message, "max_seconds", CONVERSION.default_max_seconds, 0.0, 3600.0)

        def run() -> dict:
            from .references import load_prompt

            self.channel.status("Loading the voice…")
            prompt = load_prompt(samples, max_seconds, CONVERSION)
            self.backend.prepare(prompt)
            self.channel.status("The voice is ready.")
            return {"output": "", "samples_used": prompt.samples_used}

        return run

    def _transcribe(self, message: dict) -> Callable[[], dict]:
        source = protocol.path_field(message, "source")

        def run() -> dict:
            from . import audio

            sound = audio.read_audio(source, 16000)
            self.channel.status("Transcribing…")
            text = self.backend.recogniser().transcribe(sound)
            return {"output": source, "text": text, "audio_seconds": round(len(sound) / 16000, 3)}

        return run

    def _convert(self, message: dict) -> Callable[[], dict]:
        source = protocol.path_field(message, "source")
        output = protocol.path_field(message, "output")
        live = protocol.bool_field(message, "live", False)
        samples = _samples(message)
        max_seconds = protocol.number_field(message, "max_seconds", CONVERSION.default_max_seconds, 0.0, 3600.0)

        def run() -> dict:
            from . import audio, streaming
            from .references import load_prompt

            prompt = load_prompt(samples, max_seconds, CONVERSION)
            clip = audio.read_audio(source, audio.MODEL_RATE, what="clip")
            if len(clip) == 0:
                raise RequestError("The clip to convert is empty.")
            self.channel.status("Converting the clip…")
            if live:
                profile = rules.PROFILES[rules.DEFAULT_PROFILE]
                converter = self.backend.live_converter(prompt, audio.MODEL_RATE)
                converted = streaming.convert_blockwise(converter, clip, profile, audio.MODEL_RATE)
            else:
                converted = self.backend.convert(prompt, clip, audio.MODEL_RATE)
            audio.write_wav(output, converted, audio.MODEL_RATE)
            return {"output": output, "audio_seconds": round(len(converted) / audio.MODEL_RATE, 3),
                    "samples_used": prompt.samples_used}

        return run

    def _stream_start(self, message: dict) -> Callable[[], dict]:
        name = protocol.text_field(message, "profile", required=False, default=rules.DEFAULT_PROFILE)
        profile = rules.PROFILES.get(name)
        if profile is None:
            raise RequestError(
                f"Unknown delay setting “{name[:40]}”: use “fastest”, “balanced” or “clearest”."
            )
        rate = protocol.int_field(message, "sample_rate", rules.DEFAULT_RATE)
        if not 8000 <= rate <= 192000:
            raise RequestError("The request's “sample_rate” must be between 8000 and 192000.")
        max_seconds = protocol.number_field(message, "max_seconds", CONVERSION.default_max_seconds, 0.0, 3600.0)
        samples = _samples(message)
        from . import streaming
        from .references import load_prompt

        # The session exists from now on, so live audio sent while the voice loads
        # is kept rather than lost; the previous stream ends here.
        session = streaming.StreamSession(profile, rate, self.channel.send)
        with self._stream_lock:
            previous, self._stream = self._stream, session
        if previous is not None:
            previous.stop(flush=False)

        def run() -> dict:
            try:
                self.channel.status("Loading the voice for live mode…")
                prompt = load_prompt(samples, max_seconds, CONVERSION)
                converter = self.backend.live_converter(prompt, rate)
            except BaseException:
                with self._stream_lock:
                    if self._stream is session:
                        self._stream = None
                session.stop(flush=False)
                raise
            session.start(converter)
            return {"output": "", "profile": name, "sample_rate": rate, "block_samples": session.block,
                    "block_seconds": profile.block_seconds, "samples_used": prompt.samples_used}

        return run

    def _stream_audio(self, message: dict, rid: Any) -> None:
        import numpy as np

        from . import audio

        pcm = message.get("pcm")
        try:
            if not isinstance(pcm, str):
                raise RequestError("The live audio block has no “pcm” text.")
            try:
                samples = audio.decode_pcm(pcm)
            except ValueError:
                raise RequestError("The live audio block isn't valid base64.") from None
            with self._stream_lock:
                session = self._stream
            if session is None:
                raise RequestError("No live stream is running; start one first.")
            session.feed(np.clip(samples, -8.0, 8.0))
        except RequestError as e:
            if rid is not None:
                self._fail(rid, e.message)
            return
        if rid is not None:
            self.channel.send({"id": rid, "ok": True, "output": ""})

    def _stop_stream(self) -> None:
        with self._stream_lock:
            session, self._stream = self._stream, None
        if session is not None:
            session.stop(flush=True)

    # Job thread

    def _run_jobs(self) -> None:
        self._warm_up()
        while True:
            job = self._jobs.get()
            if job is None:
                return
            if self.channel.broken:
                continue  # nobody is left to answer
            try:
                reply = job.run()
                reply = {"id": job.id, "ok": True, **reply,
                         "seconds": round(time.monotonic() - job.started, 3)}
                self.channel.send(reply)
            except RequestError as e:
                self._fail(job.id, e.message)
            except MemoryError:
                self._fail(job.id, "The voice model ran out of memory. Close other apps and try again.")
            except Exception as e:
                traceback.print_exc(file=sys.stderr)
                detail = str(e).strip().splitlines()[0][:200] if str(e).strip() else type(e).__name__
                self._fail(job.id, f"Voice cloning failed: {detail}")

    def shutdown(self) -> None:
        """End of input: answer what was asked, end the stream (its last partial block
        goes out), then return. When the app is gone nothing more is attempted."""
        self._jobs.put(None)
        while self._job_thread.is_alive() and not self.channel.broken:
            self._job_thread.join(0.2)
        with self._stream_lock:
            session, self._stream = self._stream, None
        if session is not None:
            session.stop(flush=not self.channel.broken)
            session.join(_EXIT_GRACE_SECONDS)


def main(argv: list[str] | None = None) -> int:
    from .backends import backend_name, make_backend

    argv = list(sys.argv[1:] if argv is None else argv)
    try:
        name = backend_name(argv)
    except ValueError as e:
        print(f"clone_worker: {e}", file=sys.stderr)
        return 2
    channel = Channel()
    worker = Worker(channel, lambda: make_backend(name, channel.status))
    try:
        worker.serve(sys.stdin.buffer)
    except KeyboardInterrupt:
        pass
    return 0


def run() -> None:
    """Entry point: serve, then leave at once, without waiting for library threads."""
    import signal

    # Being told to stop is a normal way to end.
    signal.signal(signal.SIGTERM, lambda *_: os._exit(0))
    code = main()
    try:
        sys.stderr.flush()
    finally:
        os._exit(code)
