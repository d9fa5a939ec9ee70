"use strict";

// ---- Helpers ----

const $ = id => document.getElementById(id);
const MiB = 1048576;

const sizeText = bytes => {
    const units = ["B", "KiB", "MiB", "GiB", "TiB"];
    let unit = 0;
    while (bytes >= 1024 && unit < units.length - 1) {
        bytes /= 1024;
        ++unit;
    }
    return `${bytes.toFixed(unit === 0 || bytes >= 100 ? 0 : 1)} ${units[unit]}`;
};

const rateText = (bytes, ms) => `${sizeText(bytes / (ms / 1000))}/s`;

// The state of an output is in data-state: running, ok or failed.
function show(id, state, text) {
    const output = $(id);
    output.dataset.state = state;
    output.textContent = text;
}

// Runs an action for a button: disabled meanwhile, a failure shown in the output.
function onClick(buttonId, outputId, action) {
    $(buttonId).addEventListener("click", async () => {
        $(buttonId).disabled = true;
        show(outputId, "running", "…");
        try {
            await action();
        } catch (error) {
            show(outputId, "failed", error.name === "AbortError" ? "aborted" : String(error.message));
        } finally {
            $(buttonId).disabled = false;
        }
    });
}

// Gives the button the power to abort while the action runs.
async function abortable(buttonId, action) {
    const controller = new AbortController();
    const abort = () => controller.abort();
    $(buttonId).disabled = false;
    $(buttonId).addEventListener("click", abort);
    try {
        return await action(controller.signal);
    } finally {
        $(buttonId).disabled = true;
        $(buttonId).removeEventListener("click", abort);
    }
}

function noise(bytes) {
    const data = new Uint8Array(bytes);
    for (let start = 0; start < bytes; start += 65536) {
        crypto.getRandomValues(data.subarray(start, Math.min(start + 65536, bytes)));
    }
    return data;
}

const sameBytes = (a, b) => a.length === b.length && a.every((byte, i) => byte === b[i]);

// Not available to pages of another machine without TLS.
async function sha256(data) {
    if (!crypto.subtle) {
        return null;
    }
    const digest = new Uint8Array(await crypto.subtle.digest("SHA-256", data));
    return Array.from(digest, byte => byte.toString(16).padStart(2, "0")).join("");
}

const colour = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

// A canvas, emptied, to be drawn on in CSS pixels.
function canvasOf(id) {
    const canvas = $(id), scale = devicePixelRatio || 1, width = canvas.clientWidth, height = canvas.clientHeight;
    canvas.width = width * scale;
    canvas.height = height * scale;
    const context = canvas.getContext("2d");
    context.scale(scale, scale);
    context.font = "11px ui-monospace, monospace";
    return { context, width, height };
}

// Draws values, in ms, as bars from the left; each with a colour.
function plot(canvasId, bars, slots) {
    const { context, width, height } = canvasOf(canvasId);
    const top = Math.max(1, ...bars.map(bar => bar.ms)) * 1.1;
    for (const part of bars.length === 0 ? [] : [0.5, 1]) {
        const y = height - (height - 16) * part;
        context.strokeStyle = colour("--line");
        context.beginPath();
        context.moveTo(0, y);
        context.lineTo(width, y);
        context.stroke();
        context.fillStyle = colour("--quiet");
        context.fillText(`${(top * part).toFixed(1)} ms`, 6, y - 3);
    }
    const step = width / slots;
    bars.forEach((bar, i) => {
        const length = Math.max(2, (height - 16) * bar.ms / top);
        context.fillStyle = colour(bar.colour);
        context.fillRect(i * step + 1, height - length, Math.max(1, step - 2), length);
    });
}

const median = values => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

// ---- /hello and /inline ----

const helloRounds = { "/hello": [], "/inline": [] };

