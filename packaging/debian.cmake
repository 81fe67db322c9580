# Included by prepare.cmake, which sets day: what Debian wants otherwise than others do.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr)
set(documents ${root}/share/doc/tessel)

# The licence is in every Debian system already.
file(REMOVE ${documents}/COPYING)
configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${documents}/copyright COPYONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/lintian-overrides ${root}/share/lintian/overrides/tessel COPYONLY)
file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)

execute_process(COMMAND env LC_ALL=C date -u -R -d ${day}
                OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${documents}/changelog.Debian
"tessel (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Release ${CPACK_PACKAGE_VERSION}; what it changes stands in changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")

execute_process(COMMAND gzip -9n ${documents}/changelog ${documents}/changelog.Debian
                        ${root}/share/man/man8/tessel.8
                COMMAND_ERROR_IS_FATAL ANY)
