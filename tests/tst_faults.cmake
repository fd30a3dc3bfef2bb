# The test's own functions appear in the frames that it checks: export them and keep them apart.
set_target_properties(${test_name} PROPERTIES ENABLE_EXPORTS ON)
target_compile_options(${test_name} PRIVATE -O0 -fno-omit-frame-pointer)
add_dependencies(${test_name} demangle_backtrace)
target_compile_definitions(${test_name} PRIVATE DEMANGLE_BACKTRACE="$<TARGET_FILE:demangle_backtrace>")
