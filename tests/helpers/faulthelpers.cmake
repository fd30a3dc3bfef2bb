# The child programs of tst_faults and tst_demangle_backtrace, built once whichever test includes
# this first. The same source is
# built three ways, all with debug information and without optimisation, so that frames have
# stable names and lines: with -rdynamic (frames name their symbols), as PIE without it (frames
# carry module offsets only), and as non-PIE without it (frames carry no parentheses at all).
if(NOT TARGET vf_fault_helper)
  foreach(variant vf_fault_helper vf_fault_helper_pie vf_fault_helper_nopie)
    add_executable(${variant} ${CMAKE_CURRENT_LIST_DIR}/faulthelper.cpp)
    target_link_libraries(${variant} PRIVATE VfCrosscutting Qt5::Core)
    target_compile_options(${variant} PRIVATE -g -O0 -fno-omit-frame-pointer)
  endforeach()
  set_target_properties(vf_fault_helper PROPERTIES ENABLE_EXPORTS ON)
  target_compile_options(vf_fault_helper_nopie PRIVATE -fno-pie)
  target_link_options(vf_fault_helper_nopie PRIVATE -no-pie)
endif()

add_dependencies(${test_name} vf_fault_helper vf_fault_helper_pie vf_fault_helper_nopie demangle_backtrace)
target_compile_definitions(${test_name} PRIVATE
  FAULT_HELPER="$<TARGET_FILE:vf_fault_helper>"
  FAULT_HELPER_PIE="$<TARGET_FILE:vf_fault_helper_pie>"
  FAULT_HELPER_NOPIE="$<TARGET_FILE:vf_fault_helper_nopie>"
  FAULT_HELPER_SOURCE="${CMAKE_CURRENT_LIST_DIR}/faulthelper.cpp"
  DEMANGLE_BACKTRACE="$<TARGET_FILE:demangle_backtrace>")
target_sources(${test_name} PRIVATE ${CMAKE_CURRENT_LIST_DIR}/faulttestsupport.h)
target_include_directories(${test_name} PRIVATE ${CMAKE_CURRENT_LIST_DIR})
