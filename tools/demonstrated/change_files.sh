# Change files and CM status: the packages installed on this machine, their state here
# and on a second target, asked both ways; a bulk import that is killed; the page of
# states.  Sourced by ../demonstration.

# The other targets have names that a table does not cut, and a beginning in common.
family=$(printf '%s' "$machine" | cut -c 1-16)
spare=$family.spare
# Pairs of one target, at most: each is stored for good before the next, and the record of
# its target is written anew, so their cost grows with the square.
most_pairs=850
most_killed=600

# ---- what the JSON lines are made from

# A line a package: section, name, FIX or REF, version, status byte, details as
# hexadecimal text, summary; tabs between.
packages() {
  native=$(dpkg --print-architecture 2>/dev/null || :)
  dpkg-query -W -f '${Section}\t${binary:Package}\t${Version}\t${db:Status-Want}\t${db:Status-Eflag}\t${db:Status-Status}\t${Essential}\t${binary:Summary}\n' |
    tr '\200-\377' '?' | awk -F '\t' -v native=":$native" '
    BEGIN { for (i = 32; i < 127; i++) hex[sprintf("%c", i)] = sprintf("%02x", i) }
    function details(s,   i, all) {
      for (i = 1; i <= length(s) && i <= 32; i++) all = all hex[substr(s, i, 1)]
      return all
    }
    function status() {
      if ($5 != "ok" || $6 == "half-installed") return 7
      if ($6 == "config-files") return 8
      if ($6 == "unpacked" || $6 == "half-configured") return 6
      if ($6 ~ /^triggers/) return 5
      if ($4 == "deinstall" || $4 == "purge") return 4
      if ($4 == "hold") return 3
      return $7 == "yes" ? 2 : 1
    }
    $3 != "" {
      at = length($2) - length(native)
      if (native != ":" && at > 0 && substr($2, at + 1) == native) $2 = substr($2, 1, at)
      class = $3 ~ /\+deb[0-9]+u[0-9]+|\+b[0-9]+$|ubuntu[0-9]+\.[0-9]/ ? "FIX" : "REF"
      printf "%s\t%s\t%s\t%s\t%d\t%s\t%s\n", $1 == "" ? "none" : $1, $2, class, $3, status(), details($4 " " $5 " " $6), $8
    }'
}

# The records of a list of packages, and pairs of them with a target.
naming=$quoted_text'
  function cf_name() { return "\"cf_name\":[" quoted($1) "," quoted($2) ",\"" $3 "\"," quoted($4) "]" }'
change_files() { awk -F '\t' "$naming"'{ printf "{%s,\"text102\":%s}\n", cf_name(), quoted(substr($7, 1, 120)) }' "$1"; }
# pairs PACKAGES TARGET [STATUS]: the status of each, or the same for all.
pairs() {
  awk -F '\t' -v target="$2" -v same="${3:-}" "$naming"'
    { printf "{\"trg_name\":%s,%s,\"cm_status\":%d,\"cm_details\":\"%s\"}\n", quoted(target), cf_name(), same == "" ? $5 : same, $6 }' "$1"
}

# ---- how it is asked

# One line a pair: target, change file, status.  As the record of the target tells it, and
# as those of the change files do, by way of the matrix of targets whose names begin so.
told_by_target() { "$tool" cms by-target "$1" --table | sed 1d | awk -v target="$1" '{ print target, $1, $2 }' | LC_ALL=C sort; }
told_by_files() {
  COLUMNS=1000000 "$tool" matrix --targets "$1" | awk '
    !NF { part++; next }
    part == 0 { name[$1] = $2 }
    part == 1 && $1 != "Target" { for (i = 2; i <= NF; i++) if ($i != "." && $i != "d") print $1, name[i - 1], $i }' | LC_ALL=C sort
}
# put_target NAME REN
put_target() {
  printf '{"trg_name":"%s","ren":"%s","trg_type":["LOCAL","CLIENT"],"srv_name":"%s"}\n' "$1" "$2" "$machine" |
    "$tool" put trg >/dev/null
}
# thinned MOST FILE: at most so many of its lines, from all over it.
thinned() { awk -v every="$((($(lines_of "$2") + $1 - 1) / $1))" 'NR % every == 0' "$2"; }

