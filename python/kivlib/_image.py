"""kivlib.Image: an image of the library, with every operation of the table as a method."""
import ctypes
import operator
import signal
import threading
import weakref

import numpy as np

from . import _capi as C
from . import _table as T


class _Handle:
    """Owns one kiv_image; numpy views of its pixels keep it (and so their memory) alive."""
    __slots__ = ("ptr", "__weakref__")

    def __init__(self, ptr):
        self.ptr = ptr

    def __del__(self, free=C.lib.kiv_image_free):  # bound now: module globals may be gone at exit
        if self.ptr:
            free(self.ptr)
            self.ptr = None


class _Pixels:
    """What a numpy view of the pixels is made from; while one is alive the image knows it."""
    __slots__ = ("handle", "__array_interface__", "__weakref__")

    def __init__(self, handle, ptr, shape):
        self.handle = handle
        self.__array_interface__ = {"shape": shape, "typestr": "|u1", "data": (ptr, False), "version": 3}


class _Locks:
    """Holds the locks of several images, always taken in the same order (no deadlock)."""

    def __init__(self, images):
        self.locks = [im._lock for im in sorted({id(im): im for im in images}.values(), key=id)]

    def __enter__(self):
        for lock in self.locks:
            lock.acquire()

    def __exit__(self, *exc):
        for lock in reversed(self.locks):
            lock.release()


class Cancelled(Exception):
    """An operation stopped by its progress callable (which returned a true value); the image
    is as it was before the call."""


class _Watch:
    """The library's progress callback for one call: the caller's progress callable, and Ctrl-C.
    On the main thread, while Python's own SIGINT handler is in place, a Ctrl-C during the
    call only marks it (Python runs the handler inside the next callback) and the callback
    answers "stop"; the library then puts the image back and KeyboardInterrupt is raised."""

    def __init__(self, progress):
        self.progress, self.stop = progress, None
        self.fn = C.PROGRESS_FN(self._report)  # alive for the whole call

    def _report(self, user, done, total):
        try:
            if self.stop is None and self.progress is not None and self.progress(done, total) and done < total:
                self.stop = Cancelled("cancelled by the progress callable")
        except BaseException as e:  # the callable's own failure ends the call too
            self.stop = e
        return 1 if self.stop is not None else 0

    def _interrupt(self, signum, frame):
        self.stop = KeyboardInterrupt()

    def __enter__(self):
        self.previous = None
        if threading.current_thread() is threading.main_thread() and \
                signal.getsignal(signal.SIGINT) is signal.default_int_handler:
            self.previous = signal.signal(signal.SIGINT, self._interrupt)
        return self

    def __exit__(self, *exc):
        if self.previous is not None:
            signal.signal(signal.SIGINT, self.previous)

    @staticmethod
    def wanted(progress):
        # Ctrl-C reaches only the main thread; elsewhere only a progress callable needs one.
        return progress is not None or threading.current_thread() is threading.main_thread()


def _watch_call(img_ptr, op, vals, n, res, progress):
    """kiv_op_call with the progress callback installed for its length: (ok, reason, stop)."""
    if not _Watch.wanted(progress):
        ok = C.lib.kiv_op_call(img_ptr, op.index, vals, n, ctypes.byref(res))
        return ok, C.last_error(), None
    with _Watch(progress) as watch:
        C.lib.kiv_set_progress(img_ptr, watch.fn, None)
        try:
            ok = C.lib.kiv_op_call(img_ptr, op.index, vals, n, ctypes.byref(res))
            reason = C.last_error()
        finally:
            C.lib.kiv_set_progress(img_ptr, C.PROGRESS_FN(), None)
    return ok, reason, watch.stop


def _int(name, x):
    if isinstance(x, float) or not hasattr(x, "__index__"):
        raise TypeError("%s must be an int (got %s)" % (name, type(x).__name__))
    v = operator.index(x)
    if not -(1 << 31) <= v < (1 << 31):
        raise ValueError("%s does not fit its C type (got %d)" % (name, v))
    return v


