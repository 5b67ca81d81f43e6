# Run by CPack on what is installed, before it becomes packages: what Debian asks of each of them.

# read_license(<file> <prefix>): sets <prefix>_holder and <prefix>_text, the latter as a field of several lines.
function(read_license file prefix)
  file(READ "${file}" text)
  string(REGEX MATCH "Copyright [^ ]+ ([^\n]*)" line "${text}")
  set(${prefix}_holder "${CMAKE_MATCH_1}" PARENT_SCOPE)
  string(REGEX REPLACE "^.*${CMAKE_MATCH_1}\n+" "" text "${text}")
  string(STRIP "${text}" text)
  string(REPLACE "\n\n" "\n.\n" text "${text}")
  string(REPLACE "\n" "\n " text "${text}")
  set(${prefix}_text "${text}" PARENT_SCOPE)
endfunction()

read_license("${CPACK_KAVO_SOURCE_DIR}/LICENSE" own)
# In the page of plans, which the command has in it.
read_license("${CPACK_KAVO_SOURCE_DIR}/apps/viewer/node_modules/three/LICENSE" three)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package "${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  set(staged "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr")
  set(copyright "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: kavo

Files: *
Copyright: ${own_holder}
License: BSD-3-Clause
")
  if(component STREQUAL "tools")
    string(APPEND copyright "
Files: usr/bin/kavo
Copyright: ${own_holder}
 ${three_holder}
License: BSD-3-Clause and Expat

License: Expat
 ${three_text}
")
  endif()
  string(APPEND copyright "\nLicense: BSD-3-Clause\n ${own_text}\n")
  file(WRITE "${staged}/share/doc/${package}/copyright" "${copyright}")
  set(changelog "${staged}/share/doc/${package}/changelog")
  file(WRITE "${changelog}" "kavo (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * For the changes see CHANGELOG.md, which kavo-doc has in /usr/share/doc/kavo.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
  file(GLOB pages "${staged}/share/man/man1/*.1")
  execute_process(COMMAND gzip --best --no-name "${changelog}" ${pages} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
# Each package has it by now.
file(REMOVE "${CPACK_TEMPORARY_DIRECTORY}/doc/usr/share/doc/kavo/LICENSE")