show_catalog() {
  step "5. The packages installed on this machine become the catalog"
  say "   SECTION.PACKAGE.CLASS.VERSION: FIX a rebuilt or corrected version (+b1, +deb12u1), REF any other"
  change_files "$scratch/packages" >"$scratch/cat.jsonl"
  from=$(now)
  "$tool" put cat "$scratch/cat.jsonl" >"$scratch/answers" 2>"$scratch/refused" || :
  stored=$(grep -cE '"rc":(0|8196),' "$scratch/answers") || fail "no package became a change file: $(head -n 1 "$scratch/refused")"
  say "   $(lines_of "$scratch/packages") packages, each a put of its own: $stored change files stored in $(since "$from") ms"
  # What was refused has no status either.
  sed -n 's/^{"line":\([0-9]*\),"rc":\(0\|8196\),.*/\1/p' "$scratch/answers" |
    awk 'NR == FNR { stored[$1]; next } FNR in stored' - "$scratch/packages" >"$scratch/stored"
  if [ -s "$scratch/refused" ]; then
    say "   names that do not fit their 65 bytes and stay out: $(lines_of "$scratch/refused"), such as"
    say "     $(head -n 1 "$scratch/refused" | sed 's/.*, line/line/')"
  else
    awk -F '\t' '{ n = length($1 $2 $3 $4) + 4 } n > most { most = n; name = $1 "." $2 "." $3 "." $4 }
      END { printf "   all fit the 65 bytes of a name; the longest takes %d: %s\n", most, name }' "$scratch/stored"
  fi
  say "   listed by filters of names, from shared memory:"
  found_by cat --filter 'libs.*.*.*'
  found_by cat --filter '*.*.FIX.*'
  found_by cat --filter '*.lib*.REF.*'
  found_by cat --filter '*.????.*.*'
}

show_status() {
  step "6. Their states become CM status: of all on this machine, of a part on a second target"
  say "   1 installed, 2 installed and essential, 3 on hold, 4 to be removed, 5 triggers wait,"
  say "   6 unpacked only, 7 broken, 8 removed but for its configuration"
  put_target "$spare" SPARE
  thinned "$most_pairs" "$scratch/stored" >"$scratch/chosen"
  [ "$(lines_of "$scratch/chosen")" -eq "$stored" ] || say "   (of $(lines_of "$scratch/chosen") of the $stored, so that it takes seconds)"
  # It got nothing that is for developers, and corrections are unpacked only.
  awk -F '\t' -v OFS='\t' '$1 !~ /devel|debug|doc/ { if ($3 == "FIX") { $5 = 6; $6 = "" } print }' "$scratch/chosen" >"$scratch/part"
  from=$(now)
  { pairs "$scratch/chosen" "$machine"; pairs "$scratch/part" "$spare"; } | "$tool" cms import >"$scratch/imported"
  say "   cms import in $(since "$from") ms: $(cat "$scratch/imported")"
  for target in "$machine" "$spare"; do
    "$tool" cms by-target "$target" --table | awk -v target="$target" 'NR > 1 { n[$2]++ }
      END { printf "   by target %s:", target; for (s = 0; s < 256; s++) if (s in n) printf "  %d with status %d", n[s], s; print "" }'
  done
  chosen=$(told_by_target "$spare" | awk '$3 == 6 { print $2; exit }')
  [ -n "$chosen" ] || chosen=$(told_by_target "$spare" | awk '{ print $2; exit }')
  [ -n "$chosen" ] || chosen=$(told_by_target "$machine" | awk '{ print $2; exit }')
  say "   by file $chosen:"
  "$tool" cms by-file "$chosen" | sed 's/^/     /'
}

