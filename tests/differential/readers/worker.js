// What the readers written in JavaScript have in common: a line in, a line out.
'use strict';
const readline = require('readline');

const table = Array.from({length: 256}, (_, n) => {
    for (let i = 0; i < 8; i++) n = n & 1 ? (n >>> 1) ^ 0xEDB88320 : n >>> 1;
    return n >>> 0;
});

exports.item = (name, content) => {
    let checksum = 0xFFFFFFFF;
    for (const byte of content) checksum = table[(checksum ^ byte) & 0xFF] ^ (checksum >>> 8);
    const digits = ((checksum ^ 0xFFFFFFFF) >>> 0).toString(16).padStart(8, '0');
    return ` ${Buffer.from(name).toString('hex')}:${content.length}:${digits}`;
};
exports.unreadable = name => ` ${Buffer.from(name).toString('hex')}:!`;

exports.answer = async read => {
    for await (const file of readline.createInterface({input: process.stdin})) {
        let line;
        try {
            line = '+' + await read(file);
        } catch (refusal) {
            line = '- ' + String(refusal).replace(/\n/g, ' ');
        }
        process.stdout.write(line + '\n');
    }
};
