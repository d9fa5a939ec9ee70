"""Sends the raw cases to a server, each on a connection of its own, and compares what becomes of them with what is
written down in expected.txt.

usage: strict_http.py PROGRAM --defined|--strict [--event] [--record]
       strict_http.py --table [DOCUMENT [--record]]

--table prints the table for the document, or finds it there. With --record the outcomes, or the table, are written
instead.

An outcome is what became of the case: the statuses of its answers; "closed" when there was none, or "waits" when the
server waits for more; "otherwise" when the application saw something else than the case says, "parse error" when it was
told so; "kept" or "ended" when the next request was answered and must not be, or was not and has to be; "undated" for
an answer without a date; "open" for a refusal that does not say that it closes the connection.
"""

import concurrent.futures
import pathlib
import sys

import raw_cases
import server_under_test

EXPECTED = pathlib.Path(__file__).with_name("expected.txt")
DOCUMENT_BEGIN, DOCUMENT_END = "<!-- cases: begin -->\n", "<!-- cases: end -->\n"

# Modes and engines for which there is an outcome of each case, in the order of expected.txt.
COLUMNS = ["defined 0.9", "defined 1.0", "strict 0.9", "strict 1.0"]

# How long nothing has to come for "waits".
SILENCE_SECONDS = 0.5

# The cell of a case that is not sent.
NOT_SENT = "not sent"

# Why an outcome of the strict server is not what the RFC says.
REASONS = {
    "closes": "The engine closes the connection without an answer, before the library is asked.",
    "nul": "Engine 0.9.75 ends a text at its first NUL, and nobody sees what is behind it.",
    "folds": "Engine 0.9.75 joins a folded line to the name of the field before it, and tells nobody.",
    "empty": "Engine 0.9.75 leaves out a field without a name.",
    "blanks": "Engine 0.9.75 takes the blanks behind a value for a part of it. A length or a coding is none then, and "
              "is refused.",
    "chunks": "Chunks and trailers are the engine's to read, and the library sees the data alone. Engine 0.9.75 takes "
              "a bare LF for a line end there, and no blank before an extension. Trailers are dropped.",
    "extensions": "Engine 1.0.1 misreads each chunk extension, and refuses what comes of it.",
    "hangs": "Engine 1.0.1 neither answers nor ends a request with a chunk extension for which it has no memory.",
}


def read_expected():
    """From the case's name to its outcomes, one for each column, and the reasons behind them."""
    expected = {}
    for line in EXPECTED.read_text().splitlines():
        if not line.startswith("#"):
            name, *cells = (cell.strip() for cell in line.split("|"))
            expected[name] = cells[:len(COLUMNS)], cells[len(COLUMNS)].split()
    return expected


def write_expected(expected):
    heading = "# case | " + " | ".join(COLUMNS) + " | reasons: of strict_http.py, for what the RFC does not say\n"
    lines = (" | ".join([name, *cells, " ".join(reasons)]).rstrip() + "\n"
             for name, (cells, reasons) in expected.items())
    EXPECTED.write_text(heading + "".join(lines))


def differences(case, seen):
    """What the application saw otherwise than the case says."""
    found = []
    for what, value in case.sees.items():
        if what in ("headers", "cookies", "arguments"):
            pairs = [(f"{what} {name}", values, seen[what].get(name)) for name, values in value.items()]
        else:
            pairs = [(what, value, seen[what])]
        found += [f"{name}: {got!r} for {wanted!r}" for name, wanted, got in pairs if got != wanted]
    return found


def is_next(answer):
    return answer.status == 200 and answer.seen()["path"] == "/next"


def run(case, port, expected_outcome):
    """The outcome of a case, and what was different from it."""
    exchange = server_under_test.Exchange(port, case.sent + raw_cases.NEXT)
    is_silence_expected = "waits" in expected_outcome
    came = exchange.wait(SILENCE_SECONDS if is_silence_expected else server_under_test.PATIENCE_SECONDS,
                         lambda answers: any(map(is_next, answers)))
    answers = exchange.answers()
    exchange.close()
    was_followed = any(map(is_next, answers))
    answers = [answer for answer in answers if not is_next(answer)]
    # The engine's own refusals hold their head twice.
    refusal = next((i for i, answer in enumerate(answers) if answer.status != 200), len(answers))
    statuses = [answer.status for answer in answers[:refusal + 1]]

    words = [", ".join(map(str, statuses))] if statuses else []
    details = []
    if not came:
        words.append("waits")
    elif not statuses:
        words.append("closed")
    if statuses and statuses[0] == 200:
        seen = answers[0].seen()
        if seen["parseError"] is not None:
            words.append("parse error")
            details.append(seen["parseError"])
        found = differences(case, seen)
        if found:
            words.append("otherwise")
            details += found
    is_refused = not statuses or statuses[-1] != 200
    if was_followed and (is_refused or case.followed is False):
        words.append("kept")
    if not was_followed and not is_refused and case.followed and came:
        words.append("ended")
    if any("date" not in answer.headers for answer in answers):
        words.append("undated")
    if any(answer.status >= 400 and answer.headers.get("connection", "").lower() != "close" for answer in answers):
        words.append("open")
    return " ".join(words), details


