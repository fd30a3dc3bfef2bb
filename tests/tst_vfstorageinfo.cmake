# A child that drops to the user nobody lists the volumes, since root reads every directory
# (Part 6.3). The helper is shared with tst_vfplatforminfo.
if(NOT TARGET vfplatformhelper)
  add_executable(vfplatformhelper ${CMAKE_CURRENT_SOURCE_DIR}/helpers/vfplatformhelper.cpp)
  target_link_libraries(vfplatformhelper PRIVATE VfCrosscutting)
endif()
add_dependencies(${test_name} vfplatformhelper)
target_compile_definitions(${test_name} PRIVATE VF_PLATFORM_HELPER="$<TARGET_FILE:vfplatformhelper>")
