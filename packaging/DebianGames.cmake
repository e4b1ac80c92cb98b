# SPDX-License-Identifier: MIT
# Run by cpack after it has staged the install and before it builds the Debian package: Debian
# policy (11.11) puts the binaries of games in /usr/games, while a plain install keeps the
# GNUInstallDirs bin/. The data is found relative to the binary, and games/ sits beside bin/,
# so the move changes nothing for the game.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
    return()
endif()
set(staged "${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX}")
file(MAKE_DIRECTORY "${staged}/games")
file(RENAME "${staged}/bin/blotch" "${staged}/games/blotch")
file(GLOB left "${staged}/bin/*")
if(NOT left)
    file(REMOVE_RECURSE "${staged}/bin")
endif()
