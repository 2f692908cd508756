#!/bin/bash
# inside.sh BUILD SOURCES PASSWORD SECONDS ROUNDS: runs in the CAP of a mesh, beside its web API server.
# For each number of connections and each server: requests a second, and processor time per request
# from the processes' own accounting.
set -eu
build=$1 sources=$2 password=$3 seconds=$4 rounds=$5
row=webapi/KALO.Mesh.Upgrade.Download/1/progress
work=/tmp/bench
mkdir -p "$work"

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
    }
  }
}
CONF
"$build/bench/bench-fastcgi" "$work/fastcgi.sock" & fastcgi=$!
"$build/nginx/usr/sbin/nginx" -e "$work/nginx.log" -c "$work/nginx.conf" & nginx=$!
"$build/bench/bench-httpd" 9444 /etc/kalo/tls/server.crt /etc/kalo/tls/server.key & httpd=$!
trap 'kill $fastcgi $nginx $httpd $(pgrep -P $fastcgi) 2>/dev/null || true' EXIT

login=$(curl -sk -c "$work/jar" -H 'Content-Type: application/json' \
  -d "{\"user\":\"admin\",\"password\":\"$password\"}" https://127.0.0.1/webapi/KALO.Core.Auth/1/login)
token=$(sed -n 's/.*"token":"\([^"]*\)".*/\1/p' <<<"$login")
cookie=$(awk '/kalo_session/ { print $7 }' "$work/jar")

pids_of() {
  case $1 in
    ours) pgrep -x webapid; pgrep -x webapid-worker ;;
    nginx) echo "$nginx"; pgrep -P "$nginx"; echo "$fastcgi"; pgrep -P "$fastcgi" ;;
    httpd) echo "$httpd" ;;
  esac
}
port_of() { case $1 in ours) echo 443 ;; nginx) echo 9443 ;; httpd) echo 9444 ;; esac; }
# Ticks of a hundredth of a second.
cpu_of() { local sum=0 p; for p in $(pids_of "$1"); do
  sum=$((sum + $(awk '{ sub(/.*\) /, ""); print $12 + $13 }' "/proc/$p/stat"))); done; echo "$sum"; }
memory_of() { local sum=0 p; for p in $(pids_of "$1"); do
  sum=$((sum + $(awk '/^Pss:/ { print $2 }' "/proc/$p/smaps_rollup"))); done; echo "$sum"; }

for server in ours nginx httpd; do
  for try in 1 2 3 4 5; do
    curl -sk -b "kalo_session=$cookie" -H "X-KALO-Token: $token" -H 'Content-Type: application/json' \
      -d '{}' "https://127.0.0.1:$(port_of $server)/$row" >"$work/answer" && break
    sleep 0.2
  done
  echo "ANSWER $server $(cat "$work/answer")"
done
for connections in 1 8 32; do
  for ((round = 0; round < rounds; round++)); do
    for server in ours nginx httpd; do
      before=$(cpu_of $server)
      line=$(wrk -t1 -c"$connections" -d"${seconds}s" -s "$sources/bench/requests/post.lua" \
        "https://127.0.0.1:$(port_of $server)/$row" -- "$cookie" "$token" | grep RESULT)
      after=$(cpu_of $server)
      echo "RUN $connections $server $((after - before)) ${line#RESULT }"
    done
  done
done
for server in ours nginx httpd; do echo "MEMORY $server $(memory_of $server)"; done
