# Run by cpack between installation and packing.

# The date of the release is in the change log.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md heading REGEX "^## ${CPACK_PACKAGE_VERSION} \\(")
string(REGEX MATCH "[0-9]+-[0-9]+-[0-9]+" day "${heading}")
if(NOT day)
  message(FATAL_ERROR "CHANGELOG.md has no heading: ## ${CPACK_PACKAGE_VERSION} (YYYY-MM-DD)")
endif()

if(CPACK_GENERATOR STREQUAL "DEB")
  include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
endif()

# All files get that date, so that the same sources always make the same package.
execute_process(COMMAND date -u -d ${day} +%s
                OUTPUT_VARIABLE seconds OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(ENV{SOURCE_DATE_EPOCH} ${seconds})