class Image:
    """An image of kivlib: width x height four-byte pixels (red, green, blue, alpha); depths
    below 24 bits also carry a colour map, each pixel's index in its fourth byte.

    Image(width, height, bits=24) makes a zero-filled image (Image(0, 0, 0): an empty one).
    Every operation of the library is a method; a refused call raises ValueError with the
    library's reason and leaves the image as it was.  One call at a time runs on an image
    (calls from several threads wait for each other); calls on different images run in
    parallel, the GIL released.
    """

    def __init__(self, width, height, bits=24):
        self._lock = threading.Lock()
        self._views = weakref.WeakSet()
        self._h = None
        ptr = C.lib.kiv_image_new(_int("width", width), _int("height", height), _int("bits", bits))
        if not ptr:
            raise T.error(C.last_error())
        self._h = _Handle(ptr)

    @classmethod
    def _adopt(cls, ptr):
        img = cls.__new__(cls)
        img._lock, img._views, img._h = threading.Lock(), weakref.WeakSet(), _Handle(ptr)
        return img

    def _live(self):
        if self._h is None:
            raise ValueError("the image is closed")
        return self._h

    # ---- Life ---------------------------------------------------------------------------
    def close(self):
        """Release the image now (views of its pixels keep their memory until they go)."""
        with self._lock:
            self._h = None

    @property
    def closed(self):
        return self._h is None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def copy(self):
        """A deep copy: pixels, depth and colour map."""
        with self._lock:
            ptr = C.lib.kiv_image_copy(self._live().ptr)
            if not ptr:
                raise T.error(C.last_error())
        return Image._adopt(ptr)

    def __repr__(self):
        if self._h is None:
            return "<kivlib.Image closed>"
        return "<kivlib.Image %dx%d, %d bits>" % (self.width, self.height, self.bits)

    # ---- Accessors ----------------------------------------------------------------------
    def _get(self, fn):
        with self._lock:
            return fn(self._live().ptr)

    width = property(lambda self: self._get(C.lib.kiv_width), doc="width in pixels")
    height = property(lambda self: self._get(C.lib.kiv_height), doc="height in pixels")
    bits = property(lambda self: self._get(C.lib.kiv_bits), doc="depth: 1, 4, 8, 24 or 32")
    colors = property(lambda self: self._get(C.lib.kiv_colors), doc="entries of the colour map")
    mapped = property(lambda self: bool(self._get(C.lib.kiv_image_mapped)),
                      doc="whether the pixels live in a mapped temporary file")

    @property
    def palette(self):
        """A copy of the colour map: colors x 4 uint8 (red, green, blue, alpha)."""
        with self._lock:
            h = self._live().ptr
            n, p = C.lib.kiv_colors(h), C.lib.kiv_map(h)
            raw = ctypes.string_at(p, 4 * n) if p and n > 0 else b""
        return np.frombuffer(raw, np.uint8).reshape(-1, 4).copy()

    @property
    def array(self):
        """The pixels as a height x width x 4 uint8 numpy array sharing the image's memory:
        writes go to the image.  A view stays valid whatever happens to the image; it keeps
        following the image while operations keep the pixel count at 24 or 32 bits, and keeps
        the old pixels (detached) after one that changes them.  While a view is alive each
        operation works on a copy that is written back: drop views for full speed."""
        with self._lock:
            h = self._live()
            ptr, w, ht = C.lib.kiv_pixels(h.ptr), C.lib.kiv_width(h.ptr), C.lib.kiv_height(h.ptr)
            if not ptr or w <= 0 or ht <= 0:
                return np.zeros((0, 0, 4), np.uint8)
            px = _Pixels(h, ptr, (ht, w, 4))
            self._views.add(px)
            return np.asarray(px)

    # ---- Interchange --------------------------------------------------------------------
    @classmethod
    def from_array(cls, a):
        """A new image of an H x W x 3 (24 bits, alpha 0) or H x W x 4 (32 bits) uint8 array."""
        a = np.asarray(a)
        if a.dtype != np.uint8:
            raise TypeError("from_array: the array must be uint8 (got %s)" % a.dtype)
        if a.ndim != 3 or a.shape[2] not in (3, 4) or a.shape[0] < 1 or a.shape[1] < 1:
            raise ValueError("from_array: the array must be H x W x 3 or H x W x 4 (got shape %r)" % (a.shape,))
        img = cls(a.shape[1], a.shape[0], 8 * a.shape[2])
        img.array[..., :a.shape[2]] = a
        return img

    @classmethod
    def from_dib(cls, data, full=False):
        """A new image of a packed DIB (bytes: header, colour table, rows bottom-up) read by
        attachdib; full=True reads every form (V4/V5 and OS/2 headers, 16 to 64 bits, bit
        fields, RLE, top-down; clipboard CF_DIBV5 data) by attachdib_any_bytes."""
        img = cls(0, 0, 0)
        img.attachdib_any_bytes(data) if full else img.attachdib(data)
        return img

    def to_dib(self):
        """The image as a packed DIB (bytes), as from_dib and the Windows clipboard read it."""
        return self.createdib()

    @classmethod
    def open(cls, path):
        """Read an image file (see kivlib.formats for the formats)."""
        from . import formats
        return formats.read(path)

    def save(self, path, format=None):
        """Write the image to a file, chosen by format or the path's extension; the file is
        replaced only when the whole image has been written."""
        from . import formats
        formats.write(self, path, format)

    # ---- Calls --------------------------------------------------------------------------
    def _call(self, op, values, progress=None):
        others = [x for a, x in zip(op.args, values) if a.type == C.T_IMAGE and isinstance(x, Image)]
        keep = []
        with _Locks([self] + others):
            try:
                h = self._live()
                vals = (C.Value * max(len(values), 1))(*[T.to_value(op, a, x, keep) for a, x in zip(op.args, values)])
                res = C.Value()
                if not len(self._views):
                    ok, reason, stop = _watch_call(h.ptr, op, vals, len(values), res, progress)
                else:
                    ok, reason, stop = self._call_on_copy(h, op, vals, len(values), res, progress)
            finally:
                T.release(keep)
        if stop is not None:
            raise stop
        if not ok:
            raise T.error(reason)
        return T.result_of(op, res)

    def _call_on_copy(self, h, op, vals, n, res, progress):
        # Numpy views point into the pixels: the operation runs on a copy, so that a block it
        # frees cannot be one a view still reads.  The copy's pixels go back into the same block
        # when they fit it; otherwise the image takes the copy and the views keep the old one.
        work = C.lib.kiv_image_copy(h.ptr)
        if not work:
            return 0, "%s: out of memory" % op.name, None
        ok, reason, stop = _watch_call(work, op, vals, n, res, progress)
        L = C.lib
        if (L.kiv_pixels(work) and L.kiv_packets(work) == L.kiv_packets(h.ptr) and L.kiv_bits(work) >= 24
                and not L.kiv_map(work) and not L.kiv_image_mapped(work) and not L.kiv_image_mapped(h.ptr)):
            L.kiv_copyfrom(h.ptr, work)  # keeps the block: same pixel count, no map to allocate
            L.kiv_image_free(work)
        else:
            self._h, self._views = _Handle(work), weakref.WeakSet()
        return ok, reason, stop

    def _movefrom(self, op, src):
        # The handles change hands, so views of src keep following the pixels they show.
        if not isinstance(src, Image):
            return self._call(op, [src])
        with _Locks([self, src]):
            self._live(), src._live()
            if src is not self:
                empty = C.lib.kiv_image_new(0, 0, 0)
                if not empty:
                    raise MemoryError("movefrom: out of memory")
                self._h, self._views = src._h, src._views
                src._h, src._views = _Handle(empty), weakref.WeakSet()

    def _copyto(self, op, dst):
        if not isinstance(dst, Image):
            return self._call(op, [dst])
        return dst._call(T.OPS["copyfrom"], [self])


def _install():
    special = {"movefrom": Image._movefrom, "copyto": Image._copyto}
    for op in T.OPS.values():
        if op.static or hasattr(Image, op.name):
            continue
        fn = special.get(op.name)
        if fn:
            setattr(Image, op.name, T.make(op, (lambda op, fn: (lambda self, *v: fn(self, op, *v)))(op, fn), "Image."))
        else:
            body = (lambda op: (lambda self, *v, progress=None: self._call(op, list(v), progress)))(op)
            setattr(Image, op.name, T.make(op, body, "Image.", progress=True))


_install()
