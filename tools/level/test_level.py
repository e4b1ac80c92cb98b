# SPDX-License-Identifier: MIT
"""Checks on the committed level file, the raw FBX reader and the Blender scripts.

    python3 -m unittest discover -s tools/level -v

BLOTCH_LEVEL=path checks another level file.  The tests that run Blender skip when it is not
installed; they take a few seconds each.
"""

import math
import os
import random
import shutil
import subprocess
import sys
import tempfile
import unittest
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, HERE)
import fbx_raw as fi  # noqa: E402

LEVEL = os.environ.get("BLOTCH_LEVEL", os.path.join(REPO, "data", "fbx", "level.fbx"))
EYE = (2.0, 3.0 + 1.975 + 1.75, 3.0)
GRAVITY = -9.8
THROW_SPEED = 500.0 / 60.0 / 0.25      # one 1/60 s push of 500 on a 0.25 kg ball
BALL_DROP = 1.5                        # the ball leaves this far below the eye


class Level:
    """The level's triangles with a coarse grid over (x, z) for ray and segment queries."""
    CELL = 4.0

    def __init__(self, path):
        self.version, top = fi.parse_file(path)
        self.mesh = fi.Mesh(top)
        self.tris = self.mesh.triangles()
        self.grid = {}
        for n, (a, b, c) in enumerate(self.tris):
            for i in range(self._cell(min(a[0], b[0], c[0])), self._cell(max(a[0], b[0], c[0])) + 1):
                for k in range(self._cell(min(a[2], b[2], c[2])), self._cell(max(a[2], b[2], c[2])) + 1):
                    self.grid.setdefault((i, k), []).append(n)

    def _cell(self, v):
        return int(math.floor(v / self.CELL))

    def segment(self, p, q):
        """First triangle crossed going from p to q: (distance from p, triangle index) or None."""
        d = fi.sub(q, p)
        length = math.sqrt(fi.dot(d, d))
        if length == 0:
            return None
        d = (d[0] / length, d[1] / length, d[2] / length)
        near = set()
        for i in range(self._cell(min(p[0], q[0])), self._cell(max(p[0], q[0])) + 1):
            for k in range(self._cell(min(p[2], q[2])), self._cell(max(p[2], q[2])) + 1):
                near.update(self.grid.get((i, k), ()))
        best = None
        for n in near:
            t = fi.ray_hit([self.tris[n]], p, d)
            if t is not None and t <= length and (best is None or t < best[0]):
                best = (t, n)
        return best

    def ray(self, p, d, length, step=3.0):
        """Walks a long ray in short pieces so each piece only looks at a few grid cells."""
        s = 0.0
        while s < length:
            e = min(length, s + step)
            hit = self.segment(tuple(p[i] + d[i] * s for i in range(3)), tuple(p[i] + d[i] * e for i in range(3)))
            if hit:
                return s + hit[0], hit[1]
            s = e
        return None

    def floor(self, x, z, y=40.0):
        hit = self.ray((x, y, z), (0.0, -1.0, 0.0), y + 10.0)
        return None if hit is None else y - hit[0]

    def faces(self, n, origin):
        """True when triangle n winds counter-clockwise seen from origin (its front)."""
        a, b, c = self.tris[n]
        return fi.dot(fi.cross(fi.sub(b, a), fi.sub(c, a)), fi.sub(origin, a)) > 0

    def throw(self, heading):
        """Flies a ball from the start towards heading (radians from -Z towards +X); returns
        (horizontal distance, triangle) of the first strike or None within 3 s."""
        dx, dz = math.sin(heading), -math.cos(heading)
        v = [THROW_SPEED * dx, THROW_SPEED * 0.25, THROW_SPEED * dz]
        p = (EYE[0], EYE[1] - BALL_DROP, EYE[2])
        dt = 1.0 / 60.0
        for _ in range(180):
            v[1] += GRAVITY * dt
            q = (p[0] + v[0] * dt, p[1] + v[1] * dt, p[2] + v[2] * dt)
            hit = self.segment(p, q)
            if hit:
                return math.hypot(p[0] - EYE[0], p[2] - EYE[2]), hit[1], p
            p = q
        return None


_level = None


def level():
    global _level
    if _level is None:
        _level = Level(LEVEL)
    return _level


