#!/bin/bash
# inside.sh BUILD SOURCES PASSWORD SECONDS ROUNDS: runs in the CAP of a mesh, beside its web API server.
# The servers share one processor, who asks has another one. Prints what bench/requests/run adds up.
set -eu -o pipefail
build=$1 sources=$2 password=$3 seconds=$4 rounds=$5
work=/tmp/bench
progress=webapi/KALO.Mesh.Upgrade.Download/1/progress
progress_answer='{"data":{"percent":0,"status":"none"},"success":true}'
# The references are told by the path that a download is under way, ours by its file.
loading=webapi/KALO.Mesh.Upgrade.Download/1/loading
loading_answer='{"data":{"percent":40,"status":"downloading","version":"VXM 1.4.0-76010"},"success":true}'
status=webapi/KALO.Mesh.Upgrade/VERSION/status
status_answer='{"data":{"allow_upgrade":true,"status":"none"},"success":true}'
upgrade=webapi/KALO.Mesh.Upgrade/2/progress
upgrade_answer='{"data":{"err_desc":"","err_msg":"","errno":0,"percent":0,"step":"none","total_percentage":0,"version":""},"success":true}'
stuck=webapi/KALO.Bench/1/stuck
stuck_answer='{"data":null,"success":true}'
few=$(((rounds + 1) / 2))
mkdir -p "$work"

# A module whose row is stuck for a second; with it the server is started anew.
cp "$build/bench/stuck.so" "$sources/bench/requests/stuck.json" /volume1/@slots/current/webapi/
asks() { curl -sk -o /dev/null -X POST "https://127.0.0.1:$1/"; }
sleep 11  # a server that lived that long is started anew at once
fastcgi='' nginx='' httpd='' bus=''
trap 'rm -f "$work/sticking"; pkill -CONT -x meshd || true; kill $fastcgi $nginx $httpd $bus $(pgrep -P "$fastcgi") 2>/dev/null || true' EXIT
# Without heartbeats there is no worker of the mesh's own port, until its memory is looked at.
pkill -STOP -x meshd
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
until asks 9443; do sleep 0.05; done

