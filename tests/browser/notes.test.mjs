// Two people use the notes in Chromium: what one of them does the other one sees. The program comes in the environment:
// VIREO_NOTES, VIREO_NOTES_PAGE, VIREO_SCREENSHOTS.

import assert from "node:assert/strict";
import { createHash, randomBytes } from "node:crypto";
import { mkdir, mkdtemp, readdir, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import path from "node:path";
import { after, before, describe, test } from "node:test";
import { chromium } from "playwright-core";
import { freePorts, start } from "./servers.mjs";

const { VIREO_NOTES, VIREO_NOTES_PAGE, VIREO_SCREENSHOTS } = process.env;
const patience = { timeout: 30_000 };

describe("notes in Chromium", { timeout: 600_000 }, () => {
    let data, url, stop, browser, ada, bob;
    const complaints = [];

    // Who has cookies of their own, and the page open.
    async function openPage() {
        const context = await browser.newContext({ viewport: { width: 800, height: 900 } });
        const page = await context.newPage();
        page.setDefaultTimeout(patience.timeout);
        page.on("pageerror", error => complaints.push(error.message));
        await page.goto(url);
        return page;
    }

    const waitForText = (page, selector, text) => page.waitForFunction(
        ([where, what]) => document.querySelector(where).textContent.includes(what), [selector, text], patience);

    async function submit(page, form, text) {
        await page.fill(`${form} input`, text);
        await page.click(`${form} button`);
    }

    before(async () => {
        data = await mkdtemp(path.join(tmpdir(), "vireo-notes-"));
        const [port] = await freePorts(1);
        url = `http://127.0.0.1:${port}/`;
        stop = await start(VIREO_NOTES, [VIREO_NOTES_PAGE, data, `127.0.0.1:${port}`], port, "SIGTERM");
        browser = await chromium.launch({
            executablePath: "/usr/bin/chromium",
            timeout: 120_000,
            args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
                "--disable-background-networking", "--disable-component-update"],
        });
        [ada, bob] = [await openPage(), await openPage()];
    });
    after(async () => {
        // While they are still there: it has to cope with that.
        assert.equal(await stop(), 0, "the exit code");
        await browser.close();
        await rm(data, { recursive: true });
        assert.deepEqual(complaints, []);
    });

    test("a note comes to everybody, by the stream of events", async () => {
        for (const page of [ada, bob]) {
            await page.waitForFunction("events.readyState === EventSource.OPEN", null, patience);
            await page.evaluate(`void (heard = new Promise(hear =>
                events.addEventListener("note", event => hear(JSON.parse(event.data)), { once: true })))`);
        }
        await submit(ada, "#new", "Vögel füttern");
        for (const page of [ada, bob]) {
            assert.equal((await page.evaluate("heard")).text, "Vögel füttern");
            await waitForText(page, "#notes", "Vögel füttern");
        }
        await bob.reload();
        await waitForText(bob, "#notes", "Vögel füttern");
        await bob.waitForFunction("events.readyState === EventSource.OPEN", null, patience);
        await bob.click("#notes button");
        for (const page of [ada, bob]) {
            await page.waitForFunction(() => document.querySelector("#notes").children.length === 0, null, patience);
        }
    });

    test("who has logged in talks to the others in the room", async () => {
        for (const [page, name] of [[ada, "Ada"], [bob, "Bob"]]) {
            await waitForText(page, "#messages", "you are not here");
            await submit(page, "#login", name);
            await waitForText(page, "#messages", "you are here");
        }
        await submit(ada, "#chat", "Grüße im Raum");
        await submit(bob, "#chat", "zurück");
        for (const page of [ada, bob]) {
            await waitForText(page, "#messages", "Ada: Grüße im Raum");
            await waitForText(page, "#messages", "Bob: zurück");
        }
    });

    test("files are kept under their digests", async () => {
        const contents = [randomBytes(3_000_000), Buffer.from("small")];
        await ada.setInputFiles("#upload input", contents.map((buffer, i) => (
            { name: `file ${i}.bin`, mimeType: "application/octet-stream", buffer })));
        await ada.click("#upload button");
        for (const [i, content] of contents.entries()) {
            const digest = createHash("sha256").update(content).digest("hex");
            await waitForText(ada, "#files", `${digest} file ${i}.bin`);
            const size = await ada.evaluate(
                async name => (await (await fetch(`/files/${name}`)).arrayBuffer()).byteLength, digest);
            assert.equal(size, content.length);
        }
        assert.equal((await readdir(path.join(data, "files"))).length, contents.length);
        await mkdir(VIREO_SCREENSHOTS, { recursive: true });
        await ada.screenshot({ path: path.join(VIREO_SCREENSHOTS, "notes.png"), fullPage: true });
    });
});