class FileShape(unittest.TestCase):
    """What the game's importer depends on: one triangulated mesh, the layers it reads."""

    def test_one_triangulated_mesh_and_nothing_else(self):
        lv = level()
        self.assertEqual(lv.version, 7400)
        self.assertEqual(lv.mesh.geometry_count, 1)
        self.assertEqual(lv.mesh.models, [("Level", "Mesh")])
        self.assertEqual(lv.mesh.node_attributes, 0, "cameras or lights were exported")
        self.assertTrue(lv.mesh.is_triangulated)
        self.assertTrue(5000 <= len(lv.tris) <= 30000, len(lv.tris))

    def test_normals_and_uvs_per_corner(self):
        m = level().mesh
        self.assertEqual(m.normal_mapping, (b"ByPolygonVertex", b"Direct"))
        self.assertEqual(len(m.normals), 3 * len(m.corners))
        lengths = [math.sqrt(sum(m.normals[i + j] ** 2 for j in range(3))) for i in range(0, len(m.normals), 3)]
        self.assertAlmostEqual(min(lengths), 1.0, places=3)
        self.assertAlmostEqual(max(lengths), 1.0, places=3)
        self.assertEqual(m.uv_layers, 1)
        self.assertEqual(m.uv_mapping, (b"ByPolygonVertex", b"IndexToDirect"))

    def test_winding_agrees_with_normals_and_no_slivers(self):
        m, lv = level().mesh, level()
        for t, (a, b, c) in enumerate(lv.tris):
            face = fi.cross(fi.sub(b, a), fi.sub(c, a))
            self.assertGreater(math.sqrt(fi.dot(face, face)), 2e-6, "zero-area triangle %d" % t)
            stored = [sum(m.normals[(3 * t + k) * 3 + j] for k in range(3)) for j in range(3)]
            self.assertGreater(fi.dot(face, stored), 0, "triangle %d winds against its normals" % t)

    def test_extent_is_world_space_metres_y_up(self):
        (x0, y0, z0), (x1, y1, z1) = level().mesh.bounds()
        self.assertTrue(100 <= x1 - x0 <= 140 and 100 <= z1 - z0 <= 140, (x0, z0, x1, z1))
        self.assertTrue(0.3 < y0 < 3.0 and 10.0 < y1 < 40.0, (y0, y1))
        self.assertTrue(x0 < -57 < x1 and z0 < 35 < z1, "sphere chain anchor outside the level")


class Layout(unittest.TestCase):
    """Play-relevant properties of the layout, probed by rays like the game's physics."""

    def test_start_stands_on_the_floor_with_room_around(self):
        lv = level()
        self.assertAlmostEqual(lv.floor(2.0, 3.0, y=10.0), 3.0, places=3)
        for y in (3.3, 5.0, EYE[1]):
            for i in range(32):
                a = 2 * math.pi * i / 32
                hit = lv.ray((2.0, y, 3.0), (math.sin(a), 0.0, -math.cos(a)), 6.0)
                self.assertIsNone(hit, "something within 6 m of the start at height %.1f" % y)
        self.assertIsNone(lv.ray((2.0, 3.1, 3.0), (0.0, 1.0, 0.0), 50.0), "roof over the start")

    def test_start_view_faces_something_near(self):
        lv = level()
        hit = lv.ray(EYE, (0.0, 0.0, -1.0), 60.0)
        self.assertIsNotNone(hit)
        self.assertTrue(10.0 <= hit[0] <= 40.0, hit[0])
        self.assertTrue(lv.faces(hit[1], EYE), "the view north meets a back face")

    def test_balls_thrown_from_the_start_strike_within_sight(self):
        lv = level()
        near = 0
        for i in range(24):
            strike = lv.throw(2 * math.pi * i / 24)
            if strike is None:
                continue
            dist, tri, came_from = strike
            self.assertTrue(lv.faces(tri, came_from), "a ball struck a back face heading %d" % i)
            near += dist <= 45.0
        self.assertGreaterEqual(near, 18, "too few directions have something to paint within 45 m")

    def test_sphere_chain_orbit_is_clear(self):
        # The links circle (-57, 5) in the plane z = 35 out to 4.5 m, the lower one down to y 0.5.
        lv = level()
        for dx in (-4.5, -3.0, 0.0, 3.0, 4.5):
            for z in (34.0, 35.0, 36.0):
                below = lv.floor(-57.0 + dx, z, y=12.0)
                self.assertTrue(below is None or below < 0.0, (dx, z, below))
        self.assertIsNotNone(lv.floor(-57.0, 45.0), "no plaza round the anchor")

    def test_holes_and_open_edges_drop_into_the_void(self):
        lv = level()
        for name, x, z in (("pit", -16, 12), ("slot", 28, -30), ("well", -57, 35), ("east edge", 44, -30),
                           ("south edge", 10, 44), ("beside the bridge", -36, 28)):
            self.assertIsNone(lv.floor(x, z), name)
        self.assertIsNotNone(lv.floor(-36, 35), "the bridge is missing")

    def test_stairs_rise_in_steps_the_player_can_take(self):
        lv = level()
        for x, z0, dx, dz, count in ((2.0, -22.65, 0, -1.3, 12), (-43.0, -20.25, 0, -1.3, 8),
                                     (33.0, -50.0, -1.3, 0, 12)):
            heights = [lv.floor(x + dx * i, z0 + dz * i) for i in range(count)]
            rises = [b - a for a, b in zip([3.0] + heights, heights)]
            for r in rises:
                self.assertTrue(0.25 - 1e-4 <= r <= 0.4 + 1e-4, (x, z0, rises))

    def test_ramps_both_climbable_and_too_steep(self):
        angles = set()
        for a, b, c in level().tris:
            n = fi.cross(fi.sub(b, a), fi.sub(c, a))
            cos_up = n[1] / math.sqrt(fi.dot(n, n))
            if cos_up > 0.05:
                angles.add(round(math.degrees(math.acos(min(1.0, cos_up)))))
        self.assertTrue(any(30 <= a <= 40 for a in angles), sorted(angles))
        self.assertTrue(any(55 <= a <= 80 for a in angles), sorted(angles))


