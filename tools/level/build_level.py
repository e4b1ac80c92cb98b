# SPDX-License-Identifier: MIT
"""Builds Blotch's level and writes it to data/fbx/level.fbx with Blender's FBX exporter and to
data/gltf/level.glb with its glTF exporter.

Run headless from the repository root:
    blender -b --factory-startup --python tools/level/build_level.py [-- OUTPUT.fbx|OUTPUT.glb]

With an output given, only that file is written: `-- data/gltf/level.glb` leaves the FBX alone.

Everything below is laid out in GAME coordinates: metres, Y up, the player starts at
(2, 5, 3) looking along -Z ("north" in the comments), so +X is east and +Z is south.
Only at the very end is the joined mesh turned into Blender's Z-up frame, and the exporter
turns it back while baking the conversion into the vertices.  The game applies no node
transform and keeps only the last mesh, so what lands in Geometry/Vertices must already be
the final world-space level.
"""

import hashlib
import math
import os
import sys

import bmesh
import bpy
from mathutils import Matrix, Vector, geometry

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
DEFAULT_OUTPUTS = [os.path.join(REPO, "data", "fbx", "level.fbx"),
                   os.path.join(REPO, "data", "gltf", "level.glb")]
sys.path.insert(0, HERE)
import fbx_raw  # noqa: E402  (needs the path above)

# ---------------------------------------------------------------------------------------------
# Numbers the level has to agree with.

# The capsule centre rests 1.975 above the floor and the eye 1.75 above that: a floor top at 3
# puts the eye at 6.725, safely above the 4.0 at which the match is lost.
FLOOR = 3.0
SLAB = 1.5                  # floor thickness; holes show their sides, so not paper thin
START = (2.0, 3.0)          # (x, z) of the capsule at match start
CHAIN_ANCHOR = (-57.0, 35.0)  # (x, z) the sphere chain orbits, in the vertical plane z = 35

CELL = 4.0                  # floor grid; the start (2, 3) sits in a cell interior
STEP_RISE = 0.35            # below the 0.5 step offset with margin for the skin width
STEP_RISE_LOW = 0.25
TREAD = 1.3                 # deeper than the capsule radius (1.0): it settles on each tread
SINK = 0.3                  # stairs and ramps reach this far into the floor: no seam at their toe
COLUMN_SIDES = 16
ARCH_SEGMENTS = 12          # segments per half circle
SMOOTH_ANGLE = math.radians(35)  # cylinders (22.5 deg) shade round, bevels (45 deg) stay crisp
UV_METRES = 4.0             # one texture repeat per floor cell

# The player looks almost level (a few degrees of pitch) and a ball leaves 0.25 above the
# capsule centre (y 5.2) at about 33 m/s with a 0.25 upward bias: it peaks near y 8.8 some
# 28 m out and is still above y 7 at 45 m.  Walls meant to catch paint therefore stand at least
# 9-10 m above the floor, and their windows sit above or below that band, not in it.


# Game (x, y, z) -> Blender (x, -z, y): a quarter turn about X, written out exactly.
GAME_TO_BLENDER = Matrix(((1, 0, 0, 0), (0, 0, -1, 0), (0, 1, 0, 0), (0, 0, 0, 1)))

# ---------------------------------------------------------------------------------------------
# Mesh helpers.  Each returns one closed solid as its own Blender object; they are joined later.

PARTS = []


def _finish(name, bm):
    """Checks the solid is watertight, points every face outward, triangulates it and stores it
    as an object."""
    bmesh.ops.remove_doubles(bm, verts=bm.verts[:], dist=1e-5)
    open_edges = [e for e in bm.edges if len(e.link_faces) != 2]
    if open_edges:
        raise RuntimeError("%s is not a closed solid (%d open edges)" % (name, len(open_edges)))
    bmesh.ops.recalc_face_normals(bm, faces=bm.faces[:])
    bmesh.ops.triangulate(bm, faces=bm.faces[:], quad_method='BEAUTY', ngon_method='BEAUTY')
    tiny = [f for f in bm.faces if f.calc_area() < 1e-6]
    if tiny:
        raise RuntimeError("%s: %d triangles of (almost) zero area, e.g. at %s"
                           % (name, len(tiny), [tuple(round(c, 3) for c in v.co) for v in tiny[0].verts]))
    me = bpy.data.meshes.new(name)
    bm.to_mesh(me)
    bm.free()
    ob = bpy.data.objects.new(name, me)
    bpy.context.scene.collection.objects.link(ob)
    PARTS.append(ob)
    return ob


