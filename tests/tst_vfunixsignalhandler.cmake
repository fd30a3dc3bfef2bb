# Crash cases run in helper programs, with the real demangle_backtrace on PATH.
include(${CMAKE_CURRENT_SOURCE_DIR}/helpers/faulthelpers.cmake)
