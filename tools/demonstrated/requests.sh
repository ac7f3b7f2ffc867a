# Users and requests: the accounts and groups of this machine as users and authorization
# profiles, the places of each continent as a group, a package that is distributed to one
# of them, its correlators, and the end of that request.  Sourced by ../demonstration.

most_accounts=1000  # of a machine that asks a directory, too

# ---- what the JSON lines are made from

# database_of passwd|group: its lines.
database_of() {
  { getent "$1" 2>/dev/null || cat "/etc/$1"; } | tr '\200-\377' '?' | awk -v most="$most_accounts" 'NR <= most'
}

# A profile each: what the members of a group may do follows from what it is.
profiles() {
  database_of group | awk -F : "$quoted_text"'
    length($1) > 16 || $1 == "" { next }
    { rights = "\"config\":\"VIEW\",\"prep\":\"VIEW\",\"cm\":\"NONE\",\"dist\":\"NONE\",\"tcq\":\"VIEW\",\"system\":\"VIEW\",\"target\":\"ALL\"" }
    $3 >= 1000 { rights = "\"config\":\"NONE\",\"cm\":\"INSTALL\",\"dist\":\"RETRIEVE\",\"target\":\"OWN_TARGET\"" }
    $3 == 0 || $1 == "sudo" || $1 == "wheel" { rights = "\"config\":\"MODIFY\",\"prep\":\"MODIFY\",\"cm\":\"ALL\",\"dist\":\"ALL\",\"tcq\":\"MODIFY\",\"system\":\"MODIFY\",\"target\":\"ALL\"" }
    { printf "{\"type\":\"apr\",\"name\":%s,%s}\n", quoted($1), rights }'
}

# A user each: its profile is its primary group, it may log in here if it has a shell.
accounts() {
  { database_of group; echo; database_of passwd; } | awk -F : -v here="$machine" "$quoted_text"'
    !behind { if ($0 == "") behind = 1; else group[$3] = $1; next }
    length($1) > 16 || $1 == "" { next }
    {
      if ($3 == 0) login = "\"all_targets\":\"YES\""
      else if ($7 ~ /(nologin|false|sync)$/) login = "\"all_targets\":\"NO\""
      else login = "\"login_trgs\":[" quoted(here) "]"
      profile = length(group[$4]) > 16 ? "" : group[$4]
      printf "{\"type\":\"usr\",\"usr_name\":%s,\"description\":%s,\"profile\":%s,%s}\n", quoted($1), quoted(substr($5, 1, 59)), quoted(profile), login
    }'
}
# Who may do what: administrators, those who can log in, and nobody else.
levels() {
  database_of passwd | awk -F : '$1 !~ /[ \t]/ && length($1) <= 16 { print $1, $3 == 0 ? 2 : $7 ~ /(nologin|false|sync)$/ ? "none" : 0 }'
}

# A group each: a continent or ocean with its places.
continents() {
  awk -F '\t' '
    !/^#/ && split($3, part, "/") > 1 {
      if (!n[part[1]]++) order[++groups] = part[1]
      members[part[1]] = members[part[1]] (n[part[1]] > 1 ? "," : "") "\"" $3 "\""
    }
    END {
      for (i = 1; i <= groups; i++)
        printf "{\"name\":\"%s\",\"description\":\"%d places of the time zone database\",\"members\":[%s]}\n", order[i], n[order[i]], members[order[i]]
    }' "$zones"
}

# request USER SEQUENCE TEXT FUNCTION... <TARGETS: the records of a request to clients of
# the server Europe, the same targets for each function.
request() {
  text=$3 awk -v server="$machine" -v user="$1" -v sequence="$2" -v functions="$(shift 3; echo "$*")" "$quoted_text"'
    function record(type, more) { printf "{\"type\":\"%s\",\"src_domain\":%s,\"user\":%s,\"seq_no\":%d%s}\n", type, quoted(server), quoted(user), sequence, more }
    { target[NR] = $0 }
    END {
      record("rqr", ",\"text90\":" quoted(ENVIRON["text"]))
      for (i = 1; i <= split(functions, name, " "); i++) {
        f = ",\"subreq_id\":" quoted(name[i])
        d = f ",\"domain\":\"Europe\""
        record("rqf", f)
        record("rqd", d)
        for (t = 1; t <= NR; t++) record("rqt", d ",\"target\":" quoted(target[t]))
      }
    }'
}

# ---- how it is asked

# value_of MEMBER: a text of the JSON line that is read.
value_of() { sed "s/.*\"$1\":\"\([^\"]*\)\".*/\1/"; }
# request_name USER SEQUENCE
request_name() { printf '%s.%s.%s.0\n' "$(in_name "$machine")" "$(in_name "$1")" "$2"; }
in_name() { printf '%s' "$1" | sed 's/[.\\]/\\&/g'; }
# records_of USER SEQUENCE: how many records of all types the request has.
records_of() {
  for type in rqr rqf fan rqd rqt rqv; do
    "$tool" list "$type" --server "$machine" --user "$1" --seq "$2" --rec 0
  done | wc -l
}

