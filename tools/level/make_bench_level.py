# SPDX-License-Identifier: MIT
"""Writes a large level-like FBX or binary glTF (about a million triangles) for the loader benchmark.

    blender -b --factory-startup --python tools/level/make_bench_level.py -- OUTPUT.fbx|OUTPUT.glb [TRIANGLES]

A rolling terrain grid, written by Blender's exporter with the same settings as the real level
(binary 7.4, one triangulated mesh in world-space Y-up metres, per-corner normals, one UV
layer), so the benchmark reads the same kind of data the game does, only far more of it.
The output is a build artefact: do not commit it.
"""

import array
import math
import os
import sys
import time

import bpy

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import build_level  # noqa: E402  (shares the export settings and the final check)

DEFAULT_TRIANGLES = 1_000_000
MAX_TRIANGLES = 20_000_000   # Blender's exporter needs roughly 1 KB per triangle
SIZE = 240.0                 # metres across, twice the real level
FLOOR, START = build_level.FLOOR, build_level.START


def usage(msg):
    raise SystemExit("%s\nusage: blender -b --factory-startup --python %s -- OUTPUT.fbx|OUTPUT.glb [TRIANGLES]"
                     % (msg, os.path.basename(__file__)))


def parse_args():
    args = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
    if not args or len(args) > 2:
        usage("need an output path")
    path = os.path.abspath(args[0])
    if not path.lower().endswith((".fbx", ".glb")):
        usage("output must end in .fbx or .glb: %s" % args[0])
    triangles = DEFAULT_TRIANGLES
    if len(args) == 2:
        try:
            triangles = int(args[1])
        except ValueError:
            usage("triangle count is not a number: %s" % args[1])
        if not 2 <= triangles <= MAX_TRIANGLES:
            usage("triangle count must be between 2 and %d" % MAX_TRIANGLES)
    return path, triangles


def height(x, z):
    # A few long swells and a ripple: smooth enough to look like ground, uneven enough that
    # no two normals repeat over large areas.  Every term vanishes at the start (2, 3), so the
    # game could even play on it: the floor there is at 3 and nowhere below 0.5.
    dx, dz = x - START[0], z - START[1]
    return (FLOOR + 1.5 * math.sin(dx * 0.045) * math.cos(dz * 0.037)
            + 0.8 * math.sin((dx + dz) * 0.11) + 0.2 * math.sin(dx * 0.9) * math.sin(dz * 0.83))


def terrain_mesh(quads_per_side):
    n = quads_per_side
    step = SIZE / n
    co = array.array("f")
    for k in range(n + 1):
        z = -SIZE / 2 + k * step
        for i in range(n + 1):
            x = -SIZE / 2 + i * step
            co.extend((x, height(x, z), z))
    corners = array.array("i")
    row = n + 1
    for k in range(n):
        for i in range(n):
            a = k * row + i
            # Counter-clockwise seen from above (+Y), so the top faces the sky.
            corners.extend((a, a + row, a + row + 1, a, a + row + 1, a + 1))
    tris = len(corners) // 3
    me = bpy.data.meshes.new("BenchTerrain")
    me.vertices.add(len(co) // 3)
    me.vertices.foreach_set("co", co)
    me.loops.add(len(corners))
    me.loops.foreach_set("vertex_index", corners)
    me.polygons.add(tris)
    me.polygons.foreach_set("loop_start", array.array("i", range(0, len(corners), 3)))
    me.polygons.foreach_set("loop_total", array.array("i", [3]) * tris)
    uv = me.uv_layers.new(name="UVMap")
    uvs = array.array("f")
    for c in corners:
        uvs.extend((co[3 * c] / build_level.UV_METRES, co[3 * c + 2] / build_level.UV_METRES))
    uv.data.foreach_set("uv", uvs)
    me.update(calc_edges=True)
    if me.validate(verbose=False):
        raise RuntimeError("generated terrain mesh was invalid")
    return me


def main():
    path, triangles = parse_args()
    t0 = time.time()
    build_level.clear_scene()
    quads = max(1, math.ceil(math.sqrt(triangles / 2)))
    me = terrain_mesh(quads)
    ob = bpy.data.objects.new("Level", me)
    bpy.context.scene.collection.objects.link(ob)
    lo = [min(v.co[i] for v in me.vertices) for i in range(3)]
    hi = [max(v.co[i] for v in me.vertices) for i in range(3)]
    t1 = time.time()
    if path.lower().endswith(".glb"):
        build_level.export_glb(ob, path)
        print("bench level written to %s, %d triangles, %d bytes, export %.1f s"
              % (path, len(me.polygons), os.path.getsize(path), time.time() - t1))
        return
    build_level.export(ob, path)
    t2 = time.time()
    mesh = build_level.verify(path, lo, hi)
    print("bench level written to %s" % path)
    print("triangles: %d, file size: %d bytes" % (len(mesh.polygon_sizes), os.path.getsize(path)))
    print("seconds: build %.1f, export %.1f, check %.1f" % (t1 - t0, t2 - t1, time.time() - t2))


if __name__ == "__main__":
    try:
        main()
    except SystemExit:
        raise
    except Exception as e:  # Blender would print the trace and still exit 0
        import traceback
        traceback.print_exc()
        sys.exit("make_bench_level.py failed: %s" % e)
