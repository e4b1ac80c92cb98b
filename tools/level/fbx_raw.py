# SPDX-License-Identifier: MIT
"""Read back the binary FBX files that the level scripts write.

Blender's own importer would undo the very things we need to check (it applies node transforms
and converts axes), so this reads the raw records: the stored vertex coordinates are what the game
uses, untouched.  Plain Python, no Blender needed, so the tests and Blender's bundled Python can
both use it.

Usage as a tool:  python3 tools/level/fbx_raw.py FILE.fbx
"""

import array
import math
import struct
import sys
import zlib

MAGIC = b"Kaydara FBX Binary  \x00\x1a"
MAX_DEPTH = 64
# Arrays in a level file are a few MB; anything declaring more than this is corrupt or hostile.
MAX_ARRAY_BYTES = 1 << 30

_SCALAR = {
    b"Y": ("<h", 2), b"C": ("<?", 1), b"I": ("<i", 4), b"F": ("<f", 4),
    b"D": ("<d", 8), b"L": ("<q", 8),
}
_ARRAY = {b"f": ("f", 4), b"d": ("d", 8), b"l": ("q", 8), b"i": ("i", 4), b"b": ("b", 1), b"c": ("B", 1)}


class FbxError(Exception):
    """A file that is not a readable binary FBX; the message names the byte offset."""


class Record:
    __slots__ = ("name", "props", "children")

    def __init__(self, name, props, children):
        self.name = name
        self.props = props
        self.children = children

    def child(self, name):
        for c in self.children:
            if c.name == name:
                return c
        return None

    def all(self, name):
        return [c for c in self.children if c.name == name]

    def value(self, name, default=None):
        c = self.child(name)
        return c.props[0] if c is not None and c.props else default


def _array_from(typecode, raw):
    a = array.array(typecode)
    a.frombytes(raw)
    if sys.byteorder != "little":
        a.byteswap()
    return a


