"""What the two handle classes share: owning a library handle, running calls on it and turning
the status code the call leaves into an exception."""
from __future__ import annotations

import threading
from typing import Any, Callable, Optional, Type, TypeVar

from . import error_capture, library
from .errors import OUT_OF_MEMORY, VelmoraError, status_from_unsigned

Owner = TypeVar("Owner", bound="LibraryHandle")


class LibraryHandle:
    """A library handle owned by this object, destroyed by close(), by leaving a with block or,
    failing both, when the object is collected. Calls on one object run one at a time (the
    library's handles are not locked themselves); different objects may be used from different
    threads at once."""

    _create = ""
    _destroy = ""
    _get_code = ""

    def __init__(self, capture_errors: bool = False) -> None:
        """Creates the handle, with status code 0 (a stitch handle with no pending colour step).

        capture_errors: whether failed calls carry the library's error line (see Stitcher).

        Raises:
            OSError: the library cannot be loaded.
            VelmoraError: -2, memory is exhausted.
        """
        self._library = library.load_library()
        self._capture_errors = bool(capture_errors)
        self._lock = threading.Lock()
        self._handle: Optional[int] = getattr(self._library, self._create)()
        if not self._handle:
            raise VelmoraError(f"{type(self).__name__}()", OUT_OF_MEMORY)

    @property
    def closed(self) -> bool:
        """True once the handle is destroyed."""
        return self._handle is None

    @property
    def capture_errors(self) -> bool:
        """Whether failed calls carry the library's error line (see the class)."""
        return self._capture_errors

    def close(self) -> None:
        """Destroys the handle; later calls raise ValueError. Closing again does nothing."""
        with self._lock:
            if self._handle is not None:
                getattr(self._library, self._destroy)(self._handle)
                self._handle = None

    def __enter__(self: Owner) -> Owner:
        self._open_handle()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], value: Optional[BaseException],
                 traceback: Any) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            self.close()

    def _status(self, handle: int) -> int:
        return status_from_unsigned(getattr(self._library, self._get_code)(handle))

    def _open_handle(self) -> int:
        if self._handle is None:
            raise ValueError(f"operation on a closed {type(self).__name__}")
        return self._handle

    def _run(self, operation: str, call: Callable[[int], None], stores_zero: bool) -> None:
        """Runs call(handle) and raises VelmoraError when the handle's code is not 0 after it.
        stores_zero: the function stores 0 when it completes; otherwise it stores a code only
        on failure, and a code the handle held before the call is reported as held before."""
        with self._lock:
            handle = self._open_handle()
            held = 0 if stores_zero else self._status(handle)
            line = None
            if self._capture_errors:
                _, text = error_capture.run_capturing_standard_error(lambda: call(handle))
                line = error_capture.last_line(text)
            else:
                error_capture.flush_standard_streams()
                call(handle)
            code = self._status(handle)
        if code != 0:
            raise VelmoraError(operation, code, line, held_before=held != 0 and held == code)