class Reader(unittest.TestCase):
    """The raw reader must refuse damaged files with FbxError, never crash or read garbage."""

    @classmethod
    def setUpClass(cls):
        with open(LEVEL, "rb") as f:
            cls.data = f.read()

    def test_truncated_files_are_refused(self):
        for cut in (0, 10, 26, 27, 100, 5000, len(self.data) // 2, len(self.data) - 200):
            with self.assertRaises(fi.FbxError, msg="cut at %d" % cut):
                fi.Mesh(fi.parse_bytes(self.data[:cut])[1])

    def test_corruption_gives_fbx_errors_only(self):
        rng = random.Random(7)
        for _ in range(40):
            d = bytearray(self.data)
            for _ in range(3):
                d[rng.randrange(27, len(d))] ^= 1 << rng.randrange(8)
            try:
                fi.Mesh(fi.parse_bytes(bytes(d))[1])
            except fi.FbxError:
                pass

    def test_bad_magic_and_bad_zlib_name_the_problem(self):
        with self.assertRaisesRegex(fi.FbxError, "magic"):
            fi.parse_bytes(b"Kaydara FBX ASCII" + self.data[17:])
        # Break the first compressed array right after its zlib header.
        at = self.data.index(b"\x78\x9c") + 2
        bad = self.data[:at] + bytes(16) + self.data[at + 16:]
        with self.assertRaisesRegex(fi.FbxError, "zlib|inflates"):
            fi.parse_bytes(bad)

    def test_array_size_mismatch_is_refused(self):
        raw = zlib.compress(bytes(8 * 3))
        record = self._record(b"V", b"d" + (4).to_bytes(4, "little") + (1).to_bytes(4, "little")
                              + len(raw).to_bytes(4, "little") + raw)
        with self.assertRaisesRegex(fi.FbxError, "inflates to 24 bytes, expected 32"):
            fi.parse_bytes(self.data[:27] + record + bytes(13))

    @staticmethod
    def _record(name, props):
        body_start = 27 + 13 + len(name)
        end = body_start + len(props)
        return (end.to_bytes(4, "little") + (1).to_bytes(4, "little") + len(props).to_bytes(4, "little")
                + bytes([len(name)]) + name + props)


BLENDER = shutil.which("blender")


@unittest.skipUnless(BLENDER, "blender is not installed")
class Scripts(unittest.TestCase):
    def blender(self, script, *args):
        return subprocess.run([BLENDER, "-b", "--factory-startup", "--python", os.path.join(HERE, script),
                               "--"] + list(args), capture_output=True, text=True, timeout=600)

    def geometry(self, path):
        top = fi.parse_file(path)[1]
        g = [g for g in next(t for t in top if t.name == "Objects").all("Geometry")][-1]
        return [(c.name, [(cc.name, list(cc.props[0]) if cc.props and hasattr(cc.props[0], "typecode") else cc.props)
                          for cc in c.children]) if c.children else (c.name, c.props) for c in g.children]

    def test_rebuild_reproduces_the_committed_level(self):
        with tempfile.TemporaryDirectory() as tmp:
            out = os.path.join(tmp, "level.fbx")
            run = self.blender("build_level.py", out)
            self.assertEqual(run.returncode, 0, run.stderr[-2000:])
            self.assertRegex(run.stdout, r"floor below \(2\.0, 10, 3\.0\): 3\.000")
            self.assertEqual(self.geometry(out), self.geometry(LEVEL),
                             "data/fbx/level.fbx is stale: re-run build_level.py")

    def test_bench_level_and_bad_arguments(self):
        with tempfile.TemporaryDirectory() as tmp:
            out = os.path.join(tmp, "bench.fbx")
            run = self.blender("make_bench_level.py", out, "1000")
            self.assertEqual(run.returncode, 0, run.stderr[-2000:])
            mesh = fi.Mesh(fi.parse_file(out)[1])
            self.assertTrue(mesh.is_triangulated and len(mesh.polygon_sizes) >= 1000)
            for args in ((), (out, "many"), (out, "0"), (os.path.join(tmp, "bench.txt"),)):
                run = self.blender("make_bench_level.py", *args)
                self.assertNotEqual(run.returncode, 0, args)
                self.assertIn("usage:", run.stderr + run.stdout)
            run = self.blender("build_level.py", os.path.join(tmp, "x.obj"))
            self.assertNotEqual(run.returncode, 0)


if __name__ == "__main__":
    unittest.main()