async function measure(path) {
    const times = helloRounds[path];
    times.length = 0;
    for (let i = 0; i < 25; ++i) {
        const start = performance.now();
        const text = await (await fetch(path)).text();
        times.push(performance.now() - start);
        if (text !== "hello world\n") {
            throw new Error(`${path} answered: ${text}`);
        }
    }
    plotHello();
    show("hello-output", "ok", Object.entries(helloRounds).filter(([, values]) => values.length > 0)
        .map(([name, values]) => `${name}: hello world, median ${median(values).toFixed(2)} ms`).join("\n"));
}

function plotHello() {
    plot("hello-plot", [
        ...helloRounds["/hello"].map(ms => ({ ms, colour: "--accent" })),
        ...helloRounds["/inline"].map(ms => ({ ms, colour: "--second" }))], 50);
}

onClick("hello-run", "hello-output", () => measure("/hello"));
onClick("inline-run", "hello-output", () => measure("/inline"));

// ---- /slow ----

onClick("slow-run", "slow-output", async () => {
    const slowest = Number($("slow-ms").value), start = performance.now();
    // Some way past the slowest, for what the way there and back adds.
    const span = slowest * 1.15 + 100;
    $("slow-lanes").replaceChildren();
    const lane = () => $("slow-lanes").appendChild(Object.assign(document.createElement("div"), { className: "lane" }));
    const timed = async (path, parent, className) => {
        const begin = performance.now();
        const bar = parent.appendChild(Object.assign(document.createElement("i"), { className }));
        bar.style.left = `${Math.min(99, 100 * (begin - start) / span)}%`;
        const response = await fetch(path);
        if (!response.ok) {
            throw new Error((await response.text()).trim());
        }
        await response.text();
        const end = performance.now();
        bar.style.width = `${Math.min(100, 100 * (end - start) / span) - 100 * (begin - start) / span}%`;
        return end - begin;
    };
    const instantLane = lane();
    let slowRunning = true;
    const slow = Promise.all([0.4, 0.6, 0.8, 1].map(part => timed(`/slow?ms=${Math.round(slowest * part)}`, lane(), "slow")))
        .finally(() => slowRunning = false);
    const instant = [];
    while (slowRunning && instant.length < 400) {
        instant.push(await timed("/hello", instantLane, "instant"));
        await new Promise(resolve => setTimeout(resolve, Math.max(60, slowest / 25)));
    }
    const times = await slow;
    show("slow-output", "ok", `${instant.length} instant ones, median ${median(instant).toFixed(1)} ms, while the slow `
        + `ones took ${times.map(ms => Math.round(ms)).join(", ")} ms`);
});

// ---- /stream and /download ----

async function checked(path, signal) {
    const response = await fetch(path, { signal });
    if (!response.ok) {
        throw new Error(`${response.status} ${(await response.text()).trim()}`);
    }
    return response;
}

async function* pieces(response) {
    const reader = response.body.getReader();
    for (;;) {
        const { done, value } = await reader.read();
        if (done) {
            return;
        }
        yield value;
    }
}

onClick("stream-run", "stream-output", () => abortable("stream-cancel", async signal => {
    const chunks = Number($("stream-chunks").value);
    $("stream-progress").value = 0;
    const response = await checked(`/stream?chunks=${chunks}&ms=${Number($("stream-ms").value)}`, signal);
    const decoder = new TextDecoder();
    let text = "", lines = 0;
    for await (const piece of pieces(response)) {
        text += decoder.decode(piece, { stream: true });
        lines = text.split("\n").length - 1;
        $("stream-progress").value = chunks === 0 ? 1 : lines / chunks;
        show("stream-output", "running", text);
        $("stream-output").scrollTop = $("stream-output").scrollHeight;
    }
    show("stream-output", lines === chunks ? "ok" : "failed", text + `${lines} lines\n`);
    $("stream-output").scrollTop = $("stream-output").scrollHeight;
}));

