#!/usr/bin/env bash
# Builds the Debian package from a build tree and has lintian judge it: the test passes when
# lintian finds no error and no warning and the package holds the completion of varimo-updater.
# Usage: lintian.sh BUILD_DIR. Exit status 77 (skipped) without lintian.
set -euo pipefail
build=$1

if ! command -v lintian >/dev/null; then
    echo "SKIPPED: lintian is not installed (apt-get install lintian)"
    exit 77
fi

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
if ! cpack -G DEB --config "$build/CPackConfig.cmake" -B "$out" >"$out/cpack.log" 2>&1; then
    cat "$out/cpack.log"
    exit 1
fi
deb=("$out"/*.deb)
echo "${deb[0]##*/}"

# grep reads to the end (no -q): with pipefail an early exit would fail dpkg-deb on SIGPIPE.
completion=' \./usr/share/bash-completion/completions/varimo-updater$'
if ! dpkg-deb --contents "${deb[0]}" | grep "$completion" >/dev/null; then
    echo "the package holds no bash completion for varimo-updater"
    exit 1
fi
lintian --allow-root --fail-on error,warning "${deb[0]}"
