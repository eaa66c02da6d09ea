#!/usr/bin/env python3
"""A long show: drives the real kestrun.exe under Wine through the headless engine for a given time
and watches the host's resources.

It plays the interface's part like scripts/lib/demo_show.py (whose connection it reuses), looping a
mixed show: output windows opened and closed, a cropped panorama, an animated GIF, fades and
blanks, a web page, a video spanning two windows with fades, seeks and pauses, a web view over the
main window and display-change messages. Every reply is checked.

Every 10 s (at the end of a show cycle, when the output windows are closed) it samples the host's
private bytes, handle, GDI and USER object, thread and window counts from inside the process (the
headless engine's "processStats" operation). At the
end it writes samples.csv, soak.png (gnuplot) and verdict.txt to the output folder, and prints the
verdict: the slope of each series over the second half of the run, PASS only if none grows beyond
its bound and nothing failed (a lost or wrong reply, a crash, a hang).

Bounds, per minute over the second half: private bytes 64 KiB, handles, GDI and USER objects and
windows 1, threads 0.5. A show cycle takes a few seconds, so a leak of a single handle, object or thread per
cycle grows its series by several per minute; 64 KiB a minute is less than one 128 x 128 image per
minute, while one lost output window texture (960 x 540) per cycle is megabytes. The first half is
left out: caches, the heap and Wine's own structures grow there until they reach their working size.
Slopes are judged only with at least six samples in the second half (runs of five minutes or more);
shorter runs report them without judging.
"""

import argparse
import csv
import json
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from demo_show import LIVE, WEBVIEW, DISPLAY_CHANNEL, Show, make_pictures, windows_path  # noqa: E402

SAMPLE_INTERVAL_S = 10.0
SERIES = [  # (csv column, stats key, bound per minute, unit for the verdict)
    ("private_bytes", "privateBytes", 64 * 1024, "B"),
    ("handles", "handles", 1.0, ""),
    ("gdi_objects", "gdiObjects", 1.0, ""),
    ("user_objects", "userObjects", 1.0, ""),
    ("threads", "threads", 0.5, ""),
    ("windows", "windows", 1.0, ""),
]
MIN_JUDGED_SAMPLES = 6


def sample(show):
    """The host's figures, read inside its process by the headless engine."""
    answer = show.request("processStats")
    if not answer.get("ok"):
        raise RuntimeError("processStats: %s" % json.dumps(answer))
    return {key: value for key, value in answer.items() if key not in ("id", "ok")}


def show_cycle(show, cycle, panorama, gif, video):
    """One round of the mixed show; every reply must be a success."""
    def call(channel, method, args=None):
        show.expect(show.invoke(channel, method, args), "cycle %d %s" % (cycle, method))

    windows = [("soak-a", 0, 0.0), ("soak-b", 960, 0.5)]
    for display_id, x, left in windows:
        call(LIVE, "showForDisplay", {"displayId": display_id, "name": display_id, "x": x,
                                      "y": 270, "width": 960, "height": 540, "isPrimary": False})
        call(LIVE, "setCropRectForDisplay", {
            "displayId": display_id, "left": left, "top": 0.0, "width": 0.5, "height": 1.0,
            "canvasWidth": 3840, "canvasHeight": 1080})
        call(LIVE, "loadImageForDisplay", {"displayId": display_id,
                                           "path": windows_path(panorama), "fitMode": 0})
    call(LIVE, "clearCropRectForDisplay", {"displayId": "soak-b"})
    call(LIVE, "loadImageForDisplay", {"displayId": "soak-b", "path": windows_path(gif),
                                       "fitMode": 1})
    call(LIVE, "fadeToBlackAll", {"duration": 150})
    call(LIVE, "fadeFromBlackAll", {"duration": 150})
    call(LIVE, "fadeToBlackForDisplay", {"displayId": "soak-a", "duration": 100})
    call(LIVE, "fadeFromBlackForDisplay", {"displayId": "soak-a", "duration": 100})
    call(LIVE, "blankForDisplay", {"displayId": "soak-a"})
    call(LIVE, "blankAll")
    call(LIVE, "unblankForDisplay", {"displayId": "soak-b"})
    call(LIVE, "unblankAll")

    call(LIVE, "loadWebpageForDisplay", {"displayId": "soak-b",
                                         "url": "https://kestrun.example/soak/%d" % cycle})
    call(LIVE, "reloadWebpageForDisplay", {"displayId": "soak-b"})
    call(LIVE, "stopWebpageForDisplay", {"displayId": "soak-b"})
    call(LIVE, "stopImageForDisplay", {"displayId": "soak-a"})

    call(LIVE, "setVideoTopology", {
        "decoders": [{"key": "wall", "path": windows_path(video), "fitMode": 2, "loop": True,
                      "canvasWidth": 1920, "canvasHeight": 540, "startPositionMs": 0}],
        "assignments": [
            {"displayId": "soak-a", "decoderKey": "wall",
             "cropX": 0, "cropY": 0, "cropWidth": 960, "cropHeight": 540},
            {"displayId": "soak-b", "decoderKey": "wall",
             "cropX": 960, "cropY": 0, "cropWidth": 960, "cropHeight": 540}]})
    call(LIVE, "setVideoOpacity", {"opacity": 1.0, "duration": 150})
    call(LIVE, "setVolumeForDisplay", {"displayId": "soak-a", "volume": 0.5})
    call(LIVE, "seekToAll", {"positionMs": 500})
    call(LIVE, "seekToForDisplay", {"displayId": "soak-b", "positionMs": 250})
    call(LIVE, "setVideoPausedAll", {"paused": True})
    call(LIVE, "setVideoPausedForDisplay", {"displayId": "soak-a", "paused": False})
    call(LIVE, "setVideoPausedAll", {"paused": False})
    call(LIVE, "getPositionForDisplay", {"displayId": "soak-a"})
    call(LIVE, "setVideoOpacity", {"opacity": 0.0, "duration": 150})
    call(LIVE, "closeForDisplay", {"displayId": "soak-a"})
    call(LIVE, "closeAll")

    view = "soak-view-%d" % cycle
    call(WEBVIEW, "initialize", {"id": view})
    call(WEBVIEW, "setBounds", {"id": view, "x": 40, "y": 40, "width": 480, "height": 270})
    call(WEBVIEW, "navigate", {"id": view, "url": "https://kestrun.example/view/%d" % cycle})
    call(WEBVIEW, "setVisible", {"id": view, "visible": False})
    call(WEBVIEW, "dispose", {"id": view})

    show.expect(show.request("post", message="WM_DISPLAYCHANGE", wparam=32,
                             lparam=(1080 << 16) | 1920), "cycle %d WM_DISPLAYCHANGE" % cycle, "ok")
    call(DISPLAY_CHANNEL, "getAllDisplays")
    # Events (display changes and the like) are not needed: drop them, so that they do not pile up.
    show.events.clear()


