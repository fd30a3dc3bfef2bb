# A second libmodel.so.1, built from the stand-in's sources with VF_MODEL_TEST_VARIANT: besides
# "DEFAULTMODEL", "SPA" and "VNA" it knows "ALT" and "UNCREATABLE" (a known model whose class has
# no invokable constructor). It lies in a directory of its own, so a program finds it only when
# LD_LIBRARY_PATH points there: the loader's way of swapping libmodel.so.1 without a rebuild.
# Included by tst_modelstandin.cmake and tst_systemidentity.cmake.
if(NOT TARGET vfmodelvariant)
  add_library(vfmodelvariant SHARED
    ${PROJECT_SOURCE_DIR}/model/modelutilities.cpp ${PROJECT_SOURCE_DIR}/model/modelutilities.h
    ${PROJECT_SOURCE_DIR}/model/standinmodels.cpp ${PROJECT_SOURCE_DIR}/model/standinmodels.h)
  set_target_properties(vfmodelvariant PROPERTIES
    OUTPUT_NAME model
    VERSION 1.0.0
    SOVERSION 1
    AUTOMOC ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/modelvariant)
  target_compile_definitions(vfmodelvariant PRIVATE VF_MODEL_LIBRARY VF_MODEL_TEST_VARIANT)
  target_include_directories(vfmodelvariant PRIVATE ${PROJECT_SOURCE_DIR}/model)
  target_link_libraries(vfmodelvariant PRIVATE Qt5::Core)
endif()
