# vf_add_status_catalogue(TARGET <target> CATALOGUE <name>statuscodes.json
#                         ENUM_HEADER <header.h> ENUM <Owner>::<Enum> [WITHOUT_RECORD <enumerator>...])
#
# Compiles an application's status catalogue into <target> as the Qt resource
# ":/configuration/<file name of CATALOGUE>", for VfStatusReporter::loadApplicationStatusCodes, after
# vf_check_status_catalogue has checked it against the enumeration <Enum> of <Owner> in ENUM_HEADER.
# A disagreement fails the build with the file, the record and the reason. WITHOUT_RECORD names
# enumerators that need no record, such as a sentinel. Relative paths are from the calling directory.
# The resource registers itself when <target> is loaded: a static library's user must call
# Q_INIT_RESOURCE(<target>_<file name without extension>), made a C identifier.

function(vf_add_status_catalogue)
  cmake_parse_arguments(VF "" "TARGET;CATALOGUE;ENUM_HEADER;ENUM" "WITHOUT_RECORD" ${ARGN})
  foreach(argument TARGET CATALOGUE ENUM_HEADER ENUM)
    if(NOT VF_${argument})
      message(FATAL_ERROR "vf_add_status_catalogue: ${argument} is missing")
    endif()
  endforeach()
  if(TARGET VfCrosscutting::vf_check_status_catalogue)
    set(checker VfCrosscutting::vf_check_status_catalogue)
  elseif(TARGET vf_check_status_catalogue)
    set(checker vf_check_status_catalogue)
  else()
    message(FATAL_ERROR "vf_add_status_catalogue: vf_check_status_catalogue is not known; find_package(VfCrosscutting) first")
  endif()

  get_filename_component(catalogue "${VF_CATALOGUE}" ABSOLUTE)
  get_filename_component(header "${VF_ENUM_HEADER}" ABSOLUTE)
  get_filename_component(name "${catalogue}" NAME)
  get_filename_component(base "${catalogue}" NAME_WE)
  string(MAKE_C_IDENTIFIER "${VF_TARGET}_${base}" resource)
  set(dir "${CMAKE_CURRENT_BINARY_DIR}/vf_status_catalogues/${resource}")
  set(without)
  foreach(enumerator IN LISTS VF_WITHOUT_RECORD)
    list(APPEND without --without-record ${enumerator})
  endforeach()

  # The resource is made from the checked copy, so nothing unchecked is ever built in.
  add_custom_command(OUTPUT "${dir}/${name}"
    COMMAND ${checker} ${without} --output "${dir}/${name}" "${catalogue}" "${header}" "${VF_ENUM}"
    DEPENDS "${catalogue}" "${header}" "$<TARGET_FILE:${checker}>"
    COMMENT "Checking ${name} against ${VF_ENUM}"
    VERBATIM)
  file(GENERATE OUTPUT "${dir}/${resource}.qrc" CONTENT
    "<!DOCTYPE RCC>\n<RCC version=\"1.0\">\n  <qresource prefix=\"/configuration\">\n    <file>${name}</file>\n  </qresource>\n</RCC>\n")
  add_custom_command(OUTPUT "${dir}/qrc_${resource}.cpp"
    COMMAND Qt5::rcc --name ${resource} --output "${dir}/qrc_${resource}.cpp" "${dir}/${resource}.qrc"
    DEPENDS "${dir}/${resource}.qrc" "${dir}/${name}"
    COMMENT "Compiling ${name} into ${VF_TARGET}"
    VERBATIM)
  set_source_files_properties("${dir}/qrc_${resource}.cpp" PROPERTIES GENERATED ON SKIP_AUTOGEN ON)
  target_sources(${VF_TARGET} PRIVATE "${dir}/qrc_${resource}.cpp")
endfunction()