def _bevel(bm, width):
    if width > 0:
        bmesh.ops.bevel(bm, geom=bm.edges[:] + bm.verts[:], offset=width, segments=1,
                        affect='EDGES', clamp_overlap=True)


def box(name, x0, y0, z0, x1, y1, z1, bevel=0.0):
    bm = bmesh.new()
    v = [bm.verts.new((x, y, z)) for x in (x0, x1) for y in (y0, y1) for z in (z0, z1)]
    for a, b, c, d in ((0, 1, 3, 2), (4, 6, 7, 5), (0, 4, 5, 1), (2, 3, 7, 6), (0, 2, 6, 4), (1, 5, 7, 3)):
        bm.faces.new((v[a], v[b], v[c], v[d]))
    _bevel(bm, bevel)
    return _finish(name, bm)


def _signed_area(loop):
    return 0.5 * sum(a[0] * b[1] - b[0] * a[1] for a, b in zip(loop, loop[1:] + loop[:1]))


def prism(name, loops, origin, u, v, depth):
    """A flat 2D region extruded into a solid.

    loops: the outline followed by any holes, each a list of (a, b) points without repeats or
    three collinear in a row.  A point (a, b) lies at origin + a*u + b*v; the solid extends
    `depth` along u x v.
    """
    origin, u, v = Vector(origin), Vector(u), Vector(v)
    w = u.cross(v) * depth
    flat = [p for loop in loops for p in loop]
    tris = geometry.tessellate_polygon([[Vector((a, b, 0)) for a, b in loop] for loop in loops])
    # Scanline filling silently gives up on self-touching outlines; make it loud instead.
    want = abs(_signed_area(loops[0])) - sum(abs(_signed_area(h)) for h in loops[1:])
    got = sum(abs(_signed_area([flat[i] for i in t])) for t in tris)
    if abs(got - want) > 1e-6 * max(1.0, want):
        raise RuntimeError("%s: filling covers %.4f m2 of %.4f m2" % (name, got, want))
    bm = bmesh.new()
    front = [bm.verts.new(origin + a * u + b * v) for a, b in flat]
    back = [bm.verts.new(origin + a * u + b * v + w) for a, b in flat]
    for i, j, k in tris:
        bm.faces.new((front[i], front[j], front[k]))
        bm.faces.new((back[k], back[j], back[i]))
    first = 0
    for loop in loops:
        n = len(loop)
        for i in range(n):
            a, b = first + i, first + (i + 1) % n
            bm.faces.new((front[a], front[b], back[b], back[a]))
        first += n
    # Merge the scanline triangles of each flat face back into polygons: later triangulation
    # then gives fewer, better shaped triangles.
    bmesh.ops.dissolve_limit(bm, angle_limit=math.radians(0.1), verts=bm.verts[:], edges=bm.edges[:])
    return _finish(name, bm)


def arc(cx, cy, r, a0, a1, segments):
    """Points of a circular arc from angle a0 to a1 (degrees), both ends included."""
    return [(cx + r * math.cos(math.radians(a0 + (a1 - a0) * i / segments)),
             cy + r * math.sin(math.radians(a0 + (a1 - a0) * i / segments)))
            for i in range(segments + 1)]


def circle(cx, cy, r, segments):
    return arc(cx, cy, r, 0, 360, segments)[:-1]


def wall(name, p0, p1, height, thickness, doors=(), windows=(), base=FLOOR):
    """A straight wall on the floor from p0 to p1 (x, z), centred on that line.

    doors: (distance from p0 along the wall, half width, spring height) for round-headed
    openings down to the floor; windows: (distance, height of centre, radius) round holes.
    """
    (x0, z0), (x1, z1) = p0, p1
    length = math.hypot(x1 - x0, z1 - z0)
    u = Vector(((x1 - x0) / length, 0, (z1 - z0) / length))
    up = Vector((0, 1, 0))
    w = u.cross(up)
    # The foot goes SINK into the floor, so no seam can open between wall and ground.
    outline = [(0.0, -SINK)]
    for c, hw, spring in sorted(doors):
        outline += [(c - hw, -SINK)] + arc(c, spring, hw, 180, 0, ARCH_SEGMENTS) + [(c + hw, -SINK)]
    outline += [(length, -SINK), (length, height), (0.0, height)]
    holes = [circle(c, h, r, COLUMN_SIDES) for c, h, r in windows]
    origin = Vector((x0, base, z0)) - w * (thickness / 2)
    return prism(name, [outline] + holes, origin, u, up, thickness)


