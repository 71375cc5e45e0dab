#!/usr/bin/env bash
# Installs the library from BUILD_DIR into a temporary prefix, then builds
# and runs a C host program against it, through the CMake package and
# through pkg-config.
#   run.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build="$1"
here="$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$here" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib64:${LD_LIBRARY_PATH:-}" "$work/build/consumer"

libdir="$(dirname "$(find "$work/prefix" -name larkspin.pc | head -n 1)")"
PKG_CONFIG_PATH="$libdir" cc -std=c99 "$here/main.c" -o "$work/consumer-pc" \
  $(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs larkspin) -lm
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib64:${LD_LIBRARY_PATH:-}" "$work/consumer-pc"
