# Run by cpack on the staged tree: a Debian package carries a compressed
# changelog beside its copyright file.
file(GLOB_RECURSE copyright "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/share/doc/kestrava/copyright")
if(NOT copyright)
  message(FATAL_ERROR "no share/doc/kestrava/copyright under ${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
endif()
list(GET copyright 0 copyright)
get_filename_component(doc "${copyright}" DIRECTORY)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${doc}/changelog.Debian"
  "kestrava (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
  "  * Release ${CPACK_PACKAGE_VERSION}.\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
execute_process(COMMAND gzip -n -9 -f "${doc}/changelog.Debian" COMMAND_ERROR_IS_FATAL ANY)