show_users() {
  step "11. The accounts and groups of this machine become users and authorization profiles"
  { profiles; accounts; } >"$scratch/accounts.jsonl"
  levels >"$ORVO_PATH/users"
  from=$(now)
  "$tool" import "$scratch/accounts.jsonl" >/dev/null
  elapsed=$(since "$from")
  say "   $("$tool" list usr --names | wc -l) users and $("$tool" list apr --names | wc -l) profiles stored in $elapsed ms, each kind in one transaction"
  found_by usr --name 's*'
  found_by apr --name 's*'
  asking=$(database_of passwd | awk -F : '$3 == 0 { print substr($1, 1, 16); exit }')
  [ -n "$asking" ] || asking=root
  other=$(database_of passwd | awk -F : '$3 != 0 && length($1) <= 16 { print $1; exit }')
  [ -n "$other" ] || other=$asking
  "$tool" auth "$asking" >"$scratch/rights" || fail "$asking is not authorized"
  say "   auth $asking: $(sed 's/.*\("level":[0-9]*\).*\("profile":"[^"]*"\).*/\1, \2/' "$scratch/rights"), with the rights"
  say "     $(sed 's/.*"rights":{\(.*\)}}/\1/' "$scratch/rights")"
  "$tool" auth "$other" >"$scratch/rights" 2>"$scratch/refused" || say "   $(sed 's/^zvradm: //' "$scratch/refused")"
}

show_request() {
  step "12. The places become groups, and a package is distributed to one of them"
  continents >"$scratch/groups.jsonl"
  from=$(now)
  "$tool" put tg "$scratch/groups.jsonl" >/dev/null
  say "   $("$tool" list tg --names | wc -l) groups stored in $(since "$from") ms:"
  say "     $(sed 's/.*"name":"\([^"]*\)","description":"\([0-9]*\) .*/\1 \2/' "$scratch/groups.jsonl" | paste -s -d ' ' -)"
  "$tool" get tg Europe | sed 's/.*"members":\[\([^]]*\)\].*/\1/' | tr ',' '\n' | tr -d '"' >"$scratch/members"
  {
    request "$asking" 1 "$package to Europe" DISTRIBUTE INSTALL <"$scratch/members"
    echo Europe/Oslo | request "$other" 2 "$package to Oslo" INSTALL
  } >"$scratch/requests.jsonl"
  from=$(now)
  "$tool" import "$scratch/requests.jsonl" >/dev/null
  say "   $package to the group Europe by $asking, to Oslo once more by $other:"
  say "     $(lines_of "$scratch/requests.jsonl") records stored in $(since "$from") ms, in one transaction"
  asked=$(request_name "$asking" 1)
  for function in DISTRIBUTE INSTALL; do
    correlator=$("$tool" correlator of "$asked.$function" | value_of correlator)
    say "   correlator of $asked.$function: $correlator"
  done
  say "   request of $correlator: $("$tool" request of "$correlator" | value_of request)"
  say "   listed by filters and by destination:"
  found_by rqt --server "$machine" --user "$asking" --seq 1
  found_by rqt --server "$machine" --user "$asking" --seq 1 --rec 0 --function 'INST*'
  found_by rqd --domain Europe
  found_by rqt --target Europe/Oslo
}

show_removal_of_request() {
  step "13. The request is deleted with all that is below it"
  "$tool" request-tree show "$asked" >"$scratch/shown"
  first_lines 5 "$scratch/shown"
  say "     ... $(lines_of "$scratch/shown") lines in all"
  stored=$(records_of "$asking" 1)
  from=$(now)
  "$tool" request-tree del "$asked"
  say "   request-tree del in $(since "$from") ms: of its $stored records $(records_of "$asking" 1) are left"
  for question in "request-tree show $asked" "get coo $asked.INSTALL" "request of $correlator"; do
    # shellcheck disable=SC2086  # a question is several words
    "$tool" $question 2>"$scratch/refused" && fail "$question: it is still there"
    say "   $(sed 's/^zvradm: //' "$scratch/refused")"
  done
  [ "$(records_of "$asking" 1)" -eq 0 ] || fail "records of the deleted request are left"
  say "   what $other asked for is there: request $(request_name "$other" 2) with $(records_of "$other" 2) records"
}

# What is distributed: the time zone database itself, if a package brought it here, or any
# package; the system where none is known.
package=$("$tool" list cat --filter '*.tzdata.*.*' --names --table | sed -n '2s/ *$//p')
[ -n "$package" ] || package=$("$tool" list cat --names --table | sed -n '2s/ *$//p')
if [ -z "$package" ]; then
  printf '{"cf_name":["system","%s","REF","%s"]}\n' "$(uname -s)" "$(uname -r | cut -c 1-40)" | "$tool" put cat >/dev/null
  package=$("$tool" list cat --names --table | sed -n '2s/ *$//p')
fi
show_users
show_request
show_removal_of_request
