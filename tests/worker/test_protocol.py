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
    assert worker.messages == [{"ready": True}] and worker.bad_lines == []


def test_each_request_in_a_batch_is_answered_once_with_its_own_id(worker, voices, tmp_path):
    requests = {
        101: {"op": "transcribe", "source": str(tmp_path / "absent.wav")},
        102: {"op": "no-such-op"},
        103: {"text": "   ", "references": refs(voices["low"]), "output": str(tmp_path / "x.wav")},
        104: {"op": "prepare", "references": refs(voices["low"])},
        "text-id": {"op": "no-such-op"},
    }
    worker.send_raw(b"".join(json.dumps({**body, "id": rid}).encode() + b"\n" for rid, body in requests.items()))
    replies = {rid: worker.reply(rid) for rid in requests}
    assert replies[104]["ok"] is True and replies[104]["output"] == ""
    for rid in (101, 102, 103, "text-id"):
        assert replies[rid]["ok"] is False and replies[rid]["error"].endswith((".", ")", "'"))
    assert "no-such-op" in replies[102]["error"]
    time.sleep(0.2)
    assert all(len(worker.all_with("id", rid)) == 1 for rid in requests)


def test_request_split_across_writes_is_handled_when_its_newline_arrives(worker):
    line = json.dumps({"id": 201, "op": "no-such-op"}).encode()
    worker.send_raw(line[:9])
    time.sleep(0.3)
    worker.send_raw(line[9:20])
    assert worker.all_with("id", 201) == []
    worker.send_raw(line[20:] + b"\n")
    assert worker.reply(201)["ok"] is False


def test_lines_without_an_id_are_never_answered(worker):
    for line in [b'{"op": "bogus"}', b"not json at all", b"[1, 2, 3]", b'"text"', b"42", b"null", b"", b"   \t",
                 b'{"op": "transcribe"}', b"\xff\xfe\x00garbage", b"{" * 5000, b'{"op": "stream", "pcm": "@@@"}',
                 b'{"op": "stream_stop"}']:
        worker.send_raw(line + b"\n")
    before = len(worker.messages)
    marker = worker.request({"op": "marker"})
    assert [m for m in worker.messages[before:] if m is not marker and "status" not in m] == []
    assert worker.bad_lines == []


def test_malformed_line_with_an_id_gets_an_error_reply(worker):
    worker.send_raw(b'{"id": 301, "text": "cut off here\n')
    worker.send_raw(b'{"id": 302, "op": "transcribe", "source": "\xff\xfe"\n')
    assert "valid JSON" in worker.reply(301)["error"]
    assert worker.reply(302)["ok"] is False


@pytest.mark.parametrize("body,key", [
    ({"text": 5, "output": "/tmp/x.wav"}, "text"),
    ({"text": "hi", "references": {"path": "a"}, "output": "/tmp/x.wav"}, "references"),
    ({"text": "hi", "references": [], "output": "/tmp/x.wav", "seed": "abc"}, "seed"),
    ({"text": "hi", "references": []}, "output"),
    ({"op": "convert", "references": [], "source": "a.wav", "output": "b.wav", "live": "yes"}, "live"),
    ({"op": "stream_start", "references": [], "profile": 3}, "profile"),
    ({"op": "stream_start", "references": [], "sample_rate": 12}, "sample_rate"),
])
def test_wrong_types_are_refused_naming_the_key(worker, body, key):
    reply = worker.request(body)
    assert reply["ok"] is False and key in reply["error"]


def test_closed_input_answers_what_was_asked_and_ends_the_stream_before_exiting(spawn, voices):
    worker = spawn()
    assert worker.request({"op": "stream_start", "references": refs(voices["low"]), "profile": "fastest"})["ok"]
    worker.send({"op": "stream", "pcm": base64.b64encode(struct.pack("<1000f", *([0.1] * 1000))).decode()})
    worker.send({"id": 401, "op": "prepare", "references": refs(voices["high"])})
    assert worker.close(timeout=20) == 0
    assert worker.all_with("id", 401)[0]["ok"] is True
    last = worker.all_with("stream_out")
    assert len(last) == 1 and len(base64.b64decode(last[0]["stream_out"])) == 4000
    assert "Traceback" not in worker.stderr_text()


SCALARS = [None, True, 0, -1, 2 ** 31, -(2 ** 63), 10 ** 30, 0.0, -0.5, 1e308, 1e-9, 15.0, "", "fastest",
           "qwen", "/nonexistent/x.wav", "\u00e9\u4e2d\U0001F600", "A" * 2999, "../../etc/passwd", "\x00", "AAAA",
           [], [1, "x"], {"path": 5}]
KEYS = ["id", "model", "references", "max_seconds", "text", "output", "seed", "source", "live", "profile", "pcm",
        "path", "transcript", "sample_rate", "zzz"]
OPS = ["prepare", "transcribe", "convert", "stream_start", "stream", "stream_stop", "generate", "", "PREPARE", 7]


def test_thousands_of_random_lines_do_not_break_the_worker(spawn, voices):
    rng = random.Random(int(os.environ.get("PARLOVA_FUZZ_SEED", "20240611")))
    worker = spawn()
    bad_refs = [refs(voices["not_audio"]), refs("/no/such.wav"), [{"path": 5}], refs(voices["low"])]
    sent_ids, lines = set(), []
    for n in range(3000):
        message = {k: rng.choice(SCALARS) for k in rng.sample(KEYS, rng.randrange(6))}
        message.update(op=rng.choice(OPS), references=rng.choice(bad_refs), profile=rng.choice(SCALARS + ["clearest"]))
        if message["op"] == "stream":
            count = rng.randrange(3000)
            message["pcm"] = base64.b64encode(struct.pack(f"<{count}f", *(rng.uniform(-2, 2) for _ in range(count)))).decode()
        message.pop("id", None)
        if rng.random() < 0.7:
            message["id"] = 10_000 + n
            sent_ids.add(10_000 + n)
        line = json.dumps(message).encode()
        if rng.random() < 0.05:
            line = line[: rng.randrange(len(line) + 1)]  # cut short: malformed, maybe with its id
            sent_ids.add(10_000 + n)
        elif rng.random() < 0.1:
            line = bytes(rng.randrange(256) for _ in range(rng.randrange(80))).replace(b"\n", b" ")
        lines.append(line)
    lines.append(b"[" * 100_000)
    for start in range(0, len(lines), 200):
        worker.send_raw(b"\n".join(lines[start:start + 200]) + b"\n")

    final = worker.request({"op": "transcribe", "source": str(voices["not_audio"])}, timeout=120)
    assert final["ok"] is False and "notes.wav" in final["error"]
    assert worker.bad_lines == []
    ours = [m["id"] for m in worker.all_with("id") if m["id"] in sent_ids]
    assert ours and len(ours) == len(set(ours)), "a request was answered twice, or none at all"
    assert all(m["ok"] is True or isinstance(m["error"], str) and m["error"] for m in worker.all_with("id"))
    assert worker.close(timeout=30) == 0
    assert "Traceback" not in worker.stderr_text(), worker.stderr_text()[-3000:]
