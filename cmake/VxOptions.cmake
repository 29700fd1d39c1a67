# Warnings, sanitizers and the helper that every test folder uses.
add_compile_options(-Wall -Wextra -Wpedantic -Wno-unused-parameter)
if(VX_WERROR)
  add_compile_options(-Werror)
endif()

if(VX_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(VX_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT VX_SANITIZE STREQUAL "")
  message(FATAL_ERROR "VX_SANITIZE must be empty, 'address' or 'thread'")
endif()

# A build for the libFuzzer targets (clang): everything instrumented for
# coverage, AddressSanitizer and UndefinedBehaviorSanitizer.
if(VX_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT VX_SANITIZE STREQUAL "")
    message(FATAL_ERROR "VX_FUZZ needs clang (CMAKE_CXX_COMPILER=clang++) and no VX_SANITIZE")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# vx_add_test(NAME SOURCES... LIBS ...): one GoogleTest executable, each test
# case run by CTest in a process of its own.
function(vx_add_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;ENV" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock GTest::gtest_main Threads::Threads)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${T_TIMEOUT} ENVIRONMENT "${T_ENV}")
endfunction()
