# What is installed, the Debian package (cpack) and the source archive (the target package_source).
include(GNUInstallDirs)

# The manual page takes the version from here.
configure_file(${CMAKE_SOURCE_DIR}/docs/tessel.8 ${CMAKE_BINARY_DIR}/tessel.8 @ONLY)

file(GLOB documents CONFIGURE_DEPENDS
     ${CMAKE_SOURCE_DIR}/docs/*.md ${CMAKE_SOURCE_DIR}/docs/*.svg)
install(TARGETS tessel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${CMAKE_BINARY_DIR}/tessel.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES README.md CONTRIBUTING.md CHANGELOG.md COPYING DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)

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
# The architecture is the compiler's, not that of the machine it runs on.
if(CMAKE_LIBRARY_ARCHITECTURE)
  execute_process(COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
                  OUTPUT_VARIABLE architecture OUTPUT_STRIP_TRAILING_WHITESPACE
                  RESULT_VARIABLE result ERROR_QUIET)
  if(result EQUAL 0)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
  endif()
endif()
# Nobody knows the packages of a sysroot's libraries; the program needs two.
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  if(NOT TESSEL_STATIC)
    file(STRINGS ${CMAKE_SYSROOT}/usr/include/features.h minor REGEX "define[ \t]+__GLIBC_MINOR__")
    string(REGEX MATCH "[0-9]+$" minor "${minor}")
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.${minor}), libreadline8t64 | libreadline8")
  endif()
endif()

set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME tessel-${PROJECT_VERSION})
# The folder's own name may hold what means something in a regular expression.
string(REGEX REPLACE "([][+.*^$()?|\\])" "\\\\\\1" top "${CMAKE_SOURCE_DIR}")
set(CPACK_SOURCE_IGNORE_FILES "^${top}/build/" "^${top}/\\.git(/|$)" "^${top}/\\.cache/"
    "^${top}/compile_commands\\.json$" "/__pycache__/" "/\\.hypothesis/")
include(CPack)
