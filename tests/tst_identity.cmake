# A second libmodel.so.1, built from the stand-in's sources with VF_MODEL_TEST_VARIANT, adds "ALT"
# and "UNCREATABLE" (a known model whose class cannot be instantiated). It lies in a directory of
# its own, and the test finds it through LD_LIBRARY_PATH: the loader swaps the library, no rebuild.
add_library(vfmodelvariant SHARED ${PROJECT_SOURCE_DIR}/model/modelutilities.cpp ${PROJECT_SOURCE_DIR}/model/standinmodels.cpp)
set_target_properties(vfmodelvariant PROPERTIES OUTPUT_NAME model VERSION 1.0.0 SOVERSION 1 AUTOMOC ON
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/modelvariant)
target_compile_definitions(vfmodelvariant PRIVATE VF_MODEL_LIBRARY VF_MODEL_TEST_VARIANT)
target_include_directories(vfmodelvariant PRIVATE ${PROJECT_SOURCE_DIR}/model)
target_link_libraries(vfmodelvariant PRIVATE Qt5::Core)
add_dependencies(${test_name} vfmodelvariant)
set_tests_properties(${test_name} PROPERTIES ENVIRONMENT "LD_LIBRARY_PATH=$<TARGET_FILE_DIR:vfmodelvariant>")
