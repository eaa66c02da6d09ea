#!/usr/bin/env python3
"""A scripted live show: drives the real kestrun.exe under Wine through the headless engine.

The script plays the interface's part over the headless engine's control connection (see
tools/headless_engine/PROTOCOL.md): it listens on a loopback port, starts kestrun.exe with
KESTRUN_HEADLESS_CONTROL pointing at it, and then calls the host's channels the way the Flutter
interface would. Every line exchanged goes to out/demo/transcript.jsonl; screenshots of the
private X display go to out/demo/*.png.
"""

import argparse
import json
import os
import socket
import subprocess
import sys
import time

LIVE = "com.kestrun.native_live_window"
WEBVIEW = "kestrun/native_webview"
DISPLAY_CHANNEL = "com.kestrun.kestrun_display"


def windows_path(path):
    """Wine maps the Linux root to drive Z:."""
    return "Z:" + os.path.abspath(path).replace("/", "\\")


class Show:
    def __init__(self, program, out_dir, display, timeout):
        self.out_dir = out_dir
        self.display = display
        self.timeout = timeout
        self.next_id = 1
        self.events = []
        self.buffer = b""
        self.transcript = open(os.path.join(out_dir, "transcript.jsonl"), "w", encoding="utf-8")
        self.failures = []

        listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        listener.bind(("127.0.0.1", 0))
        listener.listen(1)
        listener.settimeout(timeout)
        port = listener.getsockname()[1]
        env = dict(os.environ)
        env["KESTRUN_HEADLESS_CONTROL"] = "127.0.0.1:%d" % port
        # Wine has no DirectComposition: the host records its video composition instead and
        # writes what each output window's composition would show into this folder.
        self.composition_dir = os.path.join(out_dir, "composition")
        os.makedirs(self.composition_dir, exist_ok=True)
        env["KESTRUN_RECORDING_COMPOSITION"] = windows_path(self.composition_dir)
        self.note("starting %s (control port %d)" % (program, port))
        self.process = subprocess.Popen(["wine", program], env=env,
                                        cwd=os.path.dirname(program),
                                        stdin=subprocess.DEVNULL,
                                        stdout=open(os.path.join(out_dir, "host-stdout.txt"), "w"),
                                        stderr=open(os.path.join(out_dir, "host-stderr.txt"), "w"))
        self.connection, _ = listener.accept()
        listener.close()
        self.connection.settimeout(timeout)

    # ---- transport -----------------------------------------------------------------------------

    def note(self, text):
        print("demo: " + text, flush=True)
        self.transcript.write(json.dumps({"note": text}) + "\n")
        self.transcript.flush()

    def read_line(self):
        while b"\n" not in self.buffer:
            chunk = self.connection.recv(65536)
            if not chunk:
                raise ConnectionError("the engine closed the connection")
            self.buffer += chunk
        line, self.buffer = self.buffer.split(b"\n", 1)
        text = line.decode("utf-8").rstrip("\r")
        self.transcript.write(text + "\n")
        self.transcript.flush()
        return json.loads(text)

    def request(self, op, **members):
        members["op"] = op
        members["id"] = self.next_id
        self.next_id += 1
        line = json.dumps(members)
        self.transcript.write("> " + line + "\n")
        self.connection.sendall(line.encode("utf-8") + b"\n")
        while True:
            answer = self.read_line()
            if "event" in answer:
                self.events.append(answer)
                continue
            if answer.get("id") == members["id"]:
                return answer

    def invoke(self, channel, method, args=None):
        members = {"channel": channel, "method": method}
        if args is not None:
            members["args"] = args
        return self.request("invoke", **members)

    def wait_event(self, predicate, what):
        for event in self.events:
            if predicate(event):
                self.events.remove(event)
                return event
        deadline = time.monotonic() + self.timeout
        while time.monotonic() < deadline:
            event = self.read_line()
            if "event" in event and predicate(event):
                return event
            if "event" in event:
                self.events.append(event)
        raise TimeoutError("no " + what)

    # ---- checks and pictures ---------------------------------------------------------------------

    def expect(self, answer, what, reply="success"):
        if answer.get("reply") != reply and not (reply == "ok" and answer.get("ok")):
            self.failures.append("%s: %s" % (what, json.dumps(answer)))
            self.note("UNEXPECTED %s: %s" % (what, json.dumps(answer)))
        return answer

    def screenshot(self, name):
        # Let the render threads present a few frames before the picture is taken.
        self.request("sync")
        time.sleep(0.5)
        self.save_screen(name)

    def grab_screen(self):
        """The whole screen as raw RGB bytes."""
        return subprocess.run(["import", "-display", self.display, "-window", "root", "rgb:-"],
                              check=True, capture_output=True).stdout

    def save_screen(self, name):
        path = os.path.join(self.out_dir, name + ".png")
        subprocess.run(["import", "-display", self.display, "-window", "root", path], check=True)
        self.note("screenshot " + path)

    def screenshot_after_change(self, name, wait=5.0):
        """Waits until the screen differs from what it shows now, then takes the screenshot."""
        before = self.grab_screen()
        deadline = time.monotonic() + wait
        while self.grab_screen() == before:
            if time.monotonic() > deadline:
                self.failures.append("the screen did not change for " + name)
                break
            time.sleep(0.1)
        self.save_screen(name)

    def finish(self):
        answer = self.request("destroyWindow")
        self.expect(answer, "destroyWindow", "ok")
        try:
            code = self.process.wait(timeout=self.timeout)
        except subprocess.TimeoutExpired:
            self.process.kill()
            code = None
        self.note("kestrun.exe exited with code %s" % code)
        if code != 0:
            self.failures.append("exit code %s" % code)
        self.transcript.close()