login=$(curl -sk -c "$work/jar" -H 'Content-Type: application/json' \
  -d "{\"user\":\"admin\",\"password\":\"$password\"}" https://127.0.0.1/webapi/KALO.Core.Auth/1/login)
token=$(sed -n 's/.*"token":"\([^"]*\)".*/\1/p' <<<"$login")
cookie=$(awk '/kalo_session/ { print $7 }' "$work/jar")
post() {
  curl -sSk -b "kalo_session=$cookie" -H "X-KALO-Token: $token" -H 'Content-Type: application/json' \
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
workers() { pgrep -cx webapid-worker; }
threads_of() { local p; for p in $(pids_of "$1"); do echo "/proc/$p/task/"*; done; }
# Nanoseconds on a processor, of these threads.
cpu_of() { local t; for t; do cat "$t/schedstat" || true; done 2>/dev/null |
  awk '{ sum += $1 } END { printf "%.0f", sum }'; }
memory_of() { local sum=0 p; for p in $(pids_of "$1"); do
  sum=$((sum + $(awk '/^Pss:/ { print $2 }' "/proc/$p/smaps_rollup"))); done; echo "$sum"; }

# run WHAT SERVER CONNECTIONS ROW ANSWER. A thread that ends takes its past with it: a run counts when the
# same ones are there before and after it.
run() {
  local threads before line after i
  for i in 1 2 3 4 5; do
    threads=$(threads_of "$2")
    before=$(cpu_of $threads)
    line=$(taskset -c 1 wrk -t1 -c"$3" -d"${seconds}s" -s "$sources/bench/requests/post.lua" \
      "https://127.0.0.1:$(port_of "$2")/$4" -- "$cookie" "$token" "$5" "$3" | grep RESULT)
    after=$(cpu_of $threads)
    if [ "$threads" = "$(threads_of "$2")" ]; then
      echo "RUN $1 $3 $2 $((after - before)) ${line#RESULT }"
      return
    fi
    echo "AGAIN $1 $3 $2"
  done
  echo "$1 $3 $2: processes come and go in each of $i runs" >&2
  exit 1
}

# each WHAT ROUNDS ROW ITS-ROW ANSWER REFERENCE...: ours and the references in turn.
each() {
  local what=$1 rounds=$2 row=$3 its_row=$4 answer=$5 connections round server
  shift 5
  for connections in 1 8 32; do
    for ((round = 0; round < rounds; round++)); do
      run "$what" ours $connections "$row" "$answer"
      for server; do run "$what" "$server" $connections "$its_row" "$answer"; done
    done
  done
}

begin=$(date +%s%N)
post -o /dev/null "https://127.0.0.1/$progress"
echo "START worker $((($(date +%s%N) - begin) / 1000))"
for server in ours nginx; do echo "MEMORY $server $(memory_of $server) $(workers)"; done
pkill -CONT -x meshd
for ((i = 0; i < 100; i++)); do
  if [ "$(workers)" -ge 2 ]; then break; fi
  sleep 0.1
done
sleep 2  # a few heartbeats
echo "MEMORY mesh $(memory_of ours) $(workers)"

# These two have libraries in common with ours, which would make its share of them look small.
tls="/etc/kalo/tls/server.crt /etc/kalo/tls/server.key"
"$build/bench/bench-httpd" 9444 $tls & httpd=$!
"$build/bench/bench-httpd" 9445 $tls bus & bus=$!
for port in 9444 9445; do until asks $port; do sleep 0.05; done; done
echo "MEMORY httpd $(memory_of httpd)"
for server in ours nginx httpd; do
  echo "ANSWER $server $(post "https://127.0.0.1:$(port_of $server)/$progress")"
done
for server in ours nginx httpd bus; do
  for pid in $(pids_of $server); do taskset -p -a -c 0 "$pid" >/dev/null; done
done

each progress $rounds "$progress" "$progress" "$progress_answer" nginx httpd
# Who downloads holds the lock; without it the mesh service takes the download for dead within a second.
exec 9>>/var/lock/mesh_patch.lock
flock -n 9 || { echo "somebody holds the patch lock" >&2; exit 1; }
(umask 077; printf 'step="downloading"\npercent="40"\nversion="VXM 1.4.0-76010"\n' >/tmp/mesh_download)
each loading $rounds "$progress" "$loading" "$loading_answer" nginx httpd
each loading-v2 $few "${progress/1/2}" "$loading" "$loading_answer" nginx
rm /tmp/mesh_download
exec 9>&-
each status-v2 $rounds "${status/VERSION/2}" "${status/VERSION/2}" "$status_answer" bus
each status-v1 $few "${status/VERSION/1}" "${status/VERSION/1}" "$status_answer" bus
each upgrade-v2 $few "$upgrade" "$upgrade" "$upgrade_answer" bus

# A thousand, one after the other, on one connection.
for ((i = 0; i < 1000; i++)); do echo "url = https://127.0.0.1/$progress"; done >"$work/thousand"
for ((round = 0; round < rounds; round++)); do
  post -w '\n%{time_pretransfer} %{time_total} %{num_connects}\n' -K "$work/thousand" >"$work/answers"
  awk -v answer="$progress_answer" '
    NR % 2 { if ($0 != answer) wrong++; next }
    { t = NR == 2 ? $2 - $1 : $2; if (t > most) most = t; if (t > 0.005) late++; connects += $3 }
    END { printf "THOUSAND %d %.0f %d %d %d\n", NR / 2, most * 1e6, late, wrong, connects }' "$work/answers"
done

# One row stuck all the time, both ways: each answer is the row's own and takes its second.
stick() {
  local begin
  begin=$(date +%s%N)
  while [ -e "$work/sticking" ]; do
    post -w '\n%{time_total}\n' "https://127.0.0.1:$(port_of "$1")/$stuck" || true
  done >"$work/stuck-$1"
  awk -v server="$1" -v answer="$stuck_answer" -v elapsed="$((($(date +%s%N) - begin) / 1000000))" '
    NR % 2 { right = $0 == answer; next }
    { if (!right || $1 < 0.95 || $1 > 1.5) wrong++ }
    END { printf "STUCK %s %d %d %d\n", server, NR / 2, wrong, elapsed }' "$work/stuck-$1"
}
touch "$work/sticking"
stick ours & first=$!
stick nginx & second=$!
sleep 0.5
for connections in 1 8; do
  for ((round = 0; round < rounds; round++)); do
    for server in ours nginx; do run stuck $server $connections "$progress" "$progress_answer"; done
  done
done
rm "$work/sticking"
wait "$first"
wait "$second"
echo "MEMORY end $(memory_of ours) $(workers)"
