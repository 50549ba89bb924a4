"""The Python package: every operation reachable with the table's names and help, the same
bytes as the C functions, views, interchange, refusals and bad input, threads."""
import ctypes
import inspect
import os
import pydoc
import signal
import subprocess
import sys
import threading

import numpy as np
import pytest

import kivlib
from kivlib import _capi as C

OPS = kivlib.operations()


def card(w=37, h=23, channels=4, seed=1):
    return kivlib.Image.from_array(np.random.default_rng(seed).integers(0, 256, (h, w, channels), dtype=np.uint8))


def test_every_operation_has_the_tables_name_arguments_defaults_and_help():
    for op in OPS.values():
        if op.name == "free_gradtable":
            continue  # palettes come back as lists: nothing for the caller to free
        fn = getattr(kivlib if op.static else kivlib.Image, op.name)
        params = inspect.signature(fn).parameters
        extra = [] if op.static else ["self"] if op.name in ("movefrom", "copyto") else ["self", "progress"]
        assert sorted(params) == sorted(extra + [a.name for a in op.args]), op.name
        for a in op.args:
            assert params[a.name].default == a.default and a.help in fn.__doc__, (op.name, a.name)
    doc = lambda f: pydoc.render_doc(f, renderer=pydoc.plaintext)
    assert "zoom(self, w, h, method, mapped=False, *, progress=None)" in doc(kivlib.Image.zoom) and "lanczos3=11" in doc(kivlib.Image.zoom)
    assert "blur_gauss_iir(self, sx, sy, *, rect=None, progress=None)" in doc(kivlib.Image.blur_gauss_iir)


class Emboss(ctypes.Structure):
    _fields_ = [("azimuth", ctypes.c_double), ("elevation", ctypes.c_double), ("depth", ctypes.c_int), ("mono", ctypes.c_int)]


def c_call(name, *args):
    fn = getattr(C.lib, "kiv_" + name)
    fn.restype = ctypes.c_int
    return lambda im: fn(ctypes.c_void_p(im._live().ptr), *args)


@pytest.mark.parametrize("py, c", [
    (lambda im: im.zoom(20, 31, "lanczos3"), c_call("zoom", 20, 31, 11, 0)),
    (lambda im: im.blur_gauss_iir(1.5, 0.5, rect=(3, 4, 30, 20)),
     c_call("blur_gauss_iir", ctypes.byref(C.Rect(3, 4, 30, 20)), ctypes.c_double(1.5), ctypes.c_double(0.5))),
    (lambda im: im.shadefill([0xFF, (0, 255, 0), 0xFF0000], "bottom_right", 200, "multiply"),
     c_call("shadefill", None, (ctypes.c_uint32 * 3)(0xFF, 0xFF00, 0xFF0000), 3, 7, 200, 7)),
    (lambda im: im.emboss(azimuth=10.0, depth=3), c_call("emboss", None, ctypes.byref(Emboss(10.0, 45.0, 3, 1)))),
    (lambda im: im.quantize("floyd_steinberg", 1, [(255, 0, 0), (0, 0, 255), (9, 9, 9)]),
     c_call("quantize", 1, 1, ctypes.c_char_p(b"\x00\x03\x03\x00\xff\0\0\0\0\0\xff\0\x09\x09\x09\0"))),
])
def test_same_bytes_as_the_c_functions(py, c):
    a, b = card(), card()
    py(a)
    c(b)
    assert (a.bits, a.colors) == (b.bits, b.colors) and np.array_equal(a.array, b.array)
    assert np.array_equal(a.palette, b.palette)


def test_views_write_through_follow_in_place_operations_and_never_dangle():
    img = card()
    ref, a = img.copy(), img.array
    a[2, 3] = (1, 2, 3, 4)
    ref.array[2, 3] = (1, 2, 3, 4)
    assert np.array_equal(img.copy().array, ref.array)  # the library sees the write
    img.blur_gauss_iir(2.0, 1.0)  # a view is alive: run on a copy, written back in place
    ref.blur_gauss_iir(2.0, 1.0)
    assert np.array_equal(a, ref.array)
    img.zoom(10, 9, "box")  # the pixel count changes: a keeps the old pixels
    assert img.array.shape == (9, 10, 4) and np.array_equal(a, ref.array)
    src = card(seed=2)
    s = src.array
    img.movefrom(src)
    s[0, 0, 0] ^= 0xFF  # views of src follow the moved pixels
    assert src.width == 0 and img.copy().array[0, 0, 0] == s[0, 0, 0]
    img.close()
    assert int(a.sum()) == int(ref.array.sum()) and int(s.sum()) >= 0  # memory still alive
    with pytest.raises(ValueError, match="closed"):
        img.sharpen()


