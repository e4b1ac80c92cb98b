// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"
#include "paint/Splat.h"

#include <memory>
#include <vector>

class Level;

// Little levels for tests, given as triangles of 9 floats each (x, y, z per corner); a triangle
// faces (B - A) x (C - A).
using Triangles = std::vector<float>;

// A level of TRIANGLES with face normals and its collision in a fresh physics scene (no GL
// buffers: a test that draws calls initBuffers()).
std::unique_ptr<Level> levelOf(const Triangles& triangles);

// The shipped level, data/fbx/level.fbx, with its collision built as the game builds it (the
// tree on a second thread).
std::unique_ptr<Level> shippedLevel();

// The quad A B C D as two triangles, facing (B - A) x (C - A).
Triangles quad(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d);
// A square floor of half-size HALF around the y axis at height Y, facing up.
Triangles floorAt(float y, float half);
// A wall across x -50..50 and y 0..40 standing at Z, facing +z.
Triangles wallAt(float z);
// The rectangle CORNER + s U + t V (0 <= s, t <= 1) in 1 x 1 squares, facing U x V.
Triangles tiles(const Vec3& corner, const Vec3& u, const Vec3& v);
Triangles operator+(Triangles a, const Triangles& b);

// The area of POLYGON seen along NORMAL: negative when it winds clockwise about NORMAL.
double areaOf(const DecalPolygon& polygon, const Vec3& normal);
