# Steps of scripts/demo: the daemon's life under a temporary root, the
# users' requests, and the views that show what the service made of them.
# Sourced; expects $root, and sets $pid while a daemon runs.

bin=${BUILD_DIR:-build}/bin
pid=
ROUTER_MAC=00:1e:08:00:00:01
MODULE=hnx-l3table-l3mac

# Only the programs that the demo runs: the tests need not be built first.
build_programs() {
  local dir=${BUILD_DIR:-build}
  cmake -S . -B "$dir" -DHNX_WERROR=ON ${HNX_CMAKE_ARGS:-} >/dev/null
  cmake --build "$dir" -j"$(nproc)" --target hnx-l3table-l3mac hnx-tbl hnx-cmd l3mac-feed \
    -- --no-print-directory >/dev/null
}

step() { printf '\n=== %s\n' "$1"; }
say() { printf '    %s\n' "$*"; }
fail() {
  echo "demo: FAILED: $*" >&2
  exit 1
}

demo_cleanup() {
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  fi
  if [ -n "${redis_pid:-}" ]; then
    kill -TERM "$redis_pid" 2>/dev/null || true
    wait "$redis_pid" 2>/dev/null || true
  fi
  [ -n "${root:-}" ] && rm -rf "$root"
}

# A redis-server of the demo's own: on a socket under the root, no TCP
# port, its append-only file on as the guide recommends; every program of
# the demo finds it through HNX_STORE.
start_redis() {
  redis-server --port 0 --unixsocket "$root/redis.sock" --unixsocketperm 700 --dir "$root" \
    --save "" --appendonly yes --logfile "$root/redis.log" --daemonize no &
  redis_pid=$!
  wait_for '[ "$(redis-cli -s "$root/redis.sock" ping 2>/dev/null)" = PONG ]' \
    "redis-server did not start (see $root/redis.log)"
  export HNX_STORE="unix://$root/redis.sock"
}

# Polls a condition every 0.1 s for at most 15 seconds.
wait_for() {
  local deadline=$((SECONDS + 15))
  until eval "$1"; do
    ((SECONDS < deadline)) || fail "$2"
    sleep 0.1
  done
}

cmd() { "$bin/hnx-cmd" --root "$root" "$MODULE" "$@" | tr -d '\r'; }
tbl() { "$bin/hnx-tbl" --root "$root" "$@"; }
feed() { "$bin/l3mac-feed" --root "$root" | sed 's/^/    /'; }
dump_hw() { tbl dump s_route.l3mac_hw_res; }
dump_bak() { tbl dump s_route.l3mac_bak; }
dump_vrrp() { tbl dump s_route.l3mac_vrrp_hw_res; }

# The live count of a store of the running service ("cur:N" of its dump).
db_count() { cmd "$1" 0 0 2>/dev/null | sed -n 's/.*cur:\([0-9]*\).*/\1/p' | head -1; }
tcam_db_count_is() { [ "$(db_count dump-tcam-db)" = "$1" ]; }

# The pid in the instance lock file, without its closing zero byte.
pid_in_file() { tr -d '\0' 2>/dev/null <"$root/var/run/de.res_l3mac.route.ss.pid" || true; }

# Stops the demo at once when the daemon has ended, with its last words.
daemon_alive() {
  kill -0 "$pid" 2>/dev/null && return 0
  tail -5 "$root/daemon.out" "$root/daemon.err" >&2
  fail "the daemon ended"
}

start_daemon() {
  HNX_ROOT="$root" "$bin/$MODULE" >>"$root/daemon.out" 2>>"$root/daemon.err" &
  pid=$!
  wait_for 'daemon_alive && [ "$(pid_in_file)" = "$pid" ]' \
    "the daemon did not take its instance lock"
  wait_for 'cmd check-memory >/dev/null 2>&1' "the daemon does not answer debug commands"
  say "$MODULE runs as pid $pid under $root"
}

stop_daemon() {
  local status=0
  kill -TERM "$pid"
  wait "$pid" || status=$?
  pid=
  ((status == 0)) || fail "the daemon ended with status $status"
}

# The users' requests, as l3mac-feed lines.
router_mac_rows() {
  for ((v = 2; v <= 3001; v++)); do
    echo "set L3TABLE_L3INTF vlanif$v L3MAC_NORMAL $ROUTER_MAC $v"
  done
}
vrrp_mac() { printf '00:00:5e:00:01:%02x' "$1"; }
vrrp_rows() {
  local g v
  for ((g = $1; g <= $2; g++)); do
    for ((v = 10 * g + 1; v <= 10 * g + 4; v++)); do
      echo "set L3TABLE_L3INTF vrrp$g.vlanif$v L3MAC_VRRP $(vrrp_mac "$g") $v"
    done
  done
}
overlay_rows() {
  for ((n = 5000; n <= 5499; n++)); do
    echo "set L3TABLE_VXLAN vfi$n L3MAC_OL $ROUTER_MAC $n"
  done
}

# Waits until the service holds every request and its output stops moving.
wait_settled() {
  local users=$(($1 + 4 * $2 + $3)) overlay=$3 prev= now
  wait_for '[ "$(db_count show-user-db)" = "$users" ]' "the service did not take all $users requests"
  wait_for '[ "$(dump_vrrp | wc -l)" = "$overlay" ]' "not every overlay request reached s_route.l3mac_vrrp_hw_res"
  wait_for 'now=$(dump_hw | md5sum); [ "$now" = "$prev" ] || { prev=$now; sleep 0.3; false; }' \
    "s_route.l3mac_hw_res did not settle"
}

