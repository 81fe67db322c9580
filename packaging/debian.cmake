# Debian's conventions. Included by prepare.cmake, which sets day.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr)
set(documents ${root}/share/doc/tessel)

# Every Debian system has the licence.
file(REMOVE ${documents}/COPYING)
configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${documents}/copyright COPYONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/lintian-overrides ${root}/share/lintian/overrides/tessel COPYONLY)
file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)

execute_process(COMMAND env LC_ALL=C date -u -R -d ${day}
                OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${documents}/changelog.Debian
"tessel (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Release ${CPACK_PACKAGE_VERSION}; see changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")

# The architecture is that of the compiler's target, not of the build machine.
if(CPACK_TESSEL_TRIPLET)
  execute_process(COMMAND dpkg-architecture -t ${CPACK_TESSEL_TRIPLET} -q DEB_HOST_ARCH
                  OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE
                  COMMAND_ERROR_IS_FATAL ANY)
endif()
# The package manager does not know a sysroot's libraries, so the program's headers say what it needs.
if(NOT CPACK_DEBIAN_PACKAGE_SHLIBDEPS)
  file(GLOB program ${root}/*bin/tessel)
  execute_process(COMMAND readelf --wide --dynamic --version-info ${program}
                  OUTPUT_VARIABLE facts COMMAND_ERROR_IS_FATAL ANY)
  set(depends "")
  if(facts MATCHES "NEEDED[^\n]*libc\\.so")
    string(REGEX MATCHALL "GLIBC_2\\.[0-9]+" versions "${facts}")
    list(SORT versions COMPARE NATURAL ORDER DESCENDING)
    list(GET versions 0 newest)
    string(REPLACE GLIBC_ "" newest ${newest})
    list(APPEND depends "libc6 (>= ${newest})")
  endif()
  if(facts MATCHES "NEEDED[^\n]*libreadline\\.so\\.8")
    list(APPEND depends "libreadline8t64 | libreadline8")
  endif()
  if(facts MATCHES "NEEDED[^\n]*libstdc\\+\\+\\.so")
    list(APPEND depends "libstdc++6")
  endif()
  list(JOIN depends ", " CPACK_DEBIAN_PACKAGE_DEPENDS)
endif()

execute_process(COMMAND gzip -9n ${documents}/changelog ${documents}/changelog.Debian
                        ${root}/share/man/man8/tessel.8
                COMMAND_ERROR_IS_FATAL ANY)
