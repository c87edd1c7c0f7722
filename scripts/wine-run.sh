#!/bin/sh
# CMake's cross-compiling emulator: runs one Windows program of the build under Wine, in the
# build folder's prefix. Usage: wine-run.sh BUILD_DIR program.exe [arguments...]
set -eu
BUILD_DIR=$1
shift
. "$(dirname "$0")/wine-env.sh"
exec wine "$@"
