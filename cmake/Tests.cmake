# How test programs are built and run: head_add_test().

option(HEAD_TEST_UNITY "Compile several test files at once: quicker in all, slower after a change of one" OFF)
set(HEAD_TEST_UNITY_FILES 16 CACHE STRING "Test files that are compiled at once")

find_package(GTest REQUIRED)
find_package(Python3 REQUIRED COMPONENTS Interpreter)

# Programs of the target are started by an emulator: `${HEAD_EMULATOR}PROGRAM` is a command. What it
# cannot do is left out, and listed with its reason.
set(HEAD_EMULATOR "")
set(HEAD_LEFT_OUT "")
if(CMAKE_CROSSCOMPILING)
  string(JOIN " " HEAD_EMULATOR ${CMAKE_CROSSCOMPILING_EMULATOR} "")
  set(HEAD_LEFT_OUT --leave-out ${CMAKE_SOURCE_DIR}/tests/not-emulated.txt)
endif()

# Seconds after which a test has hung. Only a hang takes so long: the longest test takes two minutes on an idle
# machine, and machines are slow, busy or emulated.
set(HEAD_HANG 1800)
# A process runs many tests, each of which may take that long.
math(EXPR HEAD_HANG_ALL "8 * ${HEAD_HANG}")

# Flags of what is tested, not of tests. Tests run once for every time they are compiled: what is tested is
# optimized, they are not; and nobody steps through them in these builds (preset "debug" is for that).
add_library(head_test_options INTERFACE)
target_link_libraries(head_test_options INTERFACE head_options GTest::gmock)
target_link_options(head_test_options INTERFACE ${HEAD_QUICK_LINK})
if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
  target_compile_options(head_test_options INTERFACE -O0 -g0 -U_FORTIFY_SOURCE)
elseif(HEAD_SANITIZE)
  target_compile_options(head_test_options INTERFACE -O0)
endif()

if(HEAD_TEST_UNITY)
  # What stands in an unnamed namespace of an included file may be in several programs' files, in general: not here.
  target_compile_options(head_test_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()

# GoogleTest's headers are most of what a test file costs: read once for all of them. Each build has one set of
# flags for tests, so it takes one such file.
file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/head_test_headers.cpp CONTENT "")
add_library(head_test_headers OBJECT ${CMAKE_BINARY_DIR}/head_test_headers.cpp)
target_link_libraries(head_test_headers PRIVATE head_test_options)
# As the programs are compiled, or the compiler refuses the header.
set_target_properties(head_test_headers PROPERTIES POSITION_INDEPENDENT_CODE OFF)
target_compile_options(head_test_headers PRIVATE -fPIE)
target_precompile_headers(head_test_headers PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/headers.h)

# What is compiled with that header is compiled by Clang, in GCC's build for this machine too. Not for the target: there
# GCC passes an empty argument in a register and Clang does not, so that neither calls what the other compiled.
set(HEAD_TEST_COMPILER "")
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND NOT CMAKE_CROSSCOMPILING AND NOT CMAKE_BUILD_TYPE STREQUAL Debug)
  find_program(HEAD_CLANG clang++ REQUIRED) # what that script starts
  set(HEAD_TEST_COMPILER ${CMAKE_SOURCE_DIR}/scripts/test-compiler.sh)
endif()
set_target_properties(head_test_headers PROPERTIES CXX_COMPILER_LAUNCHER "${HEAD_TEST_COMPILER}")

# Files with `TEST` are compiled with that header, several at once with HEAD_TEST_UNITY: two of one program may
# then not have helpers of the same name. What else belongs to a program stands before functions of
# the C library, or is the product's, and is compiled as it is; so is a file with flags of its own.
function(head_speed_up name)
  get_target_property(sources ${name} SOURCES)
  foreach(source ${sources})
    get_source_file_property(options ${source} COMPILE_OPTIONS)
    if(options OR NOT source MATCHES "_test\\.cpp$")
      set_source_files_properties(${source} PROPERTIES SKIP_PRECOMPILE_HEADERS ON
                                                       SKIP_UNITY_BUILD_INCLUSION ON)
    endif()
  endforeach()
  target_precompile_headers(${name} REUSE_FROM head_test_headers)
  set_target_properties(
    ${name} PROPERTIES CXX_COMPILER_LAUNCHER "${HEAD_TEST_COMPILER}" UNITY_BUILD ${HEAD_TEST_UNITY}
                       UNITY_BUILD_BATCH_SIZE ${HEAD_TEST_UNITY_FILES})
endfunction()

# head_add_test(NAME SOURCES ... LIBRARIES ... [SHARDS n] [COST n]): one GoogleTest program. CTest runs it as
# NAME.1 to NAME.n, each a process with its share of the tests; scripts/run_tests.py tells what became of every
# test. COST: CPU seconds of all, about, so that long ones begin first. Tests that need the virtual head link `virtual_head`, which then
# answers the device files of the test's own process.
function(head_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "SHARDS;COST" "SOURCES;LIBRARIES")
  if(NOT arg_SHARDS)
    set(arg_SHARDS 1)
  endif()
  if(NOT arg_COST)
    set(arg_COST 1)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE head_test_options ${arg_LIBRARIES} GTest::gmock_main)
  cmake_language(EVAL CODE "cmake_language(DEFER CALL head_speed_up [[${name}]])")
  math(EXPR cost "${arg_COST} / ${arg_SHARDS}")
  foreach(shard RANGE 1 ${arg_SHARDS})
    add_test(
      NAME ${name}.${shard}
      COMMAND
        ${Python3_EXECUTABLE} -B ${CMAKE_SOURCE_DIR}/scripts/run_tests.py --name ${name} --shard
        ${shard}/${arg_SHARDS} --hang ${HEAD_HANG} --results
        ${CMAKE_BINARY_DIR}/results/${name}.${shard}.xml ${HEAD_LEFT_OUT} --
        ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>)
    set_tests_properties(${name}.${shard} PROPERTIES TIMEOUT ${HEAD_HANG_ALL} COST ${cost})
  endforeach()
endfunction()