# A font the scripts install (fonts-dejavu-core); ImageMagick's default font may be missing.
FONT = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf"


def make_pictures(out_dir):
    """Colour-coded pictures made with ImageMagick: a 3840x1080 panorama whose halves differ,
    and an animated GIF of three coloured frames with 1 s delays."""
    panorama = os.path.join(out_dir, "panorama.png")
    subprocess.run(["convert", "-size", "1920x1080", "gradient:#d04020-#f0c040",
                    "-gravity", "center", "-font", FONT, "-pointsize", "220", "-fill", "white",
                    "-annotate", "0", "LEFT", os.path.join(out_dir, "left.png")], check=True)
    subprocess.run(["convert", "-size", "1920x1080", "gradient:#2050d0-#40d0c0",
                    "-gravity", "center", "-font", FONT, "-pointsize", "220", "-fill", "white",
                    "-annotate", "0", "RIGHT", os.path.join(out_dir, "right.png")], check=True)
    subprocess.run(["convert", os.path.join(out_dir, "left.png"),
                    os.path.join(out_dir, "right.png"), "+append", panorama], check=True)
    gif = os.path.join(out_dir, "pulse.gif")
    frames = []
    for index, colour in enumerate(["#e03030", "#30c040", "#3060e0"]):
        frame = os.path.join(out_dir, "frame%d.png" % index)
        subprocess.run(["convert", "-size", "640x360", "xc:" + colour, "-gravity", "center",
                        "-font", FONT,
                        "-pointsize", "120", "-fill", "white", "-annotate", "0", str(index + 1),
                        frame], check=True)
        frames.append(frame)
    subprocess.run(["convert", "-delay", "100", "-loop", "0"] + frames + [gif], check=True)
    return panorama, gif


def shell_scene(show):
    show.note("scene 1: the main window and its channels")
    show.wait_event(lambda e: e["event"] == "frame", "first frame")
    show.expect(show.request("window"), "window", "ok")
    show.expect(show.invoke(DISPLAY_CHANNEL, "getAllDisplays"), "getAllDisplays")
    show.expect(show.invoke(DISPLAY_CHANNEL, "getPrimaryDisplay"), "getPrimaryDisplay")
    show.expect(show.invoke("kestrun/distribution", "isWindowsStore"), "isWindowsStore")
    show.expect(show.invoke("kestrun/native_window", "isSessionLocked"), "isSessionLocked")
    show.expect(show.invoke("kestrun/native_window", "isInForeground"), "isInForeground")
    show.expect(show.request("post", message="WM_CLOSE"), "post WM_CLOSE", "ok")
    show.wait_event(lambda e: e.get("method") == "closeRequested", "closeRequested")
    show.screenshot("01-main-window")


