# What `make deb` puts in the Debian package: the program (skin, MIME table and English
# texts are inside it), its man page, the desktop entry that opens the owner's console,
# the systemd user unit, and the documents.
include(GNUInstallDirs)

file(STRINGS ${PROJECT_SOURCE_DIR}/src/core/Version.h version_line
     REGEX "kVersionText\\[\\] = \"[^\"]+\"")
string(REGEX REPLACE ".*\"([^\"]+)\".*" "\\1" LUMIDROP_VERSION "${version_line}")

# The man page is installed compressed, as Debian's man expects; -n keeps the archive the
# same from one build to the next.
set(man_page ${CMAKE_BINARY_DIR}/lumidrop.1.gz)
add_custom_command(
    OUTPUT ${man_page}
    COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/docs/lumidrop.1 > ${man_page}
    DEPENDS ${PROJECT_SOURCE_DIR}/docs/lumidrop.1
    COMMENT "Compressing the man page")
add_custom_target(lumidrop_man_page ALL DEPENDS ${man_page})

install(TARGETS lumidrop RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${man_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/lumidrop.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/lumidrop.service
        DESTINATION lib/systemd/user)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/docs/manual.md
              ${PROJECT_SOURCE_DIR}/docs/design.md ${PROJECT_SOURCE_DIR}/docs/plugins.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumidrop)
# Plug-in authors build against the installed header alone.
install(FILES ${PROJECT_SOURCE_DIR}/include/lumidrop/plugin.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lumidrop)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lumidrop)
set(CPACK_PACKAGE_VERSION ${LUMIDROP_VERSION})
set(CPACK_PACKAGE_VENDOR "Korvel Lumidrop")
set(CPACK_PACKAGE_CONTACT "Korvel Lumidrop maintainers <lumidrop@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "personal file-sharing web server")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
    "Shares folders and single files of this machine over HTTP, with accounts, rights per\n"
    "share, an IP filter, connection and speed limits, upload progress, and an owner's\n"
    "console in the browser. Runs as a systemd user service or from the desktop.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://example.org/lumidrop")
find_program(LUMIDROP_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(LUMIDROP_DPKG_SHLIBDEPS)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1")
endif()
include(CPack)
