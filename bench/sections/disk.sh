# What the disk itself does.
disk_run() {
  local file
  file=$(records "$(scaled 1000000)" 100)
  sample disk.flush "$tools/flush_rate" "$work/other/flush" $((2000 / scale + 1))
  sample disk.cat "$tools/measure" -- \
    sh -c "cat '$file' >'$work/other/copy' && sync '$work/other/copy'"
}

measure_disk() { each_run disk_run; }

table_disk() {
  heading "Disk" "what" "median (least - most)"
  line "one flush: fdatasync after overwriting 4 KiB, µs" "$(spread disk.flush 1000000)"
  line "cat of $(scaled 1000000) records of 100 bytes to a file, with sync, s" "$(spread disk.cat)"
}
