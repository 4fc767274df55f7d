# The Debian packages: one for each component, all with one version and one maintainer.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "Ohjauspaneeli developers <developers@ohjauspaneeli.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # the first line of each description
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 0local1)  # older than a package of this version in Debian itself
set(debian_version ${CPACK_DEBIAN_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SOURCE ohjauspaneeli)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL panel recorder nodevik nodevik-dev doc tools)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/finish.cmake)
string(TIMESTAMP debian_date "%a, %d %b %Y %H:%M:%S +0000" UTC)

# What the programs need of the system is found by dpkg-shlibdeps; of the library they need the very version that they
# were built with.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/nodevik ${PROJECT_BINARY_DIR}/nodevik/nodes ${PROJECT_BINARY_DIR}/nodevik/recording)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_PANEL_PACKAGE_NAME ohjauspaneeli)
set(CPACK_DEBIAN_PANEL_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PANEL_PACKAGE_DEPENDS fonts-dejavu-core)
set(CPACK_DEBIAN_PANEL_PACKAGE_RECOMMENDS xfonts-scalable)  # its headings' family; nothing may depend on X fonts
set(CPACK_DEBIAN_PANEL_PACKAGE_SUGGESTS "ohjauspaneeli-recorder, ohjauspaneeli-tools")
set(CPACK_COMPONENT_PANEL_DEPENDS nodevik)
set(CPACK_DEBIAN_PANEL_DESCRIPTION "control panel of a remote-controlled work vehicle
With this window an operator drives a small work vehicle over a serial line:
throttle, direction and bucket with sliders or by dragging the mouse over a
steering pad, the motor with a switch. It shows what the vehicle answers on
dials, bars and lamps, and at once when the line falls silent.
.
The panel speaks Finnish. A panel that ends while it drives leaves the vehicle
at rest.")

set(CPACK_DEBIAN_RECORDER_PACKAGE_NAME ohjauspaneeli-recorder)
set(CPACK_DEBIAN_RECORDER_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_RECORDER_PACKAGE_RECOMMENDS ohjauspaneeli)
set(CPACK_DEBIAN_RECORDER_PACKAGE_SUGGESTS ohjauspaneeli-tools)
# The tools of version 2.0.0 had line_preload.so.
set(CPACK_DEBIAN_RECORDER_PACKAGE_BREAKS "ohjauspaneeli-tools (<< ${PROJECT_VERSION}~)")
set(CPACK_DEBIAN_RECORDER_PACKAGE_REPLACES "ohjauspaneeli-tools (<< ${PROJECT_VERSION}~)")
set(CPACK_DEBIAN_RECORDER_DESCRIPTION "black box of the vehicle's line
vehicle-recorder keeps what the vehicle panel and the vehicle say to each other
on their serial line: every byte with its time, in a text file that can be read
after a power cut. The line comes first: a full disk or a crash of the recorder
does not stop the vehicle from being driven, nor from being brought to rest.
.
It tells on one page what a drive comes down to, in Finnish or in English, for
the terminal, a browser or paper; shows each frame and reply in words, and
writes tables for other programs. The panel can be started with it from the
desktop's menu, which keeps the last 20 drives.")

set(CPACK_DEBIAN_NODEVIK_PACKAGE_NAME libnodevik${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_NODEVIK_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_NODEVIK_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
set(CPACK_DEBIAN_NODEVIK_DESCRIPTION "CANopen master library over exchangeable CAN drivers
nodevik exchanges process data with the nodes of a CAN bus, reads and writes
their object dictionaries (SDO), commands their state (NMT), gives the beat
(SYNC) and guards them, as CiA 301 says. The bus is reached through a driver:
any interface of Linux's own (SocketCAN), CAN over UDP, a Kvaser interface, or
what a program brings along.
.
A library beside it knows the nodes: it reads their EDS and DCF files, scans
the bus, gives node numbers (LSS, CiA 305), sets nodes up, watches them, and
transfers objects with many at once, by blocks too. Another one records what
passes on a bus, in candump's format, and plays it again.
.
Beside the master stand Linux utilities for such programs: a serial line, a
realtime timer, threads, keyboard, mouse and lamp input events, a UDP endpoint,
terminal sequences and a directory lister.
.
This package holds the shared libraries that programs need at run time.")

set(CPACK_DEBIAN_NODEVIK-DEV_PACKAGE_NAME libnodevik-dev)
set(CPACK_DEBIAN_NODEVIK-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_NODEVIK-DEV_PACKAGE_SUGGESTS "libnodevik-doc, ohjauspaneeli-tools, pkg-config")
set(CPACK_COMPONENT_NODEVIK-DEV_DEPENDS nodevik)
set(CPACK_DEBIAN_NODEVIK-DEV_DESCRIPTION "CANopen master library over exchangeable CAN drivers - development files
nodevik exchanges process data with the nodes of a CAN bus, reads and writes
their object dictionaries (SDO), commands their state (NMT), gives the beat
(SYNC) and guards them, as CiA 301 says. Beside the master stand a library for
EDS and DCF files, scans, LSS and the set-up of nodes, one for recordings of a
bus, and Linux utilities for such programs.
.
This package holds what programs that use the libraries are built with:
headers, a CMake package, pkg-config files and examples.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME libnodevik-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_PACKAGE_SUGGESTS libnodevik-dev)
set(CPACK_DEBIAN_DOC_DESCRIPTION "CANopen master library over exchangeable CAN drivers - guides
nodevik exchanges process data with the nodes of a CAN bus, reads and writes
their object dictionaries (SDO), commands their state (NMT), gives the beat
(SYNC) and guards them, as CiA 301 says. Beside the master stand a library for
EDS and DCF files, scans, LSS and the set-up of nodes, one for recordings of a
bus, and Linux utilities for such programs.
.
This package holds the guides: a page for each service with a program that
shows it, what the library's messages mean, and what a new version may change.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ohjauspaneeli-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "bash-completion, ohjauspaneeli, ohjauspaneeli-recorder")
set(CPACK_COMPONENT_TOOLS_DEPENDS nodevik)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "simulators and tools for the vehicle panel and for CANopen
vehicle-simulator plays the vehicle at the far end of the panel's serial line,
node-simulator plays CANopen nodes behind CAN over UDP or on a CAN interface,
both with faults on request.
.
The command nodevik reads and writes objects of CANopen nodes, commands their
states, sets them up, finds them, and shows, records and replays what passes on
a bus. nodevik-plot draws curves in a window: of such recordings, of tables
and of plotting feeds.")

# The documentation that each package must have.
foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} key)
    set(documentation ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME})
    install(FILES debian/copyright DESTINATION ${documentation} COMPONENT ${component})
    ohjauspaneeli_install_compressed(debian/changelog.in changelog.Debian ${documentation} ${component})
    ohjauspaneeli_install_compressed(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog ${documentation} ${component})
endforeach()
ohjauspaneeli_install_compressed(debian/ohjauspaneeli-tools.NEWS.in NEWS.Debian
                                 ${CMAKE_INSTALL_DATADIR}/doc/ohjauspaneeli-tools tools)
install(FILES debian/libnodevik.lintian-overrides RENAME ${CPACK_DEBIAN_NODEVIK_PACKAGE_NAME}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT nodevik)
install(FILES debian/ohjauspaneeli-recorder.lintian-overrides RENAME ohjauspaneeli-recorder
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT recorder)

# The guides: those of the library in a package of their own, the operator's with the panel.
find_program(OHJAUSPANEELI_SYSTEM_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)
set(doc_guides nodevik abi.md architecture.md at-the-machine.md nodevik-command.md troubleshooting.md)
set(recorder_guides black-box.md mustalaatikko.md recorder.md recording-format.md)
set(panel_guides operator.md kayttoohje.md vehicle-link.md troubleshooting.md)
foreach(component doc panel recorder)
    string(TOUPPER ${component} key)
    list(TRANSFORM ${component}_guides PREPEND ${PROJECT_SOURCE_DIR}/docs/)
    set(pages ${CMAKE_CURRENT_BINARY_DIR}/guides/${component})
    add_custom_target(${component}_guide_pages ALL VERBATIM
                      COMMAND ${OHJAUSPANEELI_SYSTEM_PYTHON3} -B ${PROJECT_SOURCE_DIR}/script/lib/guide_pages.py
                              ${pages} ${${component}_guides})
    install(DIRECTORY ${pages}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME}/html
            COMPONENT ${component})
    install(FILES debian/guides.${component} RENAME ${CPACK_DEBIAN_${key}_PACKAGE_NAME}.guides
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc-base COMPONENT ${component})
endforeach()

# The examples that are no tools show the library's use.
foreach(example ${ohjauspaneeli_shown_examples})
    install(FILES ${PROJECT_SOURCE_DIR}/examples/${example}.cpp
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libnodevik-dev/examples COMPONENT nodevik-dev)
endforeach()

include(CPack)
