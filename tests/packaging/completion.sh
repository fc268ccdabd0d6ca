#!/usr/bin/env bash
# The bash completion of varimo-updater: what a TAB offers after a few command lines.
# Usage: completion.sh COMPLETION_SCRIPT. Exit status 77 (skipped) without bash-completion.
set -euo pipefail
script=$(realpath "$1")
helpers=/usr/share/bash-completion/bash_completion

if [ ! -f "$helpers" ]; then
    echo "SKIPPED: bash-completion is not installed (apt-get install bash-completion)"
    exit 77
fi
# bash-completion's own functions are not written for set -u.
set +u
source "$helpers"
source "$script"
complete -p varimo-updater

# A folder with two files and a folder, for the file and folder arguments.
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
touch a.xml b.hex
mkdir sub

failed=0
# check LINE EXPECTED: the words offered for the last word of LINE (sorted, space-separated).
check()
{
    local line=$1 expected=$2 got
    read -ra COMP_WORDS <<<"$line"
    if [[ $line == *' ' ]]; then
        COMP_WORDS+=('')
    fi
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMP_LINE=$line
    COMP_POINT=${#line}
    COMPREPLY=()
    _varimo_updater varimo-updater "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" || true
    got=$(printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd ' ')
    if [ "$got" != "$expected" ]; then
        echo "'$line<TAB>': expected '$expected', got '$got'"
        failed=1
    fi
}

check 'varimo-updater ' 'backup diff flash identify ports restore update'
check 'varimo-updater fl' 'flash'
check 'varimo-updater --port /dev/ttyS0 flash ' 'cpu main meas'
check 'varimo-updater --dir sub --port /dev/ttyS0 flash m' 'main meas'
check 'varimo-updater --port /dev/ttyS0 flash cpu ' 'a.xml b.hex sub'
check 'varimo-updater --port /dev/ttyS0 flash cpu a.xml ' ''
check 'varimo-updater diff a.xml ' 'a.xml b.hex sub'
check 'varimo-updater --dir ' 'sub'
check 'varimo-updater --port /dev/nonexistent' ''
check 'varimo-updater --port /dev/ttyS0 update --al' '--allow-downgrade'
exit "$failed"
