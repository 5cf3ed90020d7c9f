"""Checking and converting the arguments of library calls before the call.

Every check raises TypeError for a value of the wrong kind and ValueError for a value of the
right kind that the C interface cannot take, naming the argument.
"""
from __future__ import annotations

import ctypes
import numbers
import operator
import os
from typing import Any, List, Sequence, Tuple, Union

#: A file or folder path: a str, or an object with __fspath__ (pathlib.Path, ...).
PathArg = Union[str, "os.PathLike[str]"]

_INT_MIN = -(2 ** 31)
_INT_MAX = 2 ** 31 - 1


def path_bytes(value: Any, name: str) -> bytes:
    """The path as the zero-terminated byte string the library takes (file system encoding)."""
    if isinstance(value, bytes) or not isinstance(value, (str, os.PathLike)):
        raise TypeError(f"{name} must be str or os.PathLike, not {type(value).__name__}")
    encoded = os.fsencode(value)
    if b"\0" in encoded:
        raise ValueError(f"{name} contains a NUL character")
    return encoded


def path_array(values: Any, count: int, name: str) -> "ctypes.Array[ctypes.c_char_p]":
    """A C array of exactly count paths."""
    items = _items(values, count, name, "paths")
    return (ctypes.c_char_p * count)(
        *(path_bytes(item, f"{name}[{index}]") for index, item in enumerate(items)))


def c_int(value: Any, name: str) -> int:
    """An integer that fits the C int the library takes (bool is refused)."""
    if isinstance(value, bool):
        raise TypeError(f"{name} must be an integer, not bool")
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name} must be an integer, not {type(value).__name__}") from None
    if not _INT_MIN <= number <= _INT_MAX:
        raise ValueError(f"{name} is {number}, outside the C int range")
    return number


def c_int_pair(values: Any, name: str) -> Tuple[int, int]:
    """Two integers, as a (width, height) size."""
    first, second = _items(values, 2, name, "integers (width, height)")
    return c_int(first, f"{name}[0]"), c_int(second, f"{name}[1]")


def camera_setup(config_path: Any, table_dir: Any, shot_size: Any,
                 grid: Any) -> Tuple[bytes, bytes, int, int, int, int]:
    """The arguments of a camera's Init: configuration path, table folder, shot width and
    height, grid width and height."""
    return (path_bytes(config_path, "config_path"), path_bytes(table_dir, "table_dir"),
            *c_int_pair(shot_size, "shot_size"), *c_int_pair(grid, "grid"))


def gains(values: Any, name: str = "gains") -> Tuple[float, float, float]:
    """Three real numbers: the red, green and blue white-balance gains."""
    items = _items(values, 3, name, "numbers (red, green, blue)")
    result = []
    for index, item in enumerate(items):
        if isinstance(item, bool) or not isinstance(item, numbers.Real):
            raise TypeError(f"{name}[{index}] must be a real number, not {type(item).__name__}")
        result.append(float(item))
    return result[0], result[1], result[2]


def rectangles(values: Any, name: str = "rectangles") -> List[Tuple[int, int, int, int]]:
    """Any number of (left, top, width, height) integer rectangles."""
    items = _items(values, None, name, "rectangles")
    result = []
    for index, item in enumerate(items):
        fields = _items(item, 4, f"{name}[{index}]", "integers (left, top, width, height)")
        result.append(tuple(c_int(field, f"{name}[{index}][{position}]")
                            for position, field in enumerate(fields)))
    return result


def _items(values: Any, count: Union[int, None], name: str, what: str) -> Sequence[Any]:
    wanted = f"a sequence of {count} {what}" if count is not None else f"a sequence of {what}"
    if isinstance(values, (str, bytes, os.PathLike)) or not _iterable(values):
        raise TypeError(f"{name} must be {wanted}, not {type(values).__name__}")
    items = list(values)
    if count is not None and len(items) != count:
        raise ValueError(f"{name} must be {wanted}, got {len(items)}")
    return items


def _iterable(values: Any) -> bool:
    try:
        iter(values)
    except TypeError:
        return False
    return True
