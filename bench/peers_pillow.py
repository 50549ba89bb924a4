#!/usr/bin/env python3
"""Pillow side of bench/peers/compare.cpp: runs one operation at a time on request so the
driver can alternate the libraries repetition by repetition.

Protocol, one line each way (replies are JSON):
  version                 -> {"pillow": "9.4.0", "python": "3.11.2"}
  load <path> <w> <h>     -> {"ok": 1}       raw RGB bytes, row-major, top row first
  run <op> [k]            -> {"ms": 12.3}    the mean of k calls (default 1), each timed on
                                             its own; plus "psnr" for the quantizers
  quit
Only the operation itself is timed (time.perf_counter); inputs are prepared before."""
import json
import math
import sys
import time

try:
    from PIL import Image, ImageChops, ImageFilter, ImageOps
except ImportError as e:  # the driver then leaves the Pillow column empty
    print(json.dumps({"error": "no Pillow: %s" % e}), flush=True)
    sys.exit(0)

R = getattr(Image, "Resampling", Image)
T = getattr(Image, "Transpose", Image)
D = getattr(Image, "Dither", Image)
Q = getattr(Image, "Quantize", Image)
FILTERS = {"lanczos": R.LANCZOS, "mitchell": R.BICUBIC, "bilinear": R.BILINEAR, "nearest": R.NEAREST}

SHARPEN3 = ImageFilter.Kernel((3, 3), (-1, -1, -1, -1, 18, -1, -1, -1, -1), 10)

src = None
dib = None  # the source as a bottom-up BGR block, made once per load


def psnr(a, b):
    hist = ImageChops.difference(a, b.convert("RGB")).histogram()
    sq = sum((i % 256) ** 2 * n for i, n in enumerate(hist))
    mse = sq / (3.0 * a.size[0] * a.size[1])
    return 99.0 if mse == 0 else 10.0 * math.log10(255.0 * 255.0 / mse)


def gamma_table(g):
    return [min(255, int(round(255.0 * (i / 255.0) ** (1.0 / g)))) for i in range(256)] * 3


def bc_table(b, c):
    f = (259.0 * (c + 255)) / (255.0 * (259 - c))
    return [max(0, min(255, int(f * (i + b - 128) + 128))) for i in range(256)] * 3


_rgba = None


def rgba_source():
    global _rgba
    if _rgba is None or _rgba[0] is not src:
        a = src.convert("RGBA")
        a.putalpha(Image.frombytes("L", (256, 1), bytes(range(256))).resize((src.size[0], src.size[1]), R.NEAREST))
        _rgba = (src, a)
    return _rgba[1]


def run(op, k):
    """Returns (mean ms of k calls, extra dict)."""
    name = op.partition(":")[0]
    total = 0.0
    for _ in range(k):
        ms, out = call(op)
        total += ms
    extra = {}
    if name == "quant":
        extra["psnr"] = psnr(src, out)
    return total / k, extra


def call(op):
    """Runs op once; returns (ms, its output)."""
    name, _, arg = op.partition(":")
    im = src
    if name == "resize_rgba":
        rgba_source()  # made before the clock starts
    t0 = time.perf_counter()
    if name == "gauss":
        out = im.filter(ImageFilter.GaussianBlur(float(arg)))
    elif name == "box":
        out = im.filter(ImageFilter.BoxBlur(int(arg)))
    elif name == "mean3":
        out = im.filter(ImageFilter.BoxBlur(1))
    elif name == "median3":
        out = im.filter(ImageFilter.MedianFilter(3))
    elif name == "sharpen3":
        out = im.filter(SHARPEN3)
    elif name == "edges":
        out = im.filter(ImageFilter.FIND_EDGES)
    elif name == "resize":
        w, h, f = arg.split(":")
        out = im.resize((int(w), int(h)), FILTERS[f])
    elif name == "resize_rgba":  # the source with alpha running 0..255 along each row, made once
        w, h, f = arg.split(":")
        out = rgba_source().resize((int(w), int(h)), FILTERS[f])
    elif name == "rot90":
        out = im.transpose(T.ROTATE_270)  # clockwise, as the others
    elif name == "flip":
        out = im.transpose(T.FLIP_TOP_BOTTOM)
    elif name == "mirror":
        out = im.transpose(T.FLIP_LEFT_RIGHT)
    elif name == "gamma":
        out = im.point(gamma_table(float(arg)))
    elif name == "bc":
        b, c = arg.split(":")
        out = im.point(bc_table(int(b), int(c)))
    elif name == "equalize":
        out = ImageOps.equalize(im)
    elif name == "quant":
        out = im.quantize(256, Q.MEDIANCUT)
        if arg == "1":  # quantize() dithers only against a given palette: remap with it
            out = im.quantize(palette=out, dither=D.FLOYDSTEINBERG)
    elif name == "dib":
        # bottom-up BGR in, RGBA, and back to bottom-up BGR
        rgba = Image.frombytes("RGB", im.size, dib, "raw", "BGR", 0, -1).convert("RGBA")
        out = rgba.convert("RGB").tobytes("raw", "BGR", 0, -1)
    elif name == "thumb":
        # resize, sharpen, 256 colours, then an 8-bit bottom-up row block and its palette
        size = int(arg)
        small = im.resize((size, size), R.LANCZOS).filter(SHARPEN3)
        p = small.quantize(256, Q.MEDIANCUT)
        out = (p.tobytes("raw", "P", 0, -1), p.getpalette())
    else:
        raise ValueError("unknown operation " + op)
    return (time.perf_counter() - t0) * 1000.0, out


def main():
    global src, dib
    for line in sys.stdin:
        words = line.split()
        if not words:
            continue
        try:
            if words[0] == "quit":
                break
            if words[0] == "version":
                reply = {"pillow": Image.__version__, "python": sys.version.split()[0]}
            elif words[0] == "load":
                w, h = int(words[2]), int(words[3])
                with open(words[1], "rb") as f:
                    src = Image.frombytes("RGB", (w, h), f.read())
                dib = src.tobytes("raw", "BGR", 0, -1)
                reply = {"ok": 1}
            elif words[0] == "run":
                ms, extra = run(words[1], int(words[2]) if len(words) > 2 else 1)
                reply = dict(ms=ms, **extra)
            else:
                reply = {"error": "unknown command " + words[0]}
        except Exception as e:  # report and carry on: one bad row must not end the run
            reply = {"error": "%s: %s" % (type(e).__name__, e)}
        print(json.dumps(reply), flush=True)


if __name__ == "__main__":
    main()
