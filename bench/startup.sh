#!/usr/bin/env bash
# Time from starting the updater to its main window shown on an X display, and the memory of the
# GUI process once it is shown. Runs the given build under Xvfb; prints one line per figure.
# Usage: bench/startup.sh PATH/TO/VarimoSentry_Updater [RUNS]
set -euo pipefail
app="$1"
runs="${2:-5}"

if [ "${3:-}" != "--on-display" ]; then
    results=$(xvfb-run -a "$0" "$app" "$runs" --on-display)
    echo "$results" | sort -n | awk -v runs="$runs" '
        { ms[NR] = $1; rss[NR] = $2; hwm[NR] = $3 }
        END {
            m = int((NR + 1) / 2)
            printf "start to main window shown over %d runs: median %d ms, min %d ms, max %d ms\n",
                   runs, ms[m], ms[1], ms[NR]
            printf "GUI process memory once shown: RSS %.1f MiB, peak RSS %.1f MiB\n",
                   rss[m] / 1024, hwm[m] / 1024
        }'
    exit 0
fi

# On the virtual display: one line "milliseconds rss-KiB peak-rss-KiB" per run.
for _ in $(seq "$runs"); do
    start=$(date +%s%N)
    QT_QPA_PLATFORM=xcb "$app" >/dev/null 2>&1 &
    pid=$!
    xdotool search --sync --onlyvisible --name "VARIMOsentry Firmware Updater" >/dev/null
    end=$(date +%s%N)
    sleep 0.5
    rss=$(awk '/VmRSS/ {print $2}' "/proc/$pid/status")
    hwm=$(awk '/VmHWM/ {print $2}' "/proc/$pid/status")
    kill "$pid"
    wait "$pid" 2>/dev/null || true
    echo "$(((end - start) / 1000000)) $rss $hwm"
done
