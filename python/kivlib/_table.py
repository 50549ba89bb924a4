"""The library's operation table read through the C interface, Python values turned into the
table's typed arguments, and the methods and functions generated from it."""
import ctypes
import inspect
import keyword
import numbers
import operator
import os

from . import _capi as C

_TYPE_NAMES = {C.T_INT: "int", C.T_UINT: "int >= 0", C.T_REAL: "float", C.T_BOOL: "bool", C.T_CHOICE: "choice",
               C.T_COLOR: "colour", C.T_RECT: "rect", C.T_IMAGE: "Image", C.T_STRING: "path",
               C.T_COLORS: "colours", C.T_STOPS: "stops", C.T_SYSCOLS: "rgb list", C.T_INTS: "ints",
               C.T_BYTES: "bytes", C.T_DIB: "DIB bytes", C.T_PALETTE: "palette"}
# How each type is given from Python (the docstrings' closing lines).
_TYPE_HELP = {
    C.T_CHOICE: "a choice is given by its name (a str) or its number",
    C.T_COLOR: "a colour is an int 0xBBGGRR (red in the low byte) or an (r, g, b) tuple",
    C.T_RECT: "a rectangle is (left, top, right, bottom), right and bottom exclusive, or None; one before required "
              "arguments is given by keyword (rect=...)",
    C.T_COLORS: "colours: a sequence of colours",
    C.T_STOPS: "stops: a sequence of (colour, position 0..1000) pairs",
    C.T_SYSCOLS: "rgb list: a sequence of (r, g, b) tuples",
    C.T_DIB: "DIB bytes: a packed DIB (header, colour table, rows bottom-up), as Image.to_dib gives",
    C.T_PALETTE: "palette: a sequence of (r, g, b) tuples",
}
_INT64 = (-(1 << 63), (1 << 63) - 1)
_INT32 = (-(1 << 31), (1 << 31) - 1)
_UINT32 = (0, (1 << 32) - 1)


def _s(b):
    return (b or b"").decode("utf-8")


def _outcome(o, v):
    """What the library does with a value outside the range (KIV_OUT_*)."""
    return ["", "refused", "refused (a palettized image is raised to 24 bits first)", "refused, the image left empty",
            "clamped", "taken as %g" % v, "accepted, nothing changes"][o] if 0 <= o <= 6 else ""


class Arg:
    """One argument of an operation, as the table describes it."""

    def __init__(self, d):
        self.name, self.unit, self.help, self.range = _s(d.name), _s(d.unit), _s(d.help), _s(d.range)
        self.type, self.flags = d.type, d.flags
        self.lo = d.lo if d.flags & C.ARG_LO else None
        self.hi = d.hi if d.flags & C.ARG_HI else None
        self.outside = [_outcome(o, v) for o, v, f in ((d.below, d.below_value, C.ARG_LO), (d.above, d.above_value, C.ARG_HI))
                        if d.flags & f or d.nchoices]
        self.choices = {_s(d.choices[k].name): d.choices[k].value for k in range(d.nchoices)}
        self.default = inspect.Parameter.empty
        if d.flags & C.ARG_DEFAULT:
            v = d.default
            if self.type in (C.T_RECT, C.T_IMAGE, C.T_PALETTE, C.T_STRING, C.T_DIB):
                v = None
            elif self.type == C.T_BOOL:
                v = bool(v)
            elif self.type == C.T_CHOICE:
                v = next((n for n, c in self.choices.items() if c == v), int(v))
            elif self.type != C.T_REAL:
                v = int(v)
            self.default = v
        self.pyname = self.name + "_" if keyword.iskeyword(self.name) else self.name

    def describe(self):
        bits = [_TYPE_NAMES.get(self.type, "?")] + [x for x in (self.unit, self.range) if x and x != "COLORREF"]
        if self.default is not inspect.Parameter.empty:
            bits.append("default %r" % (self.default,))
        out = self.outside
        if any(out):
            bits.append("outside: " + out[0] if len(set(out)) == 1 else "below: %s, above: %s" % tuple(out))
        text = "  %s: %s. %s" % (self.pyname, ", ".join(bits), self.help)
        if self.choices:
            text += "\n      " + ", ".join("%s=%d" % kv for kv in self.choices.items())
        return text


