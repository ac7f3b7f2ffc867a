# Compile rules shared by every target of the project.

add_library(zvr_compile_rules INTERFACE)
target_compile_features(zvr_compile_rules INTERFACE cxx_std_20)
target_compile_options(zvr_compile_rules INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wformat=2
  -Wno-format-nonliteral -Wno-format-zero-length -Wundef -Werror -fno-strict-aliasing
  # GCC 12 sees an overlap in every joining of two std::strings it inlines (its bug 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
if(ZVR_SANITIZE)
  target_compile_options(zvr_compile_rules INTERFACE
    -fsanitize=${ZVR_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zvr_compile_rules INTERFACE -fsanitize=${ZVR_SANITIZE})
endif()
# The libraries take no exceptions and no run-time types: a failure is a code.
add_library(zvr_library_rules INTERFACE)
target_link_libraries(zvr_library_rules INTERFACE zvr_compile_rules)
target_compile_options(zvr_library_rules INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions> $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>)
if(ZVR_FUZZ)
  # The coverage that steers libFuzzer: that of the libraries, not of what drives them.
  target_compile_options(zvr_library_rules INTERFACE -fsanitize=fuzzer-no-link)
endif()
target_include_directories(zvr_library_rules INTERFACE
  ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)

# zvr_floor(NAME SOURCES ... USES ...): one folder of the library as a static
# part, which may use only the parts named in USES (all on lower floors).
function(zvr_floor name)
  cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE zvr_library_rules PUBLIC ${arg_USES})
endfunction()

# zvr_test(NAME SOURCES ... USES ... [TIMEOUT s] [ENVIRONMENT NAME=VALUE]): one test program; each of its cases is a
# test of its own for ctest.
function(zvr_test name)
  cmake_parse_arguments(arg "" "TIMEOUT;ENVIRONMENT" "SOURCES;USES" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE
    ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE zvr_compile_rules ${arg_USES} GTest::gtest_main GTest::gmock)
  # The libraries under test are optimized to the full; the tests themselves need it not,
  # and GCC 12 takes joined std::strings for overflows when it inlines them.
  target_compile_options(${name} PRIVATE
    $<$<CONFIG:Release>:-O1> $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow;-Wno-array-bounds>)
  # Parsed once a program and not once a source: half of what building the tests takes.
  target_precompile_headers(${name} PRIVATE <gtest/gtest.h>)
  set(environment)
  if(arg_ENVIRONMENT)
    set(environment ENVIRONMENT ${arg_ENVIRONMENT})
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${arg_TIMEOUT} ${environment})
endfunction()

# zvr_planted_test(NAME TESTS PROGRAM SOURCES ... USES ...): the tests of a program once more,
# on libraries whose SOURCES are compiled with planted faults (src/engine/planted_fault.h).
# They take the place of the same sources in the libraries of USES.
function(zvr_planted_test name)
  cmake_parse_arguments(arg "" "TESTS" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${PROJECT_SOURCE_DIR}/tests/engine/planted_fault.cpp ${arg_SOURCES})
  target_sources(${name} PRIVATE $<TARGET_OBJECTS:${arg_TESTS}>)
  target_compile_definitions(${name} PRIVATE ZVR_PLANTED_FAULTS)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE zvr_compile_rules ${arg_USES} GTest::gtest_main GTest::gmock)
endfunction()

# The tests of a program once more, in one go, by the literal order of writes.
function(zvr_test_without_journals name)
  add_test(NAME WithoutJournals.${name} COMMAND ${name})
  set_tests_properties(WithoutJournals.${name} PROPERTIES ENVIRONMENT ZVR_JOURNAL=off TIMEOUT 300)
endfunction()
