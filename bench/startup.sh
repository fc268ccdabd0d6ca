#!/usr/bin/env bash
# Time from starting the updater to its main window shown on an X display, and the memory of the
# GUI process once it is shown. Runs the release build under Xvfb; prints one line per figure.
# Usage: bench/startup.sh PATH/TO/VarimoSentry_Updater [RUNS]
set -euo pipefail
app="$1"
runs="${2:-5}"

measure() {
    local start end pid
    start=$(date +%s%N)
    QT_QPA_PLATFORM=xcb "$app" >/dev/null 2>&1 &
    pid=$!
    xdotool search --sync --onlyvisible --name "VARIMOsentry Firmware Updater" >/dev/null
    end=$(date +%s%N)
    sleep 0.5
    local rss hwm
    rss=$(awk '/VmRSS/ {print $2}' "/proc/$pid/status")
    hwm=$(awk '/VmHWM/ {print $2}' "/proc/$pid/status")
    kill "$pid"
    wait "$pid" 2>/dev/null || true
    echo "$(( (end - start) / 1000000 )) $rss $hwm"
}

export -f measure
export app
results=$(xvfb-run -a bash -c "for i in \$(seq $runs); do measure; done")
echo "$results" | sort -n | awk -v runs="$runs" '
    { ms[NR] = $1; rss[NR] = $2; hwm[NR] = $3 }
    END {
        printf "start to main window shown over %d runs: median %d ms, min %d ms, max %d ms\n",
               runs, ms[int((NR + 1) / 2)], ms[1], ms[NR]
        printf "GUI process memory once shown: RSS %.1f MiB, peak RSS %.1f MiB\n",
               rss[int((NR + 1) / 2)] / 1024, hwm[int((NR + 1) / 2)] / 1024
    }'
