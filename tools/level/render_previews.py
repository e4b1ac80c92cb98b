# SPDX-License-Identifier: MIT
"""Renders small preview pictures of a level file, to judge its layout by eye.

    blender -b --factory-startup --python tools/level/render_previews.py -- [LEVEL.fbx] [OUT_DIR]

Defaults: data/fbx/level.fbx and /tmp/blotch_level_previews.  The level is imported through
Blender's own FBX reader, so the pictures also show that the file reads back the right way up.
Surfaces are tinted by height (floor grey-green, platforms warm, tops pale) and the start and
the sphere chain's anchor are marked red and cyan.  Views named "eye_*" stand where the player
starts, at eye height, with the game's 45 degree vertical field of view.
"""

import math
import os
import sys

import bpy
from mathutils import Euler, Vector

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
EYE = (2.0, 6.725, 3.0)
ANCHOR = (-57.0, 5.0, 35.0)


def game(x, y, z):
    """Game coordinates (Y up) to Blender's (Z up), as Blender's FBX import converts them."""
    return Vector((x, -z, y))


def args():
    a = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
    if len(a) > 2:
        raise SystemExit("usage: ... render_previews.py -- [LEVEL.fbx] [OUT_DIR]")
    level = os.path.abspath(a[0]) if a else os.path.join(REPO, "data", "fbx", "level.fbx")
    out = os.path.abspath(a[1]) if len(a) > 1 else "/tmp/blotch_level_previews"
    if not os.path.isfile(level):
        raise SystemExit("no level file at %s" % level)
    return level, out


def height_material():
    mat = bpy.data.materials.new("height")
    mat.use_nodes = True
    nt = mat.node_tree
    bsdf = nt.nodes["Principled BSDF"]
    geo = nt.nodes.new("ShaderNodeNewGeometry")
    sep = nt.nodes.new("ShaderNodeSeparateXYZ")
    rng = nt.nodes.new("ShaderNodeMapRange")
    rng.inputs["From Min"].default_value = 1.5
    rng.inputs["From Max"].default_value = 16.0
    ramp = nt.nodes.new("ShaderNodeValToRGB")
    el = ramp.color_ramp.elements
    el[0].color = (0.35, 0.42, 0.35, 1)
    el[1].color = (0.95, 0.92, 0.85, 1)
    mid = el.new(0.35)
    mid.color = (0.85, 0.55, 0.3, 1)
    nt.links.new(geo.outputs["Position"], sep.inputs[0])
    nt.links.new(sep.outputs["Z"], rng.inputs["Value"])
    nt.links.new(rng.outputs["Result"], ramp.inputs["Fac"])
    nt.links.new(ramp.outputs["Color"], bsdf.inputs["Base Color"])
    return mat


def marker(name, loc, radius, colour):
    bpy.ops.mesh.primitive_uv_sphere_add(radius=radius, location=loc, segments=16, ring_count=8)
    ob = bpy.context.active_object
    ob.name = name
    mat = bpy.data.materials.new(name)
    mat.use_nodes = True
    mat.node_tree.nodes["Principled BSDF"].inputs["Emission"].default_value = colour
    mat.node_tree.nodes["Principled BSDF"].inputs["Base Color"].default_value = colour
    ob.data.materials.append(mat)


def camera(name, loc, rot_deg, ortho=None):
    cam = bpy.data.cameras.new(name)
    if ortho:
        cam.type = 'ORTHO'
        cam.ortho_scale = ortho
    else:
        cam.sensor_fit = 'VERTICAL'
        cam.angle = math.radians(45)   # the game's vertical field of view
    cam.clip_end = 400
    ob = bpy.data.objects.new(name, cam)
    ob.location = loc
    ob.rotation_euler = Euler([math.radians(a) for a in rot_deg])
    bpy.context.scene.collection.objects.link(ob)
    return ob


def look_at(ob, target):
    ob.rotation_euler = (Vector(target) - ob.location).to_track_quat('-Z', 'Y').to_euler()


def main():
    level, out = args()
    for ob in list(bpy.data.objects):
        bpy.data.objects.remove(ob, do_unlink=True)
    bpy.ops.import_scene.fbx(filepath=level)
    mat = height_material()
    for ob in bpy.context.scene.objects:
        if ob.type == 'MESH':
            ob.data.materials.clear()
            ob.data.materials.append(mat)
    marker("start", game(2, 3.5, 3), 0.8, (1, 0.1, 0.1, 1))
    marker("anchor", game(*ANCHOR), 1.0, (0, 1, 1, 1))

    scene = bpy.context.scene
    scene.render.engine = 'CYCLES'
    scene.cycles.device = 'CPU'
    scene.cycles.samples = 12
    scene.cycles.use_denoising = False
    scene.render.threads_mode = 'FIXED'
    scene.render.threads = 1           # the machine is shared
    scene.render.resolution_x, scene.render.resolution_y = 512, 384
    scene.render.image_settings.file_format = 'PNG'
    world = bpy.data.worlds.new("sky")
    world.use_nodes = True
    world.node_tree.nodes["Background"].inputs["Color"].default_value = (0.45, 0.55, 0.7, 1)
    world.node_tree.nodes["Background"].inputs["Strength"].default_value = 0.8
    scene.world = world
    sun = bpy.data.objects.new("sun", bpy.data.lights.new("sun", 'SUN'))
    sun.data.energy = 3.0
    sun.rotation_euler = Euler((math.radians(40), math.radians(15), math.radians(30)))
    scene.collection.objects.link(sun)

    views = []
    top = camera("top", game(-11, 150, -7), (0, 0, 0), ortho=124)
    views.append((top, 640, 640))
    for name, d in (("eye_north", (0, 0, -1)), ("eye_east", (1, 0, 0)), ("eye_south", (0, 0, 1)), ("eye_west", (-1, 0, 0))):
        ob = camera(name, game(*EYE), (0, 0, 0))
        look_at(ob, game(EYE[0] + d[0], EYE[1], EYE[2] + d[2]))
        views.append((ob, 512, 384))
    for name, pos, target in (("overview_se", (75, 55, 70), (-10, 3, -5)),
                              ("overview_nw", (-95, 50, -80), (-5, 3, 5)),
                              ("well_plaza", (-30, 12, 52), (-57, 5, 35))):
        ob = camera(name, game(*pos), (0, 0, 0))
        look_at(ob, game(*target))
        views.append((ob, 512, 384))
    os.makedirs(out, exist_ok=True)
    for ob, w, h in views:
        scene.camera = ob
        scene.render.resolution_x, scene.render.resolution_y = w, h
        scene.render.filepath = os.path.join(out, ob.name + ".png")
        bpy.ops.render.render(write_still=True)
        print("preview", scene.render.filepath)


if __name__ == "__main__":
    main()