function fitsPattern(piece, position) {
    for (let i = 0, phase = position % 251; i < piece.length; ++i, phase = phase === 250 ? 0 : phase + 1) {
        if (piece[i] !== phase) {
            return false;
        }
    }
    return true;
}

onClick("download-run", "download-output", () => abortable("download-cancel", async signal => {
    const bytes = Number($("download-size").value) * MiB, start = performance.now();
    $("download-progress").value = 0;
    const response = await checked(`/download?bytes=${bytes}`, signal);
    let received = 0, shown = 0;
    for await (const piece of pieces(response)) {
        if (!fitsPattern(piece, received)) {
            throw new Error(`wrong bytes after ${received}`);
        }
        received += piece.length;
        const now = performance.now();
        if (now - shown > 50) {
            shown = now;
            $("download-progress").value = received / bytes;
            show("download-output", "running", `${sizeText(received)}, ${rateText(received, now - start)}`);
        }
    }
    $("download-progress").value = received / bytes;
    show("download-output", received === bytes ? "ok" : "failed",
        `${sizeText(received)}, every byte as it should be, ${rateText(received, performance.now() - start)}`);
}));

// ---- /events ----

let events = null;

function listen() {
    const lines = [];
    const log = line => {
        lines.push(line);
        show("events-output", "ok", lines.slice(-12).join("\n"));
    };
    events = new EventSource("/events");
    events.onopen = () => log("listening");
    events.onmessage = event => log(event.data);
    events.onerror = () => log("cut off; the browser tries again");
    $("events-listen").textContent = "Stop";
}

$("events-listen").addEventListener("click", () => {
    if (events === null) {
        listen();
        return;
    }
    events.close();
    events = null;
    $("events-listen").textContent = "Listen";
});

$("events-publish").addEventListener("click", async () => {
    const response = await fetch("/events", { method: "POST", body: $("events-text").value });
    if (events === null) {
        show("events-output", response.ok ? "ok" : "failed", await response.text());
    }
});

// ---- /echo and /upload ----

onClick("echo-run", "echo-output", async () => {
    const sent = $("echo-text").value;
    const response = await fetch("/echo", { method: "POST", body: sent, headers: { "Content-Type": "text/plain; charset=utf-8" } });
    const received = await response.text();
    show("echo-output", received === sent ? "ok" : "failed", `${response.headers.get("Content-Type")}\n${received}`);
});

onClick("echo-binary-run", "echo-output", async () => {
    const sent = noise(8 * MiB), start = performance.now();
    const response = await fetch("/echo", { method: "POST", body: sent });
    const received = new Uint8Array(await response.arrayBuffer());
    const ms = performance.now() - start, same = sameBytes(sent, received);
    show("echo-output", same ? "ok" : "failed",
        `${sizeText(received.length)} came back ${same ? "unchanged" : "CHANGED"}, ${rateText(2 * sent.length, ms)}`);
});

// With XMLHttpRequest, which reports the progress of an upload.
const post = (path, body, onProgress) => new Promise((resolve, reject) => {
    const exchange = new XMLHttpRequest();
    exchange.open("POST", path);
    exchange.responseType = "json";
    exchange.upload.onprogress = event => onProgress(event.loaded / event.total);
    exchange.onload = () => resolve(exchange.response);
    exchange.onerror = () => reject(new Error("the upload failed"));
    exchange.send(body);
});

onClick("upload-run", "upload-output", async () => {
    const data = noise(Number($("upload-size").value) * MiB), expected = await sha256(data), start = performance.now();
    const result = await post("/upload", data, part => $("upload-progress").value = part);
    const ms = performance.now() - start;
    const same = result.size === data.length && (expected === null || result.sha256 === expected);
    show("upload-output", same ? "ok" : "failed", `${sizeText(result.size)}, ${rateText(data.length, ms)}\n${result.sha256}\n`
        + (expected === null ? "(this browser computes no digest here)" : same ? "the same as the browser's" : `NOT the browser's ${expected}`));
});

