#!/bin/sh
# Runs every fuzz target in $1 for $2 seconds each, keeping what each finds in fuzz-corpus/.
# Seeds come from fuzz/corpus/<target>. Stops at the first target that fails.
set -eu
bindir=$1
seconds=$2
for target in "$bindir"/fuzz_*; do
    name=$(basename "$target")
    mkdir -p "fuzz-corpus/$name"
    seeds="fuzz/corpus/$name"
    [ -d "$seeds" ] || seeds=""
    echo "== $name, $seconds s"
    log="fuzz-corpus/$name.log"
    if ! "$target" -max_total_time="$seconds" -print_final_stats=1 "fuzz-corpus/$name" $seeds >"$log" 2>&1; then
        tail -n 30 "$log"
        echo "$name: FAILED (log: $log)"
        exit 1
    fi
    grep -E 'stat::number_of_executed_units|stat::new_units_added' "$log" | sed "s/^/  /"
done
