#!/usr/bin/env python3
"""Writes the fuzz targets' seed corpora into tests/fuzz/corpus/<target>/.

Run once after a change to what the readers accept; the files are committed.
    tests/fuzz/make_corpus.py [PATH_TO_KIV_PROGRAM]
The kiv program (e.g. build/linux/bin/kiv) supplies one command line per operation for the
cli corpus, and the cli dictionary (cli.dict), from its own help texts; without it both are
left as they are.
"""
import os
import struct
import subprocess
import sys
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
W, H = 5, 3  # odd width: every depth needs row padding


FORMATS = ("bmp", "gif", "jpeg", "png", "tiff", "webp")


def write(target, name, data):
    d = os.path.join(HERE, "corpus", target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)
    # A file seed also starts its own format's reader target (named by its prefix).
    fmt = next((f for f in FORMATS if name.startswith(f)), None)
    if target == "image_io" and fmt:
        write(fmt, name, data)


def pixel(x, y):
    return (x * 50 + 10) & 255, (y * 90 + 20) & 255, (x * y * 40 + 30) & 255


def rows(depth, top_down=False, colors=None):
    """Pixel rows of depth bits, bottom-up unless top_down, padded to 4 bytes."""
    out = b""
    order = range(H) if top_down else range(H - 1, -1, -1)
    for y in order:
        bits = []
        row = b""
        for x in range(W):
            r, g, b = pixel(x, y)
            if depth <= 8:
                bits.append(((x + 2 * y) % (colors or (1 << depth))) & ((1 << depth) - 1))
            elif depth == 16:
                row += struct.pack("<H", (r >> 3) << 10 | (g >> 3) << 5 | b >> 3)
            elif depth == 24:
                row += bytes((b, g, r))
            else:
                row += bytes((b, g, r, 255))
        if depth <= 8:
            acc, n = 0, 0
            for v in bits:
                acc = acc << depth | v
                n += depth
                if n == 8:
                    row += bytes((acc,))
                    acc, n = 0, 0
            if n:
                row += bytes((acc << (8 - n),))
        row += b"\0" * (-len(row) % 4)
        out += row
    return out


def table(n):
    return b"".join(bytes(((i * 37) & 255, (i * 91) & 255, (i * 53) & 255, 0)) for i in range(n))


def info(depth, compression=0, clr_used=0, height=H, size=40, image_bytes=0):
    hdr = struct.pack("<IiiHHIIiiII", 40, W, height, 1, depth, compression, image_bytes, 2835, 2835, clr_used, 0)
    return struct.pack("<I", size) + hdr[4:] + b"\0" * (size - 40)


def dib(depth, clr_used=0, top_down=False):
    n = clr_used or ((1 << depth) if depth <= 8 else 0)
    return info(depth, clr_used=clr_used, height=-H if top_down else H) + table(n) + rows(depth, top_down, clr_used)


def bmp_file(packed, table_bytes_after_header):
    off = 14 + table_bytes_after_header
    return b"BM" + struct.pack("<IHHI", 14 + len(packed), 0, 0, off) + packed


def rle8():
    # Two encoded runs per row, end of line, end of bitmap.
    body = b""
    for y in range(H):
        body += bytes((3, y, 2, 7, 0, 0))
    body += bytes((0, 1))
    return info(8, compression=1, clr_used=8, image_bytes=len(body)) + table(8) + body


def rle4():
    body = b""
    for y in range(H):
        body += bytes((5, 0x12 + y, 0, 0))
    body += bytes((0, 1))
    return info(4, compression=2, clr_used=16, image_bytes=len(body)) + table(16) + body


def bitfields(depth, masks):
    return info(depth, compression=3) + struct.pack("<III", *masks) + rows(depth)


def core_header():
    # The 12-byte header of the oldest format: width and height are 16-bit.
    return struct.pack("<IHHHH", 12, W, H, 1, 24) + rows(24)


def full_reader_extras():
    """Forms only the full reader takes: alpha masks, 64 bits, RLE holes, OS/2 headers."""
    v5 = bytearray(info(32, compression=3, size=124))
    v5[40:56] = struct.pack("<IIII", 0xFF0000, 0xFF00, 0xFF, 0xFF000000)
    holes = bytes((2, 1, 0, 2, 1, 1, 3, 4, 0, 0, 0, 3, 5, 6, 7, 0, 0, 1))
    return {
        "d32_v5_alpha": bytes(v5) + rows(32),
        "d64": info(64) + bytes((i * 37) & 255 for i in range(W * 8 * H)),
        "d16_alphabitfields": info(16, compression=6) + struct.pack("<IIII", 0xF00, 0xF0, 0xF, 0xF000) + rows(16),
        "d8_rle_holes": info(8, compression=1, clr_used=8) + table(8) + holes,
        "core_palette": struct.pack("<IHHHH", 12, W, H, 1, 8) + table(256)[:768] + rows(8),
        "os2_short": struct.pack("<IiiHH", 16, W, H, 1, 24) + rows(24),
    }


