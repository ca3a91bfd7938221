"""Model weights: found in the local model cache, or downloaded once with progress.

Downloads go through huggingface_hub into its usual cache, so a model fetched
here is the same one the app sees as downloaded. Progress is reported as status
lines by watching the bytes arriving in the model's cache folder, about once a
second.
"""

from __future__ import annotations

import fnmatch
import json
import threading
from pathlib import Path
from typing import Callable

from .errors import RequestError

Status = Callable[[str], None]


def _matches(relative: str, pattern: str) -> bool:
    # A pattern without a folder names files at the top of the model only.
    if "/" not in pattern and "/" in relative:
        return False
    return fnmatch.fnmatch(relative, pattern)


def missing_files(folder: str | Path, required: list[str | tuple[str, ...]]) -> list[str]:
    """What `folder` lacks of the files a model loads.

    Each requirement is a file name or pattern, or a tuple of alternatives; a file
    counts only when it can be read (a link whose blob is gone does not). Sharded
    weights count only when every shard named by their index is there."""
    root = Path(folder)
    present = []
    for path in root.rglob("*"):
        try:
            if path.is_file():
                present.append(path.relative_to(root).as_posix())
        except OSError:
            pass
    missing = []
    for requirement in required:
        options = (requirement,) if isinstance(requirement, str) else requirement
        if not any(_matches(name, pattern) for name in present for pattern in options):
            missing.append(" or ".join(options))
    for name in present:
        if name.endswith(".index.json"):
            try:
                shards = set(json.loads((root / name).read_text()).get("weight_map", {}).values())
            except (OSError, ValueError, AttributeError):
                missing.append(name)
                continue
            base = Path(name).parent
            missing += [str(base / s) for s in sorted(shards) if not (root / base / s).is_file()]
    return missing


def cached_snapshot(repo_id: str, allow_patterns: list[str] | None = None,
                    required: list[str | tuple[str, ...]] | None = None) -> str | None:
    """The local folder of the model if it is complete in the cache, else None.

    The model cache makes a model's folder as soon as its first file has arrived,
    so a download that was cut short leaves a folder without the rest; such a
    folder counts as not downloaded, and the download then fills in what is missing."""
    try:
        from huggingface_hub import snapshot_download

        local = snapshot_download(repo_id, allow_patterns=allow_patterns, local_files_only=True)
    except Exception:
        return None
    if required and missing_files(local, required):
        return None
    return local


def _cache_folder(repo_id: str) -> Path:
    from huggingface_hub import constants

    return Path(constants.HF_HUB_CACHE) / ("models--" + repo_id.replace("/", "--"))


def _expected_bytes(repo_id: str, allow_patterns: list[str] | None) -> int | None:
    try:
        from huggingface_hub import HfApi

        info = HfApi().model_info(repo_id, files_metadata=True)
        total = 0
        for sibling in info.siblings or []:
            name = sibling.rfilename
            if allow_patterns and not any(fnmatch.fnmatch(name, p) for p in allow_patterns):
                continue
            total += sibling.size or 0
        return total or None
    except Exception:
        return None


def _folder_bytes(folder: Path) -> int:
    total = 0
    try:
        for path in folder.rglob("*"):
            try:
                if path.is_file() and not path.is_symlink():
                    total += path.stat().st_size
            except OSError:
                pass
    except OSError:
        pass
    return total


def _gigabytes(n: int) -> str:
    return f"{n / 1e9:.1f} GB" if n >= 1e8 else f"{n / 1e6:.0f} MB"


def fetch(repo_id: str, label: str, status: Status, allow_patterns: list[str] | None = None,
          required: list[str | tuple[str, ...]] | None = None) -> str:
    """Returns the model's local folder, downloading it first when needed.

    `required` names the files the model's library loads (see `missing_files`);
    a cached folder without them is downloaded again (only what is missing)."""
    local = cached_snapshot(repo_id, allow_patterns, required)
    if local is not None:
        return local
    try:
        from huggingface_hub import snapshot_download
    except ImportError:
        raise RequestError(
            f"{label} isn't downloaded and the downloader isn't installed. Set up voice cloning again."
        ) from None

    status(f"Downloading {label} (first use only)…")
    expected = _expected_bytes(repo_id, allow_patterns)
    folder = _cache_folder(repo_id)
    before = _folder_bytes(folder)
    done = threading.Event()

    def report() -> None:
        last = ""
        while not done.wait(1.0):
            have = max(0, _folder_bytes(folder) - before)
            if expected:
                line = f"Downloading {label}: {_gigabytes(have)} of {_gigabytes(expected)} ({min(99, int(100 * have / expected))}%)"
            else:
                line = f"Downloading {label}: {_gigabytes(have)}"
            if line != last:
                status(line)
                last = line

    watcher = threading.Thread(target=report, name="download-progress", daemon=True)
    watcher.start()
    try:
        local = snapshot_download(repo_id, allow_patterns=allow_patterns)
    except Exception as e:
        raise RequestError(
            f"Couldn't download {label} ({type(e).__name__}). It is needed once; check the internet "
            "connection and try again."
        ) from None
    finally:
        done.set()
        watcher.join(timeout=2.0)
    if required:
        missing = missing_files(local, required)
        if missing:
            raise RequestError(
                f"{label} isn't completely downloaded ({', '.join(missing[:3])} missing). It is needed once; "
                "check the internet connection and try again."
            )
    status(f"Downloaded {label}.")
    return local
