# Real qDebug/qWarning call sites in files whose names begin with "vf" and "q", and a child that
# calls qFatal. Message contexts are kept in this build type too.
target_sources(${test_name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/logbridge/vfbridgesource.cpp
                                    ${CMAKE_CURRENT_SOURCE_DIR}/logbridge/qbridgesource.cpp)
target_compile_definitions(${test_name} PRIVATE QT_MESSAGELOGCONTEXT
                           FATAL_HELPER="$<TARGET_FILE:vf_fatal_helper>")
add_executable(vf_fatal_helper ${CMAKE_CURRENT_SOURCE_DIR}/logbridge/fatalhelper.cpp)
target_compile_definitions(vf_fatal_helper PRIVATE QT_MESSAGELOGCONTEXT)
target_link_libraries(vf_fatal_helper PRIVATE VfCrosscutting)
add_dependencies(${test_name} vf_fatal_helper)
