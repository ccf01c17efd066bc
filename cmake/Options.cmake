# What every target of this project is compiled with.

option(USE_BUNDLED_PLATFORM "Build this repository's host and board-support libraries" ON)
set(HEAD_SANITIZE "" CACHE STRING "Sanitizers for -fsanitize=, or empty")

# Makes API pages, where it is there (cmake/ApiPages.cmake).
find_program(HEAD_DOXYGEN doxygen)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON) # the same bytes wherever it is built

add_library(head_options INTERFACE)
target_compile_options(
  head_options
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wsign-conversion
            -Wold-style-cast
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wformat=2
            -Wundef
            -Werror
            # Exposure and readout times are the same to the bit on every target only when no
            # multiplication is fused into an addition.
            -ffp-contract=off
            # Names the sources as the repository does, wherever it is checked out and built.
            -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=
            -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
target_include_directories(head_options INTERFACE ${CMAKE_SOURCE_DIR})

# GCC looks for what it need not keep any more after each 30 % that its memory grows: a tenth of the time of a
# file that is no larger than a gigabyte in it.
add_compile_options("$<$<CXX_COMPILER_ID:GNU>:SHELL:--param ggc-min-expand=100 --param ggc-min-heapsize=1048576>")

# What does not ship is linked in a quarter of the time; what ships keeps the linker of its compiler. The cross
# compiler knows only its own.
set(HEAD_QUICK_LINK "")
find_program(HEAD_LLD ld.lld)
if(HEAD_LLD AND NOT CMAKE_CROSSCOMPILING)
  set(HEAD_QUICK_LINK -fuse-ld=lld)
endif()

if(HEAD_SANITIZE)
  add_compile_options(-fsanitize=${HEAD_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${HEAD_SANITIZE} ${HEAD_QUICK_LINK})
  # GCC takes members of the standard library for uninitialized once they are instrumented.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  if(HEAD_SANITIZE MATCHES undefined)
    add_compile_options(-fsanitize=float-cast-overflow)
  endif()
  if(HEAD_SANITIZE STREQUAL thread AND CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    # Tests bring an `operator new` of their own, and Clang links another before it, unless the runtime is named.
    execute_process(
      COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.tsan-${CMAKE_SYSTEM_PROCESSOR}.a
      OUTPUT_VARIABLE tsan
      OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    add_link_options(
      -fno-sanitize=thread
      "$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-Wl,--whole-archive,${tsan},--no-whole-archive,--dynamic-list=${tsan}.syms>"
    )
    # Tests stand before functions of a library, and meet its own calls as well.
    add_compile_options(-fsemantic-interposition)
  endif()
  # For tests: how a process dies, and how long it takes, differs.
  foreach(sanitizer address thread)
    if(HEAD_SANITIZE MATCHES ${sanitizer})
      string(TOUPPER HEAD_${sanitizer}_SANITIZER definition)
      add_compile_definitions(${definition})
    endif()
  endforeach()
else()
  add_compile_options($<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2> -fstack-protector-strong)
  add_link_options(-Wl,-z,relro,-z,now)
endif()

# A library that names what nothing defines does not link. Clang's sanitizers are in programs alone: an instrumented
# library leaves their names open.
set(HEAD_NO_UNDEFINED "")
if(NOT HEAD_SANITIZE OR NOT CMAKE_CXX_COMPILER_ID STREQUAL Clang)
  set(HEAD_NO_UNDEFINED -Wl,--no-undefined)
endif()

# In the virtual head, programs and tests, which no camera stack loads, line numbers are enough: the rest of the debug
# information is a third of a compiler's work. The preset "debug" has all.
set(HEAD_TOOL_OPTIONS "")
if(CMAKE_CXX_FLAGS_RELWITHDEBINFO MATCHES "-g( |$)")
  set(HEAD_TOOL_OPTIONS $<$<CONFIG:RelWithDebInfo>:-g1>)
endif()

set(HEAD_UNITY OFF CACHE STRING "Compile several files at once: OFF, TOOLS (virtual head, programs) or ON")
set(HEAD_UNITY_FILES 32 CACHE STRING "Files that are compiled at once")

# head_unity(NAME [PRODUCT] [SINGLE ...]): compiles several sources of a library or program at once, with HEAD_UNITY. Most of
# what a source costs are its headers. SINGLE: what is compiled by itself; what has flags of its own is, too. The
# compiler names a source that cannot do without: its helpers have the names of another's. PRODUCT: what camera stacks
# load, which is compiled as anybody would, file by file, wherever it may ship.
function(head_unity name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "PRODUCT" "" "SINGLE")
  if(NOT HEAD_UNITY OR (arg_PRODUCT AND HEAD_UNITY STREQUAL TOOLS))
    return()
  endif()
  get_target_property(sources ${name} SOURCES)
  foreach(source ${arg_SINGLE})
    if(NOT source IN_LIST sources)
      message(FATAL_ERROR "head_unity: ${source} is no source of ${name}; it was renamed or removed: name what is there")
    endif()
  endforeach()
  list(REMOVE_ITEM sources ${arg_SINGLE} "")
  list(LENGTH sources count)
  math(EXPR groups "(${count} + ${HEAD_UNITY_FILES} - 1) / ${HEAD_UNITY_FILES}")
  # Dealt out like cards: sources that do alike things stand side by side in a list, and have helpers of the same
  # name in their unnamed namespaces.
  set(group 0)
  foreach(source ${sources})
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${group})
    math(EXPR group "(${group} + 1) % ${groups}")
  endforeach()
  set_source_files_properties(${arg_SINGLE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  # What stands in an unnamed namespace of an included file may be in several files, in general: not here.
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endfunction()
