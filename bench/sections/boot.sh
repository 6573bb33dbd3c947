# The first connect after a boot, which finds no shared memory; what the disk holds is in the cache.
boot_depths="100000 10000000"

boot_run() {
  local depth
  for depth in $boot_depths; do
    depth=$(scaled "$depth")
    fresh
    queue Q
    "$tools/records" make "$depth" 100 | "$ferry" -f Q 2>>"$errors" || die "no depth"
    sample "boot.$depth.later" "$tools/measure" -e "$errors" -- "$ferry" -s Q
    rm "$BXM_HOME"/*/runtime
    sample "boot.$depth" "$tools/measure" -e "$errors" -- "$ferry" -s Q
  done
}

measure_boot() { each_run boot_run; }

table_boot() {
  local depth
  heading "First connect after a boot: a status, start to exit, ms" "records of 100 bytes" "first" \
    "later ones"
  for depth in $boot_depths; do
    depth=$(scaled "$depth")
    line "$depth" "$(spread "boot.$depth" 1000)" "$(spread "boot.$depth.later" 1000)"
  done
}
