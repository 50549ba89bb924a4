"""Image files: which formats Image.open and Image.save know, and how another plugs in.

BMP is read by the library's full reader (loadbmp: every header, depth and compression) and
written by its DIB code (the file is a 14-byte header and a packed DIB; 32-bit images as a
V5 DIB that keeps alpha).  Another format joins with register(): a reader from the file's bytes to an
Image, a writer from an Image to bytes, the file extensions and a test of the first bytes.
"""
import os
import tempfile

_formats = []


class Format:
    def __init__(self, name, extensions, sniff, read, write):
        self.name, self.extensions = name, tuple(e.lower() for e in extensions)
        self.sniff, self.read, self.write = sniff, read, write


def register(name, extensions, sniff, read=None, write=None, first=False):
    """Add a format: sniff(head: bytes) -> bool recognises a file by its first 64 bytes,
    read(data: bytes) -> Image, write(img) -> bytes (either may be None).  first=True puts it
    before the formats already known (to take over one of their extensions)."""
    fmt = Format(name, extensions, sniff, read, write)
    _formats.insert(0, fmt) if first else _formats.append(fmt)
    return fmt


def read(path):
    with open(path, "rb") as f:
        data = f.read()
    for fmt in _formats:
        if fmt.read and fmt.sniff(data[:64]):
            try:
                return fmt.read(data)
            except ValueError as e:
                raise ValueError("%s: %s" % (os.fspath(path), e)) from None
    raise ValueError("%s: unrecognised image format (known: %s)"
                     % (os.fspath(path), ", ".join(f.name for f in _formats if f.read)))


def write(img, path, name=None):
    ext = os.path.splitext(os.fspath(path))[1].lower()
    for fmt in _formats:
        if fmt.write and (fmt.name == name if name else ext in fmt.extensions):
            data = fmt.write(img)
            break
    else:
        raise ValueError("%s: no writer for %s (known: %s)" % (os.fspath(path), name or repr(ext),
                         ", ".join(f.name for f in _formats if f.write)))
    # Written beside the target and renamed over it: a failure leaves no half-written file.
    fd, tmp = tempfile.mkstemp(dir=os.path.dirname(os.path.abspath(path)), prefix=".kivlib-")
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(data)
        os.replace(tmp, path)
    except BaseException:
        os.unlink(tmp)
        raise


def _le(b, at, n=4):
    return int.from_bytes(b[at:at + n], "little")


def _bmp_read(data):
    from ._image import Image
    img = Image(0, 0, 0)
    img.loadbmp_bytes(data)  # every form of BMP file; a refusal raises ValueError with the reason
    return img


def _bmp_write(img):
    # An image with alpha as a 32-bit V5 file whose bit fields keep it (as the kiv program writes).
    dib = img.createdib_alpha(0) if img.bits == 32 else img.to_dib()
    used, bits = _le(dib, 32), _le(dib, 14, 2)
    off = 14 + _le(dib, 0) + 4 * (used or (1 << bits if bits <= 8 else 0))
    return b"BM" + (14 + len(dib)).to_bytes(4, "little") + bytes(4) + off.to_bytes(4, "little") + dib


register("bmp", [".bmp", ".dib"], lambda head: head[:2] == b"BM", _bmp_read, _bmp_write)