// ---- /inspect and the errors ----

onClick("inspect-run", "inspect-output", async () => {
    const method = $("inspect-method").value;
    const body = ["POST", "PUT", "PATCH", "QUERY"].includes(method) ? "a body" : undefined;
    const response = await fetch($("inspect-target").value, { method, body });
    show("inspect-output", "ok", `${response.status} ${response.statusText}\n${await response.text()}`);
});

function errorButton(id, method, path, status) {
    onClick(id, "error-output", async () => {
        const response = await fetch(path, { method });
        const allow = response.headers.get("Allow");
        show("error-output", response.status === status ? "ok" : "failed", `${method} ${path}\n${response.status} `
            + `${response.statusText}${allow === null ? "" : `\nAllow: ${allow}`}\n${await response.text()}`);
    });
}
errorButton("error-404", "GET", "/nowhere", 404);
errorButton("error-405", "DELETE", "/hello", 405);
errorButton("error-400-argument", "GET", "/slow?ms=soon", 400);
errorButton("error-400-parse", "GET", "/hello?name=%FF", 400);

// ---- /stats ----

async function refreshStats() {
    if (document.hidden) {
        return;
    }
    try {
        const stats = await (await fetch("/stats")).json();
        $("version").textContent = stats.version;
        $("stat-served").textContent = stats.requestsServed;
        $("stat-active").textContent = stats.requestsActive;
        $("stat-in").textContent = sizeText(stats.bytesIn);
        $("stat-out").textContent = sizeText(stats.bytesOut);
        $("stat-abnormal").textContent = Object.values(stats.abnormalEnds).reduce((sum, count) => sum + count, 0);
        $("stat-sockets").textContent = stats.webSocketsOpen;
        $("stat-messages").textContent = `${stats.webSocketMessagesIn} / ${stats.webSocketMessagesOut}`;
        show("stats-output", "ok", JSON.stringify(stats, null, 2));
    } catch (error) {
        show("stats-output", "failed", "the server does not answer");
    }
}
setInterval(refreshStats, 1000);
document.addEventListener("visibilitychange", refreshStats);
refreshStats();

// ---- /metrics ----

const curves = {
    "metrics-answers": { name: "answers/s", values: [] },
    "metrics-active": { name: "requests active", values: [] },
    "metrics-sockets": { name: "WebSockets open", values: [] },
};
const maxPoints = 60;
let lastAnswers = null;