@pytest.mark.parametrize("colors", [0, 2, 16, 256])
def test_dib_and_bmp_round_trips_keep_depth_map_and_pixels(colors, tmp_path):
    img = card(channels=3)
    if colors:
        img.quantize("nearest", colors)
    back = kivlib.Image.from_dib(img.to_dib())
    img.save(tmp_path / "a.bmp")
    opened = kivlib.Image.open(tmp_path / "a.bmp")
    for other in (back, opened):
        assert (other.bits, other.colors) == (img.bits, img.colors)
        assert np.array_equal(other.array, img.array) and np.array_equal(other.palette, img.palette)
    kiv = os.path.join(os.path.dirname(C.path), "..", "bin", "kiv")
    if os.path.exists(kiv):  # the kiv program writes the same file
        subprocess.run([kiv, str(tmp_path / "a.bmp"), "-o", str(tmp_path / "b.bmp")], check=True)
        assert (tmp_path / "a.bmp").read_bytes() == (tmp_path / "b.bmp").read_bytes()


def test_bmp_files_open_through_the_full_reader(tmp_path):
    img = kivlib.Image.from_array(np.random.default_rng(5).integers(1, 256, (3, 5, 4), dtype=np.uint8))
    img.save(tmp_path / "a.bmp")  # 32 bits: a V5 file that keeps alpha
    assert np.array_equal(kivlib.Image.open(tmp_path / "a.bmp").array, img.array)
    assert np.array_equal(kivlib.Image.from_dib(img.createdib_alpha(1), full=True).array[..., 3], img.array[..., 3])
    (tmp_path / "b.bmp").write_bytes(b"BM" + bytes(60))
    with pytest.raises(ValueError, match=r"b\.bmp: loadbmp_bytes: unknown bitmap header size$"):
        kivlib.Image.open(tmp_path / "b.bmp")


def test_from_array():
    rgb = np.random.default_rng(3).integers(0, 256, (5, 7, 3), dtype=np.uint8)
    img = kivlib.Image.from_array(rgb)
    assert img.bits == 24 and np.array_equal(img.array[..., :3], rgb) and not img.array[..., 3].any()
    rgba = np.dstack([rgb, rgb[..., :1]])
    assert kivlib.Image.from_array(rgba).bits == 32 and np.array_equal(kivlib.Image.from_array(rgba).array, rgba)
    for bad, exc in [(rgb.astype(float), TypeError), (rgb[..., 0], ValueError), (rgb[:0], ValueError), (None, TypeError)]:
        with pytest.raises(exc):
            kivlib.Image.from_array(bad)


def test_a_refusal_raises_the_librarys_reason_and_leaves_the_image():
    img = card()
    before = img.copy().array
    with pytest.raises(ValueError, match=r"^zoom: method must be 0\.\.13 \(got 99\)$"):
        img.zoom(10, 10, 99)
    with pytest.raises(ValueError, match="method must be one of box, triangle"):
        img.zoom(10, 10, "lanczos")
    with pytest.raises(ValueError, match="^zoom: refused"):
        img.zoom(70000, 70000, 0)
    for size in [(70000, 70000), (-1, 5), (2 ** 31, 1)]:
        with pytest.raises(ValueError):
            kivlib.Image(*size)
    assert np.array_equal(img.array, before)


# A value the table's type accepts, for the arguments not under test.
GOOD = {C.T_INT: 1, C.T_UINT: 1, C.T_REAL: 1.0, C.T_BOOL: 0, C.T_COLOR: 0, C.T_RECT: None, C.T_STRING: "t.bmp",
        C.T_COLORS: [0xFF], C.T_STOPS: [(0, 0), (0xFFFFFF, 1000)], C.T_SYSCOLS: [(1, 2, 3)], C.T_INTS: [1] * 9,
        C.T_BYTES: bytes(64), C.T_PALETTE: [(1, 2, 3)]}
BAD = [None, "x", 1.5, float("nan"), object(), 2 ** 31, -2 ** 31 - 1, 2 ** 64, -1, [], [None], b"", (1, 2, 3, 4, 5)]


