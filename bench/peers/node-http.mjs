#!/usr/bin/env node
// Node's http, in its natural best form: so many processes as threads are asked for, which share the port.
import cluster from 'node:cluster';
import { createServer } from 'node:http';
import { parseArgs } from 'node:util';

const { values } = parseArgs({
    strict: false,
    options: { port: { type: 'string' }, threads: { type: 'string' } },
});

const body = 'Hello, World';

if (cluster.isPrimary) {
    for (let i = 0; i < Number(values.threads); ++i) {
        cluster.fork();
    }
    process.on('SIGTERM', () => {
        Object.values(cluster.workers).forEach((worker) => worker.kill('SIGKILL'));
        process.exit(0);
    });
} else {
    createServer((request, response) => {
        response.writeHead(200, { 'Content-Type': 'text/plain', 'Content-Length': body.length });
        response.end(body);
    }).listen(Number(values.port), '127.0.0.1');
}
