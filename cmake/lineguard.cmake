# The process that brings the vehicle to rest when a program that holds the line is gone: for the panel and the recorder.
add_library(lineguard STATIC lineguard.cpp lineguard.h)
ohjauspaneeli_configure(lineguard)
target_include_directories(lineguard PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
target_link_libraries(lineguard PRIVATE vehicle)
