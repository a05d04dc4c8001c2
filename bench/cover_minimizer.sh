#!/bin/sh
# Entries of the greedy cover, of the compact cover and of a general
# two-level logic minimizer on the same sets, value 0 a don't-care. The
# minimizer is Berkeley Espresso 2.3 from the npm package
# espresso-logic-minimizer, built here in a temporary folder as a reference
# only: the service neither links nor calls it. Usage, from the source
# folder, after building l3mac-cover:
#   bench/cover_minimizer.sh            (BIN=build-rel/bin by default)
# Needs npm (for `npm pack`), cc, awk. Prints one row per group of sets:
# total entries greedy / compact / minimizer's heuristic / minimizer's
# exact answer (-Dexact, where it ends within EXACT_SECS), and the
# minimizer's time for the group.
set -eu

BIN=${BIN:-build-rel/bin}
EXACT_SECS=${EXACT_SECS:-60}
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT

build_espresso() {
    (cd "$WORK" && npm pack --silent espresso-logic-minimizer >/dev/null && tar xzf ./*.tgz)
    (cd "$WORK/package/espresso-src" && cc -O2 -w -o "$WORK/espresso" ./*.c)
}

# Sets, one "vlan SET" or "vfi SET" line each, drawn with fixed seeds.
gen_sets() {
    awk -v kind="$1" -v n="$2" -v seed="$3" '
    function range(lo, span, top,   a, b) {
        a = lo + int(rand() * span); b = a + int(rand() * 300);
        if (b > top) b = top;
        return a "-" b
    }
    BEGIN {
        srand(seed)
        for (i = 0; i < n; i++) {
            if (kind == "plan") {            # 1-8 ranges and 0-3 single VLANs
                s = ""; k = 1 + int(rand() * 8)
                for (j = 0; j < k; j++) s = s (s == "" ? "" : ",") range(1, 3800, 4094)
                k = int(rand() * 4)
                for (j = 0; j < k; j++) s = s "," (1 + int(rand() * 4094))
                print "vlan " s
            } else if (kind == "range") {    # one range of any length
                a = 1 + int(rand() * 4094); b = a + int(rand() * (4095 - a))
                print "vlan " a "-" b
            } else if (kind == "vfi") {      # 1-4 ranges of VFIs above 4095
                s = ""; k = 1 + int(rand() * 4)
                for (j = 0; j < k; j++) s = s (s == "" ? "" : ",") range(4096, 12000, 16382)
                print "vfi " s
            } else {                         # every VLAN with the chance kind
                s = ""
                for (v = 1; v < 4095; v++) if (rand() < kind) s = s (s == "" ? "" : ",") v
                print "vlan " s
            }
        }
    }'
}

# The sets of one group as PLA files set.N.pla: the set's numbers 1, value
# 0 don't-care, everything else 0 (type fd).
write_plas() {
    awk -v dir="$WORK" '
    {
        width = $1 == "vfi" ? 14 : 12; top = 2 ^ width - 1
        f = dir "/set." NR ".pla"
        print ".i " width "\n.o 1\n.type fd" > f
        delete on; n = split($2, items, ",")
        for (i = 1; i <= n; i++) {
            m = split(items[i], ab, "-"); lo = ab[1]; hi = m > 1 ? ab[2] : ab[1]
            for (v = lo; v <= hi; v++) if (v > 0 && v < top) on[v] = 1
        }
        for (v = 0; v < top; v++) {
            if (v != 0 && !(v in on)) continue
            s = ""; x = v
            for (b = 0; b < width; b++) { s = (x % 2) s; x = int(x / 2) }
            print s, (v == 0 ? "-" : "1") > f
        }
        print ".e" > f; close(f)
    }' "$1"
}

# Entries of each batch answer: templates but the filler, "-" is none.
count_entries() {
    awk '{ n = 0; for (i = 1; i <= NF; i++) if ($i != "-" && $i !~ /^0\/0x(FFF|3FFF)\//) n++; t += n }
         END { print t + 0 }'
}

# Terms of the minimizer's answers for every set of the group; "-" when one
# did not end within the limit.
minimize() {
    opts=$1 count=$2 total=0
    i=1
    while [ "$i" -le "$count" ]; do
        p=$(timeout "$EXACT_SECS" "$WORK/espresso" $opts "$WORK/set.$i.pla" 2>/dev/null | awk '/^\.p/ { print $2 }') || true
        [ -n "$p" ] || { echo "-"; return; }
        total=$((total + p))
        i=$((i + 1))
    done
    echo "$total"
}

row() {
    name=$1 file=$2
    count=$(wc -l <"$file")
    greedy=$("$BIN/l3mac-cover" --batch <"$file" | count_entries)
    compact=$("$BIN/l3mac-cover" --compact --batch <"$file" | count_entries)
    write_plas "$file"
    t0=$(date +%s.%N)
    heuristic=$(minimize "" "$count")
    t1=$(date +%s.%N)
    exact=$(minimize "-Dexact" "$count")
    t2=$(date +%s.%N)
    printf '| %s | %s | %s | %s | %s | %s | %.2f s / %.2f s |\n' "$name" "$count" "$greedy" \
        "$compact" "$heuristic" "$exact" "$(echo "$t1 - $t0" | bc)" "$(echo "$t2 - $t1" | bc)"
}

build_espresso
echo "| sets | count | greedy | compact | minimizer | minimizer -Dexact | minimizer time (heuristic / exact) |"
echo "|---|---|---|---|---|---|---|"
printf 'vlan 2-3001\n' >"$WORK/demo"; row "2-3001 (router MAC of the demo)" "$WORK/demo"
printf 'vlan 100-199\n' >"$WORK/r100"; row "100-199" "$WORK/r100"
printf 'vlan 10-20\n' >"$WORK/r10"; row "10-20" "$WORK/r10"
printf 'vlan 1-4094\n' >"$WORK/all"; row "1-4094 (whole VLAN set)" "$WORK/all"
printf 'vfi 1-16382\n' >"$WORK/allvfi"; row "VFI 1-16382 (whole VFI set)" "$WORK/allvfi"
gen_sets plan 200 1 >"$WORK/plans"; row "operator plans (1-8 ranges, 0-3 single VLANs)" "$WORK/plans"
gen_sets range 200 2 >"$WORK/ranges"; row "single ranges" "$WORK/ranges"
gen_sets vfi 50 3 >"$WORK/vfis"; row "VFI plans (1-4 ranges)" "$WORK/vfis"
for d in 0.1 0.3 0.5 0.7 0.9; do
    gen_sets "$d" 5 4 >"$WORK/dense"; row "random VLANs, density $d" "$WORK/dense"
done
