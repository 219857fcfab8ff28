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

# Runs the commands given as lines of standard input, showing each before it. With
# --bare nothing has been started or restored before the first.
camera() {
  commands=$(cat)
  # shellcheck disable=SC2016 # expands inside
  "$here/enter" --flash "$flash" "$build" /rom/etc/init.d/boot "$@" sh -c '
    echo "$1" | while read -r command; do
      printf "camera# %s\n" "$command"
      sh -c "$command" </dev/null || exit
    done' sh "$commands" </dev/null
  echo "(power lost)"
}

act "A new camera starts with the factory defaults; a change is made and saved"
camera --bare <<'END'
ktctl flash | grep -E "copy|state|boot"
ktctl restore
ktctl get SYSTEM title
ktctl set SYSTEM title "Back door"
ktctl save
END

act "Switched on again: the memory is empty, but the change comes back from flash"
camera --bare <<'END'
ls -l /mnt/ramdisk
ktctl restore
ktctl get SYSTEM title | grep -x "Back door"
END

act "The normal copy in flash is damaged: the backup copy serves and repairs it"
camera --bare <<'END'
dd if=/dev/urandom of=/dev/mtd3 bs=1 seek=100 count=50 conv=notrunc 2>/dev/null
ktctl flash | grep -E "copy|state|boot"
ktctl restore
ktctl get SYSTEM title | grep -x "Back door"
END

act "Switched on once more: both copies are intact"
camera --bare <<'END'
ktctl flash
ktctl restore
ktctl get SYSTEM title | grep -x "Back door"
END

act "An event with a weekly schedule, a timed job, an SD card, and the log of it all"
camera --bare <<'END'
ktctl restore
ktctl log clear
ktctl event settings trigger=1
ktctl event set 1 name=door type=1 actions=email,sd "schedule=8,08:30,17:00;7,22:00,24:00;1,00:00,02:00"
ktctl log add --message EVENT 10 1
ktctl event list
ktctl schedule week door
ktctl cron add 30 3 "*" "*" 0 /usr/bin/ntp_setcron
ktctl cron list
ktctl cron check
head -c 64m /dev/zero >/dev/mmcblk0 # a card; mounting it is played by libcard_help.so
LD_PRELOAD=/lib/libcard_help.so ktctl sd format --yes
LD_PRELOAD=/lib/libcard_help.so ktctl sd status
ktctl sd settings rec_enable=1 schedule1=9,08:00,20:00
ktctl sd settings
ktctl save
ktctl log add --message SYSTEM 7
ktctl log show
END

web=http://127.0.0.1:8080/cgi-bin/settings

act "A browser's road: requests change accounts and an event, and what is wrong changes nothing"
camera <<END
curl -s $web -d "<config><users><user><name>bob</name><password>s3cret</password><io_ctrl>1</io_ctrl></user></users></config>"
cat /tmp/standin/auth.log
curl -s $web -d "<config><events><event index='1'><enabled>1</enabled><schedule><enable>0</enable></schedule><actions><action>email</action></actions></event></events></config>"
sleep 1; ktctl log show
curl -s $web -d "<config><key section='SYSTEM' name='title'>Front door</key></config>"
curl -s $web -d "<config><users><user><name>eve; reboot</name><password>x</password></user></users></config>"
head -c 20481 /dev/zero | curl -s $web --data-binary @-
END

act "Switched on again: all that was changed from the browser is there"
camera <<END
ktctl flash | grep -E "copy|state|boot"
curl -s "$web?users" | grep "<name>bob</name>"
curl -s "$web?events" | grep -A 8 "<event index"
curl -s "$web?section=SYSTEM" | grep "Front door"
END