def arcade(name, p0, p1, bays, half_width, spring, height, thickness, base=FLOOR):
    """A wall pierced by `bays` equal round arches, with a cornice along its top."""
    (x0, z0), (x1, z1) = p0, p1
    length = math.hypot(x1 - x0, z1 - z0)
    pitch = length / bays
    doors = [((i + 0.5) * pitch, half_width, spring) for i in range(bays)]
    ob = wall(name, p0, p1, height, thickness, doors=doors, base=base)
    # The cornice overhangs both faces: a ledge that catches paint and breaks the silhouette.
    lo_x, hi_x = min(x0, x1), max(x0, x1)
    lo_z, hi_z = min(z0, z1), max(z0, z1)
    over = thickness / 2 + 0.4
    box(name + "_cornice", lo_x - over, base + height, lo_z - over,
        hi_x + over, base + height + 0.8, hi_z + over, bevel=0.12)
    return ob


def stairs(name, x, z, heading, width, steps, rise=STEP_RISE, tread=TREAD, base=FLOOR):
    """A solid flight whose first riser is centred on (x, z), climbing towards `heading`
    ('-z', '+z', '-x' or '+x').  Its back face stands against whatever it leads up to."""
    u = Vector({"-z": (0, 0, -1), "+z": (0, 0, 1), "-x": (-1, 0, 0), "+x": (1, 0, 0)}[heading])
    up = Vector((0, 1, 0))
    side = u.cross(up)
    run = steps * tread
    top = [base + (i + 1) * rise for i in range(steps)]
    profile = [(0.0, base - SINK), (run, base - SINK), (run, top[-1])]
    for i in range(steps - 1, -1, -1):
        profile.append((i * tread, top[i]))
        if i > 0:
            profile.append((i * tread, top[i - 1]))
    origin = Vector((x, 0, z)) - side * (width / 2)
    return prism(name, [profile], origin, u, up, width)


def ramp(name, x, z, heading, width, rise, degrees, base=FLOOR):
    """A solid wedge whose toe is centred on (x, z), rising `rise` towards `heading`."""
    u = Vector({"-z": (0, 0, -1), "+z": (0, 0, 1), "-x": (-1, 0, 0), "+x": (1, 0, 0)}[heading])
    up = Vector((0, 1, 0))
    side = u.cross(up)
    run = rise / math.tan(math.radians(degrees))
    profile = [(0.0, base - SINK), (run, base - SINK), (run, base + rise), (0.0, base)]
    origin = Vector((x, 0, z)) - side * (width / 2)
    return prism(name, [profile], origin, u, up, width)


def _cylinder(bm, x, y, z, r_bottom, r_top, h, sides=COLUMN_SIDES):
    # Blender's cone stands on its local Z; turn it onto our Y (exactly) and set its base at y.
    z_to_y = Matrix(((1, 0, 0, 0), (0, 0, 1, 0), (0, -1, 0, 0), (0, 0, 0, 1)))
    m = Matrix.Translation((x, y + h / 2, z)) @ z_to_y
    bmesh.ops.create_cone(bm, cap_ends=True, segments=sides, radius1=r_bottom, radius2=r_top,
                          depth=h, matrix=m)


def column(name, x, z, height, radius=0.6, base=FLOOR, sides=COLUMN_SIDES):
    """Plinth, round base moulding, shaft, flared capital and abacus: separate closed solids
    stacked face to face, so each stays simple and watertight."""
    plinth = radius * 1.5
    box(name + "_plinth", x - plinth, base - 0.2, z - plinth, x + plinth, base + 0.5, z + plinth, bevel=0.08)
    bm = bmesh.new()
    _cylinder(bm, x, base + 0.5, z, radius * 1.25, radius * 1.15, 0.35, sides)
    _finish(name + "_torus", bm)
    shaft_top = base + height - 0.9
    bm = bmesh.new()
    # A slight taper makes the shaft read as a column, not a pipe.
    _cylinder(bm, x, base + 0.85, z, radius, radius * 0.88, shaft_top - base - 0.85, sides)
    _finish(name + "_shaft", bm)
    bm = bmesh.new()
    _cylinder(bm, x, shaft_top, z, radius * 0.88, radius * 1.3, 0.5, sides)
    _finish(name + "_capital", bm)
    cap = radius * 1.45
    box(name + "_abacus", x - cap, shaft_top + 0.5, z - cap, x + cap, base + height, z + cap, bevel=0.08)


