#!/usr/bin/env node
// npm's ws: echoes, with messages compressed as the library does by default.
import { parseArgs } from 'node:util';
import { WebSocketServer } from 'ws';

const { values } = parseArgs({ strict: false, options: { port: { type: 'string' } } });
const server = new WebSocketServer({
    host: '127.0.0.1',
    port: Number(values.port),
    perMessageDeflate: { threshold: 256, zlibDeflateOptions: { level: 1, memLevel: 8 } },
});
server.on('connection', (socket) => {
    socket.on('message', (data, isBinary) => socket.send(data, { binary: isBinary }));
});
process.on('SIGTERM', () => process.exit(0));
