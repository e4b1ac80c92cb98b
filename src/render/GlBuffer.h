// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

// Makes a GL buffer object for TARGET (GL_ARRAY_BUFFER, GL_ELEMENT_ARRAY_BUFFER) holding BYTES
// bytes copied from DATA, for drawing many times. Leaves it bound to TARGET.
unsigned int createStaticBuffer(unsigned int target, const void* data, size_t bytes);
