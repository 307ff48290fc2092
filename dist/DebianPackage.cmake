# Run by cpack on the staged tree before it is packed: Debian wants the man
# pages compressed and a compressed changelog beside the copyright file.
file(GLOB_RECURSE copyright "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/share/doc/kestrava/copyright")
if(NOT copyright)
  message(FATAL_ERROR "no share/doc/kestrava/copyright under ${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
endif()
list(GET copyright 0 copyright)
get_filename_component(doc "${copyright}" DIRECTORY)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(version "${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")
file(WRITE "${doc}/changelog.Debian"
  "kestrava (${version}) unstable; urgency=medium\n\n"
  "  * Release ${CPACK_PACKAGE_VERSION}.\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/share/man/man1/*.1")
foreach(file "${doc}/changelog.Debian" ${pages})
  execute_process(COMMAND gzip -n -9 -f "${file}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
