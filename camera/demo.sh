#!/bin/sh
# camera/demo.sh BUILD_DIR - the acts of the demonstration. Every `camera` below
# is one life of the camera, from power on to power lost: its memory is new each
# time, only its flash stays. Fails when a life does not go as its title says.
set -eu

build=$1
here=$(cd "$(dirname "$0")" && pwd)
flash=$build/demo-flash
rm -rf "$flash"

act() { printf '\n==== %s ====\n' "$1"; }

# Runs the commands given as lines of standard input, showing each before it.
camera() {
  commands=$(cat)
  # shellcheck disable=SC2016 # expands inside
  "$here/enter" --flash "$flash" "$build" /rom/etc/init.d/boot --bare sh -c '
    echo "$1" | while read -r command; do
      printf "camera# %s\n" "$command"
      sh -c "$command" </dev/null || exit
    done' sh "$commands" </dev/null
  echo "(power lost)"
}

act "A new camera starts with the factory defaults; a change is made and saved"
camera <<'END'
ktctl flash | grep -E "copy|state|boot"
ktctl restore
ktctl get SYSTEM title
ktctl set SYSTEM title "Back door"
ktctl save
END

act "Switched on again: the memory is empty, but the change comes back from flash"
camera <<'END'
ls -l /mnt/ramdisk
ktctl restore
ktctl get SYSTEM title | grep -x "Back door"
END

act "The normal copy in flash is damaged: the backup copy serves and repairs it"
camera <<'END'
dd if=/dev/urandom of=/dev/mtd3 bs=1 seek=100 count=50 conv=notrunc 2>/dev/null
ktctl flash | grep -E "copy|state|boot"
ktctl restore
ktctl get SYSTEM title | grep -x "Back door"
END

act "Switched on once more: both copies are intact"
camera <<'END'
ktctl flash
ktctl restore
ktctl get SYSTEM title | grep -x "Back door"
END
