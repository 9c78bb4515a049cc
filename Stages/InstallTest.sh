#!/bin/bash
# InstallTest.sh BUILD-FOLDER: whether the stage commands run where they are installed.
set -euo pipefail
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake -D CMAKE_INSTALL_PREFIX="$prefix" -P "$1/Stages/cmake_install.cmake"
for command in frr-graceful-shutdown kernel-routes wait; do
   "$prefix/lib/maintd/stages/$command" --help | grep '{enter,exit}'
done
[ -z "$(find "$prefix" -name '*Test*' -o -name '*rig*')" ]
