"""examples/python/batch_dask.py: two worker processes of a local cluster write, file for file,
the bytes one process writes."""
import os
import re
import subprocess
import sys

import numpy as np

import kivlib

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def test_a_local_cluster_writes_what_one_process_writes(tmp_path):
    rng = np.random.default_rng(7)
    os.mkdir(tmp_path / "in")
    for k in range(6):  # sizes that shrink, one that fits; with and without alpha
        a = rng.integers(0, 256, (30 + 17 * k, 90 - 11 * k, 3 + k % 2), dtype=np.uint8)
        kivlib.Image.from_array(a).save(tmp_path / "in" / ("%d.bmp" % k))
    env = dict(os.environ, PYTHONPATH=os.path.join(ROOT, "python"))
    outs = {}
    for mode in ("--single", "--workers=2"):
        run = subprocess.run([sys.executable, os.path.join(ROOT, "examples", "python", "batch_dask.py"),
                              str(tmp_path / "in"), str(tmp_path / mode), "--size", "64x48", "--colors", "20", mode],
                             env=env, check=True, capture_output=True, text=True, timeout=300)
        outs[mode] = {n: (tmp_path / mode / n).read_bytes() for n in sorted(os.listdir(tmp_path / mode))}
    assert re.search(r"^6 images .* by [12] worker process", run.stdout)
    assert outs["--single"] == outs["--workers=2"] and len(outs["--single"]) == 6
    for name in outs["--single"]:
        img = kivlib.Image.open(tmp_path / "--single" / name)
        assert img.width <= 64 and img.height <= 48 and img.bits <= 8 and img.colors <= 20