def grid_floor(name, include, exclude, top=FLOOR, thickness=SLAB, cell=CELL):
    """One slab made of grid cells: the union of `include` rectangles minus `exclude` ones,
    each (x0, z0, x1, z1) in metres on the grid.  Holes and notches fall out of the cell set."""
    def cells(rects):
        out = set()
        for x0, z0, x1, z1 in rects:
            for i in range(int(round(x0 / cell)), int(round(x1 / cell))):
                for k in range(int(round(z0 / cell)), int(round(z1 / cell))):
                    out.add((i, k))
        return out
    keep = sorted(cells(include) - cells(exclude))
    keep_set = set(keep)
    bm = bmesh.new()
    verts = {}

    def vert(i, k, level):
        key = (i, k, level)
        if key not in verts:
            verts[key] = bm.verts.new((i * cell, top - level * thickness, k * cell))
        return verts[key]
    for i, k in keep:
        corners = ((i, k), (i + 1, k), (i + 1, k + 1), (i, k + 1))
        bm.faces.new([vert(a, b, 0) for a, b in corners])
        bm.faces.new([vert(a, b, 1) for a, b in reversed(corners)])
        for (di, dk), (a, b) in zip(((0, -1), (1, 0), (0, 1), (-1, 0)), zip(corners, corners[1:] + corners[:1])):
            if (i + di, k + dk) not in keep_set:
                bm.faces.new((vert(*a, 0), vert(*b, 0), vert(*b, 1), vert(*a, 1)))
    # A vertex where two cells meet only diagonally belongs to two sides; that is fine for
    # rendering and collision, and every edge still has exactly two faces.
    return _finish(name, bm)


def round_hole_slab(name, cx, cz, half, hole_r, top=FLOOR, thickness=SLAB):
    """A square slab with a round hole through its centre."""
    outline = [(cx - half, cz - half), (cx + half, cz - half), (cx + half, cz + half), (cx - half, cz + half)]
    hole = circle(cx, cz, hole_r, 32)
    # (a, b) = (x, z); u x v points down, so the slab hangs below its top face.
    return prism(name, [outline, hole], (0, top, 0), (1, 0, 0), (0, 0, 1), thickness)


def beam(name, p0, p1, y, size=0.9):
    """A lintel box between two points (x, z) on a line parallel to an axis."""
    (x0, z0), (x1, z1) = p0, p1
    h = size / 2
    return box(name, min(x0, x1) - h, y, min(z0, z1) - h, max(x0, x1) + h, y + size, max(z0, z1) + h, bevel=0.08)


# ---------------------------------------------------------------------------------------------
# The level.  Areas are listed roughly in the order the player meets them.

def build_floors():
    # Main floor: the central plaza round the start, the north courtyard beyond the arcade and,
    # joined on the west, the low-walled maze court.  The east, south and most of the west
    # edge are open: walking over them is how a match is lost.
    grid_floor("floor_main",
               include=[(-28, -60, 40, 40),      # central plaza and north courtyard
                        (-52, -44, -28, 8)],     # maze court
               exclude=[(-20, 8, -12, 16),       # the pit, 16 m south-west of the start
                        (24, -44, 32, -28),      # a slot in the courtyard floor, beside the side stairs
                        (28, 28, 40, 40),        # a bite out of the south-east corner
                        (-52, -44, -44, -36)])   # ragged north-west corner of the maze court
    # The well plaza far to the west: the sphere chain orbits over its round hole, dipping
    # below the floor, so it never cuts through solid ground.
    round_hole_slab("plaza_well", CHAIN_ANCHOR[0], CHAIN_ANCHOR[1], 13.0, 5.5)
    # The only way to the plaza: a bridge over the void, no railing.
    box("bridge", -44.0, FLOOR - 1.0, 32.5, -28.0, FLOOR, 37.5, bevel=0.05)