def test_any_argument_gives_an_exception_or_a_result(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    dib = card(4, 3).to_dib()
    for op in OPS.values():
        if op.name == "free_gradtable":
            continue
        good = [a.choices and next(iter(a.choices)) or GOOD.get(a.type) for a in op.args]
        for k, a in enumerate(op.args):
            good[k] = card(4, 3) if a.type == C.T_IMAGE else dib if a.type == C.T_DIB else good[k]
        for k in range(-1, len(op.args)):
            for bad in BAD if k >= 0 else [None]:
                args = good[:k] + [bad] + good[k + 1:] if k >= 0 else good
                img = card(6, 5)
                view = img.array if k % 2 else None  # also through the copy a live view asks for
                fn = getattr(kivlib, op.name) if op.static else getattr(img, op.name)
                try:
                    fn(*args) if k >= 0 or op.static else (img.close(), fn(*args))
                except (TypeError, ValueError, MemoryError):
                    pass
                if view is not None and not img.closed and img.width * img.height == 30 and img.bits >= 24 and not img.colors:
                    assert np.array_equal(view.ravel(), img.array.ravel()), op.name  # the view still shows the image


def test_operations_release_the_gil(tmp_path):
    # Thread a's call waits inside the library on a pipe until the main thread, having run an
    # operation on another image meanwhile, closes it: with the GIL held it would never return.
    if not hasattr(os, "mkfifo"):
        pytest.skip("needs a named pipe")
    card(4, 3, 3).save(tmp_path / "t.bmp")
    os.mkfifo(tmp_path / "pipe")
    code = """if 1:
        import threading, numpy as np, kivlib
        a, b = kivlib.Image.from_array(np.full((30, 40, 3), 128, np.uint8)), kivlib.Image(40, 30)
        t = threading.Thread(target=a.texturize_by_file, args=[%r])
        t.start()
        with open(%r, "wb") as f:  # returns when a's call has opened the pipe
            b.zoom(400, 300, "lanczos3")
            assert t.is_alive()
            f.write(open(%r, "rb").read())
        t.join()
        assert (a.array[..., :3] != 128).any()  # textured: the call read the pipe
    """ % (str(tmp_path / "pipe"), str(tmp_path / "pipe"), str(tmp_path / "t.bmp"))
    subprocess.run([sys.executable, "-c", code], check=True, timeout=60, cwd=os.path.dirname(kivlib.__path__[0]))


def test_one_image_from_many_threads_and_any_thread_count_give_the_same_bytes():
    img, ref = card(64, 48), card(64, 48)
    ts = [threading.Thread(target=lambda: [img.mirror(0, 0, 0, 0) for _ in range(25)]) for _ in range(4)]
    [t.start() for t in ts]
    [t.join() for t in ts]
    assert np.array_equal(img.array, ref.array)  # 100 mirrors, one at a time
    outs = []
    for n in (1, 2, 0):
        kivlib.set_threads(n)
        assert kivlib.get_threads() == n
        im = card(300, 200)
        im.unsharp_mask(2.0, 150, 1)
        outs.append(im.array)
    assert all(np.array_equal(o, outs[0]) for o in outs)


def test_installs_offline_with_pip(tmp_path):
    env = tmp_path / "env"
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", str(env)], check=True)
    subprocess.run([sys.executable, "-m", "pip", "--python", str(env / "bin" / "python"), "install", "-q",
                    "--no-index", os.path.dirname(kivlib.__path__[0])], check=True)
    out = subprocess.run([str(env / "bin" / "python"), "-c", "import kivlib; print(kivlib.__file__, kivlib.Image(2, 2))"],
                         env=dict(os.environ, KIVLIB_LIBRARY=C.path), cwd=tmp_path, check=True, capture_output=True, text=True)
    assert str(env) in out.stdout and "2x2" in out.stdout


def test_progress_rises_to_the_end_and_stopping_leaves_the_image(monkeypatch):
    img, seen = card(300, 200, seed=4), []
    want = img.copy()
    want.zoom_rgba(70, 50, "lanczos3", 3)
    img.zoom_rgba(70, 50, "lanczos3", 3, progress=lambda done, total: seen.append((done, total)))
    assert (img.array == want.array).all() and seen[0] == (0, 100) and seen[-1] == (100, 100)
    assert [d for d, _ in seen] == sorted({d for d, _ in seen})
    for stop, raised in ((lambda d, t: d >= 20, kivlib.Cancelled), (lambda d, t: 1 / 0, ZeroDivisionError)):
        before = img.array.copy()
        with pytest.raises(raised):
            img.blur_gauss_rgba(4.0, 4.0, 1, progress=stop)
        assert (img.array == before).all() and img.bits == 32
    # Ctrl-C on the main thread stops the running call, which leaves the image as it was.
    big = card(1500, 1000, seed=5)
    before = big.array.copy()
    timer = threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        big.blur_gauss_sel(60.0, 255)
    timer.join()
    assert (big.array == before).all()
