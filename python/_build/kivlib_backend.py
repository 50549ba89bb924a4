"""A build backend for pip that needs nothing from the network: the package is pure Python,
so the wheel is a zip of kivlib/ (with a libkivlib.so or kivlib.dll placed there, if any)
and its metadata."""
import base64
import hashlib
import os
import zipfile

NAME, SUMMARY = "kivlib", "Python binding of the kivlib image library (ctypes over its C interface)"
HERE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def _version():
    with open(os.path.join(HERE, "kivlib", "_version.py")) as f:
        return f.read().split('"')[1]


def _metadata():
    return ("Metadata-Version: 2.1\nName: %s\nVersion: %s\nSummary: %s\nRequires-Python: >=3.8\n"
            "Requires-Dist: numpy\nLicense: MIT\n" % (NAME, _version(), SUMMARY))


def get_requires_for_build_wheel(config_settings=None):
    return []


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    info = "%s-%s.dist-info" % (NAME, _version())
    os.makedirs(os.path.join(metadata_directory, info), exist_ok=True)
    with open(os.path.join(metadata_directory, info, "METADATA"), "w") as f:
        f.write(_metadata())
    return info


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    version = _version()
    info = "%s-%s.dist-info" % (NAME, version)
    files = []
    for name in sorted(os.listdir(os.path.join(HERE, "kivlib"))):
        if name.endswith(".py") or name.startswith(("libkivlib.so", "kivlib.dll", "libkivlib.dylib")):
            with open(os.path.join(HERE, "kivlib", name), "rb") as f:
                files.append(("kivlib/" + name, f.read()))
    files.append((info + "/METADATA", _metadata().encode()))
    files.append((info + "/WHEEL", b"Wheel-Version: 1.0\nGenerator: kivlib_backend\nRoot-Is-Purelib: true\nTag: py3-none-any\n"))
    record = "".join("%s,sha256=%s,%d\n" % (n, base64.urlsafe_b64encode(hashlib.sha256(d).digest()).rstrip(b"=").decode(),
                                             len(d)) for n, d in files) + info + "/RECORD,,\n"
    files.append((info + "/RECORD", record.encode()))
    wheel = "%s-%s-py3-none-any.whl" % (NAME, version)
    with zipfile.ZipFile(os.path.join(wheel_directory, wheel), "w", zipfile.ZIP_DEFLATED) as z:
        for n, d in files:
            z.writestr(n, d)
    return wheel
