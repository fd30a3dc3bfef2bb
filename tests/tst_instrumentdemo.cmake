# Runs the example application as a child, with this build's demangle_backtrace on PATH.
add_dependencies(${test_name} instrument-demo demangle_backtrace)
target_compile_definitions(${test_name} PRIVATE
  INSTRUMENT_DEMO="$<TARGET_FILE:instrument-demo>"
  DEMANGLE_BACKTRACE_DIR="$<TARGET_FILE_DIR:demangle_backtrace>")
