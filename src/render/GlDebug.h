// SPDX-License-Identifier: MIT
#pragma once

// GL errors made visible. Mesa says nothing about a GL error unless asked: with
// BLOTCH_GL_DEBUG=1 in the environment the game asks for a debug context and prints every error
// the driver reports as one line on standard error, starting with "[GL] ". The tests run the game
// that way and fail on any such line. It changes nothing else.
namespace gldebug
{
// Whether BLOTCH_GL_DEBUG asks for it.
bool requested();
// Prints the driver's error messages from now on, as they happen. Needs a current GL context;
// false when the driver has no debug output (KHR_debug).
bool install();
// How many errors have been printed so far.
int errorCount();
} // namespace gldebug
