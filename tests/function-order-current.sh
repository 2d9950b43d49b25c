#!/usr/bin/env bash
# The program's function order (cli/rova.order) must still name the functions the program has:
# after large changes it goes stale, and short commands slow down with nothing else failing.
# Fails when more than a tenth of the names it lists are gone; scripts/function-order.sh
# writes it again.
set -euo pipefail
program=$1
order=$2
total=$(grep -c . "$order" || true)
missing=$(nm "$program" | awk 'NR == FNR { have[$NF] = 1; next } NF && !($1 in have)' - "$order" | wc -l)
echo "$missing of $total functions that $order lists are not in $program"
if [ "$total" -eq 0 ] || [ $((missing * 10)) -gt "$total" ]; then
  echo "the order is stale: run scripts/function-order.sh" >&2
  exit 1
fi
