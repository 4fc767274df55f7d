# Finishes the packages that CPack has made: a library's change of the linker's cache is the matter of its trigger, so
# CPack's scripts for it go; the compiler's comments in programs and library go too, as they would from any package of
# Debian's. dpkg-deb writes the archives again in its own order, with no file younger than SOURCE_DATE_EPOCH. The same
# sources make the same packages.
find_program(DPKG_DEB_EXECUTABLE dpkg-deb REQUIRED)
find_program(STRIP_EXECUTABLE strip REQUIRED)

# Takes the compiler's comments out of the programs and the libraries in `tree`, and brings its sums up to date.
function(strip_comments tree)
    set(sums)
    file(STRINGS ${tree}/DEBIAN/md5sums lines)
    foreach(line ${lines})
        string(REGEX REPLACE "^[0-9a-f]+  " "" file ${line})
        if(file MATCHES "^usr/bin/|\\.so(\\.|$)")
            execute_process(COMMAND ${STRIP_EXECUTABLE} --strip-unneeded --remove-section=.comment
                                    --remove-section=.note ${tree}/${file} COMMAND_ERROR_IS_FATAL ANY)
        endif()
        file(MD5 ${tree}/${file} sum)
        string(APPEND sums "${sum}  ${file}\n")
    endforeach()
    file(WRITE ${tree}/DEBIAN/md5sums ${sums})
endfunction()

foreach(package ${CPACK_PACKAGE_FILES})
    get_filename_component(name ${package} NAME_WE)
    set(tree ${CPACK_TEMPORARY_DIRECTORY}/finish/${name})
    file(REMOVE_RECURSE ${tree})
    file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/finish)
    execute_process(COMMAND ${DPKG_DEB_EXECUTABLE} --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    strip_comments(${tree})
    execute_process(COMMAND ${DPKG_DEB_EXECUTABLE} --root-owner-group -Zxz --build ${tree} ${package}
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
endforeach()
