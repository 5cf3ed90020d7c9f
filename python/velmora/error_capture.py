"""Capturing what the library writes to standard error during one call.

The library explains a failure with one line on the process's standard error (file descriptor
2). To hand that line to the caller, the call runs with descriptor 2 pointing at a temporary
file; afterwards the descriptor is restored, the captured text is written on to it, so nothing
is lost from the console, and the text is returned. The redirection is process-wide: whatever
any thread writes to descriptor 2 during the call lands in the capture (and is passed on after
it). Capturing calls therefore run one at a time across the process.
"""
from __future__ import annotations

import ctypes
import os
import sys
import tempfile
import threading
from typing import Callable, Optional, Tuple, TypeVar

Result = TypeVar("Result")

_STANDARD_ERROR = 2
_redirection = threading.Lock()
_libc = ctypes.CDLL(None)
_libc.fflush.argtypes = [ctypes.c_void_p]


def flush_standard_streams() -> None:
    """Flushes Python's and C's buffered standard streams, so that output written before a
    library call appears before the library's own lines."""
    for stream in (sys.stdout, sys.stderr):
        if stream is not None:
            stream.flush()
    _libc.fflush(None)


def run_capturing_standard_error(call: Callable[[], Result]) -> Tuple[Result, str]:
    """Runs call() with file descriptor 2 redirected; returns its result and the text written to
    standard error meanwhile (decoded as UTF-8, undecodable bytes replaced)."""
    with _redirection, tempfile.TemporaryFile() as capture:
        flush_standard_streams()
        saved = os.dup(_STANDARD_ERROR)
        try:
            os.dup2(capture.fileno(), _STANDARD_ERROR)
            try:
                result = call()
            finally:
                try:
                    flush_standard_streams()
                finally:
                    os.dup2(saved, _STANDARD_ERROR)
        finally:
            os.close(saved)
            capture.seek(0)
            text = capture.read()
            _write_on(text)
    return result, text.decode("utf-8", errors="replace")


def last_line(text: str) -> Optional[str]:
    """The last non-empty line of text, without its line ending; None when there is none."""
    lines = [line.rstrip("\r") for line in text.splitlines() if line.strip()]
    return lines[-1] if lines else None


def _write_on(data: bytes) -> None:
    while data:
        written = os.write(_STANDARD_ERROR, data)
        data = data[written:]
