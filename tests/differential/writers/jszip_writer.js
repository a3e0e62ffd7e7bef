// Writes zip files with jszip: `jszip_writer.js VARIANT FILE`, or `... list`.
'use strict';
const fs = require('fs');
const jszip = require('jszip');

const variants = new Map();
for (const compression of ['STORE', 'DEFLATE']) {
    for (const platform of ['DOS', 'UNIX']) {
        for (const streamFiles of [false, true]) {
            variants.set(`jszip ${compression} ${platform}${streamFiles ? ' streamed' : ''}`,
                         {compression, platform, streamFiles});
        }
    }
}
variants.set('jszip with a comment', {comment: 'a comment'});
variants.set('jszip level 9', {compression: 'DEFLATE', compressionOptions: {level: 9}});

if (process.argv[2] === 'list') {
    console.log([...variants.keys()].join('\n'));
} else {
    const archive = new jszip();
    for (const name of ['a.txt', 'b.bin', 'none', 'sub/c d.txt', 'sub/größe.txt'])
        archive.file(name, fs.readFileSync(name), {comment: 'of the item', unixPermissions: 0o644});
    archive.folder('other');
    archive.generateAsync({type: 'nodebuffer', ...variants.get(process.argv[2])})
        .then(bytes => fs.writeFileSync(process.argv[3], bytes));
}
