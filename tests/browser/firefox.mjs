// Drives Firefox by WebDriver BiDi, its own remote protocol.

import { spawn } from "node:child_process";
import { once } from "node:events";
import { mkdtemp, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import path from "node:path";
import WebSocket from "ws";

// Starts the browser, with a profile of its own and its output here.
async function launch(profile) {
    const firefox = spawn("firefox-esr",
        ["--headless", "--no-remote", "--profile", profile, "--remote-debugging-port", "0", "about:blank"],
        { stdio: ["ignore", "ignore", "pipe"], env: { ...process.env, HOME: profile, MOZ_HEADLESS: "1" } });
    let said = "";
    for await (const piece of firefox.stderr) {
        said += piece;
        const found = /WebDriver BiDi listening on (ws:\S+)/.exec(said);
        if (found) {
            return { firefox, address: `${found[1]}/session` };
        }
    }
    throw new Error(`Firefox does not start: ${said}`);
}

// Opens a page in Firefox. @return what evaluates an expression there, and what closes the browser.
export async function openFirefox(url) {
    const profile = await mkdtemp(path.join(tmpdir(), "vireo-firefox-"));
    const { firefox, address } = await launch(profile);
    const socket = new WebSocket(address);
    await once(socket, "open");
    const waiting = new Map();
    socket.on("message", data => {
        const answer = JSON.parse(data);
        waiting.get(answer.id)?.(answer);
        waiting.delete(answer.id);
    });
    let count = 0;
    const command = async (method, params) => {
        const id = ++count;
        const answered = new Promise(resolve => waiting.set(id, resolve));
        socket.send(JSON.stringify({ id, method, params }));
        const answer = await answered;
        if (answer.type !== "success") {
            throw new Error(`${method}: ${answer.message}`);
        }
        return answer.result;
    };
    await command("session.new", { capabilities: { alwaysMatch: { acceptInsecureCerts: true } } });
    const { context } = await command("browsingContext.create", { type: "tab" });
    await command("browsingContext.navigate", { context, url, wait: "complete" });
    return {
        async evaluate(expression) {
            const { result, exceptionDetails } = await command("script.evaluate",
                { expression, target: { context }, awaitPromise: true });
            if (exceptionDetails) {
                throw new Error(exceptionDetails.text);
            }
            return result.value;
        },
        async close() {
            const ended = once(firefox, "exit");
            socket.terminate();
            firefox.kill();
            await ended;
            await rm(profile, { recursive: true, force: true });
        },
    };
}
