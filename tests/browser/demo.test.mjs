// The page of the demo in Chromium: what it shows of the server, and that it is there for any screen and for the keyboard
// alone. The program comes in the environment: VIREO_DEMO, VIREO_SCREENSHOTS.

import assert from "node:assert/strict";
import { mkdir } from "node:fs/promises";
import path from "node:path";
import { after, before, describe, test } from "node:test";
import { chromium } from "playwright-core";
import { freePorts, start } from "./servers.mjs";

const { VIREO_DEMO, VIREO_SCREENSHOTS } = process.env;
const patience = { timeout: 30_000 };

// The least contrast of a text of the page with what is behind it, and whose that is. In the page.
function leastContrast() {
    const channels = text => {
        const [red, green, blue, alpha = 1] = text.match(/[\d.]+/g).map(Number);
        return { rgb: [red, green, blue], alpha };
    };
    const luminance = rgb => rgb.map(value => value / 255)
        .map(value => value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4)
        .reduce((sum, value, i) => sum + value * [0.2126, 0.7152, 0.0722][i], 0);
    const groundOf = element => {
        const { rgb, alpha } = channels(getComputedStyle(element).backgroundColor);
        return alpha === 1 ? rgb : groundOf(element.parentElement);
    };
    let least = { ratio: 21, whose: "" };
    for (const element of document.body.querySelectorAll("*")) {
        const hasText = element.matches("input, select, textarea")
            || [...element.childNodes].some(node => node.nodeType === Node.TEXT_NODE && node.data.trim() !== "");
        if (!hasText || !element.checkVisibility() || element.disabled) {
            continue;
        }
        const [dark, light] = [channels(getComputedStyle(element).color).rgb, groundOf(element)]
            .map(luminance).sort((a, b) => a - b);
        const ratio = (light + 0.05) / (dark + 0.05);
        if (ratio < least.ratio) {
            least = { ratio, whose: element.id || element.outerHTML.slice(0, 80) };
        }
    }
    return least;
}