def build_north():
    # The arcade is what the player faces at the start: five arches 15 m ahead, the middle one
    # framing the grand stairs, the dais and the tower behind it.
    arcade("arcade", (-15.5, -12.0), (19.5, -12.0), bays=5, half_width=2.5,
           spring=5.0, height=9.0, thickness=1.6)
    # Buttresses close the arcade's ends so it reads as a solid screen from the sides.
    box("arcade_buttress_w", -18.0, FLOOR - 0.2, -13.5, -15.5, FLOOR + 10.5, -10.5, bevel=0.15)
    box("arcade_buttress_e", 19.5, FLOOR - 0.2, -13.5, 22.0, FLOOR + 10.5, -10.5, bevel=0.15)

    # Grand stairs: 12 risers of 0.35 up to the dais at y 7.2, 8 m wide, open at the sides.
    stairs("stairs_grand", 2.0, -22.0, "-z", 8.0, 12)
    dais_top = FLOOR + 12 * STEP_RISE
    dais_front = -22.0 - 12 * TREAD
    box("dais", -14.0, FLOOR - 0.5, -56.0, 18.0, dais_top, dais_front, bevel=0.15)
    # A plank across the slot, two metres wide: the capsule (radius 1) only just fits.
    box("slot_plank", 24.0, FLOOR - 0.4, -37.0, 32.0, FLOOR, -35.0)
    # Side stairs from the east end of the courtyard, climbing west onto the dais.
    stairs("stairs_side", 18.0 + 12 * TREAD, -50.0, "-x", 5.0, 12)

    # Screens in the courtyard's two flanks, so balls thrown north-west and north-east from
    # the start strike something at 30-40 m instead of sailing over the edge.
    arcade("court_arcade_w", (-28.0, -28.0), (-10.0, -28.0), bays=3, half_width=2.0,
           spring=5.0, height=9.0, thickness=1.4)
    wall("court_wall_ne", (16.0, -34.0), (36.0, -14.0), 10.0, 1.2,
         doors=[(11.0, 2.5, 4.0), (20.0, 2.5, 4.0)],
         windows=[(3.0, 8.5, 1.0), (15.5, 8.0, 1.3), (25.5, 8.5, 1.0)])

    # On the dais: two colonnades with lintels, a gateway arch and the tower at the back.
    for row_x in (-10.0, 14.0):
        for i, z in enumerate((-41.0, -46.0, -51.0)):
            column("dais_col_%d_%d" % (row_x, i), row_x, z, 7.0, radius=0.6, base=dais_top)
        beam("dais_lintel_%d" % row_x, (row_x, -41.0), (row_x, -51.0), dais_top + 7.0)
    wall("dais_gate", (-3.0, -47.0), (7.0, -47.0), 8.0, 1.4, doors=[(5.0, 2.5, 4.0)], base=dais_top)
    box("dais_gate_cap", -3.6, dais_top + 8.0, -48.3, 7.6, dais_top + 8.7, -45.7, bevel=0.12)
    box("tower", -6.0, FLOOR - 0.5, -62.0, 10.0, 24.0, -56.0, bevel=0.25)
    # A screen set against the tower's face: its round holes become niches that paint can
    # fill, visible from the start through the middle arch.
    wall("tower_screen", (-5.0, -55.4), (9.0, -55.4), 12.0, 1.2,
         windows=[(3.5, 8.0, 2.2), (10.5, 8.0, 2.2), (7.0, 3.0, 1.6)], base=dais_top)


