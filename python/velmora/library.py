"""Finding and loading libvelmora, with the prototypes of its thirteen functions."""
from __future__ import annotations

import ctypes
import functools
import os
from typing import List

from . import _build_info

#: Environment variable naming the library file to load instead of the installed one.
LIBRARY_VARIABLE = "VELMORA_LIBRARY"

_handle = ctypes.c_void_p
_path = ctypes.c_char_p
_paths = ctypes.POINTER(ctypes.c_char_p)
_ints = ctypes.POINTER(ctypes.c_int)
_float = ctypes.c_float
_int = ctypes.c_int

# name: (result type, argument types), as include/velmora.h declares them.
_PROTOTYPES = {
    "ZEMU_CreateOptFlowStitchHandle": (_handle, []),
    "ZEMU_InitOptFlowStitchHandle": (None, [_handle, _path, _path, _int, _int, _int, _int]),
    "ZEMU_ExecuteOptFlowStitchHandle": (None, [_handle, _path, _paths, _path,
                                               _float, _float, _float]),
    "ZEMU_ExecuteOptFlowStitchHDRHandle": (None, [_handle, _paths, _path, ctypes.c_byte,
                                                  _float, _float, _float, _int]),
    "ZEMU_ExecutePanoRepairHandle": (None, [_handle, _paths, _path, _ints, _ints, _ints, _ints,
                                            _int, _float, _float, _float]),
    "ZEMU_ExecuteISPHandle": (None, [_handle, _path]),
    "ZEMU_GetOptFlowStitchCode": (ctypes.c_uint, [_handle]),
    "ZEMU_DestroyOptFlowStitchHandle": (None, [_handle]),
    "ZEMU_CreateVideoStitchHandle": (_handle, []),
    "ZEMU_InitVideoStitchHandle": (None, [_handle, _path, _path, _int, _int, _int, _int]),
    "ZEMU_ExecuteVideoStitchHandle": (None, [_handle, _path, _path, _path, ctypes.c_void_p,
                                             ctypes.c_void_p, ctypes.POINTER(_float),
                                             ctypes.POINTER(_float)]),
    "ZEMU_GetVideoStitchCode": (ctypes.c_uint, [_handle]),
    "ZEMU_DestroyVideoStitchHandle": (None, [_handle]),
}


def library_candidates() -> List[str]:
    """Where the library is looked for, in order: the file named by VELMORA_LIBRARY when it is
    set (and nothing else then); the installed library beside this package when it is there;
    the library's name (libvelmora.so.<major>) for the dynamic loader's search."""
    named = os.environ.get(LIBRARY_VARIABLE)
    if named:
        return [named]
    candidates = []
    if _build_info.LIBRARY_BESIDE:
        beside = os.path.join(os.path.dirname(os.path.abspath(__file__)),
                              _build_info.LIBRARY_BESIDE)
        if os.path.exists(beside):
            candidates.append(os.path.normpath(beside))
    candidates.append(_build_info.SONAME)
    return candidates


@functools.lru_cache(maxsize=None)
def load_library() -> ctypes.CDLL:
    """The loaded library with its functions' prototypes set, loaded once per process.

    Raises:
        OSError: no candidate of library_candidates() could be loaded.
    """
    failures = []
    for candidate in library_candidates():
        try:
            library = ctypes.CDLL(candidate)
        except OSError as error:
            failures.append(f"{candidate}: {error}")
            continue
        for name, (result, arguments) in _PROTOTYPES.items():
            try:
                function = getattr(library, name)
            except AttributeError:
                raise OSError(f"{candidate} is not the Velmora library: it lacks {name}") from None
            function.restype = result
            function.argtypes = arguments
        return library
    raise OSError("cannot load the Velmora library (set " + LIBRARY_VARIABLE
                  + " to its file): " + "; ".join(failures))
