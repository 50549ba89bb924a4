"""Random calls of every operation with random arguments, inside and outside the table's ranges:
each succeeds or raises ValueError (MemoryError when memory runs out); the interpreter never
dies and the image stays readable."""
import numpy as np
import pytest

import kivlib
from kivlib import _capi as C

hypothesis = pytest.importorskip("hypothesis")
st = hypothesis.strategies

OPS = [op for op in kivlib.operations().values()
       if op.name != "free_gradtable" and all(a.type != C.T_STRING for a in op.args)]  # no files written
I32 = st.integers(-(1 << 31), (1 << 31) - 1)
BYTE = st.integers(0, 255)


def number(a, integer):
    """A bound, just past one, a value near them, anything of the C type, or a named choice."""
    near = [b + d for b in (a.lo, a.hi) if b is not None for d in (-1, 0, 1)] or [0, 1, -1]
    if integer:
        near = [int(v) for v in near]
        # sizes that make an image grow stay small, so a run stays fast
        grow = st.integers(-4, 64) if a.name in ("w", "h", "left", "right", "top", "bottom", "nx", "ny", "n") else I32
        named = list(a.choices) if a.type == C.T_CHOICE else list(a.choices.values())  # names only for choices
        return st.one_of(st.sampled_from(near), grow, st.sampled_from(named or [0]))
    return st.one_of(st.sampled_from(near), st.floats(allow_nan=True, allow_infinity=True), st.floats(-64, 64))


def value(a, images):
    t = a.type
    if t in (C.T_INT, C.T_UINT, C.T_BOOL, C.T_CHOICE):
        return number(a, True)
    if t == C.T_REAL:
        return number(a, False)
    rgb = st.tuples(BYTE, BYTE, BYTE)
    color = st.one_of(st.integers(0, (1 << 32) - 1), rgb)
    items = {C.T_COLOR: color, C.T_RECT: st.tuples(*[st.integers(-8, 40)] * 4), C.T_IMAGE: images,
             C.T_DIB: st.binary(max_size=80), C.T_PALETTE: st.lists(rgb, max_size=20),
             C.T_COLORS: st.lists(color, max_size=12), C.T_STOPS: st.lists(st.tuples(color, st.integers(-5, 1005)), max_size=12),
             C.T_SYSCOLS: st.lists(rgb, max_size=12), C.T_INTS: st.lists(I32, min_size=9, max_size=12),
             C.T_BYTES: st.binary(max_size=64)}[t]
    return st.one_of(st.none(), items) if t in (C.T_RECT, C.T_IMAGE, C.T_PALETTE) else items


def picture(w, h, ch, seed):
    return kivlib.Image.from_array(np.random.default_rng(seed).integers(0, 256, (h, w, ch), dtype=np.uint8))


@st.composite
def calls(draw):
    img = picture(draw(st.integers(1, 19)), draw(st.integers(1, 11)), draw(st.sampled_from([3, 4])), draw(st.integers(0, 9)))
    if draw(st.booleans()):
        img.quantize(0, draw(st.integers(2, 256)), None)  # palettized, depth from the colour count
    images = st.sampled_from([img, picture(5, 3, 4, 1)])
    seq = []
    for _ in range(draw(st.integers(1, 4))):
        op = draw(st.sampled_from(OPS))
        seq.append((op, {a.pyname: draw(value(a, images)) for a in op.args}))
    return img, seq


@hypothesis.settings(max_examples=300, deadline=None, database=None, suppress_health_check=list(hypothesis.HealthCheck))
@hypothesis.given(calls())
def test_random_calls_succeed_or_raise_value_error(case):
    img, seq = case
    for op, kw in seq:
        try:
            getattr(kivlib, op.name)(**kw) if op.static else getattr(img, op.name)(**kw)
        except (ValueError, MemoryError):
            pass
        if not img.closed and img.width:
            assert img.array.shape == (img.height, img.width, 4)
