// Writes zip files with Java: `JavaWriter.java VARIANT FILE`, or `... list`.
import java.io.*;
import java.net.URI;
import java.nio.file.*;
import java.util.*;
import java.util.zip.*;

class JavaWriter {
    static final String[] TREE = {"a.txt", "b.bin", "none", "sub/c d.txt", "sub/größe.txt"};

    static void stream(String file, int level, boolean isStored, String comment) throws IOException {
        try (ZipOutputStream archive = new ZipOutputStream(new FileOutputStream(file))) {
            archive.setLevel(level);
            if (comment != null) archive.setComment(comment);
            archive.putNextEntry(new ZipEntry("sub/"));
            for (String name : TREE) {
                byte[] content = Files.readAllBytes(Path.of(name));
                ZipEntry entry = new ZipEntry(name);
                if (comment != null) entry.setComment(comment);
                if (comment != null) entry.setLastModifiedTime(java.nio.file.attribute.FileTime.fromMillis(1));
                if (isStored) {
                    CRC32 checksum = new CRC32();
                    checksum.update(content);
                    entry.setMethod(ZipEntry.STORED);
                    entry.setSize(content.length);
                    entry.setCrc(checksum.getValue());
                }
                archive.putNextEntry(entry);
                archive.write(content);
            }
        }
    }

    static void fileSystem(String file, Map<String, String> options) throws IOException {
        Map<String, String> all = new HashMap<>(options);
        all.put("create", "true");
        try (FileSystem archive = FileSystems.newFileSystem(URI.create("jar:file:" + file), all)) {
            Files.createDirectory(archive.getPath("sub"));
            for (String name : TREE) Files.copy(Path.of(name), archive.getPath(name));
        }
    }

    interface Write { void to(String file) throws IOException; }

    public static void main(String[] words) throws IOException {
        Map<String, Write> variants = new TreeMap<>();
        for (int level : new int[] {0, 1, 9})
            variants.put("ZipOutputStream " + level, file -> stream(file, level, false, null));
        variants.put("ZipOutputStream stored", file -> stream(file, 0, true, null));
        variants.put("ZipOutputStream with comments", file -> stream(file, 5, false, "a comment"));
        variants.put("zipfs", file -> fileSystem(file, Map.of()));
        variants.put("zipfs stored", file -> fileSystem(file, Map.of("compressionMethod", "STORED")));
        variants.put("zipfs with zip64", file -> fileSystem(file, Map.of("forceZIP64End", "true")));
        variants.put("zipfs with permissions", file -> fileSystem(file, Map.of("enablePosixFileAttributes", "true")));
        if (words[0].equals("list")) variants.keySet().forEach(System.out::println);
        else variants.get(words[0]).to(words[1]);
    }
}