// The sum of what a metric has, over all its labels.
const metricOf = (text, name) => text.split("\n").filter(line => line.startsWith(`${name} `) || line.startsWith(`${name}{`))
    .reduce((sum, line) => sum + Number(line.replace(/^[^ {]+(\{.*\})? /, "").split(" ")[0]), 0);

function drawCurve(id) {
    const { name, values } = curves[id], { context, width, height } = canvasOf(id), top = Math.max(1, ...values);
    context.strokeStyle = colour("--accent");
    context.lineWidth = 2;
    context.beginPath();
    values.forEach((value, i) => context.lineTo(
        width * i / (maxPoints - 1), height - 2 - (height - 22) * value / top));
    context.stroke();
    const short = value => Number(value.toFixed(1));
    const text = `${name}: ${values.length === 0 ? "–" : `${short(values.at(-1))}, at most ${short(Math.max(...values))}`}`;
    context.fillStyle = colour("--quiet");
    context.fillText(text, 6, 13);
    $(id).setAttribute("aria-label", text);
}

function addPoint(id, value) {
    curves[id].values = [...curves[id].values, value].slice(-maxPoints);
    drawCurve(id);
}

async function refreshMetrics() {
    if (document.hidden) {
        return;
    }
    try {
        const response = await fetch("/metrics"), text = await response.text();
        if (!response.ok) {
            show("metrics-output", "ok", "there are none with --defined");
            return;
        }
        const answers = { count: metricOf(text, "vireo_exchange_responses_total"), at: performance.now() };
        if (lastAnswers !== null && answers.at > lastAnswers.at) {
            addPoint("metrics-answers", 1000 * (answers.count - lastAnswers.count) / (answers.at - lastAnswers.at));
        }
        lastAnswers = answers;
        addPoint("metrics-active", metricOf(text, "vireo_demo_requests_active"));
        addPoint("metrics-sockets", metricOf(text, "vireo_demo_websockets_open"));
        show("metrics-output", "ok", `event streams: ${metricOf(text, "vireo_demo_event_streams")}`);
    } catch (error) {
        show("metrics-output", "failed", "the server does not answer");
    }
}
setInterval(refreshMetrics, 1000);
refreshMetrics();

// ---- Files ----

onClick("files-run", "files-output", async () => {
    const lines = [];
    for (const path of ["/", "/page.css", "/page.js", "/icon.svg"]) {
        const first = await fetch(path, { cache: "no-store" }), bytes = (await first.arrayBuffer()).byteLength;
        const again = await fetch(path, { cache: "no-store", headers: { "If-None-Match": first.headers.get("ETag") } });
        lines.push(`${path}: ${first.status}, ${sizeText(bytes)}; again: ${again.status}`);
    }
    show("files-output", "ok", lines.join("\n"));
});

// ---- Drain ----

// Clients see a server go: what is under way is answered, WebSockets are closed with 1001, streams of events end.
onClick("drain-run", "drain-output", async () => {
    const lines = [];
    const tell = line => {
        lines.push(line);
        show("drain-output", "running", lines.join("\n"));
    };
    const slow = fetch("/slow?ms=2000").then(response => response.text());
    slow.catch(() => {}); // awaited below, if it comes to that
    socket.addEventListener("close", event => tell(`WebSocket: closed with ${event.code}`));
    const response = await fetch("/drain", { method: "POST", headers: { "X-Drain": "now" } });
    if (!response.ok) {
        throw new Error("this server was started without --drain-button");
    }
    tell(`the server: ${(await response.text()).trim()}`);
    tell(`slow work: ${(await slow).trim()}`);
    show("drain-output", "ok", lines.join("\n"));
});

// ---- WebSocket ----

let socket = null;
// A round trip that is under way: { start, resolve }.
let awaitedEcho = null;
let roundTrips = [];
let pinging = false;

const socketButtons = ["ws-send-text", "ws-send-all", "ws-send-binary", "ws-send-large", "ws-ping"];

function setSocketState(state, text) {
    $("ws-state").dataset.state = state;
    $("ws-state").textContent = text;
    for (const id of socketButtons) {
        $(id).disabled = state !== "open";
    }
    $("ws-connect").disabled = state === "open" || state === "connecting";
    $("ws-close").disabled = state !== "open";
}

function logMessage(text) {
    const log = $("ws-log");
    log.textContent = `${log.textContent}${text}\n`.split("\n").slice(-60).join("\n");
    log.scrollTop = log.scrollHeight;
}

const socketAddress = path => `${location.protocol === "https:" ? "wss:" : "ws:"}//${location.host}${path}`;

function connect() {
    setSocketState("connecting", "connecting");
    const address = socketAddress("/ws");
    let opened = false;
    socket = new WebSocket(address);
    socket.binaryType = "arraybuffer";
    socket.onopen = () => {
        opened = true;
        $("ws-unavailable").hidden = true;
        setSocketState("open", "open");
        logMessage(`connected to ${address}`);
    };
    socket.onclose = event => {
        pinging = false;
        awaitedEcho?.reject(new Error("the connection was closed"));
        $("ws-unavailable").hidden = opened;
        setSocketState(opened ? "closed" : "failed", opened ? "closed" : "not available");
        if (opened) {
            logMessage(`closed with ${event.code}`);
        }
    };
    socket.onmessage = event => {
        const isText = typeof event.data === "string";
        if (isText && event.data.startsWith("/all ")) {
            logMessage(`to all: ${event.data.slice(5)}`);
            return;
        }
        if (!pinging) {
            logMessage(isText ? `text: ${event.data}` : `binary: ${sizeText(event.data.byteLength)}`);
        }
        awaitedEcho?.resolve(event.data);
    };
}

// Sends a message and waits for it to come back. One at a time. @return ms.
async function roundTrip(message) {
    const start = performance.now();
    try {
        const echo = new Promise((resolve, reject) => awaitedEcho = { resolve, reject });
        socket.send(message);
        const received = await echo, ms = performance.now() - start;
        const same = typeof message === "string" ? received === message
            : received instanceof ArrayBuffer && sameBytes(message, new Uint8Array(received));
        if (!same) {
            throw new Error("the echo is not what was sent");
        }
        roundTrips = [...roundTrips, { ms, colour: pinging ? "--accent" : "--second" }].slice(-120);
        plot("ws-plot", roundTrips, 120);
        return ms;
    } finally {
        awaitedEcho = null;
    }
}

function echoButton(id, what, message) {
    onClick(id, "ws-output", async () => {
        pinging = false;
        while (awaitedEcho !== null) {
            await new Promise(resolve => setTimeout(resolve, 5));
        }
        const sent = message();
        const ms = await roundTrip(sent);
        show("ws-output", "ok", `${what(sent)} came back unchanged in ${ms.toFixed(1)} ms`);
    });
}
echoButton("ws-send-text", sent => `“${sent}”`, () => $("ws-text").value.replace(/^(\/all )+/, ""));
echoButton("ws-send-binary", () => "256 bytes", () => noise(256));
echoButton("ws-send-large", () => "1 MiB", () => noise(MiB));

onClick("ws-send-all", "ws-output", async () => {
    socket.send(`/all ${$("ws-text").value}`);
    show("ws-output", "ok", "sent to every open connection");
});

$("ws-ping").addEventListener("click", async () => {
    pinging = !pinging;
    $("ws-ping").textContent = pinging ? "Stop round trips" : "Start round trips";
    if (!pinging) {
        return;
    }
    const times = [];
    try {
        while (pinging) {
            times.push(await roundTrip(`round trip ${times.length}`));
            show("ws-output", "ok", `${times.length} round trips, median ${median(times.slice(-500)).toFixed(2)} ms`);
            await new Promise(resolve => setTimeout(resolve, 40));
        }
    } catch (error) {
        show("ws-output", "failed", error.message);
    }
    pinging = false;
    $("ws-ping").textContent = "Start round trips";
});

let room = null;

function setInRoom(isInside) {
    $("room-enter").disabled = isInside;
    $("room-say").disabled = !isInside;
    $("room-leave").disabled = !isInside;
}

$("room-enter").addEventListener("click", () => {
    const name = $("room-name").value;
    room = new WebSocket(socketAddress(`/rooms/${encodeURIComponent(name)}`));
    room.onopen = () => {
        setInRoom(true);
        logMessage(`entered ${name}`);
    };
    room.onmessage = event => logMessage(`in ${name}: ${event.data}`);
    room.onclose = event => {
        setInRoom(false);
        logMessage(event.wasClean ? `left ${name}` : `${name} is not available`);
    };
});
$("room-say").addEventListener("click", () => room.send($("room-text").value));
$("room-leave").addEventListener("click", () => room.close());

$("ws-connect").addEventListener("click", connect);
$("ws-close").addEventListener("click", () => socket.close());
$("ws-proxy-link").href = `http://${location.hostname}:8180/`;
$("ws-proxy-link").textContent = $("ws-proxy-link").href;

// What is drawn is drawn anew where it changes its size or its colours.
function drawAll() {
    plotHello();
    plot("ws-plot", roundTrips, 120);
    Object.keys(curves).forEach(drawCurve);
}
addEventListener("resize", drawAll);
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawAll);

drawAll();
connect();
