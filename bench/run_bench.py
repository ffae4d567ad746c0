#!/usr/bin/env python3
"""Runs the plug-in's benchmarks against dd, pread, ffmpeg and ffprobe and
prints one table of figures and ratios (scripts/bench.sh is the entry).

Every figure is the median of several runs; the page cache is dropped before
each run when this process may (root), which the table's header says.
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

DROP = "/proc/sys/vm/drop_caches"


def can_drop():
    try:
        with open(DROP, "w") as f:
            f.write("3")
        return True
    except OSError:
        return False


class Runner:
    def __init__(self, bindir, datadir, runs):
        self.bin = bindir
        self.data = datadir
        self.runs = runs
        self.drop = can_drop()

    def drop_cache(self):
        subprocess.run(["sync"], check=True)
        if self.drop:
            with open(DROP, "w") as f:
                f.write("3")

    def timed(self, argv, after=None, cold=True):
        """Wall seconds, peak RSS (KiB) and standard output of one run; its
        user plus system seconds are left in self.cpu."""
        if cold:
            self.drop_cache()
        with tempfile.NamedTemporaryFile("r") as rss:
            t0 = time.perf_counter()
            p = subprocess.run(["/usr/bin/time", "-q", "-f", "%M %U %S", "-o", rss.name] + argv,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            if after:
                after()
            seconds = time.perf_counter() - t0
            fields = ((rss.read().strip().splitlines() or ["0 0 0"])[-1].split() + ["0", "0"])[:3]
            peak = int(fields[0])
            self.cpu = float(fields[1]) + float(fields[2])
        if p.returncode != 0:
            raise RuntimeError("%s failed: %s" % (" ".join(argv), p.stderr.strip()))
        return seconds, peak, p.stdout

    def median_of(self, argv, after=None, cold=True, cleanup=None):
        secs, peaks, outs = [], [], []
        for _ in range(self.runs):
            s, m, out = self.timed(argv, after, cold)
            secs.append(s)
            peaks.append(m)
            outs.append(out)
            if cleanup:
                cleanup()
        return statistics.median(secs), max(peaks), outs

    def tool(self, name):
        return os.path.join(self.bin, name)


def fio(r, paths, rw, depth, size=None):
    """fio's sequential direct throughput in MB/s, 8 MiB requests, `depth` in
    flight per file, one job per file at once: the disk's own limit."""
    argv = ["fio", "--output-format=json", "--ioengine=io_uring", "--direct=1", "--bs=8M", "--rw=" + rw,
            "--iodepth=%d" % depth, "--fallocate=none", "--group_reporting"]
    for k, path in enumerate(paths):
        argv += ["--name=f%d" % k, "--filename=" + path]
        if size:
            argv += ["--size=%d" % size]
    r.drop_cache()
    p = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if p.returncode != 0:
        raise RuntimeError("fio failed: %s" % p.stderr.strip())
    job = json.loads(p.stdout)["jobs"][0]
    return job["read" if rw == "read" else "write"]["bw_bytes"] / 1e6


def best_fio(rows):
    return max(x["mb_per_s"] for label, x in rows.items() if label.startswith("fio "))


def json_lines(outs):
    return [json.loads(o.strip().splitlines()[-1]) for o in outs]


def make_file(r, kind, name, frames):
    path = os.path.join(r.data, name)
    if not os.path.exists(path):
        _, _, out = r.timed([r.tool("velloro_benchfiles"), kind, path, str(frames)], cold=False)
        print("made %s: %s" % (name, out.strip()), file=sys.stderr)
    return path


