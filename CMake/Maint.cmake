# How every folder is built: one object library a folder, warnings are errors, tests beside what they test.
#
#   maint_folder( NAME SOURCES a.cpp b.cpp [LINK lib ...] )   object library NAME of a folder outside Platform
#   maint_platform_folder( NAME SOURCES a.cpp ... )           the same, gathered into the shared library maintplatform
#   maint_test( NAME SOURCES aTest.cpp ... [LINK lib ...] [LONG] )   test program; each TEST() is one ctest test;
#                                        LONG leaves them to `make test-full`
#   maint_kernel_test( NAME SOURCES aTest.cpp ... [LINK lib ...] [LONG] )   test program that runs as one ctest test,
#                                        OnOwnKernel.NAME, in a kernel with bonding, teams, VLANs and filtering bridges
#                                        (Tests/Linux/OwnKernel.sh); a test in it that skips itself or says that
#                                        something is "not tested" fails there
# Release builds hold no tests (BUILD_TESTING is off there) but, with MAINT_KERNEL_TESTS, the programs that tests run in
# a kernel of their own. Programs with the address sanitizer do not run there: their shadow memory takes more than all
# that such a kernel can map. So a build with sanitizers takes all programs that run there from the release build.

set( CMAKE_CXX_STANDARD 20 )
set( CMAKE_CXX_STANDARD_REQUIRED ON )
set( CMAKE_CXX_EXTENSIONS OFF )
set( CMAKE_POSITION_INDEPENDENT_CODE ON )
include( GNUInstallDirs )
# Programs are installed in bin and find the platform in the folder of our own libraries.
set( MAINT_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR}/maintd )
set( CMAKE_INSTALL_RPATH "$ORIGIN/../${MAINT_INSTALL_LIBDIR}" )
set( CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib )
set( CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin )

find_program( CCACHE ccache )
if( CCACHE )
  set( CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE} )
elseif( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
  # Where everything is compiled anew each time: g++ does not look for memory that it could use again before it has taken
  # half a gigabyte, which most sources never do. What it makes is the same.
  add_compile_options( --param=ggc-min-heapsize=524288 )
endif()

if( BUILD_TESTING OR MAINT_KERNEL_TESTS )
  find_package( GTest REQUIRED )
  include( GoogleTest )
endif()

add_library( maint_options INTERFACE )
target_include_directories( maint_options INTERFACE ${PROJECT_SOURCE_DIR} )
# An entity points to frames on the stack while a walk or a delivery goes on, and their destructors take them out again;
# g++ 12 sees only the storing and calls it a dangling pointer.
# With optimisation it also takes members of a std::variant that is another type for uninitialised.
# gnu-unique symbols would pin a plug-in in memory for ever; unloading must really unload.
# The compiler of the build is g++; clang++ builds only what is fuzzed, which g++ has warned of already.
if( MAINT_FUZZ )
  target_compile_options( maint_options INTERFACE -w )
else()
  target_compile_options( maint_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow=local -Wnon-virtual-dtor -Wextra-semi -Wno-dangling-pointer -Wno-maybe-uninitialized -fno-gnu-unique )
endif()
# What is installed has the right to administer the network: nothing in it can be redirected once it runs, and what runs
# over a buffer or the stack ends it (checks of buffers need the optimisation that this kind of build has). It names its
# sources from the root of the tree, wherever that was when it was built.
if( CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" )
  include( CheckCXXCompilerFlag )
  include( CheckPIESupported )
  check_pie_supported( LANGUAGES CXX )
  add_compile_options( -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 )
  add_link_options( -Wl,-z,relro,-z,now )
  # A good part of compiling with optimisation is to tell where each variable is at each step. The code is the same.
  if( MAINT_LINES_ONLY )
    add_compile_options( -g1 )
  endif()
  # Where the processor watches where jumps may lead.
  check_cxx_compiler_flag( -fcf-protection=full MAINT_HAS_CF_PROTECTION )
  if( MAINT_HAS_CF_PROTECTION )
    add_compile_options( -fcf-protection=full )
  endif()
endif()
if( MAINT_COVERAGE )
  target_compile_options( maint_options INTERFACE -O0 --coverage )
  target_link_options( maint_options INTERFACE --coverage )
endif()
# Without three checks, which would be before each access and double what is compiled and linked: the address sanitizer
# tells of null pointers, the size of an object is not known without optimisation, and what reads bytes from outside at
# any address is fuzzed with all checks.
if( MAINT_SANITIZE )
  target_compile_options( maint_options INTERFACE
    -O0 -g1 -fno-omit-frame-pointer -fsanitize=address,undefined -fno-sanitize=null,alignment,object-size
    -fno-sanitize-recover=all )
  target_link_options( maint_options INTERFACE -fsanitize=address,undefined )
endif()

if( MAINT_FUZZ )
  target_compile_options( maint_options INTERFACE
    -O1 -gline-tables-only -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all )
  target_link_options( maint_options INTERFACE -fsanitize=address,undefined )
endif()

function( maint_folder name )
  cmake_parse_arguments( arg "" "" "SOURCES;LINK" ${ARGN} )
  add_library( ${name} OBJECT ${arg_SOURCES} )
  target_link_libraries( ${name} PUBLIC maint_options ${arg_LINK} )
endfunction()

function( maint_platform_folder name )
  maint_folder( ${name} ${ARGN} )
  target_sources( maintplatform PRIVATE $<TARGET_OBJECTS:${name}> )
endfunction()

function( maint_test name )
  if( NOT BUILD_TESTING )
    return()
  endif()
  cmake_parse_arguments( arg "LONG" "" "SOURCES;LINK" ${ARGN} )
  add_executable( ${name} ${arg_SOURCES} )
  target_link_libraries( ${name} PRIVATE maint_options ${arg_LINK} GTest::gtest GTest::gtest_main )
  if( arg_LONG )
    set( properties PROPERTIES LABELS long )
  endif()
  gtest_discover_tests( ${name} TEST_PREFIX ${name}. DISCOVERY_TIMEOUT 60 ${properties} )
endfunction()

set( MAINT_KERNEL_BUILD ${CMAKE_BINARY_DIR} )
if( MAINT_SANITIZE )
  set( MAINT_KERNEL_BUILD ${PROJECT_SOURCE_DIR}/build/release )
endif()

function( maint_kernel_test name )
  cmake_parse_arguments( arg "LONG" "" "SOURCES;LINK" ${ARGN} )
  if( NOT MAINT_SANITIZE AND ( BUILD_TESTING OR MAINT_KERNEL_TESTS ) )
    add_executable( ${name} ${arg_SOURCES} )
    target_link_libraries( ${name} PRIVATE maint_options ${arg_LINK} GTest::gtest GTest::gtest_main )
  endif()
  if( BUILD_TESTING )
    set( limit 580 ) # many times what it takes
    if( arg_LONG )
      set( limit 1200 )
    endif()
    math( EXPR timeout "${limit} + 30" )
    add_test( NAME OnOwnKernel.${name} COMMAND
      bash ${PROJECT_SOURCE_DIR}/Tests/Linux/OwnKernel.sh --limit ${limit} ${MAINT_KERNEL_BUILD}/bin/${name} )
    set_tests_properties( OnOwnKernel.${name} PROPERTIES
      SKIP_RETURN_CODE 77 TIMEOUT ${timeout} COST 1000 FAIL_REGULAR_EXPRESSION "\\[  SKIPPED \\];not tested" )
    if( arg_LONG )
      set_tests_properties( OnOwnKernel.${name} PROPERTIES LABELS long )
    endif()
  endif()
endfunction()
