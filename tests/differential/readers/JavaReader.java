// Reads zip files with Java: by ZipFile, from front to back by ZipInputStream, or as a file system.
import java.io.*;
import java.nio.charset.StandardCharsets;
import java.nio.file.*;
import java.util.*;
import java.util.stream.Stream;
import java.util.zip.*;

class JavaReader {
    static String item(String name, InputStream stream) throws IOException {
        CRC32 checksum = new CRC32();
        byte[] buffer = new byte[65536];
        long size = 0;
        for (int count; (count = stream.read(buffer)) >= 0; size += count) checksum.update(buffer, 0, count);
        return hex(name) + String.format("%d:%08x", size, checksum.getValue());
    }

    static String hex(String name) {
        StringBuilder digits = new StringBuilder(" ");
        for (byte b : name.getBytes(StandardCharsets.UTF_8)) digits.append(String.format("%02x", b));
        return digits.append(":").toString();
    }

    static String fromFile(String file) throws IOException {
        StringBuilder found = new StringBuilder("+");
        try (ZipFile archive = new ZipFile(file)) {
            for (Enumeration<? extends ZipEntry> all = archive.entries(); all.hasMoreElements();) {
                ZipEntry entry = all.nextElement();
                try (InputStream stream = archive.getInputStream(entry)) {
                    found.append(item(entry.getName(), stream));
                } catch (IOException | RuntimeException fault) {
                    found.append(hex(entry.getName())).append("!");
                }
            }
        }
        return found.toString();
    }

    static String fromStream(String file) throws IOException {
        StringBuilder found = new StringBuilder("+");
        try (ZipInputStream archive =
                 new ZipInputStream(new ByteArrayInputStream(Files.readAllBytes(Path.of(file))))) {
            for (ZipEntry entry; (entry = archive.getNextEntry()) != null;)
                found.append(item(entry.getName(), archive));
        }
        return found.toString();
    }

    static String fromFileSystem(String file) throws IOException {
        StringBuilder found = new StringBuilder("+");
        try (FileSystem archive = FileSystems.newFileSystem(Path.of(file), (ClassLoader) null);
             Stream<Path> all = Files.walk(archive.getPath("/"))) {
            for (Path path : (Iterable<Path>) all::iterator) {
                if (Files.isDirectory(path)) continue;
                String name = path.toString().substring(1);
                try (InputStream stream = Files.newInputStream(path)) {
                    found.append(item(name, stream));
                } catch (IOException | RuntimeException fault) {
                    found.append(hex(name)).append("!");
                }
            }
        }
        return found.toString();
    }

    static String read(String how, String file) throws IOException {
        switch (how) {
            case "stream": return fromStream(file);
            case "filesystem": return fromFileSystem(file);
            default: return fromFile(file);
        }
    }

    public static void main(String[] words) throws IOException {
        BufferedReader input = new BufferedReader(new InputStreamReader(System.in));
        for (String file; (file = input.readLine()) != null;) {
            try {
                System.out.println(read(words[0], file));
            } catch (Exception | Error refusal) {
                System.out.println("- " + String.valueOf(refusal).replace('\n', ' '));
            }
            System.out.flush();
        }
    }
}
