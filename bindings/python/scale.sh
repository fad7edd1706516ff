#!/usr/bin/env bash
# The synthetic fleet and the scale table: nuvik-replay with one and two jobs
# against nuvik.fleet with one and two local workers, on the same launches.
#   scale.sh make DIR [FILES [USERS_PER_FILE [DAYS]]]   DIR/part-NN.csv.gz and DIR/whole.csv.gz
#                                                       (default 10 files of 2,000 users over 6 days)
#   scale.sh measure DIR [BUILD_DIR]                    prints the table (BUILD_DIR default: build)
# PYTHON (default /usr/bin/python3) must have pandas and distributed; ENSEMBLES overrides the two ensembles.
set -euo pipefail
cd "$(dirname "$0")/../.."

PYTHON=${PYTHON:-/usr/bin/python3}
read -r -a ENSEMBLES <<<"${ENSEMBLES:-markov_chain3_invalidate double_linear}"

make_fleet() {
  local dir=$1 files=${2:-10} users=${3:-2000} days=${4:-6} build=${BUILD:-build} part
  mkdir -p "$dir"
  for ((part = 0; part < files; part++)); do
    # Seeds and user numbers differ per file: every file holds users of its own.
    "$build/tools/nuvik-sample-log" --users "$users" --first-user $((1 + part * users)) --seed $((1000 + part)) \
      --days "$days" | gzip -1 >"$dir/$(printf 'part-%02d.csv.gz' "$part")"
  done
  # The same launches as one log for nuvik-replay: the header once, then every part in order.
  { zcat "$dir/part-00.csv.gz"; for file in "$dir"/part-*.csv.gz; do
      [ "$file" = "$dir/part-00.csv.gz" ] || zcat "$file" | tail -n +2; done; } | gzip -1 >"$dir/whole.csv.gz"
  echo "$dir: $files files, $((files * users)) users, $(($(zcat "$dir/whole.csv.gz" | wc -l) - 1)) launches"
}

# Runs a command under GNU time; prints "SECONDS PEAK_MIB".
timed() {
  local log
  log=$(mktemp)
  /usr/bin/time -f '%e %M' -o "$log" "$@" >/dev/null
  awk '{ printf "%s %.0f\n", $1, $2 / 1024 }' "$log"
  rm -f "$log"
}

# One line of the table: RUN SECONDS LAUNCHES PEAK.
row() {
  awk -v run="$1" -v s="$2" -v n="$3" -v peak="$4" 'BEGIN { printf "%-28s %10s %12.0f %22s\n", run, s, n / s, peak }'
}

measure() {
  local dir=$1 build=${2:-build} launches jobs seconds peak workers line
  launches=$(($(zcat "$dir/whole.csv.gz" | wc -l) - 1))
  printf '%-28s %10s %12s %22s\n' run seconds launches/s 'peak MiB per worker'
  for jobs in 1 2; do
    read -r seconds peak < <(timed "$build/tools/nuvik-replay" "$dir/whole.csv.gz" --compare "${ENSEMBLES[@]}" \
      --jobs "$jobs")
    row "nuvik-replay --jobs $jobs" "$seconds" "$launches" "$peak"
  done
  for workers in 1 2; do
    line=$(PYTHONPATH="$build/bindings/python" "$PYTHON" -m nuvik.fleet "$dir"/part-*.csv.gz \
      --compare "${ENSEMBLES[@]}" --workers "$workers" --stats 2>&1 >/dev/null | grep 'launches/s')
    seconds=$(sed -E 's/.* in ([0-9.]+) s.*/\1/' <<<"$line")
    peak=$(sed -E 's/.*peak memory per worker: (.*) MiB/\1/' <<<"$line")
    row "nuvik.fleet, $workers worker(s)" "$seconds" "$launches" "$peak"
  done
}

case "${1:-}" in
  make) shift; make_fleet "$@" ;;
  measure) shift; measure "$@" ;;
  *) sed -n '2,8s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac
