#!/usr/bin/env bash
# Runs the clone worker's tests: the real worker process over its pipes, with the
# offline test backend. Creates worker/.venv with the "test" extra when needed.
# Usage: worker/run_tests.sh [pytest arguments]   (from any directory)
# Needs: python3 (3.10 to 3.12), espeak-ng; uv when available (else venv + pip).
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
repo="$(dirname "$here")"

if ! command -v espeak-ng >/dev/null 2>&1; then
    echo "run_tests.sh: espeak-ng is needed for the test voice (apt-get install espeak-ng)" >&2
    exit 1
fi

cd "$here"
if command -v uv >/dev/null 2>&1; then
    uv sync --extra test --frozen --quiet
else
    if [ ! -x .venv/bin/python ]; then
        python3 -m venv .venv
    fi
    .venv/bin/python -m pip install --quiet --disable-pip-version-check -e ".[test]"
fi

cd "$repo"
exec "$here/.venv/bin/python" -m pytest tests/worker "$@"
