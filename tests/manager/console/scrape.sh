#!/usr/bin/env bash
# scrape.sh BUILD_FOLDER [SECONDS]: a Prometheus scrapes a console with a token while a queue is used, and has the
# right figures at the end.
set -euo pipefail
work=$(mktemp -d) seconds=${2:-60}
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT
die() { echo "$1" >&2; cat "$work/prometheus.log" >&2; exit 1; }
export BXM_HOME=$work/home PATH=$1/bin:/usr/bin:/bin

bxadm queue create JOBS >/dev/null
(umask 077 && echo "token-of-0123456789" >"$work/token")
bxadm serve --listen 127.0.0.1:0 --token-file "$work/token" >"$work/console" & console=$!
until grep -q Listening "$work/console"; do kill -0 "$console" || die "the console does not start"; sleep 0.1; done
address=$(grep -o '127[^/]*' "$work/console")

cat >"$work/prometheus.yml" <<END
scrape_configs:
  - job_name: bxm
    scrape_interval: 2s
    authorization: {credentials_file: $work/token}
    static_configs: [{targets: ['$address']}]
END
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
prometheus --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/data" \
  --web.listen-address="127.0.0.1:$port" 2>"$work/prometheus.log" &
# value QUERY: of the one series that it finds.
value() { promtool query instant "http://127.0.0.1:$port" "$1" 2>&1 | sed -n 's/.*=> \([^ ]*\) @.*/\1/p'; }

puts=0
for ((end = SECONDS + seconds; SECONDS < end; puts += 10)); do
  seq 10 | ferry -f JOBS >/dev/null 2>&1
  ferry -r JOBS -c 4 >/dev/null 2>&1
  sleep 1
done
sleep 9 # the last look, and the scrape after it
[[ $(value 'up{job="bxm"}') == 1 ]] || die "it cannot be scraped"
[[ $(value bxm_manager_up) == 1 ]] || die "the manager is down"
[[ $(value 'bxm_queue_puts_total{queue="JOBS"}') == "$puts" ]] || die "of $puts puts $(value bxm_queue_puts_total) are told"
[[ $(value bxm_queue_gets_total) == $((puts * 4 / 10)) ]] || die "$(value bxm_queue_gets_total) gets are told"
[[ $(value bxm_queue_depth_messages) == $((puts * 6 / 10)) ]] || die "a depth of $(value bxm_queue_depth_messages) is told"
grown=$(value "count_over_time(bxm_queue_depth_messages[${seconds}s])")
((grown >= seconds / 3)) || die "only $grown scrapes in $seconds seconds"
[[ $(value "resets(bxm_queue_puts_total[${seconds}s])") == 0 ]] || die "a counter fell"
python3 - "$address" "$work/token" <<'END' | promtool check metrics || die "promtool finds fault with the metrics"
import sys, urllib.request
headers = {"Authorization": "Bearer " + open(sys.argv[2]).read().strip()}
sys.stdout.write(urllib.request.urlopen(
    urllib.request.Request(f"http://{sys.argv[1]}/metrics", headers=headers)).read().decode())
END
