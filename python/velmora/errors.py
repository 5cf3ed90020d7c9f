"""The exception every failed library call raises, and the library's status codes."""
from __future__ import annotations

from typing import Optional

#: The operation completed.
OK = 0
#: A detected failure (the reason is one line on standard error) or an unexpected error.
FAILURE = -1
#: The operation ran out of memory.
OUT_OF_MEMORY = -2

_MEANINGS = {FAILURE: "failure", OUT_OF_MEMORY: "out of memory"}


def status_from_unsigned(value: int) -> int:
    """The signed status code behind a handle's code as the library returns it (unsigned 32 bits):
    4294967295 is -1, 4294967294 is -2."""
    value &= 0xFFFFFFFF
    return value - 0x100000000 if value >= 0x80000000 else value


class VelmoraError(RuntimeError):
    """A library call that left a non-zero status code in its handle.

    Attributes:
        operation: the method that failed ("init_camera", "stitch", ...).
        code: the signed status code: -1 (`FAILURE`) or -2 (`OUT_OF_MEMORY`).
        line: with ``capture_errors=True``, the last line written to standard error during the
            call: the library's error line (external programs the library runs write there
            too); None without capture or when nothing was written.
        held_before: True when the handle already held this code before the call. Init and the
            video handle's functions store a code only when they fail, so a failure's code stays;
            the call itself may then have succeeded (see the handle classes).
    """

    def __init__(self, operation: str, code: int, line: Optional[str] = None,
                 held_before: bool = False) -> None:
        self.operation = operation
        self.code = code
        self.line = line
        self.held_before = held_before
        message = f"{operation} failed: status {code} ({_MEANINGS.get(code, 'unknown code')})"
        if line:
            message += f": {line}"
        if held_before:
            message += " (the handle held this code before the call, from an earlier failure)"
        super().__init__(message)