def build_east():
    # The east platform: 5 m above the floor, reached by two climbable ramps, flanked by two
    # too steep to climb.  Its east side overhangs the void beyond the floor's edge at x 40.
    top = FLOOR + 5.0
    box("east_platform", 32.0, FLOOR - 0.5, -8.0, 48.0, top, 16.0, bevel=0.15)
    ramp("ramp_30", 32.0 - 5.0 / math.tan(math.radians(30)), 7.0, "+x", 6.0, 5.0, 30)
    ramp("ramp_38", 36.0, 16.0 + 5.0 / math.tan(math.radians(38)), "-z", 6.0, 5.0, 38)
    ramp("ramp_60", 32.0 - 5.0 / math.tan(math.radians(60)), -3.5, "+x", 5.0, 5.0, 60)
    ramp("ramp_70", 36.0, -8.0 - 5.0 / math.tan(math.radians(70)), "+z", 5.0, 5.0, 70)
    # A pergola on the platform and a pierced screen along its far edge.
    for x in (36.0, 44.0):
        for z in (-4.0, 12.0):
            column("east_col_%d_%d" % (x, z), x, z, 6.0, radius=0.5, base=top)
        beam("east_lintel_%d" % x, (x, -4.0), (x, 12.0), top + 6.0, size=0.8)
    wall("east_screen", (46.5, -6.0), (46.5, 14.0), 7.0, 1.0,
         windows=[(3.0, 4.0, 1.3), (8.0, 4.0, 1.3), (13.0, 4.0, 1.3), (18.0, 4.0, 1.0)], base=top)


def build_south():
    # Behind the start: a grid of tall columns, some carrying lintels, like a ruined hall.
    for i, x in enumerate((-10.0, -2.0, 6.0, 14.0)):
        for k, z in enumerate((16.0, 24.0, 32.0)):
            if (i, k) == (3, 2):
                continue  # fallen: leaves a gap near the south-east bite
            column("hall_col_%d_%d" % (i, k), x, z, 10.0, radius=0.75)
    beam("hall_lintel_a", (-10.0, 16.0), (6.0, 16.0), FLOOR + 10.0, size=1.1)
    beam("hall_lintel_b", (-2.0, 24.0), (-2.0, 32.0), FLOOR + 10.0, size=1.1)
    beam("hall_lintel_c", (14.0, 16.0), (14.0, 24.0), FLOOR + 10.0, size=1.1)
    # On the south edge a chest-high parapet and, straight behind the start, a tall wall;
    # the rest of that edge stays open.
    box("south_parapet", -24.0, FLOOR - 0.2, 38.4, -4.0, FLOOR + 1.2, 39.6, bevel=0.1)
    wall("south_wall", (-4.0, 39.0), (10.0, 39.0), 9.0, 1.2, windows=[(3.0, 5.5, 1.4), (11.0, 5.5, 1.4)])
    # A diagonal wall towards the south-east bite: a target for throws between east and south.
    wall("south_east_wall", (23.0, 27.0), (32.0, 18.0), 10.0, 1.2,
         doors=[(6.4, 2.2, 3.8)], windows=[(2.0, 8.5, 0.9), (10.8, 8.5, 0.9)])
    # Blocks to climb onto with the step offset (0.45) or not (0.9).
    box("south_block_low", 16.0, FLOOR - 0.2, 33.0, 20.0, FLOOR + 0.45, 37.0, bevel=0.05)
    box("south_block_high", 22.0, FLOOR - 0.2, 33.0, 26.0, FLOOR + 0.9, 37.0, bevel=0.05)


def build_west():
    # The rose wall shuts the central plaza off from the maze court, with one arched door.
    wall("rose_wall", (-24.0, 22.0), (-24.0, -14.0), 10.0, 1.2,
         doors=[(22.0, 2.5, 4.5)],
         windows=[(5.0, 7.2, 1.6), (11.0, 7.2, 1.6), (16.0, 7.5, 1.0), (28.0, 7.5, 1.0), (32.5, 7.2, 1.6)])
    box("rose_wall_cap", -25.0, FLOOR + 10.0, -14.6, -23.0, FLOOR + 10.7, 22.6, bevel=0.1)

    # Maze court: walls low enough to see over (eye 6.7), too high to step over.
    low = 1.4
    for i, (p0, p1) in enumerate((((-48.0, 4.0), (-34.0, 4.0)),
                                  ((-48.0, -4.0), (-48.0, 4.0)),
                                  ((-40.0, -12.0), (-40.0, -2.0)),
                                  ((-48.0, -12.0), (-34.0, -12.0)),
                                  ((-34.0, -20.0), (-34.0, -8.0)))):
        wall("maze_wall_%d" % i, p0, p1, low, 0.7)
    # The bastion: a raised platform in the maze court, reached by shallow 0.25 m steps.
    bastion_top = FLOOR + 8 * STEP_RISE_LOW
    box("bastion", -50.0, FLOOR - 0.5, -42.0, -36.0, bastion_top, -30.0, bevel=0.12)
    stairs("stairs_bastion", -43.0, -30.0 + 8 * TREAD, "-z", 4.0, 8, rise=STEP_RISE_LOW)
    wall("bastion_arch", (-50.0, -40.0), (-36.0, -40.0), 7.0, 1.0, doors=[(7.0, 3.0, 3.0)], base=bastion_top)

    # Gate over the east end of the bridge: the last thing before the void.
    wall("bridge_gate", (-27.0, 30.0), (-27.0, 40.0), 8.5, 1.4, doors=[(5.0, 2.5, 4.5)])
    # A ring of columns round the well, turned so the bridge lands between two of them.
    for i in range(8):
        a = math.radians(22.5 + 45.0 * i)
        column("well_col_%d" % i, CHAIN_ANCHOR[0] + 9.5 * math.cos(a),
               CHAIN_ANCHOR[1] + 9.5 * math.sin(a), 8.0, radius=0.6)


