#!/usr/bin/env bash
# Checks the shape of a udev rule file, which Debian 12's udevadm cannot
# verify: every line is empty, a comment, or comma-separated KEY op "value"
# pairs with a known key and an operator that fits it.
set -uo pipefail
file=$1
match='(ACTION|DEVPATH|KERNELS?|SUBSYSTEMS?|DRIVERS?|ATTRS?\{[^}]+\}|TAGS?|ENV\{[^}]+\}|NAME|RESULT|PROGRAM|TEST(\{[^}]+\})?)'
assign='(TAG|ENV\{[^}]+\}|OWNER|GROUP|MODE|RUN(\{[^}]+\})?|SYMLINK|NAME|OPTIONS|ATTR\{[^}]+\}|IMPORT\{[^}]+\}|GOTO|LABEL)'
pair="($match *(==|!=)|$assign *(=|\\+=|-=|:=)) *\"[^\"]*\""
bad=0 n=0 rules=0
while IFS= read -r line || [ -n "$line" ]; do
    n=$((n + 1))
    [[ $line =~ ^[[:space:]]*(#.*)?$ ]] && continue
    if [[ $line =~ ^\ *$pair(\ *,\ *$pair)*\ *$ ]]; then
        rules=$((rules + 1))
    else
        echo "$file:$n: not a rule: $line" >&2
        bad=1
    fi
done <"$file"
[ "$rules" -gt 0 ] || { echo "$file: no rules" >&2; bad=1; }
exit "$bad"
