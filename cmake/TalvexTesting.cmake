include(GoogleTest)

# talvex_add_test(<name> SOURCES <files...> [LIBRARIES <targets...>])
# One GoogleTest executable linked with the library and the host stand-ins (harness/); each test
# case becomes one ctest test.
function(talvex_add_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE talvex_harness Talvex::talvex GTest::gmock
                                          GTest::gtest_main ${ARG_LIBRARIES})
    # Exported so that the interposed trace entry points win over libcutils' own.
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
    talvex_set_warnings(${name})
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST)
endfunction()