# ---------------------------------------------------------------------------------------------
# Assembly and export.

def clear_scene():
    for ob in list(bpy.data.objects):
        bpy.data.objects.remove(ob, do_unlink=True)
    for me in list(bpy.data.meshes):
        bpy.data.meshes.remove(me)


def join_parts():
    """Joins every (already triangulated) part into one mesh, projects UVs, sets up shading."""
    for ob in bpy.context.scene.objects:
        ob.select_set(ob in PARTS)
    level = PARTS[0]
    bpy.context.view_layer.objects.active = level
    bpy.ops.object.join()
    level.name = level.data.name = "Level"

    bm = bmesh.new()
    bm.from_mesh(level.data)
    # Planar projection along each face's main axis: enough for a tiling texture and stable
    # from run to run.
    uv = bm.loops.layers.uv.new("UVMap")
    for f in bm.faces:
        n = f.normal
        axis = max(range(3), key=lambda i: abs(n[i]))
        for loop in f.loops:
            x, y, z = loop.vert.co
            loop[uv].uv = {0: (z, y), 1: (x, z), 2: (x, y)}[axis]
            loop[uv].uv /= UV_METRES
        f.smooth = True
    bm.to_mesh(level.data)
    bm.free()
    level.data.use_auto_smooth = True
    level.data.auto_smooth_angle = SMOOTH_ANGLE
    return level


def _stable_hash(key):
    return int.from_bytes(hashlib.sha1(repr(key).encode()).digest()[:8], "little", signed=True)


def export_glb(level, path):
    """Writes LEVEL as binary glTF; the exporter turns Blender's Z up into glTF's Y up."""
    level.data.transform(GAME_TO_BLENDER)
    level.matrix_world = Matrix.Identity(4)
    bpy.ops.object.select_all(action='DESELECT')
    level.select_set(True)
    bpy.context.view_layer.objects.active = level
    os.makedirs(os.path.dirname(path), exist_ok=True)
    result = bpy.ops.export_scene.gltf(
        filepath=path, export_format='GLB', use_selection=True, export_yup=True,
        export_apply=False, export_normals=True, export_texcoords=True, export_tangents=False,
        export_materials='NONE', export_colors=False, export_cameras=False, export_lights=False,
        export_extras=False, export_animations=False, export_skins=False, export_morph=False)
    if result != {'FINISHED'}:
        raise RuntimeError("glTF export failed: %s" % result)
    # Back to game coordinates, so another export can follow.
    level.data.transform(GAME_TO_BLENDER.inverted())


