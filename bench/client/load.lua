-- For wrk: GET / as it is, or, with the argument "browser", as a browser asks: 12 headers, 3 cookies, 6 query arguments.
-- Prints the totals as one line of JSON. "lost" are connections that ended instead of an answer, and answers that did
-- not come; a connection that is refused wrk may count as an error of writing.

local function ask_as_browser()
    wrk.path = "/?q=embeddable+server&page=2&sort=date&lang=en&filter=a%26b&session=8f14e45fceea167a"
    wrk.headers["Host"] = "127.0.0.1"
    wrk.headers["User-Agent"] =
        "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/126.0.0.0 Safari/537.36"
    wrk.headers["Accept"] = "text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,image/webp,*/*;q=0.8"
    wrk.headers["Accept-Language"] = "en-GB,en;q=0.9,de;q=0.8"
    wrk.headers["Accept-Encoding"] = "gzip, deflate, br"
    wrk.headers["Connection"] = "keep-alive"
    wrk.headers["Referer"] = "http://127.0.0.1/search"
    wrk.headers["Cookie"] = "session=2c26b46b68ffc68ff99b453c1d304134; theme=dark; consent=yes"
    wrk.headers["Upgrade-Insecure-Requests"] = "1"
    wrk.headers["Cache-Control"] = "max-age=0"
    wrk.headers["Sec-Fetch-Mode"] = "navigate"
    wrk.headers["Sec-Fetch-Site"] = "same-origin"
end

function init(arguments)
    if arguments[1] == "browser" then
        ask_as_browser()
    end
end

function done(summary, latency)
    local errors = summary.errors
    io.write(string.format(
        '\nRESULT {"requests": %d, "bytes": %d, "seconds": %.6f, "errors": %d, "lost": %d, "p50_us": %d, "p99_us": %d}\n',
        summary.requests, summary.bytes, summary.duration / 1e6,
        errors.connect + errors.read + errors.write + errors.status + errors.timeout,
        errors.read + errors.timeout,
        latency:percentile(50), latency:percentile(99)))
end
