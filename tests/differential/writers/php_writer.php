<?php
// Writes zip files with ZipArchive: `php_writer.php VARIANT FILE`, or `... list`.
function tree(string $file, callable $change): void {
    $archive = new ZipArchive();
    $archive->open($file, ZipArchive::CREATE);
    $archive->addEmptyDir('sub');
    foreach (['a.txt', 'b.bin', 'none', 'sub/c d.txt', 'sub/größe.txt'] as $name) $archive->addFile($name, $name);
    $change($archive);
    if (!$archive->close()) exit(1);
}

$variants = [
    'ZipArchive' => fn($file) => tree($file, fn($archive) => null),
    'ZipArchive stored' => fn($file) => tree($file, fn($archive) =>
        $archive->setCompressionName('a.txt', ZipArchive::CM_STORE)),
    'ZipArchive level 9' => fn($file) => tree($file, fn($archive) =>
        $archive->setCompressionName('a.txt', ZipArchive::CM_DEFLATE, 9)),
    'ZipArchive with comments' => fn($file) => tree($file, function ($archive) {
        $archive->setArchiveComment('a comment');
        $archive->setCommentName('a.txt', 'of the item');
    }),
    'ZipArchive with attributes' => fn($file) => tree($file, fn($archive) =>
        $archive->setExternalAttributesName('a.txt', ZipArchive::OPSYS_UNIX, 0100600 << 16)),
    'ZipArchive from a string' => fn($file) => tree($file, fn($archive) => $archive->addFromString('s', 'string')),
    'ZipArchive, changed' => function ($file) {
        tree($file, fn($archive) => null);
        $archive = new ZipArchive();
        $archive->open($file);
        $archive->deleteName('a.txt');
        $archive->renameName('none', 'nothing');
        $archive->close();
    },
    'refused: ZipArchive encrypted' => fn($file) => tree($file, fn($archive) =>
        $archive->setEncryptionName('a.txt', ZipArchive::EM_AES_256, 'secret')),
];
if ($argv[1] === 'list') echo implode("\n", array_keys($variants)), "\n";
else ($variants[$argv[1]] ?? $variants["refused: $argv[1]"])($argv[2]);
