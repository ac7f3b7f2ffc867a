# Targets: this machine and the places of the time zone database, renamed while a second
# process is in the library, and a writer that is killed.  Sourced by ../demonstration.

# ---- what the JSON lines are made from

# One line a hardware parameter of this machine: NAME, a tab, VALUE.
hardware() {
  printf 'OperatingSystem\t%s\n' "$(uname -s)"
  printf 'OperatingSystem.version\t%s\n' "$(uname -r)"
  awk '/^MemTotal:/ { printf "PWS.memorySizeMb\t%d\n", $2 / 1024 }' /proc/meminfo
  awk -F '[ \t]*: *' '
    /^processor/ { n++ }
    /^(model name|Model|cpu model)[ \t]*:/ && !model { model = $2 }
    /^cpu MHz/ && !mhz { mhz = int($2) }
    END { if (!model) model = "unknown"
          printf "PWSType.processor/\t%d x %s\n", n, model
          if (mhz) printf "PWSType.processorSpeed/\t%d\n", mhz }' /proc/cpuinfo
  for disk in /sys/block/*; do
    [ -r "$disk/size" ] || continue
    blocks=$(cat "$disk/size")
    [ "$blocks" -gt 0 ] || continue
    printf 'FixedDisk.capacityMb/%s\t%d\n' "${disk##*/}" $((blocks / 2048))
  done
  for card in /sys/class/net/*; do
    [ -r "$card/address" ] || continue
    printf 'NetworkInterface/%s\t%s\n' "${card##*/}" "$(cat "$card/address" 2>/dev/null || echo none)"
  done
}

# machine_record LIST_MEMBER FIRST_MEMBERS: this machine's record, with its hardware.
machine_record() {
  hardware | head -n 128 | awk -F '\t' -v list="$1" -v first="$2" "$quoted_text"'
    BEGIN { printf "{%s,\"%s\":[", first, list }
    { printf "%s{\"name\":%s,\"value\":%s}", (NR > 1) ? "," : "", quoted(substr($1, 1, 80)), quoted(substr($2, 1, 80)) }
    END { print "]}" }'
}

# The places of the time zone database: a server for each continent or ocean, and its
# places as clients.
places() {
  awk -F '\t' '
    function network(s) { s = toupper(s); gsub(/[^A-Z]/, "", s); return s }
    !/^#/ && split($3, part, "/") > 1 {
      if (!(part[1] in seen)) {
        seen[part[1]] = 1
        printf "{\"type\":\"trg\",\"trg_name\":\"%s\",\"rgn\":\"%s\",\"ren\":\"SERVER\",\"trg_type\":[\"REMOTE\",\"SERVER\"],\"trg_mode\":\"PUSH\"}\n", part[1], substr(network(part[1]), 1, 8)
      }
      printf "{\"type\":\"trg\",\"trg_name\":\"%s\",\"description\":\"%s at %s\",\"rgn\":\"%s\",\"ren\":\"%s%03d\",\"trg_type\":[\"REMOTE\",\"CLIENT\"],\"trg_os\":\"OS_UNKNOWN\",\"trg_mode\":\"%s\",\"srv_name\":\"%s\"}\n", $3, $1, $2, substr(network(part[1]), 1, 8), substr(network(part[2]), 1, 5), ++place, $2 ~ /^-/ ? "PULL" : "PUSH", part[1]
    }' "$zones"
}

# ---- what is shown

step "1. An installation with this machine as its local target"
"$tool" init --name "$machine" --rgn LOCALNET --ren "$element" --kind server >/dev/null
name="\"trg_name\":\"$machine\""
machine_record hw_parms "$name,\"description\":\"$(uname -s) on $(uname -m)\",\"trg_os\":\"OS_UNKNOWN\"" |
  "$tool" put trg --update >/dev/null
machine_record hw_parms "$name" | "$tool" put thw >/dev/null
parameters=$("$tool" get thw "$machine" --table | sed 1,2d)
count=$(printf '%s\n' "$parameters" | grep -c '^hw_parms')
say "   $machine with $count hardware parameters from /proc and /sys, among them"
printf '%s\n' "$parameters" | sed -n 's/^hw_parms\[[0-9]*\] */     /p' | cut -c 1-76 |
  grep -E 'version|memory|processor/|Disk|Interface' | head -n 6