def sequential(r, path, frames):
    size = os.path.getsize(path)
    # Label, command, and whether the command reports the frames it read.
    commands = [
        ("dd bs=8M", ["dd", "if=" + path, "of=/dev/null", "bs=8M", "status=none"], False),
        ("dd bs=8M iflag=direct", ["dd", "if=" + path, "of=/dev/null", "bs=8M", "iflag=direct", "status=none"],
         False),
        ("ffmpeg -c copy -f null", ["ffmpeg", "-v", "error", "-nostdin", "-i", path, "-map", "0", "-c", "copy",
                                    "-f", "null", "-"], False),
        ("container reader", [r.tool("velloro_benchread"), "container", path], True),
        ("plug-in (framemd5 order)", [r.tool("velloro_benchread"), "plugin", path], True),
        ("plug-in (playback order)", [r.tool("velloro_benchread"), "playback", path], True),
    ]
    # Round by round, as the writes: this disk's speed drifts over minutes,
    # and a row measured alone would carry the drift into its ratio.
    secs = {label: [] for label, _, _ in commands}
    cpus = {label: [] for label, _, _ in commands}
    peaks = {label: [] for label, _, _ in commands}
    fios = {"fio read, 1 in flight": [], "fio read, 16 in flight": []}
    outs = {}
    for _ in range(r.runs):
        for depth, label in ((1, "fio read, 1 in flight"), (16, "fio read, 16 in flight")):
            fios[label].append(fio(r, [path], "read", depth))
        for label, argv, reports in commands:
            s, peak, out = r.timed(argv)
            cpu = r.cpu
            if reports:
                # Timed from the plug-in loaded, as it is in a running editor.
                j = json_lines([out])[0]
                s, cpu = j["seconds"], j["cpu_seconds"]
            secs[label].append(s)
            cpus[label].append(cpu)
            peaks[label].append(peak)
            outs.setdefault(label, out)
    rows = {label: {"mb_per_s": statistics.median(v)} for label, v in fios.items()}
    for label, _, reports in commands:
        s = statistics.median(secs[label])
        frames_seen = json_lines([outs[label]])[0]["frames"] if reports else frames
        rows[label] = {"seconds": s, "mb_per_s": size / s / 1e6, "frames_per_s": frames_seen / s,
                       "peak_rss_kib": max(peaks[label]), "cpu_s_per_gb": statistics.median(cpus[label]) / (size / 1e9)}
    limit = best_fio(rows)
    direct = rows["dd bs=8M iflag=direct"]
    ffmpeg = rows["ffmpeg -c copy -f null"]["frames_per_s"]
    for label in ("container reader", "plug-in (framemd5 order)", "plug-in (playback order)"):
        rows[label]["vs_fio"] = rows[label]["mb_per_s"] / limit
        rows[label]["vs_dd_direct"] = rows[label]["mb_per_s"] / direct["mb_per_s"]
        rows[label]["cpu_vs_dd"] = rows[label]["cpu_s_per_gb"] / max(direct["cpu_s_per_gb"], 1e-9)
        rows[label]["vs_ffmpeg_fps"] = rows[label]["frames_per_s"] / ffmpeg
    for label in fios:
        rows[label]["vs_fio"] = rows[label]["mb_per_s"] / limit
    return rows


def scrub(r, path, count):
    lines = []
    for k in range(r.runs):
        r.drop_cache()
        _, peak, out = r.timed([r.tool("velloro_benchread"), "scrub", path, str(count), str(1000 + k)], cold=False)
        j = json_lines([out])[0]
        j["peak_rss_kib"] = peak
        lines.append(j)
    keys = ("plugin_median_us", "plugin_p99_us", "pread_median_us", "pread_p99_us")
    result = {k: statistics.median(x[k] for x in lines) for k in keys}
    result["groups"] = lines[0]["groups"]
    result["peak_rss_kib"] = max(x["peak_rss_kib"] for x in lines)
    result["median_vs_pread"] = result["plugin_median_us"] / max(result["pread_median_us"], 1e-9)
    result["p99_vs_pread"] = result["plugin_p99_us"] / max(result["pread_p99_us"], 1e-9)
    return result


def opening(r, path):
    _, peak, out = r.timed([r.tool("velloro_benchread"), "open", path, str(r.runs)] + (["drop"] if r.drop else []),
                           cold=False)
    ours = json_lines([out])[0]
    probe_s, probe_peak, _ = r.median_of([r.tool("velloro"), "probe", path])
    ffprobe_s, ffprobe_peak, _ = r.median_of(["ffprobe", "-v", "error", "-show_format", "-show_streams", path])
    return {"frames": ours["frames"], "riffs": riff_count(path), "open_ms": ours["median_us"] / 1e3,
            "open_peak_rss_kib": peak, "velloro_probe_ms": probe_s * 1e3, "velloro_probe_peak_rss_kib": probe_peak,
            "ffprobe_ms": ffprobe_s * 1e3, "ffprobe_peak_rss_kib": ffprobe_peak,
            "ffprobe_vs_open": ffprobe_s * 1e3 / max(ours["median_us"] / 1e3, 1e-9),
            "ffprobe_vs_velloro_probe": ffprobe_s / probe_s}


def riff_count(path):
    n, pos, size = 0, 0, os.path.getsize(path)
    with open(path, "rb") as f:
        while pos + 8 <= size:
            f.seek(pos)
            head = f.read(8)
            if head[:4] != b"RIFF":
                break
            n += 1
            pos += 8 + int.from_bytes(head[4:8], "little")
    return n


