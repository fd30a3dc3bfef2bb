# A program with debug information and no optimisation that stops in gdb a few frames down, for
# gdb's real backtrace output (Part 3.3).
find_package(Threads REQUIRED)
add_executable(gdbbacktracehelper ${CMAKE_CURRENT_SOURCE_DIR}/helpers/gdbbacktracehelper.cpp)
target_compile_options(gdbbacktracehelper PRIVATE -g -O0)
target_link_libraries(gdbbacktracehelper PRIVATE Threads::Threads)
add_dependencies(${test_name} gdbbacktracehelper)
target_compile_definitions(${test_name} PRIVATE
  VF_GDB_HELPER="$<TARGET_FILE:gdbbacktracehelper>"
  VF_GDB_HELPER_SOURCE="${CMAKE_CURRENT_SOURCE_DIR}/helpers/gdbbacktracehelper.cpp")
