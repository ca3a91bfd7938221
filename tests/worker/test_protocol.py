"""The line protocol: ready, ids, partial and joined lines, bad input, exit."""

from __future__ import annotations

import base64
import json
import os
import random
import struct
import time

import pytest

from conftest import refs


def test_ready_comes_first_and_alone(spawn):
    worker = spawn()
    time.sleep(0.3)
    assert worker.messages == [{"ready": True}]
    assert worker.bad_lines == []


class TestIds:
    def test_each_request_is_answered_once_with_its_own_id(self, worker, voices, tmp_path):
        requests = {
            101: {"op": "transcribe", "source": str(tmp_path / "absent.wav")},
            102: {"op": "no-such-op"},
            103: {"text": "   ", "references": refs(voices["low"]), "output": str(tmp_path / "x.wav")},
            104: {"op": "prepare", "references": refs(voices["low"])},
            "text-id": {"op": "no-such-op"},
        }
        batch = b"".join(json.dumps({**body, "id": rid}).encode() + b"\n" for rid, body in requests.items())
        worker.send_raw(batch)
        replies = {rid: worker.reply(rid) for rid in requests}
        assert replies[104]["ok"] is True and replies[104]["output"] == ""
        for rid in (101, 102, 103, "text-id"):
            assert replies[rid]["ok"] is False and replies[rid]["error"].endswith((".", ")", "'"))
        assert "no-such-op" in replies[102]["error"]
        time.sleep(0.2)
        for rid in requests:
            assert len(worker.replies_for(rid)) == 1

    def test_request_split_across_writes_is_handled_when_its_newline_arrives(self, worker):
        line = json.dumps({"id": 201, "op": "no-such-op"}).encode()
        worker.send_raw(line[:9])
        time.sleep(0.3)
        assert worker.replies_for(201) == []
        worker.send_raw(line[9:20])
        time.sleep(0.1)
        worker.send_raw(line[20:] + b"\n")
        assert worker.reply(201)["ok"] is False
        assert len(worker.replies_for(201)) == 1

class TestBadInput:
    def test_lines_without_an_id_are_never_answered(self, worker):
        for line in [b'{"op": "bogus"}', b"not json at all", b"[1, 2, 3]", b'"text"', b"42", b"null",
                     b"", b"   \t", b'{"op": "transcribe"}', b"\xff\xfe\x00garbage", b"{" * 5000,
                     b'{"op": "stream", "pcm": "@@@"}', b'{"op": "stream_stop"}']:
            worker.send_raw(line + b"\n")
        before = len(worker.messages)
        marker = worker.request({"op": "marker"})
        assert marker["ok"] is False
        unexpected = [m for m in worker.messages[before:] if m is not marker and "status" not in m]
        assert unexpected == []
        assert worker.bad_lines == []

    def test_malformed_line_with_an_id_gets_an_error_reply(self, worker):
        worker.send_raw(b'{"id": 301, "text": "cut off here\n')
        worker.send_raw(b'{"id": 302, "op": "transcribe", "source": "\xff\xfe"\n')
        assert "valid JSON" in worker.reply(301)["error"]
        reply = worker.reply(302)
        assert reply["ok"] is False

    @pytest.mark.parametrize("body,key", [
        ({"text": 5, "output": "/tmp/x.wav"}, "text"),
        ({"text": "hi", "references": {"path": "a"}, "output": "/tmp/x.wav"}, "references"),
        ({"text": "hi", "references": ["a.wav"], "output": "/tmp/x.wav"}, "references"),
        ({"text": "hi", "references": [], "output": "/tmp/x.wav", "seed": "abc"}, "seed"),
        ({"text": "hi", "references": [], "output": "/tmp/x.wav", "max_seconds": "a lot"}, "max_seconds"),
        ({"text": "hi", "references": [], "output": "/tmp/x.wav", "model": 7}, "model"),
        ({"text": "hi", "references": []}, "output"),
        ({"op": "convert", "references": [], "source": "a.wav", "output": "b.wav", "live": "yes"}, "live"),
        ({"op": "stream_start", "references": [], "profile": 3}, "profile"),
        ({"op": "stream_start", "references": [], "sample_rate": 12}, "sample_rate"),
        ({"op": "transcribe", "source": ["a"]}, "source"),
    ])
    def test_wrong_types_are_refused_naming_the_key(self, worker, body, key):
        reply = worker.request(body)
        assert reply["ok"] is False
        assert key in reply["error"]


