"""Parlova's clone worker: a local speech-model process driven over a line protocol."""

__version__ = "0.1.0"
