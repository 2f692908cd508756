#!/bin/bash
# inside.sh BUILD PATH VERSION ROUNDS: runs in the CAP of a mesh whose node 2 has the same model. PATH
# is the patch's place in the feed. Prints "WHAT WHO MILLISECONDS CPU-MILLISECONDS KIB" for each run.
set -eu
build=$1 path=$2 version=$3 rounds=$4
feed=https://127.0.0.100
target=/volume1/bench.pat answer=/tmp/bench.answer
measure() { printf '%s %s ' "$1" "$2"; shift 2; "$build/bench/bench-measure" "$@"; }

curl -sSf --cacert /etc.defaults/kalo/feed-ca.crt -o $target "$feed/$path"
size=$(stat -c %s $target)
hash=$(sha256sum $target | cut -d' ' -f1)
for ((round = 0; round < rounds; round++)); do
  measure fetch ours "$build/bench/bench-fetch" kalo_m1 "$version" "$path" "$size" "$hash" $target
  measure fetch one-pass "$build/bench/bench-fetch-reference" one "$feed/$path" "$hash" $target
  measure fetch two-pass "$build/bench/bench-fetch-reference" two "$feed/$path" "$hash" $target
done
# A copy carries no note of a hash found right, so nothing but the sending is compared.
cp $target $target.plain
rm $target
host=node2.mesh.internal
for ((round = 0; round < rounds; round++)); do
  measure send ours "$build/bench/bench-send" 2 127.0.0.3 $target.plain
  measure send curl curl -sSf --tlsv1.3 --resolve "$host:8443:127.0.0.3" \
    --cacert /etc/kalo/mesh/ca.crt --cert /etc/kalo/mesh/node.crt --key /etc/kalo/mesh/node.key \
    -o $answer -F "patch_file=@$target.plain" "https://$host:8443/webapi/KALO.Core.Upgrade.Patch/1/upload"
  grep -q '"success":true' $answer || { cat $answer >&2; exit 1; }
done
rm $target.plain