class Op:
    """One row of the table: an operation with its arguments."""

    def __init__(self, index, d):
        self.index = index
        self.name, self.family, self.summary = _s(d.name), _s(d.family), _s(d.summary)
        self.refuses, self.record = _s(d.refuses), _s(d.record)
        self.args = [Arg(d.args[k]) for k in range(d.nargs)]
        self.result, self.flags = d.result, d.flags
        self.static = bool(d.flags & (C.OP_STATIC | C.OP_FREE))
        self.signature = self._signature()

    def _signature(self):
        # Python wants defaults last: a defaulted argument followed by a required one (the
        # leading rect of most operations) becomes keyword-only, after the others.
        P = inspect.Parameter
        params = [] if self.static else [P("self", P.POSITIONAL_OR_KEYWORD)]
        tail = []
        for k, a in enumerate(self.args):
            later_required = any(b.default is P.empty for b in self.args[k + 1:])
            if a.default is not P.empty and later_required:
                tail.append(P(a.pyname, P.KEYWORD_ONLY, default=a.default))
            else:
                params.append(P(a.pyname, P.POSITIONAL_OR_KEYWORD, default=a.default))
        return inspect.Signature(params + tail)

    def doc(self):
        lines = [self.summary[:1].upper() + self.summary[1:] + ".", ""]
        if self.args:
            lines += ["Arguments:"] + [a.describe() for a in self.args] + [""]
        if self.refuses:
            lines.append("Also refused: %s." % self.refuses)
        lines.append("A refused call raises ValueError with the library's reason and, unless said above, leaves the image as it was.")
        lines += sorted({_TYPE_HELP[a.type] + "." for a in self.args if a.type in _TYPE_HELP})
        result = {C.T_ULONG: "an int", C.T_DIB: "bytes (a packed DIB)", C.T_PALETTE: "a list of (r, g, b) tuples"}
        if self.result in result:
            lines.append("Returns %s." % result[self.result])
        lines.append("Family: %s." % self.family)
        return "\n".join(lines)


def _read_table():
    ops = {}
    for k in range(C.lib.kiv_op_count()):
        op = Op(k, C.lib.kiv_op_info(k).contents)
        ops[op.name] = op
    return ops


OPS = _read_table()


# ---- Python values to table values ----------------------------------------------------------
def _bad_type(op, a, x, want):
    return TypeError("%s: %s must be %s (got %s)" % (op.name, a.pyname, want, type(x).__name__))


def _integer(op, a, x, bounds=_INT64):
    if isinstance(x, float) or not hasattr(x, "__index__"):
        raise _bad_type(op, a, x, "an int")
    v = operator.index(x)
    if not bounds[0] <= v <= bounds[1]:
        raise ValueError("%s: %s does not fit its C type (got %d)" % (op.name, a.pyname, v))
    return v


def _color(op, a, x, bounds=_INT64):
    if isinstance(x, (tuple, list)):
        if len(x) != 3:
            raise ValueError("%s: %s as a tuple must be (r, g, b) (got %d values)" % (op.name, a.pyname, len(x)))
        r, g, b = (_integer(op, a, c) for c in x)
        if not all(0 <= c <= 255 for c in (r, g, b)):
            raise ValueError("%s: %s channels must be 0..255 (got %r)" % (op.name, a.pyname, tuple(x)))
        return r | g << 8 | b << 16
    return _integer(op, a, x, bounds)


def _items(op, a, x):
    if isinstance(x, (str, bytes)) or not hasattr(x, "__iter__"):
        raise _bad_type(op, a, x, "a sequence")
    items = list(x)
    if len(items) > _INT32[1]:
        raise ValueError("%s: %s has too many entries" % (op.name, a.pyname))
    return items


def _tuple(op, a, x, n):
    if not isinstance(x, (tuple, list)) or len(x) != n:
        raise _bad_type(op, a, x, "made of %d-tuples" % n)
    return x


def _rgb(op, a, x):
    r, g, b = (_integer(op, a, c, (0, 255)) for c in _tuple(op, a, x, 3))
    return r, g, b


def to_value(op, a, x, keep):
    """The kiv_value for argument a; keep collects what must outlive the call (buffers, and
    global-memory blocks as ("dib", handle))."""
    t = a.type
    v = C.Value(t, 0, 0, 0.0, None)
    if t in (C.T_INT, C.T_UINT, C.T_BOOL):
        v.i = _integer(op, a, x)
    elif t == C.T_CHOICE:
        if isinstance(x, str):
            if x not in a.choices:
                raise ValueError("%s: %s must be one of %s (got %r)" % (op.name, a.pyname, ", ".join(a.choices), x))
            x = a.choices[x]
        v.i = _integer(op, a, x)
    elif t == C.T_COLOR:
        v.i = _color(op, a, x)
    elif t == C.T_REAL:
        if not isinstance(x, numbers.Real):
            raise _bad_type(op, a, x, "a number")
        v.d = float(x)
    elif x is None:
        pass  # a null pointer: the library accepts or refuses it with its reason
    elif t == C.T_RECT:
        r = C.Rect(*(_integer(op, a, c, _INT32) for c in _tuple(op, a, x, 4)))
        keep.append(r)
        v.p = ctypes.addressof(r)
    elif t == C.T_IMAGE:
        if not hasattr(x, "_live"):
            raise _bad_type(op, a, x, "an Image")
        h = x._live()
        keep.append(h)
        v.p = h.ptr
    elif t == C.T_STRING:
        if not isinstance(x, (str, bytes, os.PathLike)):
            raise _bad_type(op, a, x, "a path")
        s = os.fsencode(x)
        if b"\0" in s:
            raise ValueError("%s: %s contains a NUL character" % (op.name, a.pyname))
        buf = ctypes.create_string_buffer(s)
        keep.append(buf)
        v.p = ctypes.addressof(buf)
    elif t in (C.T_BYTES, C.T_DIB):
        try:
            data = memoryview(x).tobytes()
        except TypeError:
            raise _bad_type(op, a, x, "bytes-like") from None
        if t == C.T_DIB:
            h = C.hglobal_from(data)
            keep.append(("dib", h))
            v.p = h
        else:
            if len(data) > _INT32[1]:
                raise ValueError("%s: %s has too many bytes" % (op.name, a.pyname))
            buf = ctypes.create_string_buffer(data, max(len(data), 1))
            keep.append(buf)
            v.p, v.n = ctypes.addressof(buf), len(data)
    elif t == C.T_PALETTE:
        entries = [_rgb(op, a, e) for e in _items(op, a, x)]
        if len(entries) > 65535:
            raise ValueError("%s: %s has more than 65535 entries" % (op.name, a.pyname))
        raw = bytes([0, 3]) + len(entries).to_bytes(2, "little") + b"".join(bytes(e + (0,)) for e in entries)
        buf = ctypes.create_string_buffer(raw, len(raw) + 4)
        keep.append(buf)
        v.p = ctypes.addressof(buf)
    else:  # arrays with a count
        items = _items(op, a, x)
        if t == C.T_COLORS:
            arr = (ctypes.c_uint32 * len(items))(*[_color(op, a, e, _UINT32) for e in items])
        elif t == C.T_STOPS:
            arr = (C.GradColor * len(items))(*[(_color(op, a, c, _UINT32), _integer(op, a, p, _INT32))
                                                for c, p in (_tuple(op, a, e, 2) for e in items)])
        elif t == C.T_SYSCOLS:
            arr = (C.SysCol * len(items))(*[_rgb(op, a, e) for e in items])
        else:
            arr = (ctypes.c_int * len(items))(*[_integer(op, a, e, _INT32) for e in items])
        keep.append(arr)
        v.p, v.n = (ctypes.addressof(arr) if items else None), len(items)
    return v


