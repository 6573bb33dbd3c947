# What a deep queue costs those that put to it, peek into it and read from it.
depths="0 1000000 10000000"

depth_run() {
  local n depth below=0 in
  n=$(scaled 100000)
  in=$(records "$n" 100)
  queue Q
  for depth in $depths; do
    depth=$((depth / scale))
    if [ "$depth" -gt "$below" ]; then
      "$tools/records" make $((depth - below)) 100 | "$ferry" -f Q 2>>"$errors" || die "no depth"
      below=$depth
    fi
    sample "depth.$depth.load" timed "$n" -i "$in" -- "$ferry" -f Q
    sample "depth.$depth.peek" timed "$n" -- "$ferry" -p Q -c "$n"
    sample "depth.$depth.read" timed "$n" -- "$ferry" -r Q -c "$n"
  done
}

measure_depth() { each_run depth_run; }

table_depth() {
  local depth n
  n=$(scaled 100000)
  heading "Depth of the queue: $n records of 100 bytes, records/s" "depth" "load" "peek" "read"
  for depth in $depths; do
    depth=$((depth / scale))
    line "$depth" "$(rate "depth.$depth.load" "$n")" "$(rate "depth.$depth.peek" "$n")" \
      "$(rate "depth.$depth.read" "$n")"
  done
}
