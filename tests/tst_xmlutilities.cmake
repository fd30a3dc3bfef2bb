# dladdr finds the loaded library, whose string data the test searches for the report texts.
target_link_libraries(${test_name} PRIVATE ${CMAKE_DL_LIBS})
