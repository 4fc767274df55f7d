# The operator application: `panel` holds all of it but main, so that the tests link the same code.
ohjauspaneeli_unit_sources(panel_sources controlthread descriptorzero dialog mainwindow terminationsignals)
# The slot display of QLCDNumber has overloads, which the pointer-to-member form cannot tell apart.
set_source_files_properties(mainwindow.ui PROPERTIES AUTOUIC_OPTIONS "--connections=string")
if(panel_sources)
    add_library(panel STATIC ${panel_sources})
    ohjauspaneeli_configure_qt(panel)
    target_include_directories(panel PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                            $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/panel_autogen/include>)
    target_link_libraries(panel PUBLIC nodevik::nodevik Qt6::Widgets)
    if(TARGET gauges)
        target_link_libraries(panel PUBLIC gauges)
    endif()
endif()
if(EXISTS ${PROJECT_SOURCE_DIR}/main.cpp)
    add_executable(ohjauspaneeli main.cpp)
    ohjauspaneeli_configure_qt(ohjauspaneeli)
    target_link_libraries(ohjauspaneeli PRIVATE panel)
endif()
