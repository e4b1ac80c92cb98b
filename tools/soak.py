#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""An hour of play: runs the real game and plays it for a given time, then reports.

The player clicks as fast as the shot cooldown lets balls go (four a second) while walking
forward and back along the start direction, so the walk retraces itself, and turning a different
way each time between walks, so the paint goes all round. Once a minute the soak samples the
game's resident memory (/proc) and reads the frame rate the overlay shows ("framerate: N fps") off
a screenshot, by drawing that line itself with the overlay's font for every N and taking the best
match. Throws are counted from the game's standard error (one line per ball). A minute without a
throw means the match has ended (the player fell).

Needs an X display (DISPLAY), xdotool and ImageMagick, as the end-to-end tests do. Prints one
line per sample and, last, a summary line:

    soak minutes=M throws=T kb_per_throw=K fps_start=A fps_end=B crashed=0 fell=0

kb_per_throw is the growth of resident memory from the first minute to the last over the throws
between them. Usage: tools/soak.py [--minutes 60] [--binary build/src/blotch] [--csv FILE]
[--keep DIR]
"""
import argparse
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FONT = os.path.join(ROOT, "data", "fonts", "bankgothic-black-small")
# Where the overlay writes "framerate: ": x -500, y -365 in a 1024 x 768 screen space centred on
# the window, one unit a pixel, y down.
TEXT_X, TEXT_Y = 512 - 500, 384 - 365


def run(command, **kwargs):
    return subprocess.run(command, check=False, capture_output=True, **kwargs)


def read_pgm(data):
    """Width, height and rows of an 8-bit binary PGM."""
    fields = []
    pos = 0
    while len(fields) < 4:
        while data[pos:pos + 1].isspace():
            pos += 1
        if data[pos:pos + 1] == b"#":
            pos = data.index(b"\n", pos)
            continue
        end = pos
        while not data[end:end + 1].isspace():
            end += 1
        fields.append(data[pos:end])
        pos = end
    width, height = int(fields[1]), int(fields[2])
    pixels = data[pos + 1:pos + 1 + width * height]
    return width, height, [pixels[y * width:(y + 1) * width] for y in range(height)]


class OverlayFont:
    """The overlay font's glyphs as they come out of the "font" shader: the glyph's coverage
    ("fill") in black over a white halo 1.5 texels wide ("cover" is the halo's coverage)."""

    HALO = 1.5

    def __init__(self, base):
        self.glyphs = {}
        self.kerning = {}
        with open(base + ".fnt") as fnt:
            for line in fnt:
                values = dict(re.findall(r"(\w+)=(-?\d+)", line))
                if line.startswith("char "):
                    self.glyphs[int(values["id"])] = {k: int(v) for k, v in values.items()}
                elif line.startswith("kerning "):
                    key = (int(values["first"]), int(values["second"]))
                    self.kerning[key] = int(values["amount"])
        # The page is stored bottom row first; the descriptor counts rows from the top.
        page = run(["convert", base + "_0.tga", "-flip", "-alpha", "extract", "-depth", "8",
                    "pgm:-"])
        self.width, self.height, rows = read_pgm(page.stdout)
        self.alpha = [[value / 255.0 for value in row] for row in rows]
        self.patches = {code: self._patch(glyph) for code, glyph in self.glyphs.items()}

    def _sample(self, x, y):
        """Bilinear alpha at texel coordinates (x, y), texel centres at .5, clamped to the page."""
        x -= 0.5
        y -= 0.5
        x0, y0 = int(x // 1), int(y // 1)
        fx, fy = x - x0, y - y0

        def at(px, py):
            px = min(max(px, 0), self.width - 1)
            py = min(max(py, 0), self.height - 1)
            return self.alpha[py][px]

        top = at(x0, y0) * (1 - fx) + at(x0 + 1, y0) * fx
        bottom = at(x0, y0 + 1) * (1 - fx) + at(x0 + 1, y0 + 1) * fx
        return top * (1 - fy) + bottom * fy

    def _patch(self, glyph):
        import math
        fill, cover = [], []
        for j in range(glyph["height"]):
            fill_row, cover_row = [], []
            for i in range(glyph["width"]):
                u, v = glyph["x"] + i + 0.5, glyph["y"] + j + 0.5
                f = self._sample(u, v)
                halo = 0.0
                for k in range(8):
                    angle = k * 0.785398
                    halo = max(halo, self._sample(u + self.HALO * math.cos(angle),
                                                  v + self.HALO * math.sin(angle)))
                fill_row.append(f)
                cover_row.append(max(f, halo))
            fill.append(fill_row)
            cover.append(cover_row)
        return fill, cover

    def layout(self, text):
        """(code, x, y) of each glyph's top-left corner relative to the pen start."""
        placed = []
        pen = 0
        previous = None
        for char in text:
            code = ord(char)
            glyph = self.glyphs.get(code)
            if glyph is None:
                continue
            if previous is not None:
                pen += self.kerning.get((previous, code), 0)
            placed.append((code, pen + glyph["xoffset"], glyph["yoffset"]))
            pen += glyph["xadvance"]
            previous = code
        return placed

    def render(self, text, background, skip=0):
        """{(x, y): grey} of the line over a flat BACKGROUND (0 black .. 1 white), leaving out its
        first SKIP glyphs; later glyphs are drawn over earlier ones, as the overlay does."""
        picture = {}
        for code, gx, gy in self.layout(text)[skip:]:
            fill, cover = self.patches[code]
            for j, (fill_row, cover_row) in enumerate(zip(fill, cover)):
                for i, (f, c) in enumerate(zip(fill_row, cover_row)):
                    under = picture.get((gx + i, gy + j), background)
                    picture[(gx + i, gy + j)] = under * (1 - c) + (1 - f) * c
        return picture


def line_error(picture, shot_rows):
    """Mean squared difference between a rendered part of the line and the screenshot."""
    error = 0.0
    for (x, y), grey in picture.items():
        error += (shot_rows[TEXT_Y + y][TEXT_X + x] / 255.0 - grey) ** 2
    return error / max(len(picture), 1)


def read_frame_rate(font, shot_rows, max_fps=1999):
    """The N of "framerate: N fps" in a grey screenshot (rows of bytes), or None when the line is
    not there (hidden, or unreadable over what lies behind it)."""
    prefix = "framerate: "
    # The fixed words tell the background (black sky, white level or paint) and that the line is
    # there.
    background = min((level / 20.0 for level in range(21)),
                     key=lambda b: line_error(font.render(prefix, b), shot_rows))
    if line_error(font.render(prefix, background), shot_rows) > 0.02:
        return None
    # Every number is compared over the same columns: the widest line's, the rest background.
    widest = max(x for _, x, _ in font.layout(prefix + "%d fps" % max_fps)) + 12
    best = None
    for number in range(max_fps + 1):
        picture = font.render(prefix + "%d fps" % number, background, skip=len(prefix))
        right = max(x for x, _ in picture) + 1
        for x in range(right, widest):
            for y in range(16):
                picture[(x, y)] = background
        error = line_error(picture, shot_rows) * len(picture)
        if best is None or error < best[0]:
            best = (error, number, len(picture))
    return best[1] if best[0] / best[2] < 0.02 else None


class Input:
    """One xdotool that reads its commands from a pipe, a line each: forty commands a second
    each in a process of its own would cost the machine the game is measured on."""

    def __init__(self):
        self.process = subprocess.Popen(["xdotool", "-"], stdin=subprocess.PIPE,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def send(self, arguments):
        try:
            self.process.stdin.write((" ".join(arguments) + "\n").encode())
            self.process.stdin.flush()
        except BrokenPipeError:
            pass

    def close(self):
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass
        self.process.wait()


class Game:
    def __init__(self, binary, workdir):
        self.out = open(os.path.join(workdir, "stdout.txt"), "w+b")
        self.err = open(os.path.join(workdir, "stderr.txt"), "w+b")
        self.process = subprocess.Popen([binary], cwd=ROOT, stdout=self.out, stderr=self.err,
                                        start_new_session=True)
        self.window = None

    def alive(self):
        return self.process.poll() is None

    def error_text(self):
        self.err.flush()
        with open(self.err.name, "rb") as f:
            return f.read().decode("utf-8", "replace")

    def output_text(self):
        with open(self.out.name, "rb") as f:
            return f.read().decode("utf-8", "replace")

    def find_window(self, seconds):
        end = time.time() + seconds
        while time.time() < end and self.alive():
            found = run(["xdotool", "search", "--onlyvisible", "--pid", str(self.process.pid)])
            ids = found.stdout.split()
            if ids:
                self.window = ids[-1].decode()
                return True
            time.sleep(0.2)
        return False

    def xdotool(self, *arguments):
        run(["xdotool", *arguments])

    def rss_kb(self):
        try:
            with open("/proc/%d/status" % self.process.pid) as status:
                for line in status:
                    if line.startswith("VmRSS:"):
                        return int(line.split()[1])
        except OSError:
            pass
        return None

    def grey_screenshot(self):
        shot = run(["import", "-window", self.window, "-colorspace", "Gray", "-depth", "8",
                    "pgm:-"])
        if shot.returncode != 0 or not shot.stdout:
            return None
        return read_pgm(shot.stdout)[2]

    def stop(self):
        if self.alive():
            self.xdotool("key", "--window", self.window or "0", "Escape")
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, signal.SIGKILL)
                self.process.wait()
        return self.process.returncode


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--minutes", type=float, default=60.0)
    parser.add_argument("--binary", default=os.path.join(ROOT, "build", "src", "blotch"))
    parser.add_argument("--csv", help="also write the samples to this file")
    parser.add_argument("--keep", help="keep the game's output and a picture a minute here")
    args = parser.parse_args()
    if not os.environ.get("DISPLAY"):
        sys.exit("soak: needs an X display (DISPLAY)")

    font = OverlayFont(FONT)
    workdir = args.keep or tempfile.mkdtemp(prefix="blotch-soak-")
    os.makedirs(workdir, exist_ok=True)
    game = Game(args.binary, workdir)
    if not game.find_window(30):
        sys.exit("soak: the game's window never appeared")
    time.sleep(1.0)
    game.xdotool("windowfocus", "--sync", game.window)
    for _ in range(20):
        game.xdotool("key", "--window", game.window, "Return")
        time.sleep(1.0)
        if re.search(r"^\d+$", game.output_text(), re.M):
            break
    else:
        sys.exit("soak: no match started")
    time.sleep(1.0)

    csv = open(args.csv, "w") if args.csv else None
    if csv:
        csv.write("minute,throws,rss_kb,fps\n")
    samples = []

    def record(minute, throws, rss, fps):
        samples.append((minute, throws, rss, fps))
        # The load tells whether something else shared the machine when the frame rate was read.
        load = os.getloadavg()[0]
        print("minute=%g throws=%d rss_kb=%s fps=%s load=%.2f" % (minute, throws, rss, fps, load),
              flush=True)
        if csv:
            csv.write("%g,%d,%s,%s\n" % (minute, throws, rss, "" if fps is None else fps))
            csv.flush()

    def throws_so_far():
        return len(re.findall(r"^\(.*\)$", game.error_text(), re.M))

    def frame_rate():
        rows = game.grey_screenshot()
        return read_frame_rate(font, rows) if rows else None

    # In ticks of 25 ms: a click every tick, so a ball leaves as soon as the shot cooldown allows
    # (four a second; a click during the cooldown throws nothing). Each cycle holds R to face the
    # start direction again, walks forward 0.4 s and back 0.4 s along it, then turns while
    # standing, a different way each cycle, so the paint goes all round. All the walking is along
    # one line and retraces itself: what is left of it is the frames a key press started and
    # ended in, and that drifts only along that line.
    TICK = 0.025
    player = Input()
    cycle = [("r", 0)] * 4 + [("w", 0)] * 16 + [("s", 0)] * 16 + [(None, 0)] * 48
    start = time.time()
    end = start + args.minutes * 60.0
    minute = 0
    pending = None  # (minute, throws, rss, give-up time) of a sample still waiting for its fps
    tick = 0
    held = None
    fell = False
    while game.alive():
        now = time.time()
        if pending is None and now >= start + minute * 60.0:
            pending = (minute, throws_so_far(), game.rss_kb(), now + 30.0)
            if minute > 0 and pending[1] == samples[-1][1]:
                fell = True  # not a throw for a minute: the match has ended (or the game hangs)
                break
            minute += 1
        if pending is not None and tick % 40 == 0:
            # The line can be unreadable for a moment (paint behind part of it): keep playing
            # and look again every second, for up to half a minute.
            fps = frame_rate()
            if fps is not None or now > pending[3]:
                record(pending[0], pending[1], pending[2], fps)
                if args.keep:
                    run(["import", "-window", game.window,
                         os.path.join(workdir, "minute-%02d.png" % pending[0])])
                pending = None
                if now >= end:
                    break
        key, turn = cycle[tick % len(cycle)]
        if key is None:
            # Spread this cycle's turn (0 to 102 pixels, a full circle is about 103) over the
            # standing ticks.
            rounds, step = divmod(tick, len(cycle))
            total = rounds * 17 % 103
            standing = step - (len(cycle) - 48)
            turn = total * (standing + 1) // 48 - total * standing // 48
        command = []
        if key != held:
            if held:
                command += ["keyup", held]
            if key:
                command += ["keydown", key]
            held = key
        if turn:
            command += ["mousemove_relative", "--", str(turn), "0"]
        command += ["mousedown", "1", "mouseup", "1"]
        player.send(command)
        tick += 1
        time.sleep(max(0.0, start + tick * TICK - time.time()))
    if held:
        player.send(["keyup", held])
    player.close()
    ended_early = not game.alive()
    status = game.stop()
    crashed = status != 0

    first = next((s for s in samples if s[0] >= 1 and s[2]), samples[0])
    last = samples[-1]
    kb_per_throw = ((last[2] - first[2]) / (last[1] - first[1])
                    if last[1] > first[1] and last[2] and first[2] else 0.0)
    if ended_early:
        print("soak: the game ended by itself after %d minutes, status %s" % (minute, status))
    print("soak minutes=%g throws=%d kb_per_throw=%.2f fps_start=%s fps_end=%s crashed=%d fell=%d"
          % (samples[-1][0], last[1], kb_per_throw, samples[0][3], last[3], int(crashed),
             int(fell)))
    return 1 if crashed or fell or ended_early else 0


if __name__ == "__main__":
    sys.exit(main())
