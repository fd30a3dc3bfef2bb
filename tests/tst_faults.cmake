# The program reads its own frames: its functions keep their frames, names and lines. Its source
# paths run through "tests/..", as a build through a compiler cache leaves them.
set_target_properties(${test_name} PROPERTIES ENABLE_EXPORTS ON)
target_compile_options(${test_name} PRIVATE -g -O0 -fno-omit-frame-pointer
                       -fdebug-prefix-map=${CMAKE_CURRENT_SOURCE_DIR}=${CMAKE_CURRENT_SOURCE_DIR}/../tests)
add_dependencies(${test_name} demangle_backtrace instrument-demo)
target_compile_definitions(${test_name} PRIVATE DEMANGLE_BACKTRACE="$<TARGET_FILE:demangle_backtrace>"
                           INSTRUMENT_DEMO="$<TARGET_FILE:instrument-demo>" SOURCE_DIR="${CMAKE_CURRENT_SOURCE_DIR}")