def png(color_type, channels):
    raw = b""
    for y in range(H):
        raw += b"\0"
        for x in range(W):
            r, g, b = pixel(x, y)
            raw += bytes((r, g, b, 200)[:channels]) if channels >= 3 else bytes((r, 200)[:channels])
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", W, H, 8, color_type, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


def pipeline():
    """fuzz_pipeline: one seed per operation (position in the target's list of usable rows,
    arguments at their defaults) on an odd-sized image of each depth, and a few longer runs."""
    import random
    rnd = random.Random(25)
    for op in range(110):
        image = bytes([op % 2, 12 + op % 29, 7 + op % 11, op % 10, op % 6, op, 0]) + bytes([5, 4, 3, 0, 1, 0])
        write("pipeline", "op%03d" % op, image + bytes([1, op, op, 0]) + bytes(16))
    for k in range(12):
        write("pipeline", "run%02d" % k, bytes([k, 30, 17, k, k % 3, k, k, 9, 9, 4, 1, 2, 0, 12]) +
              bytes(rnd.randrange(256) for _ in range(300)))


def main():
    dibs = {
        "d1": dib(1), "d2": dib(2), "d4": dib(4), "d8": dib(8), "d8_used3": dib(8, clr_used=3),
        "d4_used5": dib(4, clr_used=5), "d16": dib(16), "d24": dib(24), "d32": dib(32),
        "d24_v5header": info(24, size=124) + rows(24),
        "d16_bitfields": bitfields(16, (0xF800, 0x7E0, 0x1F)),
        "d32_bitfields": bitfields(32, (0xFF0000, 0xFF00, 0xFF)),
        "d8_rle": rle8(), "d4_rle": rle4(), "core_header": core_header(),
        "d24_topdown": dib(24, top_down=True),
    }
    for name, data in dibs.items():
        write("dib", name, data)

    files = {}
    for depth in (1, 4, 8, 24):
        n = (1 << depth) if depth <= 8 else 0
        files["bmp%d" % depth] = bmp_file(dib(depth), 40 + 4 * n)
        files["bmp%d_topdown" % depth] = bmp_file(dib(depth, top_down=True), 40 + 4 * n)
    files["bmp8_used3"] = bmp_file(dib(8, clr_used=3), 40 + 12)
    files["bmp32"] = bmp_file(dib(32), 40)
    gap = dib(24)
    files["bmp24_gap"] = b"BM" + struct.pack("<IHHI", 14 + len(gap) + 8, 0, 0, 14 + 40 + 8) + gap[:40] + b"\0" * 8 + gap[40:]
    for name, data in files.items():
        write("texture", name, data)
        write("image_io", name, data)
    for name, data in {**dibs, **full_reader_extras()}.items():
        write("dib_any", name, data)
    for name, data in files.items():
        write("dib_any", "file_" + name, data)
    for name, (ct, ch) in {"png_rgb": (2, 3), "png_rgba": (6, 4), "png_grey": (0, 1), "png_grey_alpha": (4, 2)}.items():
        write("image_io", name, png(ct, ch))

    pipeline()

    if len(sys.argv) > 1:
        kiv = sys.argv[1]
        write("cli", "list", b"--list")
        write("cli", "help", b"help\nzoom")
        write("cli", "usage", b"-h")
        write("cli", "rect", b"in.bmp\nrect\n2\n3\n9\n7\ninvert\nrect\n0\n0\n0\n0\nflip\n-o\nout.png")
        names = [l.split()[0] for l in subprocess.run([kiv, "--list"], capture_output=True, text=True, check=True)
                 .stdout.splitlines() if l.strip() and not l.startswith("rect ")]
        # Words for the fuzzer to splice in: every operation name and awkward numbers.
        words = names + ["rect", "-o", "help", "--list", "2147483647", "-2147483648", "4294967295", "0x7fffffff",
                         "#ffffff", "1e308", "-1e308", "nan", "inf", "0.5", "-1"]
        with open(os.path.join(HERE, "cli.dict"), "w") as f:
            f.write("".join('"\\x0A%s\\x0A"\n' % w for w in words))
        for op in names:
            text = subprocess.run([kiv, "help", op], capture_output=True, text=True, check=True).stdout
            example = [l for l in text.splitlines() if l.strip().startswith("example: kiv ")]
            if example:
                argv = example[0].split("example: kiv ", 1)[1].split()
                write("cli", "op_" + op, "\n".join(argv).encode())


if __name__ == "__main__":
    main()
