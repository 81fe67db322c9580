# Installation, the Debian package (cpack) and the source archive (the target package_source).
include(GNUInstallDirs)

install(TARGETS tessel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES docs/tessel.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
# For integrators.
set(integrators_pages
    docs/device.md docs/firmware.md docs/integration.md docs/login.md docs/security.md)
install(FILES CHANGELOG.md COPYING DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${integrators_pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
# For developers: cmake --install FOLDER --component developers
file(GLOB pages RELATIVE ${CMAKE_SOURCE_DIR} CONFIGURE_DEPENDS docs/*.md docs/*.svg)
list(REMOVE_ITEM pages ${integrators_pages})
install(FILES README.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT developers EXCLUDE_FROM_ALL)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs
        COMPONENT developers EXCLUDE_FROM_ALL)

set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME tessel)
set(CPACK_PACKAGE_CONTACT "tessel maintainers <tessel@lists.example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "console configuration shell of a telephony gateway")
set(CPACK_PACKAGE_DESCRIPTION
"Login program or login shell for the console of a telephony gateway. After
the login the administrator lists the device's configuration parts, prints
them, types changed settings and saves them, backs the configuration up to an
FTP server or restores it from there, and reads logs.

It works through the device's web administration and its FastCGI client, which
are not part of this package.")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/COPYING)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_GENERATOR DEB)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/packaging/prepare.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION shells)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "wget, wput")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/postinst ${CMAKE_SOURCE_DIR}/packaging/prerm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# For packaging/debian.cmake.
set(CPACK_TESSEL_TRIPLET ${CMAKE_LIBRARY_ARCHITECTURE})
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
endif()

set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME tessel-${PROJECT_VERSION})
# The folder's path may contain characters that are special in a regular expression.
string(REGEX REPLACE "([][+.*^$()?|\\])" "\\\\\\1" top "${CMAKE_SOURCE_DIR}")
set(CPACK_SOURCE_IGNORE_FILES "^${top}/build/" "^${top}/\\.git(/|$)" "^${top}/\\.cache/"
    "^${top}/compile_commands\\.json$" "/__pycache__/" "/\\.hypothesis/")
include(CPack)