step "2. The places of the time zone database, stored in one transaction"
places >"$scratch/places.jsonl"
from=$(now)
"$tool" import "$scratch/places.jsonl" >/dev/null
say "   $(lines_of "$scratch/places.jsonl") targets stored in $(since "$from") ms; found again by filters, from shared memory:"
found_by trg --type SERVER
found_by trg --mode PULL
found_by trg --name 'Europe/*'
found_by trg --server Asia

step "3. One process stays in the library while a second renames a server"
mkfifo "$scratch/in" "$scratch/out"
"$tool" put trg - <"$scratch/in" >"$scratch/out" &
writer=$!
exec 4>"$scratch/in" 3<"$scratch/out"
echo '{"trg_name":"Atlantic/Rockall","trg_type":["REMOTE","CLIENT"],"srv_name":"Atlantic"}' >&4
read -r answer <&3
say "   first process, $writer: put Atlantic/Rockall under the server Atlantic: $answer"
"$tool" rename-target Atlantic Atlantic-Ocean
say "   second process: rename-target Atlantic Atlantic-Ocean; its places follow at once:"
say "     server-of Atlantic/Azores: $("$tool" server-of Atlantic/Azores)"
say "     list trg --server Atlantic-Ocean: $("$tool" list trg --server Atlantic-Ocean | wc -l) places"
echo '{"trg_name":"Atlantic/Surtsey","trg_type":["REMOTE","CLIENT"],"srv_name":"Atlantic-Ocean"}' >&4
read -r answer <&3
say "   first process: put Atlantic/Surtsey under Atlantic-Ocean: $answer"

step "4. The first process is killed with SIGKILL in the middle of a put"
# A put is several write operations on the file. The kill comes between two of them;
# when it fell between two puts, a further writer is killed.
attempt=0
generation=$(status_of generation)
while :; do
  attempt=$((attempt + 1))
  [ "$attempt" -le 30 ] || fail "no writer died inside a put"
  awk -v run="$attempt" 'BEGIN { for (i = 1; i <= 1500; i++)
    printf "{\"trg_name\":\"killed-%02d/%04d\",\"contact_name\":\"line %d\",\"trg_type\":130}\n", run, i, i }' >&4 2>/dev/null &
  feeder=$!
  acknowledged=0
  while [ "$acknowledged" -lt 12 ] && read -r answer <&3; do acknowledged=$((acknowledged + 1)); done
  sleep "0.00$((attempt % 9 + 1))"  # an arbitrary moment, not that of an answer
  kill_writer trgcfg
  wait "$feeder" 2>/dev/null || :
  exec 4>&-
  while read -r answer <&3; do acknowledged=$((acknowledged + 1)); done
  exec 3<&-
  writer=
  [ "$(status_of write_in_progress)" = 0 ] || break
  "$tool" put trg - <"$scratch/in" >"$scratch/out" &
  writer=$!
  exec 4>"$scratch/in" 3<"$scratch/out"
done
run=$(printf '%02d' "$attempt")
say "   killed after $acknowledged acknowledged puts, inside the next one: write in progress 1, generation $generation"
from=$(now)
next=$("$tool" list trg --name "killed-$run/*" | wc -l)
elapsed=$(since "$from")
say "   the next caller repairs and answers in $elapsed ms: write in progress $(status_of write_in_progress), generation $(status_of generation)"
case $((next - acknowledged)) in
  0) say "   all $acknowledged acknowledged records are there; the one in flight is absent" ;;
  1) "$tool" get trg "killed-$run/$(printf '%04d' "$next")" | grep -q "\"contact_name\":\"line $next\"" ||
       fail "the record in flight is not whole"
     say "   all $acknowledged acknowledged records are there; the one in flight is there and whole" ;;
  *) fail "$acknowledged records were acknowledged, $next are there" ;;
esac
