# The application root follows the executable's location, so tests/helpers/vfplatformhelper
# is copied into temporary layouts and run there (Part 6.1). Shared with tst_vfstorageinfo.
if(NOT TARGET vfplatformhelper)
  add_executable(vfplatformhelper ${CMAKE_CURRENT_SOURCE_DIR}/helpers/vfplatformhelper.cpp)
  target_link_libraries(vfplatformhelper PRIVATE VfCrosscutting)
endif()
add_dependencies(${test_name} vfplatformhelper)
target_compile_definitions(${test_name} PRIVATE VF_PLATFORM_HELPER="$<TARGET_FILE:vfplatformhelper>")
