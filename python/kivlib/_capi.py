"""ctypes declarations of kivc.h and the search for the shared library."""
import ctypes
import ctypes.util
import os
import sys
from ctypes import (CFUNCTYPE, POINTER, Structure, c_char_p, c_double, c_int, c_longlong, c_size_t, c_ubyte,
                    c_uint, c_uint16, c_uint32, c_void_p)

# KIV_T_* of kivc.h
(T_VOID, T_INT, T_UINT, T_REAL, T_BOOL, T_CHOICE, T_COLOR, T_RECT, T_IMAGE, T_STRING, T_COLORS, T_STOPS,
 T_SYSCOLS, T_INTS, T_BYTES, T_DIB, T_PALETTE, T_ULONG, T_DEFAULT) = range(19)
# KIV_ARG_* and KIV_OP_*
ARG_LO, ARG_HI, ARG_DEFAULT, ARG_NULL, ARG_FIELD = 1, 2, 32, 64, 128
OP_STATIC, OP_FREE = 1, 2


class Choice(Structure):
    _fields_ = [("value", c_int), ("name", c_char_p)]


class ArgDesc(Structure):
    _fields_ = [("name", c_char_p), ("unit", c_char_p), ("help", c_char_p), ("range", c_char_p),
                ("choices", POINTER(Choice)), ("nchoices", c_int), ("type", c_int), ("flags", c_int),
                ("below", c_int), ("above", c_int), ("lo", c_double), ("hi", c_double),
                ("below_value", c_double), ("above_value", c_double), ("default", c_double)]


class OpDesc(Structure):
    _fields_ = [("name", c_char_p), ("family", c_char_p), ("summary", c_char_p), ("refuses", c_char_p),
                ("record", c_char_p), ("args", POINTER(ArgDesc)), ("nargs", c_int), ("result", c_int),
                ("flags", c_int)]


class Value(Structure):
    _fields_ = [("type", c_int), ("n", c_int), ("i", c_longlong), ("d", c_double), ("p", c_void_p)]


class Rect(Structure):
    _fields_ = [("left", c_int), ("top", c_int), ("right", c_int), ("bottom", c_int)]


class GradColor(Structure):
    _fields_ = [("color", c_uint32), ("pos", c_int)]


class SysCol(Structure):
    _fields_ = [("r", c_ubyte), ("g", c_ubyte), ("b", c_ubyte)]


class LogPalette(Structure):  # followed by palNumEntries 4-byte entries (r, g, b, flags)
    _fields_ = [("version", c_uint16), ("count", c_uint16)]


def _candidates():
    """Where the library is looked for, in order (see README, 'Python')."""
    env = os.environ.get("KIVLIB_LIBRARY")
    if env:
        return [env]  # an explicit choice is never second-guessed
    names = {"win32": ["kivlib.dll"], "darwin": ["libkivlib.dylib"]}.get(sys.platform, ["libkivlib.so", "libkivlib.so.0"])
    here = os.path.dirname(os.path.abspath(__file__))
    found = [os.path.join(here, n) for n in names]
    # A source checkout: python/kivlib -> build/<preset>/lib (or bin for the DLL).
    root = os.path.dirname(os.path.dirname(here))
    for preset in ("linux", "windows"):
        for sub in ("lib", "bin"):
            found += [os.path.join(root, "build", preset, sub, n) for n in names]
    found = [f for f in found if os.path.exists(f)]
    if not found:
        system = ctypes.util.find_library("kivlib")  # runs ldconfig: only when needed
        found = [system] if system else []
    return found + names  # bare names: the loader's own search path


def load():
    errors = []
    for path in _candidates():
        try:
            return ctypes.CDLL(path), path  # CDLL releases the GIL for the length of every call
        except OSError as e:
            errors.append("%s: %s" % (path, e))
    raise OSError("kivlib: cannot load the shared library (set KIVLIB_LIBRARY to its path):\n  " + "\n  ".join(errors))


