# tst_vfmutex: a second translation unit with mutexes of static storage (Part 5.1).
target_sources(${test_name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/vfmutex_static.cpp)

# The same translation unit linked AHEAD of the library's mutex sources into one program, so that
# its static mutexes are initialised before the translation unit that holds the tracker: the order
# that the nifty counter of vfabstractmutex.h has to make safe. Built from the sources, not the
# shared library, since only within one module does link order decide the order of initialisation.
set(vf_mutex_order_helper vfmutex_staticorder_helper)
add_executable(${vf_mutex_order_helper}
  ${CMAKE_CURRENT_SOURCE_DIR}/vfmutex_static.cpp
  ${PROJECT_SOURCE_DIR}/crosscutting/vfabstractmutex.cpp
  ${PROJECT_SOURCE_DIR}/crosscutting/vfmutex.cpp
  ${PROJECT_SOURCE_DIR}/crosscutting/vfrecursivemutex.cpp
  ${PROJECT_SOURCE_DIR}/crosscutting/vfmutextools.cpp
  ${PROJECT_SOURCE_DIR}/crosscutting/vfmutextoolscontroller.cpp
  ${PROJECT_SOURCE_DIR}/crosscutting/vfmutextracker.cpp
  ${PROJECT_SOURCE_DIR}/crosscutting/vftimer.cpp)
set_target_properties(${vf_mutex_order_helper} PROPERTIES AUTOMOC OFF)
target_compile_definitions(${vf_mutex_order_helper} PRIVATE VF_MUTEX_STATIC_ORDER_HELPER VFCROSSCUTTING_STATIC_DEFINE)
target_include_directories(${vf_mutex_order_helper} PRIVATE
  ${PROJECT_SOURCE_DIR}/crosscutting ${PROJECT_BINARY_DIR}/crosscutting)
target_link_libraries(${vf_mutex_order_helper} PRIVATE Qt5::Core)

add_dependencies(${test_name} ${vf_mutex_order_helper})
target_compile_definitions(${test_name} PRIVATE
  VF_MUTEX_ORDER_HELPER="$<TARGET_FILE:${vf_mutex_order_helper}>")
