#!/bin/bash
# inside.sh BUILD SOURCES PASSWORD SECONDS ROUNDS: runs in the CAP of a mesh, beside its web API server.
# The servers share one processor, who asks has another one. Prints what bench/requests/run adds up.
set -eu
build=$1 sources=$2 password=$3 seconds=$4 rounds=$5
work=/tmp/bench
progress=webapi/KALO.Mesh.Upgrade.Download/1/progress
progress_answer='{"data":{"percent":0,"status":"none"},"success":true}'
status=webapi/KALO.Mesh.Upgrade/VERSION/status
status_answer='{"data":{"allow_upgrade":true,"status":"none"},"success":true}'
stuck=webapi/KALO.Bench/1/stuck
mkdir -p "$work"

# A module whose row is stuck for a second; with it the server is started anew.
cp "$build/bench/stuck.so" "$sources/bench/requests/stuck.json" /volume1/@slots/current/webapi/
asks() { curl -sk -o /dev/null -X POST "https://127.0.0.1:$1/"; }
sleep 11  # a server that lived that long is started anew at once
begin=$(date +%s%N)
pkill -x webapid
while pgrep -x webapid-worker >/dev/null; do :; done
until asks 443; do :; done
echo "START front $((($(date +%s%N) - begin) / 1000))"

cat >"$work/nginx.conf" <<CONF
user root;
daemon off;
worker_processes 1;
pid $work/nginx.pid;
error_log $work/nginx.log;
events { worker_connections 256; }
http {
  access_log off;
  client_body_temp_path $work/t1; proxy_temp_path $work/t2; fastcgi_temp_path $work/t3;
  uwsgi_temp_path $work/t4; scgi_temp_path $work/t5;
  keepalive_requests 100000000;
  upstream workers { server unix:$work/fastcgi.sock; }
  server {
    listen 127.0.0.1:9443 ssl;
    ssl_certificate /etc/kalo/tls/server.crt;
    ssl_certificate_key /etc/kalo/tls/server.key;
    location / {
      fastcgi_pass workers;
      fastcgi_param REQUEST_METHOD \$request_method;
      fastcgi_param CONTENT_LENGTH \$content_length;
      fastcgi_param SCRIPT_NAME \$uri;
    }
  }
}
CONF
"$build/bench/bench-fastcgi" "$work/fastcgi.sock" & fastcgi=$!
"$build/nginx/usr/sbin/nginx" -e "$work/nginx.log" -c "$work/nginx.conf" & nginx=$!
tls="/etc/kalo/tls/server.crt /etc/kalo/tls/server.key"
"$build/bench/bench-httpd" 9444 $tls & httpd=$!
"$build/bench/bench-httpd" 9445 $tls bus & bus=$!
trap 'kill $fastcgi $nginx $httpd $bus $(pgrep -P $fastcgi) 2>/dev/null || true' EXIT
for port in 9443 9444 9445; do until asks $port; do sleep 0.05; done; done

login=$(curl -sk -c "$work/jar" -H 'Content-Type: application/json' \
  -d "{\"user\":\"admin\",\"password\":\"$password\"}" https://127.0.0.1/webapi/KALO.Core.Auth/1/login)
token=$(sed -n 's/.*"token":"\([^"]*\)".*/\1/p' <<<"$login")
cookie=$(awk '/kalo_session/ { print $7 }' "$work/jar")
post() {
  curl -sk -b "kalo_session=$cookie" -H "X-KALO-Token: $token" -H 'Content-Type: application/json' \
    -d '{}' "$@"
}

pids_of() {
  case $1 in
    ours) pgrep -x webapid; pgrep -x webapid-worker ;;
    nginx) echo "$nginx"; pgrep -P "$nginx"; echo "$fastcgi"; pgrep -P "$fastcgi" ;;
    httpd) echo "$httpd" ;;
    bus) echo "$bus" ;;
  esac
}
port_of() { case $1 in ours) echo 443 ;; nginx) echo 9443 ;; httpd) echo 9444 ;; bus) echo 9445 ;; esac; }
# Nanoseconds on a processor, of all threads.
cpu_of() { local p; for p in $(pids_of "$1"); do cat "/proc/$p/task/"*/schedstat; done |
  awk '{ sum += $1 } END { printf "%.0f", sum }'; }
memory_of() { local sum=0 p; for p in $(pids_of "$1"); do
  sum=$((sum + $(awk '/^Pss:/ { print $2 }' "/proc/$p/smaps_rollup"))); done; echo "$sum"; }

# run WHAT SERVER CONNECTIONS ROW ANSWER
run() {
  local before after line
  before=$(cpu_of "$2")
  line=$(taskset -c 1 wrk -t1 -c"$3" -d"${seconds}s" -s "$sources/bench/requests/post.lua" \
    "https://127.0.0.1:$(port_of "$2")/$4" -- "$cookie" "$token" "$5" "$3" | grep RESULT)
  after=$(cpu_of "$2")
  echo "RUN $1 $3 $2 $((after - before)) ${line#RESULT }"
}

begin=$(date +%s%N)
post -o /dev/null "https://127.0.0.1/$progress"
echo "START worker $((($(date +%s%N) - begin) / 1000))"
for server in ours nginx httpd; do
  echo "ANSWER $server $(post "https://127.0.0.1:$(port_of $server)/$progress")"
done
for server in ours nginx httpd; do echo "MEMORY $server $(memory_of $server)"; done
for server in ours nginx httpd bus; do
  for pid in $(pids_of $server); do taskset -p -a -c 0 "$pid" >/dev/null; done
done

for connections in 1 8 32; do
  for ((round = 0; round < rounds; round++)); do
    for server in ours nginx httpd; do
      run progress $server $connections "$progress" "$progress_answer"
    done
  done
done
for ((round = 0; round < rounds; round++)); do
  run status-v1 ours 1 "${status/VERSION/1}" "$status_answer"
  run status-v2 ours 1 "${status/VERSION/2}" "$status_answer"
  run status-v2 bus 1 "${status/VERSION/2}" "$status_answer"
done

# A thousand, one after the other, on one connection.
for ((i = 0; i < 1000; i++)); do echo "url = https://127.0.0.1/$progress"; echo "output = /dev/null"; done \
  >"$work/thousand"
for ((round = 0; round < rounds; round++)); do
  post -w '%{time_pretransfer} %{time_total}\n' -K "$work/thousand" |
    awk '{ t = NR == 1 ? $2 - $1 : $2; if (t > most) most = t; if (t > 0.005) late++ }
         END { printf "THOUSAND %d %.0f %d\n", NR, most * 1e6, late }'
done

# One row stuck all the time, both ways.
stick() { while [ -e "$work/sticking" ]; do post -o /dev/null "https://127.0.0.1:$1/$stuck"; done; }
touch "$work/sticking"
stick 443 & first=$!
stick 9443 & second=$!
sleep 0.5
for connections in 1 8; do
  for ((round = 0; round < rounds; round++)); do
    for server in ours nginx; do run stuck $server $connections "$progress" "$progress_answer"; done
  done
done
rm "$work/sticking"
wait "$first" "$second"