lib, path = load()

# kivProgressFn: (user, done, total) -> nonzero to cancel
PROGRESS_FN = CFUNCTYPE(c_int, c_void_p, c_int, c_int)

_protos = {
    "kiv_version": (c_char_p, []),
    "kiv_last_error": (c_char_p, []),
    "kiv_image_new": (c_void_p, [c_int, c_int, c_int]),
    "kiv_image_copy": (c_void_p, [c_void_p]),
    "kiv_image_free": (None, [c_void_p]),
    "kiv_image_mapped": (c_int, [c_void_p]),
    "kiv_copyfrom": (c_int, [c_void_p, c_void_p]),
    "kiv_width": (c_int, [c_void_p]),
    "kiv_height": (c_int, [c_void_p]),
    "kiv_bits": (c_int, [c_void_p]),
    "kiv_colors": (c_int, [c_void_p]),
    "kiv_packets": (c_int, [c_void_p]),
    "kiv_pixels": (c_void_p, [c_void_p]),
    "kiv_map": (c_void_p, [c_void_p]),
    "kiv_setthreads": (None, [c_int]),
    "kiv_getthreads": (c_int, []),
    "kiv_op_count": (c_int, []),
    "kiv_op_info": (POINTER(OpDesc), [c_int]),
    "kiv_op_call": (c_int, [c_void_p, c_int, POINTER(Value), c_int, POINTER(Value)]),
    "kiv_free_gradtable": (None, [c_void_p]),
    "kiv_set_progress": (None, [c_void_p, PROGRESS_FN, c_void_p]),
}
for _name, (_res, _args) in _protos.items():
    _f = getattr(lib, _name)
    _f.restype, _f.argtypes = _res, _args


def _global_memory():
    """Movable global memory, in which packed DIBs travel: the system's on Windows, the library's
    own emulation elsewhere (under a kiv prefix in newer builds, the Win32 spelling in older)."""
    if sys.platform == "win32":
        src, prefixes = ctypes.WinDLL("kernel32"), [""]
    else:
        src, prefixes = lib, ["kiv_", "kiv", ""]
    fns = {}
    for name, res, args in (("GlobalAlloc", c_void_p, [c_uint, c_size_t]), ("GlobalLock", c_void_p, [c_void_p]),
                            ("GlobalUnlock", c_int, [c_void_p]), ("GlobalFree", c_void_p, [c_void_p]),
                            ("GlobalSize", c_size_t, [c_void_p])):
        for p in prefixes:
            f = getattr(src, p + name, None)
            if f is not None:
                f.restype, f.argtypes = res, args
                fns[name] = f
                break
        else:
            raise OSError("kivlib: %s lacks %s" % (path, name))
    return fns


_gm = _global_memory()
GMEM_MOVEABLE = 2


def last_error():
    return (lib.kiv_last_error() or b"").decode("utf-8", "replace")


def hglobal_from(data):
    """A new movable block holding data (bytes-like), or None when data is empty; free with
    global_free."""
    data = memoryview(data).cast("B") if not isinstance(data, bytes) else data
    n = len(data)
    if n == 0:
        return None
    h = _gm["GlobalAlloc"](GMEM_MOVEABLE, n)
    if not h:
        raise MemoryError("kivlib: cannot allocate %d bytes of global memory" % n)
    ctypes.memmove(_gm["GlobalLock"](h), bytes(data), n)
    _gm["GlobalUnlock"](h)
    return h


def global_bytes(h, limit=None):
    """The bytes of a movable block (at most limit), which is then freed."""
    try:
        n = _gm["GlobalSize"](h)
        p = _gm["GlobalLock"](h)
        if not p:
            return b""
        out = ctypes.string_at(p, n if limit is None else min(n, limit(p, n)))
        _gm["GlobalUnlock"](h)
        return out
    finally:
        _gm["GlobalFree"](h)


def global_free(h):
    if h:
        _gm["GlobalFree"](h)
