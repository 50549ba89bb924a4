#!/usr/bin/env python3
"""Resize, sharpen and quantize a folder of images with Dask, one task per file.

    batch_dask.py IN_DIR OUT_DIR                      # a local cluster of worker processes
    batch_dask.py IN_DIR OUT_DIR --scheduler tcp://host:8786   # the same code on a cluster
    batch_dask.py IN_DIR OUT_DIR --single             # no Dask: one file after another

Each image is shrunk to fit --size (Lanczos 3), sharpened with an unsharp mask and reduced
to --colors colours (Floyd-Steinberg), then written to OUT_DIR under the same name.  The
result does not depend on where it runs: every worker gives the bytes one process would.
On a cluster, IN_DIR and OUT_DIR must be paths every worker sees (a shared folder), and each
worker needs kivlib (the package and the shared library, see README).
"""
import argparse
import os


def process(src, dst, width, height, colors, threads):
    """One file: runs on a worker, so it imports what it needs itself."""
    import kivlib
    kivlib.set_threads(threads)  # the workers share the cores: one thread each by default
    img = kivlib.Image.open(src)
    scale = min(width / img.width, height / img.height)
    if scale < 1:
        img.zoom(max(1, int(img.width * scale)), max(1, int(img.height * scale)), "lanczos3")
    img.unsharp_mask(1.0, 80, 2)
    img.quantize("floyd_steinberg", colors)
    img.save(dst)
    return os.getpid()


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("src", help="folder of images to read (BMP)")
    ap.add_argument("dst", help="folder to write, created when missing")
    ap.add_argument("--size", default="256x256", help="largest width x height (default 256x256)")
    ap.add_argument("--colors", type=int, default=64, help="palette size, 1..256 (default 64)")
    ap.add_argument("--scheduler", help="address of a running Dask scheduler; default: a local cluster")
    ap.add_argument("--workers", type=int, default=2, help="worker processes of the local cluster (default 2)")
    ap.add_argument("--threads", type=int, default=1, help="library threads per task (0: all cores)")
    ap.add_argument("--single", action="store_true", help="run in this process, without Dask")
    args = ap.parse_args(argv)
    width, height = (int(v) for v in args.size.lower().split("x"))
    os.makedirs(args.dst, exist_ok=True)
    names = sorted(n for n in os.listdir(args.src) if n.lower().endswith(".bmp"))
    jobs = [(os.path.join(args.src, n), os.path.join(args.dst, n)) for n in names]
    opts = dict(width=width, height=height, colors=args.colors, threads=args.threads)

    if args.single:
        pids = [process(s, d, **opts) for s, d in jobs]
    else:
        from dask.distributed import Client, LocalCluster
        # A local cluster listens on the loopback interface only, without its web dashboard.
        cluster = None if args.scheduler else LocalCluster(
            n_workers=args.workers, threads_per_worker=1, processes=True, host="127.0.0.1", dashboard_address=None)
        with Client(args.scheduler or cluster) as client:
            futures = client.map(process, [s for s, _ in jobs], [d for _, d in jobs], **opts, pure=False)
            pids = client.gather(futures)
        if cluster:
            cluster.close()
    where = "this process" if args.single else "%d worker processes" % len(set(pids) - {os.getpid()})
    print("%d images written to %s by %s" % (len(pids), args.dst, where))


if __name__ == "__main__":
    main()
