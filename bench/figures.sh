#!/bin/sh
# Runs every hnx-load row of the figures table in bench/README.md REPS
# times against a Release build and prints the median of each figure, with
# the load average before and after. Usage, from the source folder:
#   cmake -S . -B build-rel -DCMAKE_BUILD_TYPE=Release
#   cmake --build build-rel -j2 --target hnx-l3table-l3mac hnx-load
#   bench/figures.sh [ROW...]        (rows: see the case below; none: all)
# STORE=redis runs each hnx-load on a private redis-server (append-only file
# on) on a socket under its root, instead of the SQLite file.
set -eu

BIN=${BIN:-build-rel/bin}
REPS=${REPS:-3}
CAP=${CAP:-bench/capability-4096.json}
OUT=$(mktemp -d)
trap 'rm -rf "$OUT"' EXIT

# redis_figures SOCKET: what redis-server spent over the run, as figures:
# its main thread's CPU (user + sys), and the calls and time inside each
# command that the store uses most.
redis_figures() {
    redis-cli -s "$1" INFO cpu | tr -d '\r' |
        awk -F: '/^used_cpu_(user|sys):/ { s += $2 } END { printf "redis_cpu_s: %.3f\n", s }'
    redis-cli -s "$1" INFO commandstats | tr -d '\r' |
        sed -n 's/^cmdstat_\(evalsha\|xrange\|xread\|get\):calls=\([0-9]*\),usec=\([0-9]*\),.*/redis_\1_calls: \2\nredis_\1_s: \3/p' |
        awk '/_s: / { $2 = $2 / 1e6 } { print }'
}

# run NAME ARGS...: REPS runs of hnx-load, each under a fresh root.
run() {
    name=$1
    shift
    i=1
    while [ "$i" -le "$REPS" ]; do
        root=$(mktemp -d)
        store=sqlite
        if [ "${STORE:-sqlite}" = redis ]; then
            redis-server --port 0 --unixsocket "$root/redis.sock" --dir "$root" --save "" \
                --appendonly yes --logfile "$root/redis.log" --daemonize yes --pidfile "$root/redis.pid"
            until [ "$(redis-cli -s "$root/redis.sock" ping 2>/dev/null)" = PONG ]; do sleep 0.05; done
            store="unix://$root/redis.sock"
        fi
        "$BIN/hnx-load" --root "$root" --store "$store" "$@" --daemon --cap "$CAP" >"$OUT/$name.$i" 2>&1 || true
        if [ "$store" != sqlite ]; then
            redis_figures "$root/redis.sock" >>"$OUT/$name.$i"
            pid=$(cat "$root/redis.pid")
            kill "$pid"
            while kill -0 "$pid" 2>/dev/null; do sleep 0.05; done  # its files closed
        fi
        rm -rf "$root"
        i=$((i + 1))
    done
}

# show NAME FIGURE...: the median (and range) of each figure over the runs.
show() {
    name=$1
    shift
    for fig in "$@"; do
        cat "$OUT/$name".* | sed -n "s/^$fig: //p" | sort -g |
            awk -v n="$name" -v f="$fig" '{ v[NR] = $1 }
                END { if (NR) printf "%-10s %-32s median %-12g range %g - %g (%d runs)\n",
                                     n, f, v[int((NR + 1) / 2)], v[1], v[NR], NR }'
    done
}

row() {
    case $1 in
    mixed) run mixed mixed
        show mixed end_to_end_per_s write_rate_per_s complete_after_last_commit_ms per_cpu_s_requests \
            writer_cpu_s daemon_cpu_s tcam_entries mac_vlan_pairs ;;
    scale2) run scale2 scale2 --requests 50000
        show scale2 end_to_end_per_s write_rate_per_s complete_after_last_commit_ms per_cpu_s_requests \
            writer_cpu_s daemon_cpu_s tcam_entries unresolved $REDIS_FIGURES ;;
    l3intf) run l3intf l3intf --idle 2
        show l3intf write_rate_per_s per_cpu_s_requests complete_after_last_commit_ms latency_p50_ms \
            latency_p99_ms l3mac_hw_res_sets l3mac_hw_res_dels l3mac_bak_sets l3mac_bak_dels \
            tcam_entries idle_cpu_ms_per_s $REDIS_FIGURES ;;
    latency) run latency churn --rate 20 --secs 5 --macs 100
        show latency latency_p50_ms latency_p99_ms latency_max_ms ;;
    restart) run restart restart --with mixed
        show restart restart_smoothing_end_ms restart_hw_changes restart_entries_moved ;;
    restart1) run restart1 restart --with scale --requests 50000 --macs 1000 --limit 3
        show restart1 restart_smoothing_end_ms restart_hw_changes restart_entries_moved tcam_entries \
            write_rate_per_s writer_cpu_s ;;
    restart2) run restart2 restart --with scale2 --requests 50000
        show restart2 restart_smoothing_end_ms restart_hw_changes restart_entries_moved tcam_entries \
            unresolved restart_daemon_cpu_s ;;
    memory) run memory scale --requests 100000 --macs 1000 --limit 3
        show memory daemon_peak_rss_mb ;;
    churn) run churn churn --rate 2000 --secs 5 --macs 1000
        show churn latency_p50_ms latency_p99_ms daemon_cpu_s ;;
    *) echo "unknown row $1" >&2; exit 1 ;;
    esac
}

REDIS_FIGURES=
if [ "${STORE:-sqlite}" = redis ]; then
    REDIS_FIGURES="redis_cpu_s redis_evalsha_calls redis_evalsha_s redis_xrange_calls redis_xrange_s \
        redis_xread_calls redis_get_calls"
fi

echo "start $(date -u +%H:%M) UTC, load average: $(cut -d' ' -f1-3 /proc/loadavg)"
if [ $# -eq 0 ]; then
    set -- mixed scale2 l3intf latency restart restart1 restart2 memory churn
fi
for r in "$@"; do row "$r"; done
echo "end $(date -u +%H:%M) UTC, load average: $(cut -d' ' -f1-3 /proc/loadavg)"
