# The program captures its own backtrace as a child: its functions keep their frames and names.
set_target_properties(${test_name} PROPERTIES ENABLE_EXPORTS ON)
target_compile_options(${test_name} PRIVATE -g -O0 -fno-omit-frame-pointer)
add_dependencies(${test_name} demangle_backtrace instrument-demo)
target_compile_definitions(${test_name} PRIVATE DEMANGLE_BACKTRACE="$<TARGET_FILE:demangle_backtrace>"
                           INSTRUMENT_DEMO="$<TARGET_FILE:instrument-demo>")
