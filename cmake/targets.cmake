# What every target of this project shares: language level, warnings, sanitizers.

# Compiles `target` as C++20 with the project's warnings and, if chosen, sanitizers.
function(ohjauspaneeli_configure target)
    target_compile_features(${target} PUBLIC cxx_std_20)
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

# The same for a target that uses Qt, with Qt's strict options.
function(ohjauspaneeli_configure_qt target)
    ohjauspaneeli_configure(${target})
    target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_ASCII QT_NO_KEYWORDS
                                                 QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
    set_target_properties(${target} PROPERTIES AUTOMOC ON AUTOUIC ON)
endfunction()
