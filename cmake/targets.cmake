# What every target of this project shares: language level, warnings, sanitizers.

# Compiles `target` as C++20 with the project's warnings and, if chosen, sanitizers.
function(ohjauspaneeli_configure target)
    target_compile_features(${target} PRIVATE cxx_std_20)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        target_compile_options(${target} PRIVATE -Wno-sign-conversion)  # not part of -Wconversion in g++
    endif()
    if(OHJAUSPANEELI_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(OHJAUSPANEELI_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${OHJAUSPANEELI_SANITIZE} -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${OHJAUSPANEELI_SANITIZE})
    endif()
endfunction()

# The same for a library that is installed, as a static or a shared one. A shared one has the project's version and shows
# what its headers declare with NODEVIK_EXPORT (nodevik/util/export.h), and nothing else. Its headers are C++17.
function(ohjauspaneeli_configure_library target)
    ohjauspaneeli_configure(${target})
    target_compile_features(${target} INTERFACE cxx_std_17)
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                                $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON
                          CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
                          VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                          LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/library.map)
    target_link_options(${target} PRIVATE LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/library.map)
endfunction()

# The same for a target that uses Qt, with Qt's strict options.
function(ohjauspaneeli_configure_qt target)
    ohjauspaneeli_configure(${target})
    target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_ASCII QT_NO_KEYWORDS
                                                 QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
    set_target_properties(${target} PROPERTIES AUTOMOC ON AUTOUIC ON)
endfunction()

# Installs what pkg-config tells of an installed library, from cmake/<name>.pc.in.
function(ohjauspaneeli_install_pkgconfig name)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
            COMPONENT nodevik-dev)
endfunction()

# A library to be preloaded into programs, ours and others'. So it is never under a sanitizer, brings no library along
# that it does not call, and has functions itself that fortified headers would put something else in the place of.
function(ohjauspaneeli_preloaded target)
    add_library(${target} MODULE ${ARGN})
    target_compile_features(${target} PRIVATE cxx_std_20)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF PREFIX "")
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-ignored-attributes
                                             -U_FORTIFY_SOURCE -fno-exceptions -fno-rtti
                                             -fno-delete-null-pointer-checks
                                             $<$<BOOL:${OHJAUSPANEELI_WARNINGS_AS_ERRORS}>:-Werror>)
    target_link_libraries(${target} PRIVATE ${CMAKE_DL_LIBS})
    target_link_options(${target} PRIVATE LINKER:--as-needed)
endfunction()
