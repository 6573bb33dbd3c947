# Tables in Markdown. A table is for readers: the numbers in it are rounded, the samples are not.

machine() {
  local disk
  disk=$(df --output=source,fstype "$work" | tail -1 | tr -s ' ')
  echo "Machine: $(nproc) x $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1)," \
    "$(awk '/MemTotal/ { printf "%.0f GiB", $2 / 1048576 }' /proc/meminfo) memory, disk $disk," \
    "Linux $(uname -r), load $(cut -d' ' -f1 /proc/loadavg) at the start."
  echo "Command: bench/run --runs $runs --scale $scale, revision $(git -C "$root" describe --always --dirty 2>/dev/null)."
}

# heading TITLE COLUMN...
heading() {
  echo
  echo "### $1"
  echo
  shift
  local column
  for column; do printf '| %s ' "$column"; done
  echo '|'
  for column; do printf '|---'; done
  echo '|'
}

# line CELL...
line() {
  local cell
  for cell; do printf '| %s ' "$cell"; done
  echo '|'
}
