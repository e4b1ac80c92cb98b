# SPDX-License-Identifier: MIT
# Install layout (GNUInstallDirs) and the Debian package (cpack -G DEB in the build folder).
# The game finds its data relative to its binary (src/core/DataPath.cpp), so an install can be
# moved anywhere and the package needs no path fixed at build time.

set(BLOTCH_MAINTAINER "The Blotch developers <blotch@example.org>"
    CACHE STRING "Maintainer of the Debian package: Name <address>")
set(BLOTCH_PACKAGING ${CMAKE_CURRENT_LIST_DIR})
set(BLOTCH_GENERATED ${CMAKE_BINARY_DIR}/packaging)

install(TARGETS blotch RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/data/ DESTINATION ${CMAKE_INSTALL_DATADIR}/blotch/data)
install(FILES ${BLOTCH_PACKAGING}/blotch.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${BLOTCH_PACKAGING}/io.github.blotch.Blotch.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${BLOTCH_PACKAGING}/blotch.png
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/128x128/apps)
foreach(size 48 64 256)
    install(FILES ${BLOTCH_PACKAGING}/icons/${size}/blotch.png
            DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
endforeach()

# The manual page and the changelog carry the version; Debian wants both compressed, and -n
# leaves the time stamp out so rebuilds give the same bytes.
configure_file(${BLOTCH_PACKAGING}/blotch.6.in ${BLOTCH_GENERATED}/blotch.6 @ONLY)
configure_file(${BLOTCH_PACKAGING}/changelog.in ${BLOTCH_GENERATED}/changelog @ONLY)
find_program(GZIP_PROGRAM gzip REQUIRED)
add_custom_command(OUTPUT ${BLOTCH_GENERATED}/blotch.6.gz ${BLOTCH_GENERATED}/changelog.gz
    COMMAND ${GZIP_PROGRAM} -9nf -k ${BLOTCH_GENERATED}/blotch.6 ${BLOTCH_GENERATED}/changelog
    DEPENDS ${BLOTCH_GENERATED}/blotch.6 ${BLOTCH_GENERATED}/changelog
    COMMENT "Compressing the manual page and the changelog")
add_custom_target(blotch_docs ALL DEPENDS ${BLOTCH_GENERATED}/blotch.6.gz
                  ${BLOTCH_GENERATED}/changelog.gz)
install(FILES ${BLOTCH_GENERATED}/blotch.6.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man6)
install(FILES ${BLOTCH_PACKAGING}/copyright ${BLOTCH_GENERATED}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/blotch) # DOCDIR would use the project's capital

set(CPACK_PACKAGE_NAME blotch)
set(CPACK_PACKAGE_VENDOR "The Blotch developers")
set(CPACK_PACKAGE_CONTACT "${BLOTCH_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "first-person game where thrown paint reveals a white world")
set(CPACK_PACKAGE_DESCRIPTION_FILE ${BLOTCH_PACKAGING}/description.txt) # lines under 80
set(CPACK_PRE_BUILD_SCRIPTS ${BLOTCH_PACKAGING}/DebianGames.cmake)
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION games)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
