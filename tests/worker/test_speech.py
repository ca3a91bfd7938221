"""Generation with checked takes, clip conversion, and the files a request can't use.

Transcription and prepare through this worker are tried by the app's own tests
(TranscriberTest, VoiceClonerTest) and the protocol tests.
"""

from __future__ import annotations

import hashlib

import pytest

from conftest import espeak, pitch_of, read, refs


def generate(worker, tmp_path, reference, text="Did you remember to eat lunch today?", name="take.wav", **extra):
    return worker.request({"model": "chatterbox-turbo", "references": refs(reference), "max_seconds": 15.0,
                           "text": text, "output": str(tmp_path / name), "seed": 42, **extra})


def test_take_is_written_checked_and_described(worker, voices, tmp_path, needs_recogniser):
    reply = generate(worker, tmp_path, voices["high"])
    assert reply["ok"] is True and reply["verified"] is True, reply
    audio, rate = read(tmp_path / "take.wav")
    assert reply["output"] == str(tmp_path / "take.wav")
    assert reply["audio_seconds"] == pytest.approx(len(audio) / rate, abs=0.01)
    assert 1.0 < reply["audio_seconds"] < 6.0 and reply["samples_used"] == 1 and reply["seconds"] > 0
    assert any("Checking" in m["status"] for m in worker.all_with("status"))


def test_seed_gives_the_same_take_and_another_seed_another(worker, voices, tmp_path):
    digests = []
    for name, seed in (("a.wav", 7), ("b.wav", 7), ("c.wav", 8)):
        assert generate(worker, tmp_path, voices["low"], name=name, seed=seed)["ok"] is True
        digests.append(hashlib.sha256((tmp_path / name).read_bytes()).hexdigest())
    assert digests[0] == digests[1] != digests[2]


@pytest.mark.parametrize("model,limit,used,reaches_limit", [
    ("chatterbox-turbo", 10.0, 3, False),  # 4 s + 4 s + the start of the third
    ("chatterbox-turbo", 6.0, 2, True),
    ("qwen", 10.0, 2, False),  # whole samples only: the third does not fit
    ("qwen", 3.0, 1, True),  # the first is used whole even beyond the limit
])
def test_samples_are_taken_in_order_up_to_the_limit(worker, voices, tmp_path, model, limit, used, reaches_limit):
    samples = refs(voices["piece0"], voices["piece1"], voices["piece2"], transcript="some words")
    if reaches_limit:  # once the limit is reached, later samples are not even opened
        samples += refs("/nowhere/after-the-limit.wav", transcript="more words")
    reply = worker.request({"model": model, "references": samples, "max_seconds": limit, "text": "Hello.",
                            "output": str(tmp_path / "t.wav"), "seed": 1})
    assert reply["ok"] is True and reply["samples_used"] == used, reply


@pytest.mark.parametrize("change,words", [
    ({"voice": "short"}, "5 s"),  # a sample below the model's minimum
    ({"model": "qwen"}, "transcript"),  # best match needs transcripts
    ({"model": "gpt-voice"}, "gpt-voice"),
    ({"text": " \n "}, "no text"),
    ({"references": []}, "no samples"),
    ({"max_seconds": -3}, "max_seconds"),
    ({"op": "stream_start", "profile": "instant"}, "instant"),
    ({"name": "a-file/take.wav"}, "Couldn't"),  # a file where the folder should be
])
def test_bad_requests_are_explained_and_write_nothing(worker, voices, tmp_path, change, words):
    (tmp_path / "a-file").write_text("x")
    change = dict(change)
    reply = generate(worker, tmp_path, voices[change.pop("voice", "low")], **change)
    assert reply["ok"] is False and words in reply["error"], reply
    assert not (tmp_path / "take.wav").exists()


def test_take_missing_a_word_is_not_verified(spawn, voices, tmp_path, needs_recogniser):
    worker = spawn(env={"PARLOVA_TEST_SKIP_WORDS": "garden"})
    reply = generate(worker, tmp_path, voices["low"], text="Please water the garden before the sun goes down.")
    assert reply["ok"] is True and reply["verified"] is False, reply
    assert "garden" in reply["missing_words"] and "garden" not in reply["heard"].lower()


@pytest.mark.parametrize("live", [False, True])
def test_converted_clip_keeps_its_length_and_takes_the_voice_pitch(worker, voices, tmp_path, live):
    source = espeak(tmp_path / "mine.wav", "I would like to say this in another voice, please.", "en-us+f3", 10)
    reply = worker.request({"op": "convert", "live": live, "references": refs(voices["high"]),
                            "source": str(source), "output": str(tmp_path / "converted.wav")})
    assert reply["ok"] is True, reply
    original, rate_in = read(source)
    converted, rate_out = read(reply["output"])
    assert len(converted) / rate_out == pytest.approx(len(original) / rate_in, abs=0.05)
    assert reply["audio_seconds"] == pytest.approx(len(converted) / rate_out, abs=0.01)
    target = pitch_of(*read(voices["high"]))
    assert target > 1.4 * pitch_of(original, rate_in)
    assert pitch_of(converted, rate_out) == pytest.approx(target, rel=0.2)


@pytest.mark.parametrize("op,kind", [("generate", "missing"), ("generate", "not_audio"), ("prepare", "missing"),
                                     ("stream_start", "missing"), ("transcribe", "missing"),
                                     ("transcribe", "not_audio"), ("convert", "missing")])
def test_unusable_files_are_named(worker, voices, tmp_path, op, kind):
    bad = voices["not_audio"] if kind == "not_audio" else tmp_path / "gone.wav"
    out = str(tmp_path / "out.wav")
    request = {
        "generate": {"text": "Hi.", "references": refs(bad), "output": out},
        "prepare": {"op": "prepare", "references": refs(bad)},
        "stream_start": {"op": "stream_start", "references": refs(bad)},
        "transcribe": {"op": "transcribe", "source": str(bad)},
        "convert": {"op": "convert", "references": refs(voices["high"]), "source": str(bad), "output": out},
    }[op]
    reply = worker.request(request)
    assert reply["ok"] is False and bad.name in reply["error"], reply
    assert kind != "missing" or "missing" in reply["error"], reply
