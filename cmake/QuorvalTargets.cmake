# Flags every Quorval target shares: warnings, and the sanitizers of the chosen build.
add_library(quorval_warnings INTERFACE)
target_compile_options(quorval_warnings INTERFACE -Wall -Wextra -Wpedantic)
if(QUORVAL_WERROR)
    target_compile_options(quorval_warnings INTERFACE -Werror)
endif()
if(QUORVAL_SANITIZE)
    target_compile_options(quorval_warnings INTERFACE
        -fsanitize=${QUORVAL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(quorval_warnings INTERFACE -fsanitize=${QUORVAL_SANITIZE})
    if(QUORVAL_SANITIZE MATCHES "thread")
        target_sources(quorval_warnings INTERFACE
            "${CMAKE_CURRENT_LIST_DIR}/ThreadSanitizerOptions.cpp")
    endif()
endif()

# quorval_library(name SOURCES ... LINKS ...): the static library of one folder.
function(quorval_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}/..")
    target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE quorval_warnings)
endfunction()

# quorval_test(name SOURCES ... LINKS ... [PROPERTIES ...]): a GoogleTest executable run by CTest.
function(quorval_test name)
    if(NOT QUORVAL_TESTS)
        return()
    endif()
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS;PROPERTIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINKS} GTest::gtest GTest::gtest_main quorval_warnings)
    if(QUORVAL_SANITIZE MATCHES "thread")
        # A test main over the streams restarts itself with these suppressions.
        target_compile_definitions(${name} PRIVATE
            QUORVAL_TSAN_SUPPRESSIONS="${PROJECT_SOURCE_DIR}/streams/tests/tsan.supp")
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
        PROPERTIES ${ARG_PROPERTIES})
endfunction()

# quorval_qt_test(name SOURCES ... LINKS ...): like quorval_test, but with the test main of
# options/ (options_testmain) that makes a QCoreApplication and points the per-user store at a
# temporary directory.
function(quorval_qt_test name)
    if(NOT QUORVAL_TESTS)
        return()
    endif()
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINKS} options_testmain GTest::gtest
        quorval_warnings)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
endfunction()

# quorval_benchmark(name SOURCES ... LINKS ...): a Google Benchmark executable.
function(quorval_benchmark name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINKS} benchmark::benchmark quorval_warnings)
endfunction()