show_difference() {
  step "7. The difference between the two targets"
  told_by_target "$machine" >"$scratch/here"
  told_by_target "$spare" >"$scratch/there"
  awk 'NR == FNR { here[$2] = $3; next }
       { if (!($2 in here)) print $2 >only_there; else if (here[$2] != $3) print $2 ": " here[$2] " here, " $3 " there" >other; delete here[$2] }
       END { for (name in here) print name >only_here }' \
    only_here="$scratch/only_here" only_there="$scratch/only_there" other="$scratch/other" "$scratch/here" "$scratch/there"
  for kind in only_here only_there other; do
    touch "$scratch/$kind"
    LC_ALL=C sort -o "$scratch/$kind" "$scratch/$kind"
  done
  say "   $(lines_of "$scratch/only_here") on this machine only, $(lines_of "$scratch/only_there") on the other only, $(lines_of "$scratch/other") on both in different states, such as"
  first_lines 2 "$scratch/only_here"
  first_lines 2 "$scratch/other"
  # Of the sections that both have in different states, the one nearest to seven change files.
  section=$(awk -F '\t' '
    FNR == 1 { file++ }
    file == 1 { if ($3 == "FIX") both[$1] }
    file == 2 { n[$1]++ }
    END {
      for (s in n) {
        far = n[s] > 7 ? n[s] - 7 : 7 - n[s]
        if (!(s in both)) far += 1000
        if (best == "" || far < least || (far == least && s < best)) { best = s; least = far }
      }
      if (n[best] <= 12) print best
    }' "$scratch/part" "$scratch/stored")
  filter="$section.*.*.*"
  [ -n "$section" ] || filter=$chosen
  say "   as a table: matrix --targets $family --files '$filter'"
  COLUMNS=80 "$tool" matrix --targets "$family" --files "$filter" | awk 'NF { print "     " $0 }'
}

show_removal() {
  step "8. A change file goes, with its status on every target"
  "$tool" del cat "$chosen" 2>"$scratch/refused" && fail "a change file with status was deleted"
  say "   $(sed 's/^zvradm: //' "$scratch/refused")"
  "$tool" cms del-file "$chosen"
  "$tool" del cat "$chosen"
  say "   after cms del-file it goes: $("$tool" cms by-target "$machine" | wc -l) pairs left on this machine, $("$tool" cms by-target "$spare" | wc -l) on the other"
  "$tool" get cat "$chosen" 2>"$scratch/refused" && fail "a deleted change file is there"
  say "   $(sed 's/^zvradm: //' "$scratch/refused")"
}

# Imports status of the catalog on fresh targets, of as many as make it long enough to be
# killed on the way, until one is killed inside a pair.
show_killed_import() {
  step "9. A bulk import is killed with SIGKILL in the middle of a pair"
  "$tool" list cat --names >"$scratch/all_names"
  thinned "$most_killed" "$scratch/all_names" >"$scratch/names"
  depots=$(((most_killed + $(lines_of "$scratch/names") - 1) / $(lines_of "$scratch/names")))
  [ "$depots" -le 20 ] || depots=20
  attempt=0
  while :; do
    attempt=$((attempt + 1))
    [ "$attempt" -le 30 ] || fail "no import died inside a pair"
    depot=$family.d$(printf '%02d' "$attempt")
    : >"$scratch/pairs.jsonl"
    for d in $(seq 1 "$depots"); do
      put_target "$depot-$d" "D$attempt-$d"
      sed "s/^{/{\"trg_name\":\"$depot-$d\",\"cm_status\":9,/" "$scratch/names" >>"$scratch/pairs.jsonl"
    done
    generation=$(status_of generation)
    "$tool" cms import "$scratch/pairs.jsonl" --answers >"$scratch/out" 2>"$scratch/errors" &
    writer=$!
    exec 3<"$scratch/out"
    acknowledged=0
    while [ "$acknowledged" -lt 12 ] && read -r answer <&3; do acknowledged=$((acknowledged + 1)); done
    sleep "0.00$((attempt % 9 + 1))"  # an arbitrary moment, not that of an answer
    kill_writer cmstatus
    while read -r answer <&3; do
      case $answer in *'"line"'*) acknowledged=$((acknowledged + 1)) ;; esac
    done
    exec 3<&-
    writer=
    [ "$(status_of write_in_progress)" = 0 ] || break
  done
  say "   killed after $acknowledged answered pairs of $(lines_of "$scratch/pairs.jsonl"), inside the next one: write in progress 1, generation $generation"
  from=$(now)
  told_by_target "$depot-1" >/dev/null
  elapsed=$(since "$from")
  say "   the next caller repairs and answers in $elapsed ms: write in progress $(status_of write_in_progress), generation $(status_of generation)"
  for d in $(seq 1 "$depots"); do told_by_target "$depot-$d"; done | LC_ALL=C sort >"$scratch/by_target"
  told_by_files "$depot" >"$scratch/by_files"
  cmp -s "$scratch/by_target" "$scratch/by_files" || fail "targets and change files tell different pairs"
  there=$(lines_of "$scratch/by_target")
  case $((there - acknowledged)) in
    0) inside="the one in flight is on neither side" ;;
    1) inside="the one in flight is on both sides" ;;
    *) fail "$acknowledged pairs were answered, $there are there" ;;
  esac
  say "   all $acknowledged answered pairs are there, $there told alike from both sides, target and change file;"
  say "   $inside; repeated as it is, the import completes:"
  say "     $("$tool" cms import "$scratch/pairs.jsonl")"
  [ "$(told_by_files "$depot" | wc -l)" -eq "$(lines_of "$scratch/pairs.jsonl")" ] || fail "the repeated import is not complete"
}

show_page() {
  step "10. The page of states"
  page=$scratch/states.html
  [ -z "$kept_page" ] || page=$kept_page
  from=$(now)
  "$tool" matrix --html "$page" --targets "$family"
  say "   written in $(since "$from") ms, $(($(wc -c <"$page") / 1024)) KiB, for any browser: $page"
  [ -n "$kept_page" ] || say "   (removed with the scratch folder; --page FILE keeps it)"
}

if command -v dpkg-query >/dev/null && packages >"$scratch/packages" && [ -s "$scratch/packages" ]; then
  show_catalog
  show_status
  show_difference
  show_removal
  show_killed_import
  show_page
else
  step "5 to 10. Change files and CM status: skipped, for no installed packages are known here (dpkg-query)"
fi
