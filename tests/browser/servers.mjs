// Starts the demo in several ways and the reverse proxy in front of it, and stops them.

import { spawn } from "node:child_process";
import { mkdtemp, readFile, rm, writeFile } from "node:fs/promises";
import net from "node:net";
import { tmpdir } from "node:os";
import path from "node:path";
import { makeAuthority } from "./authority.mjs";

// So many ports that nothing listens on at the moment, each another one.
export async function freePorts(count) {
    const servers = Array.from({ length: count }, () => net.createServer());
    for (const server of servers) {
        await new Promise((resolve, reject) => server.once("error", reject).listen(0, "127.0.0.1", resolve));
    }
    const ports = servers.map(server => server.address().port);
    await Promise.all(servers.map(server => new Promise(resolve => server.close(resolve))));
    return ports;
}

function connects(port) {
    return new Promise(resolve => {
        const socket = net.connect(port, "127.0.0.1");
        socket.once("connect", () => resolve(true)).once("error", () => resolve(false));
        socket.once("connect", () => socket.destroy());
    });
}

// Starts a program and waits until it accepts connections. @return a function that stops it and returns its exit code.
export async function start(program, args, port, stopSignal) {
    const child = spawn(program, args, { stdio: ["ignore", "inherit", "inherit"] });
    const ended = new Promise((resolve, reject) => {
        child.once("error", reject);
        child.once("exit", (code, signal) => resolve(code ?? signal));
    });
    const failed = ended.then(code => { throw new Error(`${program} ended with ${code} before it accepted connections`); });
    const listening = (async () => {
        for (const deadline = Date.now() + 30000; Date.now() < deadline;) {
            if (await connects(port)) {
                return;
            }
            await new Promise(resolve => setTimeout(resolve, 50));
        }
        throw new Error(`${program} does not listen on port ${port}`);
    })();
    await Promise.race([listening, failed]);
    failed.catch(() => {});
    return async () => {
        child.kill(stopSignal);
        return ended;
    };
}

// The demo, another one with the library's defaults, another one that speaks TLS, and nginx in front of the first with
// the configuration that users are told to take.
export async function startServers(demo, proxyConfiguration) {
    const [demoPort, definedPort, securePort, proxyPort] = await freePorts(4);
    const directory = await mkdtemp(path.join(tmpdir(), "vireo-proxy-"));
    const configuration = (await readFile(proxyConfiguration, "utf8"))
        .replaceAll(":8180", `:${proxyPort}`)
        .replaceAll(":8181", `:${demoPort}`);
    const file = path.join(directory, "nginx.conf");
    await writeFile(file, configuration);
    const { chain, key, home } = await makeAuthority(directory);
    const stopDemo = await start(demo, ["--port", String(demoPort)], demoPort, "SIGTERM");
    const stopDefined = await start(demo, ["--port", String(definedPort), "--defined"], definedPort, "SIGTERM");
    const stopSecure = await start(
        demo, ["--port", String(securePort), "--tls", chain, key], securePort, "SIGTERM");
    const stopProxy = await start("nginx", ["-p", directory, "-e", "stderr", "-c", file], proxyPort, "SIGTERM");
    return {
        demoPort,
        definedPort,
        securePort,
        proxyPort,
        home,
        // The demos first, while clients are still connected: they have to cope with that.
        async stop() {
            const exitCodes = [await stopDemo(), await stopDefined(), await stopSecure()];
            await stopProxy();
            await rm(directory, { recursive: true });
            return exitCodes;
        },
    };
}