def writing(r, source, frames):
    """Writes of the same bytes as uyvy.avi. Export reads its source from
    memory (a copy under /dev/shm), so that only the writes reach the disk,
    as render's synthesised frames do."""
    size = os.path.getsize(source)
    out = os.path.join(r.data, "out.avi")
    shm = "/dev/shm" if os.path.isdir("/dev/shm") else r.data
    memory_source = os.path.join(shm, "velloro_bench_source.avi")
    shutil.copyfile(source, memory_source)
    sync = lambda: subprocess.run(["sync"], check=True)
    remove = lambda: os.path.exists(out) and os.remove(out)
    count = str((size + (8 << 20) - 1) // (8 << 20))
    commands = {
        "dd bs=8M oflag=direct": ["dd", "if=/dev/zero", "of=" + out, "bs=8M", "count=" + count, "oflag=direct",
                                  "status=none"],
        "ffmpeg -c copy (+sync)": ["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", memory_source, "-map", "0", "-c",
                                   "copy", out],
        "container WriteSamples (+sync)": [r.tool("velloro_benchfiles"), "uyvy", out, str(frames)],
        # Both go through the plug-in as the editor drives it: export reads
        # the source through the read side; render synthesises the same
        # number of frames of the same size and rate, with stereo 48 kHz audio.
        "velloro export (+sync)": [r.tool("velloro"), "export", memory_source, out],
        "velloro render (+sync)": [r.tool("velloro"), "render", out, "--format", "UYVY", "--size", "1920x1080",
                                   "--rate", "25/1", "--seconds", "%g" % (frames / 25.0), "--audio", "2x48000"],
    }
    fios = {"fio write, 1 in flight": 1, "fio write, 16 in flight": 16}
    # Round by round rather than row by row: this much writing makes a
    # virtual disk slow down as it goes, which should not fall on the rows
    # that happen to come last.
    secs = {label: [] for label in list(fios) + list(commands)}
    peaks = {label: [] for label in commands}
    try:
        for _ in range(r.runs):
            for label, depth in fios.items():
                remove()
                secs[label].append(size / fio(r, [out], "write", depth, size) / 1e6)
                remove()
                sync()
            for label, argv in commands.items():
                s, peak, _ = r.timed(argv, after=sync, cold=False)
                remove()
                secs[label].append(s)
                peaks[label].append(peak)
    finally:
        os.remove(memory_source)
        remove()
    rows = {}
    for label in secs:
        s = statistics.median(secs[label])
        rows[label] = {"seconds": s, "mb_per_s": size / s / 1e6, "frames_per_s": frames / s,
                       "peak_rss_kib": max(peaks[label]) if label in peaks else 0}
    limit = best_fio(rows)
    container = rows["container WriteSamples (+sync)"]["mb_per_s"]
    for label in rows:
        rows[label]["vs_fio"] = rows[label]["mb_per_s"] / limit
        rows[label]["vs_container"] = rows[label]["mb_per_s"] / container
    return rows


def flush_cost(r, frames, pairs):
    """The periodic flush's share of write time: DV frames (the least bytes
    per second of material) written by the container with the flush every
    25 frames (a second, as the plug-in sets it) and without, in alternating
    pairs so that the disk's drift falls on both alike."""
    out = os.path.join(r.data, "flush.avi")
    sync = lambda: subprocess.run(["sync"], check=True)
    runs = {"0": [], "25": []}
    calls = {}
    for k in range(pairs):
        for every in (("0", "25") if k % 2 == 0 else ("25", "0")):
            s, _, outs = r.timed([r.tool("velloro_benchfiles"), "dv", out, str(frames), every], after=sync, cold=False)
            os.remove(out)
            runs[every].append(s)
            calls[every] = json_lines([outs])[0]["write_calls"]
    ratios = [b / a for a, b in zip(runs["0"], runs["25"])]
    return {"frames": frames, "pairs": pairs, "seconds_without": statistics.median(runs["0"]),
            "seconds_with": statistics.median(runs["25"]), "median_pair_ratio": statistics.median(ratios),
            "extra_writes_per_second": (calls["25"] - calls["0"]) / (frames / 25.0)}


def many_clips(r, paths, opened=200):
    """An editor with many clips open: `opened` files open at once, the
    len(paths) of them played at the same time in playback order, one thread
    each, against that many dd reading the same files at once."""
    size = sum(os.path.getsize(p) for p in paths)
    dd = ["bash", "-c", "for f in \"$@\"; do dd if=\"$f\" of=/dev/null bs=8M iflag=direct status=none & done; wait",
          "dd"] + paths
    plugin = [r.tool("velloro_benchread"), "many", str(opened), str(len(paths))] + paths
    secs = {"dd": [], "plugin": []}
    outs = []
    for _ in range(r.runs):
        s, _, _ = r.timed(dd)
        secs["dd"].append(s)
        s, peak, out = r.timed(plugin)
        j = json_lines([out])[0]
        j["peak_rss_kib"] = peak
        secs["plugin"].append(j["seconds"])
        outs.append(j)
    # The same files with velloro play, as fast as the disk goes, against
    # fio reading all of them at once; then at their own rate.
    play = [r.tool("velloro"), "play", "--as-fast-as-possible", "--json"] + paths
    fios = {1: [], 16: []}
    plays, play_peaks = [], []
    for _ in range(r.runs):
        for depth in fios:
            fios[depth].append(fio(r, paths, "read", depth))
        s, peak, out = r.timed(play)
        plays.append(json.loads(out)["total"]["mb_per_s"])
        play_peaks.append(peak)
    fio_best = max(statistics.median(v) for v in fios.values())
    r.drop_cache()
    _, paced_peak, out = r.timed([r.tool("velloro"), "play", "--for", "20", "--json"] + paths, cold=False)
    paced = json.loads(out)["total"]
    dd_s = statistics.median(secs["dd"])
    ours = statistics.median(secs["plugin"])
    return {"files": len(paths), "opened": opened, "bytes": size, "dd_seconds": dd_s, "dd_mb_per_s": size / dd_s / 1e6,
            "plugin_seconds": ours, "plugin_mb_per_s": size / ours / 1e6, "vs_dd": dd_s / ours,
            "peak_rss_kib": max(o["peak_rss_kib"] for o in outs),
            "rss_loaded_kib": max(o["rss_loaded_kb"] for o in outs), "rss_open_kib": max(o["rss_open_kb"] for o in outs),
            "rss_idle_kib": max(o["rss_idle_kb"] for o in outs), "rss_closed_kib": max(o["rss_closed_kb"] for o in outs),
            "fio_1_mb_per_s": statistics.median(fios[1]), "fio_16_mb_per_s": statistics.median(fios[16]),
            "play_mb_per_s": statistics.median(plays), "play_vs_fio": statistics.median(plays) / fio_best,
            "play_peak_rss_kib": max(play_peaks), "paced": paced, "paced_peak_rss_kib": paced_peak}


def fmt_many(m):
    return [
        "== %d clips open, %d of them (DV, %.0f MB in all) played at once in playback order" % (
            m["opened"], m["files"], m["bytes"] / 1e6),
        "%-32s %9s %9s %8s %12s %10s %10s %11s" % ("", "s", "MB/s", "vs dd", "peak RSS MiB", "RSS open", "RSS idle",
                                                  "RSS closed"),
        "%-32s %9.3f %9.1f %8s" % ("%d x dd bs=8M iflag=direct" % m["files"], m["dd_seconds"], m["dd_mb_per_s"],
                                   "1.00"),
        "%-32s %9.3f %9.1f %8.2f %12.1f %10.1f %10.1f %11.1f" % (
            "plug-in, one thread per clip", m["plugin_seconds"], m["plugin_mb_per_s"], m["vs_dd"],
            m["peak_rss_kib"] / 1024, m["rss_open_kib"] / 1024, m["rss_idle_kib"] / 1024,
            m["rss_closed_kib"] / 1024),
        "%-32s %9s %9.1f" % ("fio, 8 files, 1 in flight each", "", m["fio_1_mb_per_s"]),
        "%-32s %9s %9.1f" % ("fio, 8 files, 16 in flight each", "", m["fio_16_mb_per_s"]),
        "%-32s %9s %9.1f %8s %12.1f   vs fio %.2f" % ("velloro play --as-fast-as-possible", "", m["play_mb_per_s"],
                                                      "", m["play_peak_rss_kib"] / 1024, m["play_vs_fio"]),
        "velloro play --for 20 (own rate): %d frames, %d late (worst %.1f ms), headroom %.1fx, peak RSS %.1f MiB" % (
            m["paced"]["frames"], m["paced"]["frames_late"], m["paced"]["worst_late_ms"], m["paced"]["headroom"],
            m["paced_peak_rss_kib"] / 1024),
    ]


def fmt_table(report):
    lines = []
    add = lines.append
    m = report["machine"]
    add("Velloro AVI benchmarks  (%d runs each, median; page cache %s; load before %s; %s)"
        % (m["runs"], "dropped before every run" if m["drop_caches"] else "NOT dropped (not permitted)",
           m["load_before"], m["disk"]))
    for name, f in report["files"].items():
        add("")
        add("== %s: %s, %.0f MB, %d frames, %d RIFF" % (name, f["what"], f["bytes"] / 1e6, f["frames"], f["riffs"]))
        add("%-32s %8s %8s %9s %8s %8s %9s %8s %8s %9s" % (
            "sequential read", "s", "MB/s", "frames/s", "RSS MiB", "vs fio", "vs dd dir", "CPU s/GB", "CPU/dd",
            "vs ffmpeg"))
        for label, x in f["read"].items():
            opt = lambda key, fmt: fmt % x[key] if key in x else ""
            add("%-32s %8s %8.1f %9s %8s %8s %9s %8s %8s %9s" % (
                label, opt("seconds", "%.3f"), x["mb_per_s"], opt("frames_per_s", "%.1f"),
                "%.1f" % (x["peak_rss_kib"] / 1024) if "peak_rss_kib" in x else "", opt("vs_fio", "%.2f"),
                opt("vs_dd_direct", "%.2f"), opt("cpu_s_per_gb", "%.3f"), opt("cpu_vs_dd", "%.2f"),
                opt("vs_ffmpeg_fps", "%.2fx")))
        s = f["scrub"]
        add("scrub %d random %s: plug-in median %.0f us, p99 %.0f us; pread median %.0f us, p99 %.0f us "
            "(median ratio %.2f, p99 ratio %.2f); RSS %.1f MiB" % (
                report["machine"]["scrub_requests"], "GOPs" if s["groups"] else "frames", s["plugin_median_us"],
                s["plugin_p99_us"], s["pread_median_us"], s["pread_p99_us"], s["median_vs_pread"],
                s["p99_vs_pread"], s["peak_rss_kib"] / 1024))
    add("")
    add("== open (cold cache): openFile + metadata, against ffprobe -show_format -show_streams")
    add("%-22s %8s %6s %10s %14s %11s %9s %12s" % ("file", "frames", "RIFFs", "open ms", "velloro probe ms",
                                                   "ffprobe ms", "ffp/open", "ffp/probe"))
    for name, o in report["open"].items():
        add("%-22s %8d %6d %10.2f %14.1f %11.1f %8.1fx %11.1fx" % (
            name, o["frames"], o["riffs"], o["open_ms"], o["velloro_probe_ms"], o["ffprobe_ms"],
            o["ffprobe_vs_open"], o["ffprobe_vs_velloro_probe"]))
        add("%-22s peak RSS: open %.1f MiB, velloro probe %.1f MiB, ffprobe %.1f MiB" % (
            "", o["open_peak_rss_kib"] / 1024, o["velloro_probe_peak_rss_kib"] / 1024,
            o["ffprobe_peak_rss_kib"] / 1024))
    if report.get("long_read"):
        add("")
        add("== long DV files read through the plug-in (peak RSS must not grow with length)")
        for name, x in report["long_read"].items():
            add("%-22s %8.1f MB/s %10.1f frames/s  RSS %.1f MiB" % (name, x["mb_per_s"], x["frames_per_s"],
                                                                    x["peak_rss_kib"] / 1024))
    if report.get("many"):
        add("")
        lines.extend(fmt_many(report["many"]))
    add("")
    add("== write, %s (%.0f MB; export's source in memory)" % (report["write_source"], report["write_bytes"] / 1e6))
    add("%-32s %9s %9s %10s %9s %8s %12s" % ("", "s", "MB/s", "frames/s", "RSS MiB", "vs fio", "vs container"))
    for label, x in report["write"].items():
        add("%-32s %9.3f %9.1f %10.1f %9s %8.2f %12.2f" % (
            label, x["seconds"], x["mb_per_s"], x["frames_per_s"],
            "%.1f" % (x["peak_rss_kib"] / 1024) if x["peak_rss_kib"] else "", x["vs_fio"], x["vs_container"]))
    f = report.get("flush")
    if f:
        add("")
        add("== periodic flush, container writing %d DV frames: every 25 frames %.3f s, never %.3f s; "
            "cost %+.1f%% (median of %d alternating pairs), %.1f more writes per second of material" % (
                f["frames"], f["seconds_with"], f["seconds_without"], (f["median_pair_ratio"] - 1) * 100,
                f["pairs"], f["extra_writes_per_second"]))
    return "\n".join(lines)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--bin", required=True)
    ap.add_argument("--data", required=True)
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--hours", type=float, default=1.0, help="length of the long DV file for the open test")
    ap.add_argument("--scrub", type=int, default=2000)
    ap.add_argument("--open", type=int, default=200, help="clips open at once for the many-clips rows")
    ap.add_argument("--clips", type=int, default=8, help="of which this many are played at once")
    ap.add_argument("--json", help="also write the report as JSON to this file")
    ap.add_argument("--keep", action="store_true", help="keep the test files")
    ap.add_argument("--only-many", action="store_true", help="only the many-clips rows")
    args = ap.parse_args()

    os.makedirs(args.data, exist_ok=True)
    r = Runner(args.bin, args.data, args.runs)
    disk = subprocess.run(["df", "-T", args.data], stdout=subprocess.PIPE, text=True).stdout.splitlines()[-1].split()
    report = {"machine": {"runs": args.runs, "drop_caches": r.drop, "load_before": os.getloadavg()[0],
                          "cores": os.cpu_count(), "disk": "%s %s" % (disk[0], disk[1]),
                          "scrub_requests": args.scrub},
              "files": {}, "open": {}}
    if disk[1] in ("tmpfs", "ramfs"):
        print("warning: %s is on %s, not a real disk" % (args.data, disk[1]), file=sys.stderr)
    # Each file about 2 GiB: a pass takes seconds, not a process's start.
    frames = 518  # 1920x1080 UYVY with its audio
    made = []
    if args.only_many:
        try:
            clips = [make_file(r, "dv", "clip%d.avi" % k, 2500) for k in range(args.clips)]
            made.extend(clips)
            report["many"] = many_clips(r, clips, args.open)
        finally:
            if not args.keep:
                for path in made:
                    if os.path.exists(path):
                        os.remove(path)
        print("\n".join(fmt_many(report["many"])))
        if args.json:
            with open(args.json, "w") as f:
                json.dump(report, f, indent=2)
        return
    files = [("uyvy", "uyvy.avi", frames, "1920x1080 UYVY + 48 kHz stereo PCM"),
             ("dv", "dv.avi", 15000, "144000-byte DV frames, 25 fps + PCM"),
             ("gop", "gop.avi", 18000, "MPEG-2 long GOP (12), frame-type index + PCM")]
    try:
        for kind, name, n, what in files:
            path = make_file(r, kind, name, n)
            made.append(path)
            report["files"][name] = {"what": what, "bytes": os.path.getsize(path), "frames": n,
                                     "riffs": riff_count(path), "read": sequential(r, path, n),
                                     "scrub": scrub(r, path, args.scrub)}
        clips = []
        for k in range(args.clips):
            clips.append(make_file(r, "dv", "clip%d.avi" % k, 2500))
            made.append(clips[-1])
        report["many"] = many_clips(r, clips, args.open)
        short = make_file(r, "dv", "dv_10min.avi", 15000)
        made.append(short)
        long_ = make_file(r, "dv", "dv_%gh.avi" % args.hours, int(args.hours * 90000))
        made.append(long_)
        for path in (short, long_):
            report["open"][os.path.basename(path)] = opening(r, path)
        report["long_read"] = {}
        for path in (short, long_):
            s, peak, outs = r.timed([r.tool("velloro_benchread"), "plugin", path])
            j = json_lines([outs])[0]
            report["long_read"][os.path.basename(path)] = {"seconds": s, "mb_per_s": os.path.getsize(path) / s / 1e6,
                                                           "frames_per_s": j["frames"] / s, "peak_rss_kib": peak}
        source = os.path.join(args.data, "uyvy.avi")
        report["write_source"] = "uyvy.avi"
        report["write_bytes"] = os.path.getsize(source)
        report["write"] = writing(r, source, frames)
        report["flush"] = flush_cost(r, 4500, max(2 * args.runs, 10))
    finally:
        if not args.keep:
            for path in made:
                if os.path.exists(path):
                    os.remove(path)
    report["machine"]["load_after"] = os.getloadavg()[0]
    print(fmt_table(report))
    if args.json:
        with open(args.json, "w") as f:
            json.dump(report, f, indent=2)


if __name__ == "__main__":
    main()
