#!/usr/bin/env bash
# Stands for the script of the system image that installs a software update: installs nothing, but tells what it does, in
# thirteen lines, as slowly.
set -eu

[[ -f $1 ]] || { echo "failed: no archive" && exit 1; }
while read -r line; do
  echo "$line"
  sleep 0.3
done <<'END'
check: reading archive
check: verifying signature
stage: copying files
stage: copying libraries
stage: copying scripts
syncing
backup: saving settings
backup: saving certificates
install: replacing files
install: replacing libraries
install: replacing scripts
clean: removing leftovers
done: reboot follows
END
