# The operator application: `panel` holds all of it but main, so that the tests link the same code.
# The slot display of QLCDNumber has overloads, which the pointer-to-member form cannot tell apart.
set_source_files_properties(mainwindow.ui PROPERTIES AUTOUIC_OPTIONS "--connections=string")
add_library(panel STATIC
    controlthread.cpp controlthread.h
    descriptorzero.cpp descriptorzero.h
    dialog.cpp dialog.h dialog.ui
    mainwindow.cpp mainwindow.h mainwindow.ui
    terminationsignals.cpp terminationsignals.h)
ohjauspaneeli_configure_qt(panel)
target_include_directories(panel PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                        $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/panel_autogen/include>)
target_link_libraries(panel PUBLIC gauges lineguard nodevik::nodevik vehicle Qt6::Widgets)

add_executable(ohjauspaneeli main.cpp)
ohjauspaneeli_configure_qt(ohjauspaneeli)
target_link_libraries(ohjauspaneeli PRIVATE panel)