def release(keep):
    for k in keep:
        if isinstance(k, tuple):
            C.global_free(k[1])


def _dib_length(p, n):
    """Header, colour table and rows of a packed DIB the library made (it adds slack rows)."""
    h = ctypes.string_at(p, min(n, 40))
    if len(h) < 40:
        return n
    size = int.from_bytes(h[0:4], "little")  # 40, or 124 for createdib_alpha's V5 header
    width, height = int.from_bytes(h[4:8], "little", signed=True), int.from_bytes(h[8:12], "little", signed=True)
    bits, used = int.from_bytes(h[14:16], "little"), int.from_bytes(h[32:36], "little")
    table = 4 * (used or (1 << bits if bits <= 8 else 0))
    return size + table + (abs(width) * bits + 31) // 32 * 4 * abs(height)


def result_of(op, res):
    if op.result == C.T_ULONG:
        return res.i
    if op.result == C.T_DIB:
        return C.global_bytes(res.p, _dib_length)
    if op.result == C.T_PALETTE:
        try:
            n = C.LogPalette.from_address(res.p).count
            raw = ctypes.string_at(res.p + 4, 4 * n)
            return [tuple(raw[4 * k:4 * k + 3]) for k in range(n)]
        finally:
            C.lib.kiv_free_gradtable(res.p)
    return None


def error(reason):
    """The exception for a refused call."""
    reason = reason or "refused"
    return MemoryError(reason) if reason.endswith("out of memory") else ValueError(reason)


def call_static(op, values):
    keep = []
    try:
        vals = (C.Value * max(len(values), 1))(*[to_value(op, a, x, keep) for a, x in zip(op.args, values)])
        res = C.Value()
        ok = C.lib.kiv_op_call(None, op.index, vals, len(values), ctypes.byref(res))
        reason = C.last_error()
    finally:
        release(keep)
    if not ok:
        raise error(reason)
    return result_of(op, res)


PROGRESS_HELP = ("progress: a callable progress(done, total) called as the operation goes (total 100; long "
                 "operations only); a true result stops the call, which raises kivlib.Cancelled and leaves the image "
                 "as it was.  Ctrl-C stops a call made on the main thread the same way and raises KeyboardInterrupt.")


def make(op, body, owner="", progress=False):
    """A function with the operation's name, signature and help whose arguments, bound and
    defaulted, go to body(*bound) (self first for methods); with progress, a keyword-only
    progress=None too, handed to body as progress=."""
    sig = op.signature
    names = ([] if op.static else ["self"]) + [a.pyname for a in op.args]
    if progress:
        P = inspect.Parameter
        sig = sig.replace(parameters=list(sig.parameters.values()) + [P("progress", P.KEYWORD_ONLY, default=None)])

    def f(*args, **kwargs):
        bound = sig.bind(*args, **kwargs)
        bound.apply_defaults()
        more = {"progress": bound.arguments["progress"]} if progress else {}
        return body(*[bound.arguments[n] for n in names], **more)

    f.__name__ = op.name
    f.__qualname__ = owner + op.name
    f.__module__ = "kivlib"
    f.__doc__ = op.doc() + ("\n" + PROGRESS_HELP if progress else "")
    f.__signature__ = sig
    return f
