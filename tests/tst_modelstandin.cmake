# The stand-in libmodel.so.1: its ABI, its file and SONAME, the RUNPATH of what links it, and a
# child program (tests/helpers/modelstandinchild.cpp) that gets the tests' second libmodel.so.1
# through LD_LIBRARY_PATH without being rebuilt.
include(${CMAKE_CURRENT_SOURCE_DIR}/vfmodelvariant.cmake)
add_executable(modelstandinchild ${CMAKE_CURRENT_SOURCE_DIR}/helpers/modelstandinchild.cpp)
target_link_libraries(modelstandinchild PRIVATE VfCrosscutting ${CMAKE_DL_LIBS})
add_dependencies(${test_name} vfmodelvariant modelstandinchild)
if(VF_BUILD_MODEL_STANDIN)
  set(vf_model_standin 1)
else()
  set(vf_model_standin 0)
endif()
target_compile_definitions(${test_name} PRIVATE
  VF_MODEL_STANDIN=${vf_model_standin}
  VF_MODEL_CHILD="$<TARGET_FILE:modelstandinchild>"
  VF_MODEL_LIBRARY_FILE="$<TARGET_FILE:VfModel>"
  VF_MODEL_VARIANT_FILE="$<TARGET_FILE:vfmodelvariant>"
  VF_CROSSCUTTING_LIBRARY_FILE="$<TARGET_FILE:VfCrosscutting>")