def slope_per_minute(points):
    """Least-squares slope of (seconds, value) points, per minute."""
    n = len(points)
    mean_t = sum(t for t, _ in points) / n
    mean_v = sum(v for _, v in points) / n
    var = sum((t - mean_t) ** 2 for t, _ in points)
    if var == 0:
        return 0.0, mean_v
    slope = sum((t - mean_t) * (v - mean_v) for t, v in points) / var
    return slope * 60.0, mean_v - slope * mean_t


def verdict(rows, total_s, failures):
    """(passed, one-line verdict, fitted lines {column: (per_minute, intercept)})."""
    half = [row for row in rows if row["seconds"] >= total_s / 2]
    judged = len(half) >= MIN_JUDGED_SAMPLES
    parts, fits, passed = [], {}, not failures
    for column, _, bound, unit in SERIES:
        points = [(row["seconds"], row[column]) for row in half if row[column] >= 0]
        if len(points) < 2:
            parts.append("%s n/a" % column)
            continue
        per_minute, intercept = slope_per_minute(points)
        fits[column] = (per_minute, intercept)
        grows = judged and per_minute >= bound
        passed = passed and not grows
        if unit == "B":
            text = "%s %+.1f KiB/min (bound %d KiB)" % (column, per_minute / 1024, bound // 1024)
        else:
            text = "%s %+.2f/min (bound %g)" % (column, per_minute, bound)
        parts.append(text + (" TOO HIGH" if grows else ""))
    head = "PASS" if passed else "FAIL"
    if not judged:
        head += " (slopes not judged: %d samples in the second half, %d needed)" % (
            len(half), MIN_JUDGED_SAMPLES)
    if failures:
        head += " (%d failures: %s)" % (len(failures), failures[0])
    return passed, "soak: %s; second-half slopes: %s" % (head, ", ".join(parts)), fits


def plot(rows, fits, total_s, out_dir, minutes, cycles):
    """soak.png: one panel per series, the second half's fitted line over it."""
    data = os.path.join(out_dir, "samples.csv")
    png = os.path.join(out_dir, "soak.png")
    half_min = total_s / 120.0
    panels = [("private_bytes", "private bytes (MiB)", 1.0 / (1024 * 1024)),
              ("handles", "handles", 1.0),
              ("threads", "threads and windows", 1.0),
              ("gdi_objects", "GDI and USER objects", 1.0)]
    columns = {name: index + 1 for index, (name, _, _, _) in enumerate(
        [("seconds", 0, 0, 0)] + SERIES)}
    lines = [
        "set terminal pngcairo size 1400,900 font 'DejaVu Sans,11'",
        "set output '%s'" % png,
        "set datafile separator ','",
        "set termoption noenhanced",
        "set key top left",
        "set grid",
        "set multiplot layout 2,2 title 'kestrun.exe soak: %g minutes, %d show cycles "
        "(fitted line: second half)'" % (minutes, cycles),
    ]
    for column, title, scale in panels:
        lines.append("set title '%s'" % title)
        lines.append("set xlabel 'minutes'")
        plots = []
        series = {"gdi_objects": ["gdi_objects", "user_objects"],
                  "threads": ["threads", "windows"]}.get(column, [column])
        for name in series:
            if not any(row[name] >= 0 for row in rows):
                continue
            plots.append("'%s' every ::1 using ($1/60):($%d >= 0 ? $%d*%g : NaN) with linespoints "
                         "title '%s'" % (data, columns[name], columns[name], scale, name))
            if name in fits:
                per_minute, intercept = fits[name]
                plots.append("(x >= %g ? (%g + %g*x*60)*%g : NaN) with lines lw 2 title "
                             "'%s %+.3g/min'" % (half_min, intercept, per_minute / 60.0, scale,
                                                 name, per_minute * scale))
        if not plots:
            lines.append("set label 1 'not counted here (Wine keeps no GDI/USER counts)' at "
                         "graph 0.1, graph 0.5")
            lines.append("plot [0:%g] [0:1] NaN notitle" % (total_s / 60.0))
            lines.append("unset label 1")
        else:
            lines.append("plot " + ", ".join(plots))
    lines.append("unset multiplot")
    script = os.path.join(out_dir, "soak.gnuplot")
    with open(script, "w") as f:
        f.write("\n".join(lines) + "\n")
    subprocess.run(["gnuplot", script], check=True)
    return png


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--display", required=True)
    parser.add_argument("--minutes", type=float, default=10.0)
    parser.add_argument("--timeout", type=float, default=60.0)
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)

    panorama, gif = make_pictures(args.out)
    video = os.path.join(args.out, "soak-video.mp4")
    with open(video, "w") as f:
        f.write("the stand-in media library draws coloured frames for any file that exists\n")

    show = Show(args.program, args.out, args.display, args.timeout)
    rows, failures, cycles = [], show.failures, 0
    started = None
    try:
        show.wait_event(lambda e: e["event"] == "frame", "first frame")
        logs = os.path.join(args.out, "logs")
        os.makedirs(logs, exist_ok=True)
        show.expect(show.invoke(LIVE, "initializeLogger", {"logDirectory": windows_path(logs)}),
                    "initializeLogger")
        show.expect(show.request("listen", channel="com.kestrun.kestrun_display/events"),
                    "listen to display events")
        started = time.monotonic()
        next_sample = started
        end = started + args.minutes * 60.0
        while True:
            now = time.monotonic()
            if now >= next_sample:
                stats = sample(show)
                row = {"seconds": round(now - started, 1), "cycles": cycles}
                for column, key, _, _ in SERIES:
                    row[column] = stats.get(key, -1)
                rows.append(row)
                print("soak: %5.0f s, %d cycles: %s" % (row["seconds"], cycles, json.dumps(stats)),
                      flush=True)
                next_sample += SAMPLE_INTERVAL_S
            if now >= end:
                break
            show_cycle(show, cycles, panorama, gif, video)
            cycles += 1
            if failures:
                break
    except (ConnectionError, TimeoutError, OSError, RuntimeError, ValueError) as error:
        failures.append("the host stopped answering (crash or hang): %r" % error)
    finally:
        try:
            show.finish()
        except (ConnectionError, TimeoutError, OSError) as error:
            failures.append("the host did not close: %r" % error)

    total_s = rows[-1]["seconds"] if rows else 0.0
    with open(os.path.join(args.out, "samples.csv"), "w", newline="") as f:
        writer = csv.writer(f)
        writer.writerow(["seconds"] + [column for column, _, _, _ in SERIES] + ["cycles"])
        for row in rows:
            writer.writerow([row["seconds"]] + [row[column] for column, _, _, _ in SERIES] +
                            [row["cycles"]])
    passed, line, fits = verdict(rows, total_s, failures)
    if rows:
        plot(rows, fits, total_s, args.out, args.minutes, cycles)
    line += "; %d show cycles in %.0f s" % (cycles, total_s)
    with open(os.path.join(args.out, "verdict.txt"), "w") as f:
        f.write(line + "\n")
        for failure in failures:
            f.write("  " + failure + "\n")
    print(line)
    for failure in failures:
        print("  " + failure, file=sys.stderr)
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
