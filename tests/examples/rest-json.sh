#!/usr/bin/env bash
# Makes, reads, changes and deletes notes. usage: rest-json.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

start_server "$1" "{port}"

readonly json='Content-Type: application/json'

# json METHOD PATH [BODY]: status and body.
json() {
    local body=()
    if (($# > 2)); then
        body=(--header "$json" --data-binary "$3")
    fi
    ask --request "$1" "${body[@]}" --write-out '%{stderr}%{http_code} ' "$(url "$2")" 2>&1 | tr -d '\n'
}

expect "no notes" "[]200 " "$(json GET /notes)"
expect "a note is made" '{"id":1,"text":"buy seeds"}201 ' "$(json POST /notes '{"text": "buy seeds"}')"
expect "another" '{"id":2,"text":"vögel füttern"}201 ' "$(json POST /notes '{"text": "vögel füttern"}')"
expect "it has a place" /notes/3 \
    "$(ask --include --header "$json" --data '{"text": ""}' "$(url /notes)" | tr -d '\r' | sed -n 's/^Location: //p')"
expect "a note" '{"id":1,"text":"buy seeds"}200 ' "$(json GET /notes/1)"
expect "a note is changed" '{"id":1,"text":"sow"}200 ' "$(json PUT /notes/1 '{"text": "sow"}')"
expect "a note is deleted" "204 " "$(json DELETE /notes/2)"
expect "a deleted note" 404 "$(status_of "$(url /notes/2)")"
expect "the rest" '[{"id":1,"text":"sow"},{"id":3,"text":""}]200 ' "$(json GET /notes)"
for path in /notes /notes/1; do
    expect "HEAD $path has the length of its GET" "$(ask "$(url "$path")" | wc -c)" \
        "$(ask --head "$(url "$path")" | tr -d '\r' | sed -n 's/^Content-Length: //p')"
    expect "HEAD $path is allowed" HEAD "$(ask --include --request PATCH "$(url "$path")" | grep -o '^Allow: .*HEAD' | grep -o HEAD)"
done
expect "HEAD of no note" 404 "$(status_of --head "$(url /notes/2)")"
for body in '' '{' '[]' '{"text": 1}' $'{"text": "\xff"}'; do
    expect "a bad body: $body" 400 "$(status_of --header "$json" --data-binary "$body" "$(url /notes)")"
done
expect "a body that is no JSON" 415 "$(status_of --data-binary '{"text": ""}' "$(url /notes)")"
expect "a large body" 413 "$(head -c 65537 /dev/zero | status_of --data-binary @- "$(url /notes)")"
for path in / /notes/x /notes/1x /notes/99999999999999999999 /notes/1/2; do
    expect "no note: $path" 404 "$(status_of "$(url "$path")")"
done
expect "a slash too many" 308 "$(status_of "$(url /notes/)")"
expect "a wrong method" 405 "$(status_of --request PATCH "$(url /notes/1)")"
stop_server TERM