def live_scene(show, out_dir):
    show.note("scene 2: live output")
    probe = show.invoke(LIVE, "closeAll")
    if probe.get("reply") == "notImplemented":
        show.note("live output is not available in this build; scene skipped")
        return
    panorama, gif = make_pictures(out_dir)
    logs = os.path.join(out_dir, "logs")
    os.makedirs(logs, exist_ok=True)
    show.expect(show.invoke(LIVE, "initializeLogger", {"logDirectory": windows_path(logs)}),
                "initializeLogger")

    # Two output windows side by side on the one screen Wine has; each shows its half of one
    # 3840x1080 canvas, so together they show the whole panorama.
    halves = [("demo-left", 0, 0.0), ("demo-right", 960, 0.5)]
    for display_id, x, left in halves:
        show.expect(show.invoke(LIVE, "showForDisplay", {
            "displayId": display_id, "name": display_id, "x": x, "y": 270,
            "width": 960, "height": 540, "isPrimary": False}), "showForDisplay " + display_id)
        show.expect(show.invoke(LIVE, "setCropRectForDisplay", {
            "displayId": display_id, "left": left, "top": 0.0, "width": 0.5, "height": 1.0,
            "canvasWidth": 3840, "canvasHeight": 1080}), "setCropRect " + display_id)
        show.expect(show.invoke(LIVE, "loadImageForDisplay", {
            "displayId": display_id, "path": windows_path(panorama), "fitMode": 0}),
            "loadImage " + display_id)
    show.screenshot("02-panorama-across-two-windows")

    # An animated GIF on the right-hand window, uncropped.
    show.expect(show.invoke(LIVE, "clearCropRectForDisplay", {"displayId": "demo-right"}),
                "clearCropRect")
    show.expect(show.invoke(LIVE, "loadImageForDisplay", {
        "displayId": "demo-right", "path": windows_path(gif), "fitMode": 1}), "loadImage gif")
    show.screenshot("03-animated-gif-frame-a")
    # The next frame comes on the GIF's own delay.
    show.screenshot_after_change("04-animated-gif-frame-b")

    # Fade every window to black; the reply comes once all fades have ended.
    show.expect(show.invoke(LIVE, "fadeToBlackAll", {"duration": 800}), "fadeToBlackAll")
    # The fade darkens a layered overlay window above the picture. Wine draws Direct3D output over
    # child windows, so on this display the picture stays visible; the reply above arrived only
    # after both fades had ended.
    show.note("fadeToBlackAll answered after both fades ended (Wine does not draw the overlay "
              "above Direct3D output, so the screenshot still shows the picture)")
    show.screenshot("05-after-fade-to-black")
    show.expect(show.invoke(LIVE, "fadeFromBlackAll", {"duration": 300}), "fadeFromBlackAll")
    show.expect(show.invoke(LIVE, "blankForDisplay", {"displayId": "demo-left"}), "blank")
    show.screenshot("06-left-blanked")
    show.expect(show.invoke(LIVE, "closeAll"), "closeAll")


def save_composition(show, name, windows):
    """Converts the composition images of the output windows at the given screen positions (as
    the host's recording composition writes them) into <name>-<window>.png beside the
    screenshots."""
    # The host rewrites the images at most five times a second while video runs, each written
    # after composing it (slow under Wine): an image written twice since this call shows the
    # windows as they are now.
    sources = [os.path.join(show.composition_dir, "composition-%d-%d.bmp" % (x, y))
               for _, x, y in windows]

    def written():
        return min(os.path.getmtime(p) if os.path.exists(p) else 0.0 for p in sources)

    mark = time.time()
    deadline = mark + 15.0
    for _ in range(2):
        while written() <= mark and time.time() < deadline:
            time.sleep(0.05)
        mark = max(mark, written())
    for label, x, y in windows:
        source = os.path.join(show.composition_dir, "composition-%d-%d.bmp" % (x, y))
        target = os.path.join(show.out_dir, "%s-%s.png" % (name, label))
        if not os.path.exists(source):
            show.failures.append("no composition image for " + label)
            continue
        subprocess.run(["convert", source, target], check=True)
        show.note("composition image " + target)