describe("the demo's page", { timeout: 600_000 }, () => {
    let port, stop, browser;
    const complaints = [];

    async function openPage(options = {}, at = port) {
        const context = await browser.newContext({ viewport: { width: 1280, height: 900 }, ...options });
        const page = await context.newPage();
        page.setDefaultTimeout(patience.timeout);
        page.on("pageerror", error => complaints.push(error.message));
        page.on("console", message => {
            if (message.text().includes("Content Security Policy")) {
                complaints.push(message.text());
            }
        });
        await page.goto(`http://127.0.0.1:${at}/`);
        await waitForText(page, "#ws-state", "open");
        return page;
    }

    const waitForText = (page, selector, text) => page.waitForFunction(
        ([where, what]) => document.querySelector(where).textContent.includes(what), [selector, text], patience);
    const waitForPoints = (page, count) => page.waitForFunction(
        least => Object.values(curves).every(({ values }) => values.length >= least), count, patience);

    before(async () => {
        [port] = await freePorts(1);
        stop = await start(VIREO_DEMO, ["--port", String(port)], port, "SIGTERM");
        browser = await chromium.launch({
            executablePath: "/usr/bin/chromium",
            timeout: 120_000,
            args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
                "--disable-background-networking", "--disable-component-update"],
        });
    });
    after(async () => {
        assert.equal(await stop(), 0, "the exit code");
        await browser.close();
        assert.deepEqual(complaints, []);
    });

    test("plots what the metrics say", async () => {
        const page = await openPage();
        await waitForPoints(page, 2);
        const { open, painted } = await page.evaluate(() => {
            const canvas = document.querySelector("#metrics-sockets");
            const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
            return { open: curves["metrics-sockets"].values.at(-1), painted: data.some(value => value !== 0) };
        });
        assert.ok(open >= 1, "its own WebSocket is counted");
        assert.ok(painted);
        assert.match(await page.getAttribute("#metrics-sockets", "aria-label"), /^WebSockets open: [1-9]/);
        await page.context().close();
    });

    test("has an upload's progress reach its end", async () => {
        const page = await openPage();
        await page.click("#upload-run");
        await page.waitForSelector("#upload-output[data-state=ok]");
        assert.equal(await page.evaluate(() => document.querySelector("#upload-progress").value), 1);
        await waitForText(page, "#upload-output", "the same as the browser's");
        await page.context().close();
    });

    test("is files that are sent once, and runs no script but its own", async () => {
        const page = await openPage();
        await page.click("#files-run");
        await page.waitForSelector("#files-output[data-state=ok]");
        const lines = (await page.textContent("#files-output")).split("\n");
        assert.equal(lines.length, 4);
        lines.forEach(line => assert.match(line, /: 200, .* again: 304$/));
        const hasRun = await page.evaluate(() => {
            const script = document.createElement("script");
            script.textContent = "window.foreign = true";
            addEventListener("securitypolicyviolation", event => { window.violated = event.effectiveDirective; });
            document.head.append(script);
            return window.foreign === true;
        });
        assert.ok(!hasRun, "an inline script has run");
        complaints.length = 0; // of just that
        await page.context().close();
    });

    test("sees a drain: slow work is answered, the WebSocket closed, and the server goes", async t => {
        const [other] = await freePorts(1);
        const stopOther = await start(
            VIREO_DEMO, ["--port", String(other), "--drain-seconds", "20", "--drain-button"], other, "SIGTERM");
        t.after(stopOther);
        const page = await openPage({}, other);
        await page.click("#events-listen");
        await waitForText(page, "#events-output", "listening");
        await page.click("#drain-run");
        await page.waitForSelector("#drain-output[data-state=ok]");
        await waitForText(page, "#drain-output", "the server: draining");
        await waitForText(page, "#drain-output", "slow work: answered after");
        await waitForText(page, "#drain-output", "WebSocket: closed with 1001");
        await waitForText(page, "#events-output", "cut off");
        await waitForText(page, "#ws-state", "closed");
        await page.context().close();
        assert.equal(await stopOther(), 0, "the exit code");
    });

    test("says how to start a server that may be drained", async () => {
        const page = await openPage();
        await page.click("#drain-run");
        await waitForText(page, "#drain-output", "without --drain-button");
        await waitForText(page, "#ws-state", "open");
        await page.context().close();
    });

    test("takes the keyboard alone: everything in turn, seen and named, and nothing keeps it", async () => {
        const page = await openPage();
        const expected = await page.evaluate(() => [...document.querySelectorAll("a, button, input, select, textarea, [tabindex]")]
            .filter(element => !element.disabled && element.checkVisibility()).map(element => element.id));
        const reached = [];
        for (;;) {
            await page.keyboard.press("Tab");
            const { id, outline, name } = await page.evaluate(() => {
                const element = document.activeElement;
                return {
                    id: element.id,
                    outline: getComputedStyle(element).outlineStyle,
                    name: element.getAttribute("aria-label") ?? element.labels?.[0]?.textContent ?? element.textContent,
                };
            });
            if (id === "" || reached.includes(id)) {
                break;
            }
            reached.push(id);
            assert.notEqual(outline, "none", `${id} shows its focus`);
            assert.notEqual(name.trim(), "", `${id} has a name`);
        }
        assert.deepEqual(reached, expected);
        await page.focus("#room-name");
        await page.keyboard.press("Tab");
        await page.keyboard.press("Enter");
        await waitForText(page, "#ws-log", "entered lobby");
        await page.focus("#room-text");
        await page.keyboard.press("Tab");
        await page.keyboard.press("Space");
        await waitForText(page, "#ws-log", "in lobby: hello, all");
        await page.context().close();
    });

    for (const colorScheme of ["light", "dark"]) {
        for (const width of [360, 1280]) {
            test(`fits ${width} pixels and can be read when it is ${colorScheme}`, async () => {
                const page = await openPage({ colorScheme, viewport: { width, height: 800 } });
                for (const button of ["hello-run", "inspect-run", "files-run", "error-404"]) {
                    await page.click(`#${button}`);
                    await page.waitForSelector(`#${button.replace("-run", "").replace("-404", "")}-output[data-state=ok]`);
                }
                await page.click("#drain-run"); // which fails
                await page.waitForSelector("#drain-output[data-state=failed]");
                await waitForPoints(page, 3);
                assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), width);
                const { ratio, whose } = await page.evaluate(leastContrast);
                await mkdir(VIREO_SCREENSHOTS, { recursive: true });
                await page.screenshot(
                    { path: path.join(VIREO_SCREENSHOTS, `demo-${width}-${colorScheme}.png`), fullPage: true });
                assert.ok(ratio >= 4.5, `${whose} has a contrast of ${ratio.toFixed(2)}`);
                await page.context().close();
            });
        }
    }
});
