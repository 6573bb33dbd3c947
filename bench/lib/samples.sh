# Samples are lines "METRIC VALUE"; the samples of two metrics belong together in their order.
samples=$work/samples
: >"$samples"

# note METRIC VALUE
note() { echo "$1 $2" >>"$samples"; }

# sample METRIC COMMAND...: a sample is what the command prints.
sample() {
  local metric=$1 value
  shift
  sync -f "$work" # what earlier steps left to be written is not this one's cost
  value=$("$@")
  note "$metric" "$value"
  echo "  $metric $value" >&2
}

# each_run COMMAND...: runs it for each of the runs, in folders that were never used.
each_run() {
  local run
  for run in $(seq "$runs"); do
    echo "$* (run $run of $runs)" >&2
    fresh
    "$@"
  done
}

# spread METRIC [FACTOR]: "median (least - most)" of a metric's samples.
spread() {
  awk -v metric="$1" -v factor="${2:-1}" '$1 == metric { print $2 * factor }' "$samples" |
    sort -g | awk -f "$here/lib/spread.awk"
}

# rate METRIC COUNT: the same of COUNT / sample.
rate() {
  awk -v metric="$1" -v count="$2" '$1 == metric { print count / $2 }' "$samples" |
    sort -g | awk -f "$here/lib/spread.awk"
}

# ratio METRIC FLOOR: the same of the quotients of samples that were taken side by side.
ratio() {
  awk -v a="$1" -v b="$2" '$1 == a { x[++n] = $2 } $1 == b { y[++m] = $2 }
    END { for (i = 1; i <= n && i <= m; ++i) print x[i] / y[i] }' "$samples" |
    sort -g | awk -f "$here/lib/spread.awk"
}
