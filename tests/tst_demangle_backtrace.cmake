# The tool is run on the backtraces of real helper programs (tests/helpers), and on one more build
# of the helper without debug information, whose frames only the symbol table can name.
include(${CMAKE_CURRENT_SOURCE_DIR}/helpers/faulthelpers.cmake)
add_executable(vf_fault_helper_nodebug ${CMAKE_CURRENT_SOURCE_DIR}/helpers/faulthelper.cpp)
target_link_libraries(vf_fault_helper_nodebug PRIVATE VfCrosscutting Qt5::Core)
target_compile_options(vf_fault_helper_nodebug PRIVATE -g0 -O0 -fno-omit-frame-pointer)
add_dependencies(${test_name} vf_fault_helper_nodebug)
target_compile_definitions(${test_name} PRIVATE FAULT_HELPER_NODEBUG="$<TARGET_FILE:vf_fault_helper_nodebug>")
