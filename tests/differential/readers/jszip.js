// Reads zip files with jszip.
'use strict';
const fs = require('fs');
const jszip = require('jszip');
const {answer, item, unreadable} = require('./worker.js');

answer(async file => {
    const archive = await jszip.loadAsync(fs.readFileSync(file), {checkCRC32: true});
    let found = '';
    for (const entry of Object.values(archive.files)) {
        const name = entry.unsafeOriginalName || entry.name;
        if (entry.dir) continue;
        try {
            found += item(name, await entry.async('nodebuffer'));
        } catch (refusal) {
            found += unreadable(name);
        }
    }
    return found;
});
