// Loads an echo server with compressed texts and verifies every echo. Prints one JSON object.
import { once } from 'node:events';
import { parseArgs } from 'node:util';
import { WebSocket } from 'ws';

const { values } = parseArgs({
    options: {
        port: { type: 'string' },
        connections: { type: 'string' },
        bytes: { type: 'string' },
        seconds: { type: 'string' },
    },
});
const count = Number(values.connections);
const bytes = Number(values.bytes);

const words = 'order price size buy sell market open close high low volume time book level trade client'.split(' ');

/** As an application would send it: names that repeat, and values that hardly do. ASCII, of `bytes` bytes. */
function* texts(seed) {
    let state = seed + 1;
    const next = (below) => {
        state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
        return Math.floor((state / 2 ** 32) * below);
    };
    for (;;) {
        let text = '';
        while (text.length < bytes) {
            const entry = { id: next(1e9), kind: words[next(words.length)], price: next(1e6) / 100, note: '' };
            for (let i = 0; i < 4; ++i) {
                entry.note += `${words[next(words.length)]} `;
            }
            text += JSON.stringify(entry);
        }
        yield text.slice(0, bytes);
    }
}

const latencies = [];
let received = 0;

async function open(number) {
    const socket = new WebSocket(`ws://127.0.0.1:${values.port}/`, {
        perMessageDeflate: { threshold: 256, zlibDeflateOptions: { level: 1, memLevel: 8 } },
    });
    await once(socket, 'open');
    if (!socket.extensions.startsWith('permessage-deflate')) {
        throw new Error('no compression was agreed on');
    }
    return { socket, messages: texts(number), before: socket._socket.bytesRead };
}

/** Resolves when the echo of the last message has come. */
function run({ socket, messages }, end) {
    return new Promise((resolve, reject) => {
        let text = '';
        let start = 0;
        const send = () => {
            text = messages.next().value;
            start = performance.now();
            socket.send(text);
        };
        socket.on('message', (data, isBinary) => {
            if (isBinary || data.toString() !== text) {
                reject(new Error('an echo of other bytes'));
                return;
            }
            const now = performance.now();
            latencies.push((now - start) * 1000);
            received += data.length;
            if (now < end) {
                send();
            } else {
                resolve();
            }
        });
        socket.on('close', (code) => reject(new Error(`closed with ${code}`)));
        socket.on('error', reject);
        send();
    });
}

const connections = await Promise.all(Array.from({ length: count }, (_, number) => open(number)));
const begin = performance.now();
const end = begin + Number(values.seconds) * 1000;
await Promise.all(connections.map((connection) => run(connection, end)));
const seconds = (performance.now() - begin) / 1000;
const onWire = connections.reduce((sum, { socket, before }) => sum + socket._socket.bytesRead - before, 0);
latencies.sort((a, b) => a - b);
console.log(
    JSON.stringify({
        messages: latencies.length,
        rate: latencies.length / seconds,
        ratio: received / onWire,
        p50_us: latencies[Math.floor(latencies.length / 2)],
        p99_us: latencies[Math.floor(latencies.length * 0.99)],
    }),
);
process.exit(0);
