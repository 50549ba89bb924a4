#!/usr/bin/env python3
"""Quality against time of the palette quantizers, from the CSV that bench/peers/compare.cpp
writes (bench/quant_results.csv): one panel per picture and dithering, each library a colour,
4096 x 4096 as filled and 1024 x 1024 as hollow markers, all cores.

    python3 bench/plot_quant.py [bench/quant_results.csv] [bench/quant_quality_time.png]"""
import csv
import math
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

src = sys.argv[1] if len(sys.argv) > 1 else "bench/quant_results.csv"
dst = sys.argv[2] if len(sys.argv) > 2 else "bench/quant_quality_time.png"

rows = [r for r in csv.DictReader(open(src))]
threads = max(int(r["threads"]) for r in rows)
pictures = list(dict.fromkeys(r["picture"] for r in rows))
libraries = list(dict.fromkeys(r["library"] for r in rows))
colours = dict(zip(libraries, ["#d62728", "#ff9896", "#1f77b4", "#aec7e8", "#2ca02c", "#98df8a"]))

fig, axes = plt.subplots(2, len(pictures), figsize=(3.2 * len(pictures), 6.0), squeeze=False)
for col, picture in enumerate(pictures):
    for row, dither in enumerate(("0", "1")):
        ax = axes[row][col]
        for r in rows:
            if r["picture"] != picture or r["dither"] != dither or int(r["threads"]) != threads:
                continue
            ms, db = float(r["ms"]), float(r["psnr"])
            if math.isnan(ms) or math.isnan(db):
                continue
            big = r["size"] == "4096"
            ax.scatter(ms, db, s=36 if big else 30, marker="o" if big else "s",
                       facecolors=colours[r["library"]] if big else "none", edgecolors=colours[r["library"]])
        ax.set_xscale("log")
        ax.set_title("%s, %s" % (picture, "Floyd-Steinberg" if dither == "1" else "no dither"), fontsize=9)
        ax.tick_params(labelsize=7)
        ax.grid(True, which="both", linewidth=0.3)
        if row == 1:
            ax.set_xlabel("ms (log), %d threads" % threads, fontsize=8)
        if col == 0:
            ax.set_ylabel("PSNR dB", fontsize=8)
handles = [plt.Line2D([], [], marker="o", linestyle="", color=colours[l], label=l) for l in libraries]
handles += [plt.Line2D([], [], marker="o", linestyle="", color="grey", label="4096 x 4096"),
            plt.Line2D([], [], marker="s", linestyle="", markerfacecolor="none", color="grey", label="1024 x 1024")]
fig.legend(handles=handles, loc="lower center", ncol=4, fontsize=8, frameon=False)
fig.suptitle("Palette quantizers, 256 colours: quality against time (up and left is better)", fontsize=10)
fig.tight_layout(rect=(0, 0.1, 1, 0.96))
fig.savefig(dst, dpi=80)
print("written:", dst)
