# The tool is run on the backtraces of real helper programs (tests/helpers).
include(${CMAKE_CURRENT_SOURCE_DIR}/helpers/faulthelpers.cmake)
