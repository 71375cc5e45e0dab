#!/usr/bin/env bash
# The Android library archive's layout, assembled from host files standing in
# for the Android ones: check_android_archive.sh MAKE_AAR JAR LIBLARKSPIN LIBJNI
set -euo pipefail
make_aar="$1" jar="$2" lib="$3" jni="$4"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$make_aar" "$work/larkspin.aar" "$jar" --abi armeabi-v7a "$lib" "$jni" >/dev/null
expected="AndroidManifest.xml
R.txt
classes.jar
jni/armeabi-v7a/liblarkspin.so
jni/armeabi-v7a/liblarkspin_jni.so
proguard.txt"
actual="$(cd "$work" && jar tf larkspin.aar | grep -v '/$' | sort)"
[ "$actual" = "$expected" ] || { printf 'layout:\n%s\nexpected:\n%s\n' "$actual" "$expected"; exit 1; }
(cd "$work" && jar xf larkspin.aar classes.jar && jar tf classes.jar | grep -qx org/larkspin/Processor.class)

# Refused: an ABI without the glue; nothing is left behind.
if "$make_aar" "$work/bad.aar" "$jar" --abi armeabi-v7a "$lib" 2>/dev/null; then exit 1; fi
[ "$(ls -A "$work" | grep -v -x -e larkspin.aar -e classes.jar)" = "" ]
echo "android archive: layout as expected"