class _Reader:
    def __init__(self, data):
        self.data = data
        self.version = 0
        self.wide = False

    def need(self, pos, n, what):
        if n < 0 or pos + n > len(self.data):
            raise FbxError("truncated %s at byte %d (needs %d bytes, file has %d)"
                           % (what, pos, n, len(self.data)))

    def unpack(self, fmt, pos, what):
        size = struct.calcsize(fmt)
        self.need(pos, size, what)
        return struct.unpack_from(fmt, self.data, pos)

    def prop(self, pos, path):
        self.need(pos, 1, "property type")
        code = bytes(self.data[pos:pos + 1])
        pos += 1
        if code in _SCALAR:
            fmt, size = _SCALAR[code]
            return self.unpack(fmt, pos, "property in " + path)[0], pos + size
        if code in _ARRAY:
            typecode, size = _ARRAY[code]
            count, encoding, stored = self.unpack("<III", pos, "array header in " + path)
            pos += 12
            want = count * size
            if want > MAX_ARRAY_BYTES:
                raise FbxError("array of %d elements at byte %d in %s is too large" % (count, pos, path))
            self.need(pos, stored, "array data in " + path)
            raw = self.data[pos:pos + stored]
            if encoding == 1:
                try:
                    d = zlib.decompressobj()
                    raw = d.decompress(raw, want + 1)
                except zlib.error as e:
                    raise FbxError("bad zlib stream at byte %d in %s: %s" % (pos, path, e))
                if len(raw) != want or not d.eof:
                    raise FbxError("array at byte %d in %s inflates to %d bytes, expected %d"
                                   % (pos, path, len(raw), want))
            elif encoding != 0:
                raise FbxError("unknown array encoding %d at byte %d in %s" % (encoding, pos, path))
            elif stored != want:
                raise FbxError("array at byte %d in %s holds %d bytes, expected %d"
                               % (pos, path, stored, want))
            return _array_from(typecode, raw), pos + stored
        if code in (b"S", b"R"):
            (n,) = self.unpack("<I", pos, "string length in " + path)
            self.need(pos + 4, n, "string data in " + path)
            return bytes(self.data[pos + 4:pos + 4 + n]), pos + 4 + n
        raise FbxError("unknown property type %r at byte %d in %s" % (code, pos - 1, path))

    def record(self, pos, limit, path, depth):
        """Returns (record or None for the end-of-list marker, position after it)."""
        if depth > MAX_DEPTH:
            raise FbxError("records nested deeper than %d at byte %d (%s)" % (MAX_DEPTH, pos, path))
        fmt = "<QQQB" if self.wide else "<IIIB"
        end, nprops, plen, nlen = self.unpack(fmt, pos, "record header in " + path)
        start = pos
        pos += struct.calcsize(fmt)
        if end == 0 and nlen == 0:
            return None, pos
        # Some writers leave the end offset of a leaf record at 0; its extent is then its properties.
        leaf = end == 0
        if leaf:
            end = pos + nlen + plen
        if end <= start or end > limit:
            raise FbxError("record at byte %d in %s ends at %d, outside its parent (ends %d)"
                           % (start, path, end, limit))
        self.need(pos, nlen, "record name")
        name = bytes(self.data[pos:pos + nlen]).decode("ascii", "replace")
        pos += nlen
        here = path + "/" + name
        props_end = pos + plen
        if props_end > end:
            raise FbxError("properties of %s at byte %d overrun the record" % (here, start))
        props = []
        for _ in range(nprops):
            if pos >= props_end:
                raise FbxError("%s at byte %d declares %d properties but has room for fewer"
                               % (here, start, nprops))
            value, pos = self.prop(pos, here)
            props.append(value)
        if pos != props_end:
            raise FbxError("property list of %s at byte %d is %d bytes, declared %d"
                           % (here, start, pos - (props_end - plen), plen))
        children = []
        while pos < end:
            child, pos = self.record(pos, end, here, depth + 1)
            if child is None:
                break
            children.append(child)
        if pos != end:
            raise FbxError("children of %s at byte %d do not end at its declared end %d"
                           % (here, start, end))
        return Record(name, props, children), end


def parse_bytes(data):
    """Parse a whole binary FBX file; returns (version, list of top-level records)."""
    data = memoryview(data)
    if len(data) < 27 or bytes(data[:22]) != MAGIC:
        raise FbxError("not a binary FBX file (bad magic at byte 0)")
    if data[22] != 0:
        raise FbxError("big-endian binary FBX (flag byte 22) is not supported")
    r = _Reader(data)
    (r.version,) = struct.unpack_from("<I", data, 23)
    r.wide = r.version >= 7500
    pos, top = 27, []
    while pos < len(data):
        rec, pos = r.record(pos, len(data), "", 1)
        if rec is None:
            break
        top.append(rec)
    return r.version, top


def parse_file(path):
    try:
        with open(path, "rb") as f:
            data = f.read()
    except OSError as e:
        raise FbxError("cannot read %s: %s" % (path, e.strerror))
    return parse_bytes(data)


