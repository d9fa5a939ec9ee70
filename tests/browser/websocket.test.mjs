// Clients that nobody here wrote talk to the WebSockets of the demo, directly, over TLS and through nginx, and hear its
// events: the `ws` library, Chromium and Firefox.
// The programs come in the environment: VIREO_DEMO, VIREO_PROXY_CONFIGURATION, VIREO_SCREENSHOTS.

import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { mkdir, mkdtemp, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import path from "node:path";
import { after, before, describe, test } from "node:test";
import { chromium } from "playwright-core";
import WebSocket from "ws";
import { authorityName } from "./authority.mjs";
import { openFirefox } from "./firefox.mjs";
import { startServers } from "./servers.mjs";

const { VIREO_DEMO, VIREO_PROXY_CONFIGURATION, VIREO_SCREENSHOTS } = process.env;
const MiB = 1024 * 1024;
const timeout = 60_000;

let servers;
before(async () => { servers = await startServers(VIREO_DEMO, VIREO_PROXY_CONFIGURATION); });
after(async () => { assert.deepEqual(await servers.stop(), [0, 0, 0], "the demos' exit codes"); });

async function openSocket(port = servers.proxyPort, ...options) {
    const socket = new WebSocket(`ws://127.0.0.1:${port}/ws`, ...options);
    await new Promise((resolve, reject) => socket.once("open", resolve).once("error", reject));
    return socket;
}

// The next `count` messages, as { data, isBinary }.
function messages(socket, count) {
    return new Promise((resolve, reject) => {
        const received = [];
        socket.once("close", () => reject(new Error(`closed after ${received.length} of ${count} messages`)));
        socket.on("message", (data, isBinary) => {
            received.push({ data, isBinary });
            if (received.length === count) {
                socket.removeAllListeners("message");
                socket.removeAllListeners("close");
                resolve(received);
            }
        });
    });
}

describe("the ws library", { timeout }, () => {
    for (const size of [0, 1, 125, 126, 65535, 65536, 131000, 131001, MiB]) {
        test(`gets ${size} binary bytes back`, async () => {
            const socket = await openSocket();
            const sent = randomBytes(size);
            const echo = messages(socket, 1);
            socket.send(sent);
            const [{ data, isBinary }] = await echo;
            assert.ok(isBinary);
            assert.ok(sent.equals(data));
            socket.terminate();
        });
    }

    test("gets text back as text", async () => {
        const socket = await openSocket();
        const echo = messages(socket, 1);
        socket.send("Grüße 🐦");
        const [{ data, isBinary }] = await echo;
        assert.ok(!isBinary);
        assert.equal(data.toString(), "Grüße 🐦");
        socket.terminate();
    });

    test("gets a thousand messages back in order", async () => {
        const socket = await openSocket();
        const echoes = messages(socket, 1000);
        for (let i = 0; i < 1000; ++i) {
            socket.send(`message ${i}`);
        }
        (await echoes).forEach(({ data }, i) => assert.equal(data.toString(), `message ${i}`));
        socket.terminate();
    });

    test("gets a fragmented message back whole", async () => {
        const socket = await openSocket();
        const echo = messages(socket, 1);
        socket.send("one ", { fin: false });
        socket.send("two ", { fin: false });
        socket.send("three", { fin: true });
        assert.equal((await echo)[0].data.toString(), "one two three");
        socket.terminate();
    });

    test("agrees on a subprotocol and on compression, directly", async () => {
        const socket = await openSocket(servers.demoPort, ["chat", "echo"], { perMessageDeflate: { threshold: 0 } });
        assert.equal(socket.protocol, "echo");
        assert.equal(socket.extensions, "permessage-deflate");
        const echo = messages(socket, 2);
        const pong = new Promise(resolve => socket.once("pong", resolve));
        socket.send("again and again ".repeat(5000));
        socket.send("again and again ".repeat(5000));
        socket.ping("are you there?");
        for (const { data } of await echo) {
            assert.equal(data.toString(), "again and again ".repeat(5000));
        }
        assert.equal((await pong).toString(), "are you there?");
        const closed = new Promise(resolve => socket.once("close", resolve));
        socket.close(3001, "that is all");
        assert.equal(await closed, 3001);
    });

    test("is refused with the Origin of another page", async () => {
        await assert.rejects(openSocket(servers.demoPort, { origin: "https://elsewhere.example" }), /403/);
    });

    test("reaches every open connection with a broadcast", async () => {
        const sockets = await Promise.all([openSocket(), openSocket(), openSocket()]);
        // A client may know of its connection before the server has it in its list.
        for (const socket of sockets) {
            const echo = messages(socket, 1);
            socket.send("here");
            await echo;
        }
        const received = sockets.map(socket => messages(socket, 1));
        sockets[1].send("/all hear, hear");
        for (const [{ data }] of await Promise.all(received)) {
            assert.equal(data.toString(), "/all hear, hear");
        }
        sockets.forEach(socket => socket.terminate());
    });
});

describe("Chromium", { timeout }, () => {
    let profile, browser;
    const complaints = [];

    before(async () => {
        profile = await mkdtemp(path.join(tmpdir(), "vireo-chromium-"));
        browser = await chromium.launchPersistentContext(profile, {
            executablePath: "/usr/bin/chromium",
            headless: true,
            viewport: { width: 1280, height: 900 },
            // Where it finds whom to trust.
            env: { ...process.env, HOME: servers.home },
            args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
                "--disable-background-networking", "--disable-component-update"],
        });
    });
    after(async () => {
        await browser.close();
        await rm(profile, { recursive: true, force: true });
    });

    async function openAddress(address) {
        const page = await browser.newPage();
        page.on("pageerror", error => complaints.push(error.message));
        return { page, answer: await page.goto(address) };
    }

    async function openPage(port) {
        return (await openAddress(`http://127.0.0.1:${port}/`)).page;
    }

    // Clicks a button of the page and waits until it has shown that all went well.
    async function succeed(page, button, output) {
        await page.click(button);
        await page.waitForSelector(`${output}[data-state=ok]`, { timeout: 20_000 });
    }

    async function waitForText(page, selector, text) {
        await page.waitForFunction(
            ([where, what]) => document.querySelector(where).textContent.includes(what), [selector, text],
            { timeout: 20_000 });
    }

    async function echo(page, button, text) {
        await page.click(button);
        await waitForText(page, "#ws-output", text);
        await waitForText(page, "#ws-output", "came back unchanged");
    }

    test("exchanges text, binary and large messages and hears a broadcast in a second tab", async () => {
        const first = await openPage(servers.proxyPort);
        const second = await openPage(servers.proxyPort);
        await waitForText(first, "#ws-state", "open");
        await waitForText(second, "#ws-state", "open");

        await first.fill("#ws-text", "Grüße aus dem Test");
        await echo(first, "#ws-send-text", "Grüße aus dem Test");
        await echo(first, "#ws-send-binary", "256 bytes");
        await echo(first, "#ws-send-large", "1 MiB");
        await first.click("#ws-send-all");
        await waitForText(second, "#ws-log", "to all: Grüße aus dem Test");

        // A tab in the background is slowed down.
        await first.bringToFront();
        await first.click("#ws-ping");
        await first.waitForFunction(
            () => Number.parseInt(document.querySelector("#ws-output").textContent, 10) >= 20);
        await first.click("#ws-ping");
        await mkdir(VIREO_SCREENSHOTS, { recursive: true });
        await first.screenshot({ path: path.join(VIREO_SCREENSHOTS, "demo-through-proxy.png"), fullPage: true });
        await first.close();
        await second.close();
        assert.deepEqual(complaints, []);
    });

    test("hears an event that another tab publishes, through the proxy and directly", async () => {
        const pages = [await openPage(servers.proxyPort), await openPage(servers.demoPort)];
        for (const page of pages) {
            await page.click("#events-listen");
            await waitForText(page, "#events-output", "listening");
        }
        await pages[0].fill("#events-text", "Grüße an alle");
        await pages[0].click("#events-publish");
        for (const page of pages) {
            await waitForText(page, "#events-output", "Grüße an alle");
            await page.close();
        }
        assert.deepEqual(complaints, []);
    });

    test("exchanges messages with the server directly, whose HTTP is strict", async () => {
        const page = await openPage(servers.demoPort);
        await waitForText(page, "#ws-state", "open");
        await page.fill("#ws-text", "Grüße direkt");
        await echo(page, "#ws-send-text", "Grüße direkt");
        await page.close();
        assert.deepEqual(complaints, []);
    });

    test("hears in a room what another tab says there", async () => {
        const first = await openPage(servers.demoPort);
        const second = await openPage(servers.demoPort);
        for (const page of [first, second]) {
            await page.fill("#room-name", "tea time");
            await page.click("#room-enter");
            await waitForText(page, "#ws-log", "entered tea time");
        }
        await first.fill("#room-text", "Grüße im Raum");
        await first.click("#room-say");
        for (const page of [first, second]) {
            await waitForText(page, "#ws-log", "in tea time: Grüße im Raum");
            await page.click("#room-leave");
            await waitForText(page, "#ws-log", "left tea time");
            await page.close();
        }
        assert.deepEqual(complaints, []);
    });

    test("is shown the errors for what they are, with strict HTTP and without", async () => {
        for (const port of [servers.demoPort, servers.definedPort]) {
            const page = await openPage(port);
            for (const button of ["#error-404", "#error-405", "#error-400-argument", "#error-400-parse"]) {
                await succeed(page, button, "#error-output");
                await page.evaluate(() => { document.querySelector("#error-output").dataset.state = ""; });
            }
            await page.close();
        }
        assert.deepEqual(complaints, []);
    });

    test("does everything over TLS", async () => {
        const { page, answer } = await openAddress(`https://localhost:${servers.securePort}/`);
        const { issuer, protocol } = await answer.securityDetails();
        assert.equal(issuer, authorityName);
        assert.equal(protocol, "TLS 1.3");
        await succeed(page, "#hello-run", "#hello-output");
        await succeed(page, "#echo-binary-run", "#echo-output");
        await succeed(page, "#upload-run", "#upload-output");
        await succeed(page, "#download-run", "#download-output");
        await page.click("#events-listen");
        await waitForText(page, "#events-output", "listening");
        await page.fill("#events-text", "Grüße an alle");
        await page.click("#events-publish");
        await waitForText(page, "#events-output", "Grüße an alle");

        await waitForText(page, "#ws-state", "open");
        await waitForText(page, "#ws-log", `connected to wss://localhost:${servers.securePort}/ws`);
        await page.fill("#ws-text", "Grüße verschlüsselt");
        await echo(page, "#ws-send-text", "Grüße verschlüsselt");
        await echo(page, "#ws-send-binary", "256 bytes");
        await echo(page, "#ws-send-large", "1 MiB");
        await page.close();
        assert.deepEqual(complaints, []);
    });

    test("does not trust a server over TLS by a name that its certificate lacks", async () => {
        await assert.rejects(
            openAddress(`https://127.0.0.1:${servers.securePort}/`), /ERR_CERT_COMMON_NAME_INVALID/);
    });

    test("is told to come through the proxy when it asks a server with the defaults directly", async () => {
        const page = await openPage(servers.definedPort);
        await page.waitForSelector("#ws-unavailable", { state: "visible" });
        await waitForText(page, "#ws-state", "not available");
        await page.close();
    });
});

describe("Firefox", { timeout }, () => {
    for (const isSecure of [false, true]) {
        test(`exchanges messages directly${isSecure ? " over TLS" : ""}`, async () => {
            const address = isSecure ? `https://localhost:${servers.securePort}/` : `http://127.0.0.1:${servers.demoPort}/`;
            const page = await openFirefox(address);
            const waitFor = async condition => {
                while (!await page.evaluate(condition)) {
                    await new Promise(resolve => setTimeout(resolve, 50));
                }
            };
            await waitFor(`$("ws-state").textContent === "open"`);
            assert.equal(await page.evaluate("socket.extensions"), "permessage-deflate");
            for (const button of ["ws-send-text", "ws-send-binary", "ws-send-large"]) {
                await page.evaluate(`show("ws-output", "running", ""); $("${button}").click()`);
                await waitFor(`$("ws-output").textContent.includes("came back unchanged")`);
            }
            await page.evaluate(`$("room-enter").click()`);
            await waitFor(`$("ws-log").textContent.includes("entered lobby")`);
            await page.evaluate(`$("room-say").click()`);
            await waitFor(`$("ws-log").textContent.includes("in lobby: hello, all")`);
            await page.close();
        });
    }
});
