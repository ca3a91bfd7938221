#!/usr/bin/env python3
"""Parlova clone worker.

Speaks typed text in the voice of a few reference samples, checks each take,
transcribes, converts clips and streams live conversion, all on this machine.
The app starts it once and talks to it with one JSON object per line on
standard input and output; see README.md beside this file.

Usage: python clone_worker.py [--backend torch|mlx|test] [--test-backend]
"""

import os
import sys


def _find_package() -> None:
    # The package sits beside this script in a checkout; an installed environment
    # has it on the path already; the app may also run a copy of this script with
    # the checkout as its working directory.
    here = os.path.dirname(os.path.abspath(__file__))
    for folder in (here, os.path.join(os.getcwd(), "worker"), os.getcwd()):
        if os.path.isdir(os.path.join(folder, "parlova_worker")):
            if folder not in sys.path:
                sys.path.insert(0, folder)
            return


if __name__ == "__main__":
    _find_package()
    from parlova_worker.server import run

    run()
