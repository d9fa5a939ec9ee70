#!/usr/bin/env bash
# Functions that return something are none of the toolkit's, and the compiler says why.
# usage: functions_return_nothing.sh COMPILER INCLUDE-DIRECTORY...
set -euo pipefail

compiler="$1"
shift
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
includes=("${@/#/-I}")

# compiles: standard input as the body of a function that has an App, a Response and a Later.
compiles() {
    {
        echo '#include <vireo/app.h>'
        echo 'using namespace vireo;'
        echo 'void tell(App& app, Response& response, const Later& later) {'
        cat
        echo '}'
    } >"$work/source.cpp"
    "$compiler" -std=c++20 -fsyntax-only "${includes[@]}" "$work/source.cpp" 2>"$work/said"
}

compiles <<'SOURCE' || { cat "$work/said"; exit 1; }
app.get("/", [](Request& request, Response& answer) { return answer.error(request.hasQuery("a") ? 403 : 404); });
app.use([](auto&, auto&, Next& next) { next(); });
app.before(Handler());
app.onError(nullptr);
response.beforeSend([](Response& sent) { sent.removeHeader("A"); });
later.answer([](auto& late) { late.text("late"); });
SOURCE

if compiles <<'SOURCE'; then
app.get("/", [](Request&, Response&) { return "hello"; });
app.before([](Request&, Response&) { return false; });
app.after([](auto&, Response& sent) { return sent.isSet(); });
app.use([](Request&, Response&, Next&) { return 1; });
app.onError([](const Failure&, Request&, Response&) { return 1; });
app.webSocket("/", [](Request&, SocketOpening&) { return true; });
response.beforeSend([](Response&) { return 1; });
later.answer([](Response&) { return "late"; });
SOURCE
    echo "FAILED: functions that return something are taken" >&2
    exit 1
fi
refusals="$(grep -c 'error:.*returns nothing: it answers by what it sets' "$work/said")" || true
((refusals == 8)) || {
    cat "$work/said" >&2
    echo "FAILED: $refusals of 8 are refused with the reason" >&2
    exit 1
}
echo "ok"
