# The test's own functions appear in the frames that it checks: export them and keep them apart.
set_target_properties(${test_name} PROPERTIES ENABLE_EXPORTS ON)
target_compile_options(${test_name} PRIVATE -O0 -fno-omit-frame-pointer)
include(${CMAKE_CURRENT_SOURCE_DIR}/helpers/faulthelpers.cmake)
