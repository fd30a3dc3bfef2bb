# Runs this build's vf_check_status_catalogue on catalogues of its own.
add_dependencies(${test_name} vf_check_status_catalogue)
target_compile_definitions(${test_name} PRIVATE VF_CHECKER="$<TARGET_FILE:vf_check_status_catalogue>")
