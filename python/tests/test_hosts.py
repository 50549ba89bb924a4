"""The README's C, Python and C# examples as pasted, and the .NET binding: its generated file is
up to date, its example runs natively and writes the bytes the Python route writes, and no
argument makes it throw anything but the documented exceptions."""
import os
import re
import runpy
import subprocess
import sys

import pytest

import kivlib
from kivlib import _capi as C

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DOTNET = os.path.join(ROOT, "bindings", "dotnet")
LIBDIR = os.path.dirname(C.path)
ENV = dict(os.environ, LD_LIBRARY_PATH=LIBDIR)


def readme(lang):
    with open(os.path.join(ROOT, "README.md")) as f:
        return re.search(r"```%s\n(.*?)```" % lang, f.read(), re.S).group(1)


@pytest.fixture(scope="module")
def kiv_dll(tmp_path_factory):
    out = tmp_path_factory.mktemp("dotnet")
    sources = [os.path.join(DOTNET, n) for n in sorted(os.listdir(DOTNET)) if n.endswith(".cs")]
    subprocess.run(["mcs", "-nologo", "-warnaserror", "-target:library", "-out:" + str(out / "Kiv.dll")] + sources, check=True)
    (out / "Kiv.dll.config").write_bytes(open(os.path.join(DOTNET, "Kiv.dll.config"), "rb").read())
    return out


def run_cs(kiv_dll, source, *args):
    exe = str(kiv_dll / os.path.basename(str(source)).replace(".cs", ".exe"))
    subprocess.run(["mcs", "-nologo", "-r:" + str(kiv_dll / "Kiv.dll"), "-out:" + exe, str(source)], check=True)
    return subprocess.run(["mono", exe] + list(args), cwd=kiv_dll, env=dict(ENV, MONO_PATH=str(kiv_dll)), check=True,
                          capture_output=True, text=True, timeout=300).stdout


def test_readme_examples_run_as_pasted(tmp_path, kiv_dll, monkeypatch):
    (tmp_path / "demo.c").write_text(readme("c"))
    subprocess.run(["cc", "-std=c99", "-Wall", "-Werror", "demo.c", "-I" + os.path.join(ROOT, "include"), "-L" + LIBDIR,
                    "-lkivlib", "-o", "demo"], cwd=tmp_path, check=True)
    out = subprocess.run(["./demo"], cwd=tmp_path, env=ENV, check=True, capture_output=True, text=True).stdout
    assert re.match(r"zoom: method must be 0\.\.13 \(got 99\)\n320 x 240", out)
    monkeypatch.chdir(tmp_path)
    (tmp_path / "demo.py").write_text(readme("python"))
    runpy.run_path(str(tmp_path / "demo.py"))
    assert kivlib.Image.open(tmp_path / "small.bmp").width == 320
    (kiv_dll / "Demo.cs").write_text(readme("csharp"))
    assert run_cs(kiv_dll, kiv_dll / "Demo.cs") == "zoom: method must be 0..13 (got 99)\n320 x 240\n"


def test_generated_dotnet_methods_are_up_to_date(tmp_path):
    subprocess.run([sys.executable, os.path.join(DOTNET, "generate.py"), str(tmp_path / "ops.cs")], check=True)
    assert (tmp_path / "ops.cs").read_text() == open(os.path.join(DOTNET, "KivImage.Operations.cs")).read(), \
        "run bindings/dotnet/generate.py"


def test_dotnet_example_writes_the_python_routes_bytes_and_survives_any_argument(kiv_dll):
    out = run_cs(kiv_dll, os.path.join(DOTNET, "example", "Example.cs"), str(kiv_dll / "cs.bmp"))
    assert "160 x 100, 4 bits, 16 colours\nrefused: zoom: method must be 0..13 (got 99)\n" in out
    assert "stopped: blur_gauss_rgba: cancelled\n" in out
    assert "read back: 160 x 100, 4 bits" in out
    img = kivlib.Image(320, 200)
    img.gradientfill([(0xFF0000, 0), (0x00A0FF, 1000)], "right", 255, "normal")
    img.zoom(160, 100, "lanczos3")
    img.unsharp_mask(1.0, 80, 2)
    img.quantize("floyd_steinberg", 16)
    img.save(kiv_dll / "py.bmp")
    assert (kiv_dll / "cs.bmp").read_bytes() == (kiv_dll / "py.bmp").read_bytes()
    assert re.match(r"\d{4,} calls", run_cs(kiv_dll, os.path.join(ROOT, "tests", "dotnet", "BadInput.cs")))