def fits(case, outcome):
    """Whether the outcome is what the RFC says."""
    if case.judgement == "refuse":
        return outcome in case.statuses
    if outcome == ", ".join(map(str, (200, *case.then))):
        return True
    is_told = outcome == "closed" or "parse error" in outcome or outcome in map(str, range(400, 600))
    return case.judgement == "either" and is_told


def contradictions(expected):
    """What the strict server does otherwise than the RFC says, without a reason; and reasons that nothing wants."""
    found = []
    for case in raw_cases.CASES:
        cells, reasons = expected[case.id]
        strict = {cell for cell in cells[2:] if cell and not fits(case, cell)}
        unknown = set(reasons) - set(REASONS)
        if strict and not reasons:
            found.append(f"{case.id}: {' and '.join(sorted(strict))} is not what {case.section} says: {case.judgement} "
                         + " ".join(case.statuses))
        if reasons and not strict:
            found.append(f"{case.id}: has a reason, and wants none")
        if unknown:
            found.append(f"{case.id}: there is no reason {' '.join(unknown)}")
    return found


def compare(program, arguments, is_recording):
    mode = "strict" if "--strict" in arguments else "defined"
    expected = read_expected() if EXPECTED.exists() else {}
    failures = []
    with server_under_test.serving(program, *arguments) as (port, version):
        column = COLUMNS.index(f"{mode} {'0.9' if version.startswith('0.9.') else '1.0'}")

        def run_one(case):
            cells = expected.setdefault(case.id, ([""] * len(COLUMNS), []))[0]
            if cells[column] == NOT_SENT:
                return NOT_SENT, []
            return run(case, port, "waits" if is_recording else cells[column])

        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            outcomes = list(pool.map(run_one, raw_cases.CASES))
        for case, (outcome, details) in zip(raw_cases.CASES, outcomes):
            cells = expected[case.id][0]
            if is_recording:
                cells[column] = outcome
            if outcome != cells[column]:
                failures.append(f"{case.id}: {outcome} instead of {cells[column]}: {'; '.join(details)}")
    known = {case.id for case in raw_cases.CASES}
    if is_recording:
        write_expected({name: expected[name] for name in (case.id for case in raw_cases.CASES)})
    else:
        failures += [f"{name}: no such case" for name in expected if name not in known]
        failures += contradictions(expected)
    return failures


def table(expected):
    """The table for the document."""
    lines = ["| case | section | judgement | defined mode | strict on 0.9.75 | strict on 1.0.1 |\n",
             "|---|---|---|---|---|---|\n"]
    group = None
    for case in raw_cases.CASES:
        if case.group != group:
            group = case.group
            lines.append(f"| **{group}** | | | | | |\n")
        (defined09, defined10, strict09, strict10), reasons = expected[case.id]
        defined = defined09 if defined09 == defined10 else f"{defined09}; {defined10}"
        judgement = " ".join([case.judgement, *case.statuses])
        notes = "".join(f" [{list(REASONS).index(reason) + 1}]" for reason in reasons)
        lines.append(f"| {case.id} | {case.section} | {judgement} | {defined} | {strict09} | {strict10}{notes} |\n")
    lines += ["\n", *(f"{number}. {reason}\n" for number, reason in enumerate(REASONS.values(), 1))]
    return "".join(lines)


def check_document(path, is_recording):
    text = table(read_expected())
    before, begin, rest = path.read_text().partition(DOCUMENT_BEGIN)
    found, end, behind = rest.partition(DOCUMENT_END)
    if is_recording:
        path.write_text(before + begin + text + end + behind)
    elif found != text:
        return [f"{path} has another table than --table prints"]
    return []


def main(arguments):
    options = [argument for argument in arguments if argument != "--record"]
    is_recording = len(options) < len(arguments)
    if options == ["--table"]:
        print(table(read_expected()), end="")
        return
    if options[0] == "--table":
        failures = check_document(pathlib.Path(options[1]), is_recording)
    else:
        failures = compare(options[0], options[1:], is_recording)
    if failures:
        sys.exit("\n".join(failures))
    print(f"ok: {len(raw_cases.CASES)} cases")


main(sys.argv[1:])