class TestExit:
    def test_answers_what_was_asked_and_ends_the_stream_before_exiting(self, spawn, voices, tmp_path):
        worker = spawn()
        started = worker.request({"op": "stream_start", "references": refs(voices["low"]), "profile": "fastest"})
        assert started["ok"] is True
        pcm = base64.b64encode(struct.pack("<1000f", *([0.1] * 1000))).decode()
        worker.send({"op": "stream", "pcm": pcm})
        worker.send({"id": 401, "op": "prepare", "references": refs(voices["high"])})
        assert worker.close(timeout=20) == 0
        assert worker.replies_for(401)[0]["ok"] is True
        last = worker.all_of("stream_out")
        assert len(last) == 1 and len(base64.b64decode(last[0]["stream_out"])) == 4000
        assert "Traceback" not in worker.stderr_text()


SCALARS = [None, True, False, 0, -1, 1, 2 ** 31, -(2 ** 63), 10 ** 30, 42, 0.0, -0.5, 1e308, 3.5, 1e-9, 15.0,
           "", "fastest", "qwen", "chatterbox-turbo", "/nonexistent/x.wav", "\u00e9\u4e2d\U0001F600", "A" * 2999,
           "../../etc/passwd", "\x00", "AAAA", "$(rm -rf /)"]


def _random_value(rng: random.Random, depth: int = 0):
    kind = rng.randrange(10 if depth < 3 else 7)
    if kind < 7:
        return rng.choice(SCALARS)
    if kind < 9:
        return [_random_value(rng, depth + 1) for _ in range(rng.randrange(4))]
    return {rng.choice(KEYS): _random_value(rng, depth + 1) for _ in range(rng.randrange(4))}


KEYS = ["id", "op", "model", "references", "max_seconds", "text", "output", "seed", "source", "live",
        "profile", "pcm", "path", "transcript", "sample_rate", "zzz"]
OPS = [None, "prepare", "transcribe", "convert", "stream_start", "stream", "stream_stop", "generate", "", "PREPARE", 7]


def test_thousands_of_random_lines_do_not_break_the_worker(spawn, voices, tmp_path):
    rng = random.Random(int(os.environ.get("PARLOVA_FUZZ_SEED", "20240611")))
    worker = spawn()
    not_audio = str(voices["not_audio"])
    sent_ids: set = set()
    lines: list[bytes] = []
    for n in range(3000):
        roll = rng.random()
        if roll < 0.15:
            line = bytes(rng.randrange(256) for _ in range(rng.randrange(80))).replace(b"\n", b" ")
        elif roll < 0.25:
            line = json.dumps(_random_value(rng)).encode()
        else:
            message = {k: _random_value(rng) for k in rng.sample(KEYS, rng.randrange(6))}
            op = rng.choice(OPS)
            if op is not None:
                message["op"] = op
            if op == "stream":
                count = rng.randrange(0, 3000)
                message["pcm"] = base64.b64encode(struct.pack(f"<{count}f", *(rng.uniform(-2, 2) for _ in range(count)))).decode()
            if rng.random() < 0.3:
                message["references"] = [{"path": rng.choice([not_audio, "/no/such.wav", 5]), "transcript": "x"}]
            if op == "stream_start" and rng.random() < 0.1:
                message["references"] = refs(voices["low"])
                message["profile"] = rng.choice(["fastest", "balanced", "clearest"])
            message.pop("id", None)
            if rng.random() < 0.7:
                message["id"] = 10_000 + n
                sent_ids.add(10_000 + n)
            line = json.dumps(message).encode()
            if rng.random() < 0.05:
                line = line[: rng.randrange(len(line) + 1)]  # cut short: malformed, maybe with its id
                sent_ids.add(10_000 + n)
        lines.append(line)
    lines.append(b"[" * 100_000)
    for start in range(0, len(lines), 200):
        worker.send_raw(b"\n".join(lines[start:start + 200]) + b"\n")

    final = worker.request({"op": "transcribe", "source": not_audio}, timeout=120)
    assert final["ok"] is False and "notes.wav" in final["error"]
    assert worker.proc.poll() is None
    assert worker.bad_lines == []
    answered = [m["id"] for m in worker.messages if "id" in m]
    ours = [rid for rid in answered if rid in sent_ids]
    assert len(ours) == len(set(ours)), "a request was answered twice"
    assert sent_ids & set(answered), "no request was answered"
    for m in worker.messages:
        if "id" in m:
            assert m["ok"] is True or isinstance(m["error"], str) and m["error"]
    assert worker.close(timeout=30) == 0
    errors = worker.stderr_text()
    assert "Traceback" not in errors, errors[-3000:]
