# Finishes the packages that CPack has made: a library's change of the linker's cache is the matter of its trigger, so
# CPack's scripts for it go, and dpkg-deb writes the archives again in its own order, with no file younger than
# SOURCE_DATE_EPOCH. The same sources make the same packages.
find_program(DPKG_DEB_EXECUTABLE dpkg-deb REQUIRED)
foreach(package ${CPACK_PACKAGE_FILES})
    get_filename_component(name ${package} NAME_WE)
    set(tree ${CPACK_TEMPORARY_DIRECTORY}/finish/${name})
    file(REMOVE_RECURSE ${tree})
    file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/finish)
    execute_process(COMMAND ${DPKG_DEB_EXECUTABLE} --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    execute_process(COMMAND ${DPKG_DEB_EXECUTABLE} --root-owner-group -Zxz --build ${tree} ${package}
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
endforeach()