class Mesh:
    """The one mesh of a level file as the game reads it: triangles in polygon-vertex order."""

    def __init__(self, top):
        objects = next((t for t in top if t.name == "Objects"), None)
        if objects is None:
            raise FbxError("no Objects section")
        geoms = [g for g in objects.all("Geometry") if len(g.props) > 2 and g.props[2] == b"Mesh"]
        if not geoms:
            raise FbxError("no mesh geometry in Objects")
        self.geometry_count = len(geoms)
        self.models = [(m.props[1].split(b"\x00")[0].decode(), m.props[2].decode())
                       for m in objects.all("Model") if len(m.props) > 2]
        self.node_attributes = len(objects.all("NodeAttribute"))
        g = geoms[-1]          # the game keeps only the last mesh
        verts, pvi = g.value("Vertices"), g.value("PolygonVertexIndex")
        if verts is None or pvi is None or len(verts) % 3:
            raise FbxError("mesh has no usable Vertices/PolygonVertexIndex arrays")
        self.vertices = verts
        self.polygon_sizes = []
        self.corners = array.array("i")
        n = 0
        for idx in pvi:
            n += 1
            if idx < 0:
                idx = ~idx
                self.polygon_sizes.append(n)
                n = 0
            if idx >= len(verts) // 3:
                raise FbxError("polygon vertex index %d out of range" % idx)
            self.corners.append(idx)
        if n:
            raise FbxError("last polygon is not closed")
        nl = g.child("LayerElementNormal")
        self.normal_mapping = (nl.value("MappingInformationType"), nl.value("ReferenceInformationType")) if nl else None
        self.normals = nl.value("Normals") if nl else None
        uvl = g.all("LayerElementUV")
        self.uv_layers = len(uvl)
        self.uv_mapping = (uvl[0].value("MappingInformationType"), uvl[0].value("ReferenceInformationType")) if uvl else None

    @property
    def is_triangulated(self):
        return all(s == 3 for s in self.polygon_sizes)

    def point(self, corner):
        i = self.corners[corner] * 3
        v = self.vertices
        return (v[i], v[i + 1], v[i + 2])

    def triangles(self):
        """List of ((ax,ay,az),(bx,..),(cx,..)) in file order; the mesh must be triangulated."""
        return [(self.point(c), self.point(c + 1), self.point(c + 2))
                for c in range(0, len(self.corners), 3)]

    def bounds(self):
        v = self.vertices
        xs, ys, zs = v[0::3], v[1::3], v[2::3]
        return (min(xs), min(ys), min(zs)), (max(xs), max(ys), max(zs))


def sub(a, b):
    return (a[0] - b[0], a[1] - b[1], a[2] - b[2])


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def dot(a, b):
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]


def ray_hit(tris, origin, direction, both_sides=True):
    """Distance along a unit ray to the nearest triangle (Moller-Trumbore), or None."""
    best = None
    for a, b, c in tris:
        e1, e2 = sub(b, a), sub(c, a)
        p = cross(direction, e2)
        det = dot(e1, p)
        if abs(det) < 1e-12 or (not both_sides and det < 0):
            continue
        inv = 1.0 / det
        s = sub(origin, a)
        u = dot(s, p) * inv
        if u < -1e-9 or u > 1 + 1e-9:
            continue
        q = cross(s, e1)
        v = dot(direction, q) * inv
        if v < -1e-9 or u + v > 1 + 1e-9:
            continue
        t = dot(e2, q) * inv
        if t > 1e-9 and (best is None or t < best):
            best = t
    return best


def floor_below(tris, x, y, z):
    """Height of the first surface straight below (x, y, z), or None over a void."""
    t = ray_hit(tris, (x, y, z), (0.0, -1.0, 0.0))
    return None if t is None else y - t


def summary(path, with_floor=True):
    version, top = parse_file(path)
    mesh = Mesh(top)
    lo, hi = mesh.bounds()
    lines = ["file %s: FBX %d, %d mesh(es), models %s" % (path, version, mesh.geometry_count, mesh.models),
             "triangles: %d%s" % (len(mesh.polygon_sizes), "" if mesh.is_triangulated else " (NOT all triangles)"),
             "bounds: min (%.3f, %.3f, %.3f) max (%.3f, %.3f, %.3f)" % (lo + hi),
             "normals: %s, uv layers: %d %s" % (mesh.normal_mapping, mesh.uv_layers, mesh.uv_mapping)]
    if with_floor and mesh.is_triangulated:
        h = floor_below(mesh.triangles(), 2.0, 10.0, 3.0)
        lines.append("floor below (2, 10, 3): %s" % ("none" if h is None else "%.3f" % h))
    return "\n".join(lines)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: fbx_raw.py FILE.fbx")
    try:
        print(summary(sys.argv[1]))
    except FbxError as e:
        sys.exit("%s: %s" % (sys.argv[1], e))
