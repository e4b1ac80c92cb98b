# SPDX-License-Identifier: MIT
# The install layout (GNUInstallDirs): the game, its data, the desktop entry, icons, AppStream
# metadata and manual page. The Debian package (debian/, built with dpkg-buildpackage) installs
# through these same rules, with the binary in games/.
# The game finds its data relative to its binary (src/core/DataPath.cpp), so an install can be
# moved anywhere and nothing needs a path fixed at build time.

option(BLOTCH_INSTALL_LICENCES
       "Install LICENSE and data/LICENSES.md into share/doc/blotch (a distribution package has \
its own copyright file instead)" ON)
set(BLOTCH_PACKAGING ${CMAKE_CURRENT_LIST_DIR})
set(BLOTCH_GENERATED ${CMAKE_BINARY_DIR}/packaging)
set(BLOTCH_DOCDIR ${CMAKE_INSTALL_DATADIR}/doc/blotch) # DOCDIR would use the project's capital

install(TARGETS blotch RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The data's licences are documentation: they go to the doc folder, not into the data tree.
install(DIRECTORY ${CMAKE_SOURCE_DIR}/data/ DESTINATION ${CMAKE_INSTALL_DATADIR}/blotch/data
        PATTERN LICENSES.md EXCLUDE)
install(FILES ${BLOTCH_PACKAGING}/blotch.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${BLOTCH_PACKAGING}/io.github.blotch.Blotch.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${BLOTCH_PACKAGING}/blotch.png
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/128x128/apps)
foreach(size 48 64 256)
    install(FILES ${BLOTCH_PACKAGING}/icons/${size}/blotch.png
            DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
endforeach()
if(BLOTCH_INSTALL_LICENCES)
    install(FILES ${CMAKE_SOURCE_DIR}/LICENSE ${CMAKE_SOURCE_DIR}/data/LICENSES.md
            DESTINATION ${BLOTCH_DOCDIR})
endif()

# The manual page carries the version; installed compressed, and -n leaves the time stamp out so
# rebuilds give the same bytes.
configure_file(${BLOTCH_PACKAGING}/blotch.6.in ${BLOTCH_GENERATED}/blotch.6 @ONLY)
find_program(GZIP_PROGRAM gzip REQUIRED)
add_custom_command(OUTPUT ${BLOTCH_GENERATED}/blotch.6.gz
    COMMAND ${GZIP_PROGRAM} -9nf -k ${BLOTCH_GENERATED}/blotch.6
    DEPENDS ${BLOTCH_GENERATED}/blotch.6
    COMMENT "Compressing the manual page")
add_custom_target(blotch_docs ALL DEPENDS ${BLOTCH_GENERATED}/blotch.6.gz)
install(FILES ${BLOTCH_GENERATED}/blotch.6.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man6)
