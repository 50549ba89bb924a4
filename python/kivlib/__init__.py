"""kivlib for Python: the library's images and every operation of its table, over the C
interface (kivc.h) with ctypes.

    import kivlib
    img = kivlib.Image.open("in.bmp")
    img.zoom(320, 240, "lanczos3")
    img.save("out.bmp")

kivlib.operations() lists the operations; help(kivlib.Image.zoom) shows one.  The shared
library is looked for in KIVLIB_LIBRARY, next to this package, in a source checkout's build
tree, then on the system's search path (kivlib.library_path says which was taken).
"""
from . import _capi, _table, formats
from ._image import Cancelled, Image
from ._version import __version__

__all__ = ["Image", "Cancelled", "formats", "set_threads", "get_threads", "operations", "version", "library_path"]

library_path = _capi.path
version = _capi.lib.kiv_version().decode()


def set_threads(n):
    """Cap the threads the library uses for one operation: 0 = all cores (the default), 1 = the
    calling thread only.  Process-wide; the bytes of every result are the same for any n."""
    from ._image import _int
    _capi.lib.kiv_setthreads(_int("n", n))


def get_threads():
    """The cap set by set_threads (0 = all cores)."""
    return _capi.lib.kiv_getthreads()


def operations():
    """Every operation of the library's table, by name: .family, .summary, .args (each with
    .name, .type, .range, .choices, .default), .static (a module function, not a method)."""
    return dict(_table.OPS)


def _install():
    # Operations without an image (make_gradtable, the DIB functions kivCrop, kivQuantize...)
    # are module functions; releasing a palette is Python's business, not the caller's.
    for op in _table.OPS.values():
        if op.static and op.name != "free_gradtable":
            globals()[op.name] = _table.make(op, (lambda op: lambda *v: _table.call_static(op, list(v)))(op))
            __all__.append(op.name)


_install()