count_pairs() { awk '$1 == "set" && $4 != "L3MAC_OL" { print $5, $6 }' "$plan" | sort -u | wc -l; }

summary() {
  local req macs used pairs cap=128 vreq vrows
  req=$(awk '$1 == "set" && $4 != "L3MAC_OL"' "$plan" | wc -l)
  macs=$(awk '$1 == "set" && $4 != "L3MAC_OL" { print $5 }' "$plan" | sort -u | wc -l)
  used=$(dump_hw | wc -l)
  pairs=$(count_pairs)
  ((used > 0 && used < pairs)) || fail "TCAM 1 shows $used entries for $pairs {MAC, VLAN} pairs"
  say "TCAM 1 (managed):   $req requests, $macs MACs, $used of $cap entries used;"
  say "                    one entry per {MAC, VLAN} would have cost $pairs entries"
  vreq=$(awk '$4 == "L3MAC_OL"' "$plan" | wc -l)
  vrows=$(dump_vrrp | wc -l)
  say "TCAM 2 (direct):    $vreq requests, 1 MAC, $vrows rows in s_route.l3mac_vrrp_hw_res"
  say "                    (one row per distinct request, placed by the hardware side)"
  say ""
  say "the router MAC's entries for VLANs 2-3001 (hnx-tbl dump s_route.l3mac_hw_res --ranges):"
  entry_table "$ROUTER_MAC"
  say "VRRP group 1 ($(vrrp_mac 1), VLANs 11-14):"
  entry_table "$(vrrp_mac 1)"
  say "an overlay row of the direct path: $(dump_vrrp | head -1)"
}

# One line per TCAM entry of a MAC: index, value/mask, the VLANs it matches.
entry_table() {
  printf '      %-6s %-6s %-6s %s\n' hw_id evlan mask vlans
  tbl dump s_route.l3mac_hw_res --ranges | grep "$1" | sed 's/[a-z_.]*=/ /g' |
    awk '{ v = $8; if (length(v) > 60) v = substr(v, 1, 57) "..."; printf "      %-6s %-6s %-6s %s\n", $1, $3, $4, v }'
}

same_vrrp_rows() {
  dump_vrrp >"$root/vrrp.after"
  [ "$(wc -l <"$root/vrrp.after")" = 500 ]
}

# A debug command, what it shows, and its output.
show_cmd() {
  [ -z "$1" ] || printf '\n    # %s' "$1"
  printf '\n    $ hnx-cmd %s %s\n' "$MODULE" "${*:2}"
  cmd "${@:2}" | sed '/^$/d; s/^/      /'
}

debug_commands() {
  show_cmd "does VRRP group 1 (type 2) hold VLAN 12? and 15?" \
    find-evlan-by-mac 2 "$(vrrp_mac 1)" 0 12
  show_cmd "" find-evlan-by-mac 2 "$(vrrp_mac 1)" 0 15
  show_cmd "every TCAM entry that matches VLAN 12, whatever its MAC" find-mask-by-evlan 12
  show_cmd "the VLANs that the pair 12/4094 matches" dump-evlan-mbr 12 4094 0
  show_cmd "the TCAM store: 3 rows with their header (cur: entries in use)" dump-tcam-db 3 1
  show_cmd "records the service holds: users, MACs, entries" check-memory
  cmd find-evlan-by-mac 2 "$(vrrp_mac 1)" 0 12 | grep -q "^contain evlan 12" ||
    fail "find-evlan-by-mac does not find VLAN 12 of VRRP group 1"
  cmd dump-evlan-mbr 12 4094 0 | grep -q "^vlan_count=2" ||
    fail "dump-evlan-mbr does not count 2 VLANs for 12/4094"
}

fill_tcam() {
  local used free extra=6 last failed
  used=$(dump_hw | wc -l)
  free=$((128 - used))
  last=$((100 + free + extra))
  say "$used of 128 entries used; $((free + extra)) more VRRP groups (101-$last) arrive, one VLAN each"
  for ((g = 101; g <= last; g++)); do
    echo "set L3TABLE_L3INTF vrrp$g.vlanif$((3000 + 2 * g)) L3MAC_VRRP $(vrrp_mac "$g") $((3000 + 2 * g))"
  done | feed
  wait_for 'grep -q "L3MAC table is full." "$root/var/log/hnx.log" 2>/dev/null' \
    "no \"L3MAC table is full.\" in var/log/hnx.log"
  wait_for '[ "$(tbl dump s_route.l3mac_res | grep -c STATUS_FAILED)" = "$extra" ]' \
    "the $extra VRRP users without room did not get STATUS_FAILED"
  say "s_route.l3mac_hw_res now holds $(dump_hw | wc -l) entries: TCAM 1 is full"
  say "the system log, $root/var/log/hnx.log:"
  grep "L3MAC table is full." "$root/var/log/hnx.log" | sed 's/^/      /'
  say "the rows of the VRRP users that got no room (hnx-tbl dump s_route.l3mac_res):"
  tbl dump s_route.l3mac_res | grep STATUS_FAILED | sed 's/^/      /'
}
