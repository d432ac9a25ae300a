#!/usr/bin/env bash
# two_hosts.sh <applyChanges> <apply-archive.sh> <manifest> <work directory>: runs the archive
# script in network namespace A with one job slot there and one over ssh in namespace B (veth pair,
# sshd with keys made for the run). Exit status: the script's; 77 when the hosts cannot be made.
set -uo pipefail
program=$1 script=$2 manifest=$3 work=$4
skip() { echo "two hosts not possible here: $*" >&2; exit 77; }

[ "$(id -u)" -eq 0 ] || skip "not root"
command -v ip >/dev/null || skip "no ip command"
[ -x /usr/sbin/sshd ] || skip "no OpenSSH server (openssh-server)"
a=kqA$$ b=kqB$$
cleanup() {
  [ -f "$work/sshd.pid" ] && kill "$(cat "$work/sshd.pid")" 2>/dev/null
  ip netns del "$a" 2>/dev/null
  ip netns del "$b" 2>/dev/null
}
trap cleanup EXIT
ip netns add "$a" 2>/dev/null || skip "cannot add a network namespace"
ip netns add "$b" || skip "cannot add a second network namespace"
ip link add "va$$" type veth peer name "vb$$" || skip "cannot make a veth pair"
ip link set "va$$" netns "$a" && ip link set "vb$$" netns "$b" || exit 2
ip -n "$a" addr add 10.77.0.1/24 dev "va$$" && ip -n "$b" addr add 10.77.0.2/24 dev "vb$$" || exit 2
for ns in "$a" "$b"; do ip -n "$ns" link set lo up; done
ip -n "$a" link set "va$$" up && ip -n "$b" link set "vb$$" up || exit 2

# keys made for this run; the server accepts the client's key for root
ssh-keygen -q -t ed25519 -N '' -f "$work/client" && ssh-keygen -q -t ed25519 -N '' -f "$work/host" || exit 2
cp "$work/client.pub" "$work/authorized_keys"
cat >"$work/sshd_config" <<EOF
ListenAddress 10.77.0.2
Port 2222
HostKey $work/host
AuthorizedKeysFile $work/authorized_keys
PermitRootLogin prohibit-password
PasswordAuthentication no
StrictModes no
UsePAM no
PidFile $work/sshd.pid
EOF
mkdir -p /run/sshd
ip netns exec "$b" /usr/sbin/sshd -f "$work/sshd_config" -E "$work/sshd.log" || exit 2
ssh="ssh -i $work/client -p 2222 -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null -o LogLevel=ERROR"
for i in $(seq 50); do
  ip netns exec "$a" $ssh root@10.77.0.2 true 2>/dev/null && break
  sleep 0.1
done
ip netns exec "$a" $ssh root@10.77.0.2 true || { cat "$work/sshd.log" >&2; exit 2; }

# one job slot on each host
ip netns exec "$a" "$script" -q -b "$program" -l "$work/joblog" -S 1/: -S "1/$ssh root@10.77.0.2" "$manifest"
