"""Choosing the speech backend.

"torch" (Linux, CUDA when present, else CPU) and "mlx" (Apple silicon) run the real
models; "test" is the offline stand-in used by the worker's own tests and is only
ever chosen explicitly: PARLOVA_WORKER_BACKEND=test, "--backend test" or
"--test-backend".
"""

from __future__ import annotations

import os
import platform
import sys

from typing import TYPE_CHECKING

from ..hub import Status

if TYPE_CHECKING:
    from .base import Backend

NAMES = ("torch", "mlx", "test")


def backend_name(argv: list[str]) -> str:
    name = os.environ.get("PARLOVA_WORKER_BACKEND", "").strip().lower()
    for i, arg in enumerate(argv):
        if arg == "--test-backend":
            name = "test"
        elif arg == "--backend" and i + 1 < len(argv):
            name = argv[i + 1].strip().lower()
        elif arg.startswith("--backend="):
            name = arg.split("=", 1)[1].strip().lower()
    if not name or name == "auto":
        apple_silicon = sys.platform == "darwin" and platform.machine() == "arm64"
        name = "mlx" if apple_silicon else "torch"
    if name not in NAMES:
        raise ValueError(f"unknown backend {name!r}; choose one of {', '.join(NAMES)}")
    return name


def make_backend(name: str, status: Status) -> "Backend":
    # Only the chosen backend's module is imported; none of them imports its model
    # runtime before the first request that needs it.
    if name == "test":
        from .synthetic import SyntheticBackend

        return SyntheticBackend(status)
    if name == "mlx":
        from .mlx_backend import MlxBackend

        return MlxBackend(status)
    from .torch_backend import TorchBackend

    return TorchBackend(status)
