#!/usr/bin/env bash
# Starts and stops a BMC for one simulated server: OpenIPMI's ipmi_sim on loopback, with the module that keeps the
# System Boot Options byte by byte.
#
#   bmc.sh start DIR PORT_BASE   LAN interface (ipmitool) on UDP port PORT_BASE, the server's side on TCP port
#                                PORT_BASE + 1; configuration, log and process id lie in DIR
#   bmc.sh stop DIR
#
# IPMI_SIM_MODULE names the module, build/host/ipmi_sim_boot.so by default. User and password: operator, bds-sim-only.
# Exit status: 0 done, 1 it did not start or stop, 2 wrong arguments, 77 ipmi_sim, ipmitool or the module is missing.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
module=${IPMI_SIM_MODULE:-$here/../../build/host/ipmi_sim_boot.so}
user=operator
password=bds-sim-only
patience=50 # turns of 0.2 s

usage() {
  echo "usage: bmc.sh start DIR PORT_BASE | stop DIR" >&2
  exit 2
}

missing() {
  echo "bmc.sh: $1 is missing" >&2
  exit 77
}

# True while the process that DIR/pid names runs and is this simulator: a number may have passed to another process, and
# one that has ended keeps its number, but not its command line, until somebody asks for its status.
running() {
  [ -s "$1/pid" ] && tr '\0' '\n' 2>/dev/null <"/proc/$(cat "$1/pid")/cmdline" | grep -qxF "$1/lan.conf"
}

configure() { # DIR PORT_BASE
  cat >"$1/lan.conf" <<EOF
name "bds"
startlan 1
  addr 127.0.0.1 $2
  priv_limit admin
  allowed_auths_admin none md2 md5 straight
  guid a123456789abcdefa123456789abcdef
endlan
serial 15 127.0.0.1 $(($2 + 1)) codec VM
loadlib "$module" ""
user 2 true "$user" "$password" admin 10
EOF
  cat >"$1/bmc.emu" <<'EOF'
mc_setbmc 0x20
mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02
mc_enable 0x20
EOF
}

answers() { # PORT_BASE
  timeout 2 ipmitool -I lanplus -C 3 -N 1 -R 1 -H 127.0.0.1 -p "$1" -U "$user" -P "$password" \
    raw 0x00 0x09 0x05 0x00 0x00 >/dev/null 2>&1
}

start() { # DIR PORT_BASE
  local dir=$1 port=$2
  [[ $port =~ ^[0-9]{1,5}$ ]] && ((port >= 1 && port < 65535)) || usage
  command -v ipmi_sim >/dev/null || missing ipmi_sim
  command -v ipmitool >/dev/null || missing ipmitool
  [ -f "$module" ] || missing "$module"
  module=$(realpath "$module")
  mkdir -p "$dir/state"
  if running "$dir"; then
    echo "bmc.sh: already running in $dir as process $(cat "$dir/pid")" >&2
    exit 1
  fi
  configure "$dir" "$port"
  ipmi_sim -n -c "$dir/lan.conf" -f "$dir/bmc.emu" -s "$dir/state" </dev/null >"$dir/log" 2>&1 &
  echo $! >"$dir/pid"
  for ((turn = 0; turn < patience; ++turn)); do
    sleep 0.2
    kill -0 "$(cat "$dir/pid")" 2>/dev/null || break
    answers "$port" && return
  done
  echo "bmc.sh: ipmi_sim does not answer on port $port:" >&2
  tail -n 5 "$dir/log" >&2
  stop "$dir" || true
  exit 1
}

stop() { # DIR
  if ! running "$1"; then
    rm -f "$1/pid"
    return
  fi
  local pid
  pid=$(cat "$1/pid")
  kill "$pid" 2>/dev/null || true
  for ((turn = 0; turn < patience; ++turn)); do
    if ! running "$1"; then
      rm -f "$1/pid"
      return
    fi
    sleep 0.2
  done
  kill -KILL "$pid" 2>/dev/null || true
  rm -f "$1/pid"
}

case ${1:-} in
  start) [ $# -eq 3 ] || usage; start "$(realpath -m "$2")" "$3" ;;
  stop) [ $# -eq 2 ] || usage; stop "$(realpath -m "$2")" ;;
  *) usage ;;
esac
