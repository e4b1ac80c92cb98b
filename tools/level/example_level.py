# SPDX-License-Identifier: MIT
"""A small level made the way the README tells level authors to: Blender objects in metres
(Blender is Z up), transforms applied, joined into one mesh, exported to FBX with the settings
of File > Export > FBX that the game needs. Play it with `blotch OUTPUT.fbx`.

    blender -b --factory-startup --python tools/level/example_level.py -- OUTPUT.fbx

Blender (x, y, z) is game (x, z, -y): the player starts at game (2, 5, 3), above Blender
(2, -3, 5), and stands on the floor whose top is at Blender z = 3.
"""

import math
import sys

import bpy


def box(name, centre, size, rotation=(0.0, 0.0, 0.0)):
    bpy.ops.mesh.primitive_cube_add(location=centre, rotation=rotation)
    obj = bpy.context.active_object
    obj.name = name
    obj.scale = (size[0] / 2, size[1] / 2, size[2] / 2)
    return obj


def main():
    args = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
    if len(args) != 1 or not args[0].lower().endswith((".fbx", ".glb")):
        raise SystemExit("usage: blender -b --factory-startup --python %s -- OUTPUT.fbx|OUTPUT.glb"
                         % __file__)
    bpy.ops.wm.read_factory_settings(use_empty=True)

    # A 40 x 40 m floor, 1 m thick, top at z = 3, under the start at (2, -3).
    box("Floor", (2, -3, 2.5), (40, 40, 1))
    box("Wall", (2, 12, 6), (20, 1, 6))                 # ahead of the start (game -z)
    box("Pillar", (-8, 4, 6), (2, 2, 6))
    box("Block", (10, 0, 3.2), (3, 3, 0.4))             # one step up, 0.4 m
    ramp = box("Ramp", (12, 8, 4), (4, 8, 0.5), rotation=(math.radians(30), 0, 0))

    # Object > Apply > All Transforms, then Object > Join: one mesh whose vertices are the
    # level as the game sees it (the game ignores object transforms and plays the last mesh).
    bpy.ops.object.select_all(action='SELECT')
    bpy.ops.object.transform_apply(location=True, rotation=True, scale=True)
    bpy.context.view_layer.objects.active = ramp
    bpy.ops.object.join()
    bpy.context.active_object.name = "Level"

    if args[0].lower().endswith(".glb"):
        # File > Export > glTF 2.0 with: Format glTF Binary, Selected Objects, +Y Up, Apply
        # Modifiers.
        result = bpy.ops.export_scene.gltf(
            filepath=args[0], export_format='GLB', use_selection=True, export_yup=True,
            export_apply=True)
    else:
        # File > Export > FBX with: Limit to Selected Objects, Object Types Mesh, Apply Scalings
        # "FBX Units Scale", Forward -Z, Up Y, Apply Transform, Apply Modifiers, Triangulate Faces.
        result = bpy.ops.export_scene.fbx(
            filepath=args[0], use_selection=True, object_types={'MESH'},
            apply_scale_options='FBX_SCALE_UNITS', axis_forward='-Z', axis_up='Y',
            bake_space_transform=True, use_mesh_modifiers=True, use_triangles=True)
    if result != {'FINISHED'}:
        raise SystemExit("export failed: %s" % result)
    triangles = sum(len(p.vertices) - 2 for p in bpy.context.active_object.data.polygons)
    print("wrote %s: one mesh, %d triangles" % (args[0], triangles))


main()
