#!/usr/bin/env bash
# Whether maint_kernel_test fails for whatever the programs in their own kernel say that they have not tested.
set -uo pipefail
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# _inOwnKernel: what is printed there is standard input; runs the one test of a project that is made of it.
_inOwnKernel() {
   {
      echo "cat << 'SAID'"
      cat
      echo SAID
   } | file Tests/Linux/OwnKernel.sh
   file CMakeLists.txt << CMAKE
cmake_minimum_required( VERSION 3.25 )
project( Example CXX )
set( BUILD_TESTING ON )
enable_testing()
include( "$tools/../CMake/Maint.cmake" )
maint_kernel_test( Example SOURCES Example.cpp )
CMAKE
   file Example.cpp <<< 'int main() {}'
   run cmake -S . -B build
   passes
   run ctest --test-dir build
}

passesWhereAllIsTested() {
   _inOwnKernel <<< '[       OK ] LinuxNews.linksAreTold (5 ms)'
   passes
   says ' 0 tests failed out of 1'
}
failsWhereATestSkipsItself() {
   _inOwnKernel <<< '[  SKIPPED ] LinuxNews.linksAreTold (5 ms)'
   says '1 tests failed out of 1'
}
failsWhereARowIsNotTested() {
   _inOwnKernel <<< 'this kernel has no links of type team; not tested'
   says '1 tests failed out of 1'
}

runTest "$@"
