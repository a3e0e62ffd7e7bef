// Reads zip files with yauzl.
'use strict';
const yauzl = require('yauzl');
const {answer, item, unreadable} = require('./worker.js');

const contentOf = (archive, entry) => new Promise(done => {
    archive.openReadStream(entry, (error, stream) => {
        if (error) return done(null);
        const pieces = [];
        stream.on('data', piece => pieces.push(piece));
        stream.on('error', () => done(null));
        stream.on('end', () => done(Buffer.concat(pieces)));
    });
});

answer(file => new Promise((done, fail) => {
    yauzl.open(file, {lazyEntries: true}, (error, archive) => {
        if (error) return fail(error);
        let found = '';
        archive.on('error', fault => { archive.close(); fail(fault); });
        archive.on('end', () => done(found));
        archive.on('entry', async entry => {
            const content = await contentOf(archive, entry);
            found += content ? item(entry.fileName, content) : unreadable(entry.fileName);
            archive.readEntry();
        });
        archive.readEntry();
    });
}));