def export(level, path):
    # The exporter derives object ids from Python's hash(), which is salted per process for
    # strings, so every run would write different ids.  Give its module a stable hash instead:
    # then only the creation time stamp differs between two runs.
    from io_scene_fbx import fbx_utils
    fbx_utils.hash = _stable_hash
    # Into Blender's Z-up frame.  The exporter's -Z forward / Y up conversion is the exact
    # inverse, and bake_space_transform writes it into the vertices instead of into a node
    # transform the game would ignore.  The turn is applied to the mesh data with an exact
    # matrix: an object rotation applied with transform_apply goes through Euler angles and
    # leaves 1e-6 noise in every coordinate.
    level.data.transform(GAME_TO_BLENDER)
    level.matrix_world = Matrix.Identity(4)
    bpy.ops.object.select_all(action='DESELECT')
    level.select_set(True)
    bpy.context.view_layer.objects.active = level
    os.makedirs(os.path.dirname(path), exist_ok=True)
    result = bpy.ops.export_scene.fbx(
        filepath=path, use_selection=True, object_types={'MESH'},
        axis_forward='-Z', axis_up='Y', bake_space_transform=True,
        # FBX_SCALE_UNITS keeps vertex values in Blender units (our metres) and records the
        # unit in the file header instead of multiplying every coordinate by 100.
        apply_unit_scale=True, apply_scale_options='FBX_SCALE_UNITS', global_scale=1.0,
        # Already triangulated and without modifiers: exporting the mesh as it is keeps the
        # geometry's name "Level" instead of a temporary copy's "Level.001".
        use_mesh_modifiers=False, use_triangles=False, mesh_smooth_type='OFF',
        use_mesh_edges=False, use_tspace=False, use_custom_props=False,
        add_leaf_bones=False, bake_anim=False, use_metadata=False,
        path_mode='AUTO', embed_textures=False)
    if result != {'FINISHED'}:
        raise RuntimeError("FBX export failed: %s" % result)


def verify(path, expected_lo, expected_hi):
    """Reads the written file back raw and checks what the game's reader relies on."""
    version, top = fbx_raw.parse_file(path)
    mesh = fbx_raw.Mesh(top)
    problems = []
    if version != 7400:
        problems.append("FBX version %d, want 7400" % version)
    if mesh.geometry_count != 1 or mesh.models != [("Level", "Mesh")] or mesh.node_attributes:
        problems.append("want exactly one mesh and nothing else, got %s" % mesh.models)
    if not mesh.is_triangulated:
        problems.append("not triangulated")
    if mesh.normal_mapping != (b"ByPolygonVertex", b"Direct") or len(mesh.normals) != 3 * len(mesh.corners):
        problems.append("normals are %s" % (mesh.normal_mapping,))
    if mesh.uv_layers != 1:
        problems.append("%d UV layers" % mesh.uv_layers)
    lo, hi = mesh.bounds()
    if any(abs(a - b) > 1e-3 for a, b in zip(lo + hi, tuple(expected_lo) + tuple(expected_hi))):
        problems.append("stored vertices span %s..%s, the level was built over %s..%s: "
                        "the axis or unit conversion was not baked in" % (lo, hi, expected_lo, expected_hi))
    if problems:
        raise RuntimeError("%s: %s" % (path, "; ".join(problems)))
    return mesh


def output_paths():
    args = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
    if len(args) > 1 or (args and not args[0].lower().endswith((".fbx", ".glb"))):
        raise SystemExit("usage: blender -b --factory-startup --python %s [-- OUTPUT.fbx|OUTPUT.glb]"
                         % __file__)
    return [os.path.abspath(args[0])] if args else DEFAULT_OUTPUTS


def main():
    paths = output_paths()
    clear_scene()
    build_floors()
    build_north()
    build_east()
    build_south()
    build_west()
    level = join_parts()
    lo = [min(v.co[i] for v in level.data.vertices) for i in range(3)]
    hi = [max(v.co[i] for v in level.data.vertices) for i in range(3)]
    glb = [p for p in paths if p.lower().endswith(".glb")]
    if glb:
        export_glb(level, glb[0])
        print("level written to %s" % glb[0])
    fbx = [p for p in paths if p.lower().endswith(".fbx")]
    if not fbx:
        return
    path = fbx[0]
    export(level, path)
    mesh = verify(path, lo, hi)
    floor = fbx_raw.floor_below(mesh.triangles(), START[0], 10.0, START[1])
    print("level written to %s" % path)
    print("triangles: %d" % len(mesh.polygon_sizes))
    print("bounds: min (%.2f, %.2f, %.2f) max (%.2f, %.2f, %.2f)" % (tuple(lo) + tuple(hi)))
    print("floor below (%.1f, 10, %.1f): %s" % (START[0], START[1], "none" if floor is None else "%.3f" % floor))


if __name__ == "__main__":
    try:
        main()
    except SystemExit:
        raise
    except Exception as e:  # Blender would print the trace and still exit 0
        import traceback
        traceback.print_exc()
        sys.exit("build_level.py failed: %s" % e)
