#!/usr/bin/env bash
# The built bundle's Turtle validates against the LV2 schemas, lv2info lists
# both plugins with their ports, and an installed copy loads with its library
# found through the RPATH.
#   check_bundle.sh BUILD_DIR BUNDLE_DIR
set -euo pipefail
build="$1"
bundle="$2"

schemas=$(dpkg -L lv2-dev | grep -E '^/usr/lib/lv2/.*\.ttl$' | grep -v '/manifest.ttl$')
# shellcheck disable=SC2086
report=$(sord_validate $schemas "$bundle/manifest.ttl" "$bundle/larkspin.ttl" 2>&1)
grep -q "Found 0 errors" <<<"$report" || { echo "$report"; exit 1; }

# The mono plugin has mono ports only: no "_r" port, no "_l" suffix.
check_plugins() {
  for plugin in mono stereo; do
    info=$(LV2_PATH="$1" lv2info "urn:larkspin:lv2:$plugin")
    symbols="control intensity bypass latency b12_slow_time_constant_ms"
    if [ "$plugin" = mono ]; then
      symbols+=" b00_gain_db in out"
      ! grep -q "Symbol: .*_[lr]\$" <<<"$info" || { echo "mono: a port of one side"; exit 1; }
    else
      symbols+=" b00_gain_db_l b00_gain_db_r in_l out_l in_r out_r"
    fi
    for symbol in $symbols; do
      grep -q "Symbol: *$symbol\$" <<<"$info" || { echo "$plugin: no port $symbol in lv2info"; exit 1; }
    done
    grep -q "Has latency: *yes, reported by port 3" <<<"$info" || { echo "$plugin: latency port"; exit 1; }
  done
}
check_plugins "$(dirname "$bundle")"

prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
installed=$(find "$prefix" -type d -name larkspin.lv2)
check_plugins "$(dirname "$installed")"
# The installed plugin must run with only the installed library.
LV2_PATH="$(dirname "$installed")" LD_LIBRARY_PATH= lv2bench -b 512 -n 4096 urn:larkspin:lv2:stereo | grep -q "urn:larkspin:lv2:stereo"
