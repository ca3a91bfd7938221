"""The line protocol: one JSON object per line on standard input and output.

Only this module writes to the real standard output. At start it keeps a private
copy of that stream and points file descriptor 1 at standard error, so whatever a
model library prints can never break a protocol line.
"""

from __future__ import annotations

import json
import math
import os
import re
import threading
from typing import Any, BinaryIO, Iterator

from .errors import RequestError

# A line longer than this is not read into memory; it is skipped as malformed.
MAX_LINE_BYTES = 64 * 1024 * 1024

_ID_IN_TEXT = re.compile(rb'"id"\s*:\s*(-?\d{1,30})(?![\d.eE])')


class Channel:
    """Thread-safe writer of protocol lines."""

    def __init__(self, fd: int | None = None):
        if fd is None:
            fd = os.dup(1)
            os.dup2(2, 1)
        self._fd = fd
        self._lock = threading.Lock()
        self.broken = False

    def send(self, message: dict) -> None:
        data = (json.dumps(message, ensure_ascii=True, separators=(",", ":"), allow_nan=False) + "\n").encode("ascii")
        with self._lock:
            if self.broken:
                return
            try:
                view = memoryview(data)
                while view:
                    written = os.write(self._fd, view)
                    view = view[written:]
            except OSError:
                # The app is gone; stdin will close too and end the worker.
                self.broken = True

    def status(self, text: str) -> None:
        self.send({"status": text})


def read_lines(stream: BinaryIO) -> Iterator[bytes | None]:
    """Complete lines without their newline; None for a line that was too long."""
    while True:
        line = stream.readline(MAX_LINE_BYTES)
        if not line:
            return
        if line.endswith(b"\n"):
            yield line[:-1]
        elif len(line) >= MAX_LINE_BYTES:
            # Discard the rest of the over-long line.
            while True:
                more = stream.readline(MAX_LINE_BYTES)
                if not more or more.endswith(b"\n"):
                    break
            yield None
        else:
            yield line  # last line without a newline before end of input


def id_in_malformed(raw: bytes | None) -> int | None:
    """The request id of a line that is not valid JSON, when one can be made out."""
    if not raw:
        return None
    found = _ID_IN_TEXT.search(raw[:4096])
    return int(found.group(1)) if found else None


def request_id(message: dict) -> Any:
    """The id to answer with: an integer (the app's), or another plain value echoed back; None if absent."""
    value = message.get("id")
    if isinstance(value, bool) or value is None:
        return None
    if isinstance(value, float):
        if not math.isfinite(value):
            return None
        return int(value) if value.is_integer() else value
    if isinstance(value, (int, str)):
        return value
    return None


# Field readers: each raises a RequestError naming the key when its value has the wrong type.

def text_field(message: dict, key: str, required: bool = True, default: str = "") -> str:
    value = message.get(key)
    if value is None:
        if required:
            raise RequestError(f"The request is missing “{key}”.")
        return default
    if not isinstance(value, str):
        raise RequestError(f"The request's “{key}” must be text.")
    return value


def path_field(message: dict, key: str) -> str:
    value = text_field(message, key)
    if not value.strip():
        raise RequestError(f"The request's “{key}” is an empty file path.")
    if "\x00" in value:
        raise RequestError(f"The request's “{key}” is not a usable file path.")
    return os.path.abspath(os.path.expanduser(value))


def number_field(message: dict, key: str, default: float, low: float, high: float) -> float:
    value = message.get(key)
    if value is None:
        return default
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not math.isfinite(value):
        raise RequestError(f"The request's “{key}” must be a number.")
    if not low <= value <= high:
        raise RequestError(f"The request's “{key}” must be between {low:g} and {high:g}.")
    return float(value)


def int_field(message: dict, key: str, default: int) -> int:
    value = message.get(key)
    if value is None:
        return default
    if isinstance(value, float) and math.isfinite(value) and value.is_integer():
        value = int(value)
    if isinstance(value, bool) or not isinstance(value, int):
        raise RequestError(f"The request's “{key}” must be a whole number.")
    return value


def bool_field(message: dict, key: str, default: bool) -> bool:
    value = message.get(key)
    if value is None:
        return default
    if not isinstance(value, bool):
        raise RequestError(f"The request's “{key}” must be true or false.")
    return value
