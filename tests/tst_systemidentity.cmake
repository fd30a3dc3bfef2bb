# The identity store runs against the tests' second libmodel.so.1 (tests/vfmodelvariant.cmake),
# found through LD_LIBRARY_PATH: it adds "UNCREATABLE", a known model whose class cannot be
# instantiated, for the MetaObjectInstantiationError rows of Part 9.1.
include(${CMAKE_CURRENT_SOURCE_DIR}/vfmodelvariant.cmake)
add_dependencies(${test_name} vfmodelvariant)
set_tests_properties(${test_name} PROPERTIES ENVIRONMENT "LD_LIBRARY_PATH=$<TARGET_FILE_DIR:vfmodelvariant>")
target_compile_definitions(${test_name} PRIVATE VF_MODEL_VARIANT_FILE="$<TARGET_FILE:vfmodelvariant>")
