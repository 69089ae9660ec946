#!/usr/bin/env bash
# Runs mroute-sim on a scenario whose chips are on the Linux kernel and checks
# that real packets went through, all landed where the reference chip said,
# and that the run left no device or namespace behind.
# Usage: run_example.sh MROUTE_SIM SCENARIO. Exit 77 (skipped) without the privilege.
set -uo pipefail
sim=$1
scenario=$2
before_links=$(ls /sys/class/net | sort)
before_netns=$(ls /run/netns 2>/dev/null | sort)
out=$("$sim" --json -q "$scenario" 2>&1)
rc=$?
if [ $rc -eq 2 ] && grep -q "needs root" <<<"$out"; then
  echo "skipped: $out"
  exit 77
fi
echo "$out"
[ $rc -eq 0 ] || { echo "FAIL: mroute-sim exited $rc"; exit 1; }
field() { grep -o "\"$1\": [0-9]*" <<<"$out" | head -1 | grep -o '[0-9]*$'; }
sent=$(field packetsSent)
captured=$(field copiesCaptured)
wrong=$(field packetsNotAsPredicted)
[ -n "$sent" ] && [ "$sent" -gt 0 ] || { echo "FAIL: no real packet was sent"; exit 1; }
[ -n "$captured" ] && [ "$captured" -gt 0 ] || { echo "FAIL: no real copy was captured"; exit 1; }
[ "$wrong" = "0" ] || { echo "FAIL: $wrong real packets did not land as predicted"; exit 1; }
[ "$(ls /sys/class/net | sort)" = "$before_links" ] || { echo "FAIL: network devices left behind"; exit 1; }
[ "$(ls /run/netns 2>/dev/null | sort)" = "$before_netns" ] || { echo "FAIL: a named namespace left behind"; exit 1; }
echo "real packets: $sent sent, $captured copies captured, all where predicted; nothing left behind"
