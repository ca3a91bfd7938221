"""Models found in the local model cache, as the worker looks them up by name.

The recogniser stands in for every model here: named by size, it is found in a
private Hugging Face cache laid out as the hub client writes it. The worker runs
offline, so nothing is downloaded.
"""

from __future__ import annotations

import os
import shutil
from pathlib import Path

from conftest import REFERENCE_TEXT, tiny_whisper_path

REVISION = "0123456789abcdef0123456789abcdef01234567"


def cache_with(tmp_path: Path, leave_out: set[str]) -> Path:
    """A model cache holding Systran/faster-whisper-tiny.en, less the files named."""
    hub = tmp_path / "hub"
    repo = hub / "models--Systran--faster-whisper-tiny.en"
    snapshot = repo / "snapshots" / REVISION
    snapshot.mkdir(parents=True)
    (repo / "refs").mkdir()
    (repo / "refs" / "main").write_text(REVISION)
    for name in os.listdir(tiny_whisper_path()):
        if name not in leave_out:
            shutil.copy(Path(tiny_whisper_path()) / name, snapshot / name)
    return hub


def transcribe(spawn, hub: Path, source: Path) -> dict:
    worker = spawn(env={"HF_HUB_CACHE": str(hub), "HF_HUB_OFFLINE": "1", "PARLOVA_WHISPER_MODEL": "tiny.en"})
    return worker.request({"op": "transcribe", "source": str(source)}, timeout=120)


def test_a_complete_cached_model_is_used(spawn, voices, tmp_path, needs_recogniser):
    reply = transcribe(spawn, cache_with(tmp_path, set()), voices["low"])
    assert reply["ok"] is True, reply
    heard = set(reply["text"].lower().replace(",", "").replace(".", "").split())
    assert len(heard & set(REFERENCE_TEXT.lower().replace(",", "").replace(".", "").split())) >= 10, reply


def test_a_model_whose_download_was_cut_short_is_fetched_again_not_loaded(spawn, voices, tmp_path,
                                                                          needs_recogniser):
    # An interrupted download leaves the model's folder with only the files that
    # had arrived. Loading it would fail the same way on every try; the worker
    # must see it as not downloaded and ask for the rest.
    reply = transcribe(spawn, cache_with(tmp_path, {"model.bin"}), voices["low"])
    assert reply["ok"] is False
    assert "model.bin" in reply["error"] and "internet" in reply["error"], reply