def video_scene(show, out_dir):
    show.note("scene 3: video spanning two windows, then a fade")
    video = os.path.join(out_dir, "test-video.mp4")
    with open(video, "w") as f:
        f.write("the stand-in media library draws coloured frames for any file that exists\n")
    windows = [("left", 0, 270), ("right", 960, 270)]
    for label, x, y in windows:
        show.expect(show.invoke(LIVE, "showForDisplay", {
            "displayId": "video-" + label, "name": "video-" + label, "x": x, "y": y,
            "width": 960, "height": 540, "isPrimary": False}), "showForDisplay video-" + label)
    # One 3840x1080 canvas cut into two 1920x1080 crops, each larger than its 960x540 window:
    # every window shows its whole half, scaled down.
    answer = show.invoke(LIVE, "setVideoTopology", {
        "decoders": [{"key": "wall", "path": windows_path(video), "fitMode": 2, "loop": True,
                      "canvasWidth": 3840, "canvasHeight": 1080, "startPositionMs": 0}],
        "assignments": [
            {"displayId": "video-left", "decoderKey": "wall",
             "cropX": 0, "cropY": 0, "cropWidth": 1920, "cropHeight": 1080},
            {"displayId": "video-right", "decoderKey": "wall",
             "cropX": 1920, "cropY": 0, "cropWidth": 1920, "cropHeight": 1080}]})
    if answer.get("reply") == "notImplemented":
        show.note("video is not available in this build; scene skipped")
        return
    show.expect(answer, "setVideoTopology")
    show.expect(show.invoke(LIVE, "setVolumeForDisplay",
                            {"displayId": "video-left", "volume": 0.8}), "setVolumeForDisplay")
    # New displays start transparent; the reply comes when the fade-in has ended.
    show.expect(show.invoke(LIVE, "setVideoOpacity", {"opacity": 1.0, "duration": 400}),
                "setVideoOpacity fade-in")
    show.note("Wine cannot show DirectComposition: the windows stay black on screen; the "
              "composition images beside the screenshot show what each window would show")
    show.screenshot("07-video-windows")
    save_composition(show, "07-video-composition", windows)
    show.expect(show.invoke(LIVE, "getPositionForDisplay", {"displayId": "video-right"}),
                "getPositionForDisplay")
    # A window fade reaches the video too (the composition is drawn above the fade overlay).
    show.expect(show.invoke(LIVE, "fadeToBlackForDisplay",
                            {"displayId": "video-left", "duration": 300}),
                "fadeToBlackForDisplay video-left")
    save_composition(show, "08-video-composition-left-faded", windows)
    show.expect(show.invoke(LIVE, "fadeFromBlackForDisplay",
                            {"displayId": "video-left", "duration": 300}),
                "fadeFromBlackForDisplay video-left")
    show.expect(show.invoke(LIVE, "setVideoOpacity", {"opacity": 0.0, "duration": 800}),
                "setVideoOpacity fade-out")
    save_composition(show, "09-video-composition-after-fade", windows)
    show.expect(show.invoke(LIVE, "closeAll"), "closeAll after video")


def webpage_scene(show):
    show.note("scene 4: web pages")
    probe = show.invoke(LIVE, "reloadWebpageForDisplay", {"displayId": "demo-web"})
    if probe.get("reply") == "notImplemented":
        show.note("web pages are not available in this build; scene skipped")
        return
    # An output window showing a page; with the browser stand-in beside the program, the page is
    # its URL painted on a blue ground. It appears once the page's DOM content has loaded.
    show.expect(show.invoke(LIVE, "showForDisplay", {
        "displayId": "demo-web", "name": "demo-web", "x": 480, "y": 270,
        "width": 960, "height": 540, "isPrimary": False}), "showForDisplay demo-web")
    show.expect(show.invoke(LIVE, "loadWebpageForDisplay", {
        "displayId": "demo-web", "url": "https://kestrun.example/welcome"}), "loadWebpage")
    # Wine draws Direct3D output above child windows, so there the output window stays black in
    # the screenshot although the page's window is shown in it (the tests check its visibility).
    show.note("webpage loaded; under Wine the Direct3D output covers the browser's child window")
    show.screenshot("09-webpage-on-output-window")
    show.expect(show.invoke(LIVE, "stopWebpageForDisplay", {"displayId": "demo-web"}),
                "stopWebpage")
    show.expect(show.invoke(LIVE, "closeAll"), "closeAll")

    # A web view over the main window, placed by the interface.
    show.expect(show.invoke(WEBVIEW, "initialize", {"id": "demo"}), "webview initialize")
    show.expect(show.invoke(WEBVIEW, "setBounds", {
        "id": "demo", "x": 40, "y": 40, "width": 640, "height": 300}), "webview setBounds")
    show.expect(show.invoke(WEBVIEW, "navigate", {
        "id": "demo", "url": "https://kestrun.example/web-view"}), "webview navigate")
    show.screenshot("10-web-view-over-the-main-window")
    show.expect(show.invoke(WEBVIEW, "disposeAll"), "webview disposeAll")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--display", required=True)
    parser.add_argument("--timeout", type=float, default=60.0)
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)

    show = Show(args.program, args.out, args.display, args.timeout)
    try:
        shell_scene(show)
        live_scene(show, args.out)
        video_scene(show, args.out)
        webpage_scene(show)
    finally:
        show.finish()
    if show.failures:
        print("demo: FAILED:\n  " + "\n  ".join(show.failures), file=sys.stderr)
        return 1
    print("demo: done; transcript and screenshots in " + args.out)
    return 0


if __name__ == "__main__":
    sys.exit(main())
