# The restart case runs tests/helpers/vflogroadhelper twice, as two processes on one velmar.log.
if(NOT TARGET vflogroadhelper)
  add_executable(vflogroadhelper ${CMAKE_CURRENT_SOURCE_DIR}/helpers/vflogroadhelper.cpp)
  target_link_libraries(vflogroadhelper PRIVATE VfCrosscutting)
endif()
add_dependencies(${test_name} vflogroadhelper)
target_compile_definitions(${test_name} PRIVATE VF_LOGROAD_HELPER="$<TARGET_FILE:vflogroadhelper>")
