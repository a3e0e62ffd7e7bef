<?php
// Reads zip files with ZipArchive.
error_reporting(0);
while (($file = fgets(STDIN)) !== false) {
    $archive = new ZipArchive();
    $status = $archive->open(rtrim($file, "\n"), ZipArchive::RDONLY);
    if ($status !== true) {
        echo "- error $status\n";
        continue;
    }
    $found = '+';
    for ($i = 0; $i < $archive->numFiles; $i++) {
        $name = $archive->getNameIndex($i, ZipArchive::FL_ENC_RAW);
        $content = $archive->getFromIndex($i);
        $found .= ' ' . bin2hex((string) $name) . ':' .
            ($content === false ? '!' : strlen($content) . ':' . hash('crc32b', $content));
    }
    echo "$found\n";
    $archive->close();
}
