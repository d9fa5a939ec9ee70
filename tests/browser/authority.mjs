// Makes an authority of certificates, a certificate of it for localhost, and a home in which Chromium trusts it.

import { execFile } from "node:child_process";
import { mkdir, writeFile } from "node:fs/promises";
import path from "node:path";
import { promisify } from "node:util";

const run = promisify(execFile);
const newKey = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"];

export const authorityName = "Vireo test authority";

// @param directory one that is there. @return { chain, key, home }, paths in it.
export async function makeAuthority(directory) {
    const at = name => path.join(directory, name);
    await run("openssl", ["req", "-x509", ...newKey, "-keyout", at("authority.key"), "-out", at("authority.pem"),
        "-days", "2", "-subj", `/CN=${authorityName}`]);
    await run("openssl", ["req", "-new", ...newKey, "-keyout", at("key.pem"), "-out", at("request.pem"),
        "-subj", "/CN=localhost"]);
    await writeFile(at("names"), "subjectAltName=DNS:localhost\n");
    await run("openssl", ["x509", "-req", "-in", at("request.pem"), "-CA", at("authority.pem"),
        "-CAkey", at("authority.key"), "-days", "2", "-extfile", at("names"), "-out", at("chain.pem")]);
    const store = at("home/.pki/nssdb");
    await mkdir(store, { recursive: true });
    await run("certutil", ["-d", `sql:${store}`, "-N", "--empty-password"]);
    await run("certutil", ["-d", `sql:${store}`, "-A", "-t", "C,,", "-n", authorityName, "-i", at("authority.pem")]);
    return { chain: at("chain.pem"), key: at("key.pem"), home: at("home") };
}
