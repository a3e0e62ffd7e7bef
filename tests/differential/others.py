"""The readers that are compared with ours: how each is built, started and asked."""

import os
import pathlib
import resource
import select
import shutil
import stat
import subprocess
import zlib

HERE = pathlib.Path(__file__).resolve().parent
READERS = HERE / "readers"
# Where Debian's modules are, for a node from elsewhere.
os.environ.setdefault("NODE_PATH", "/usr/share/nodejs:/usr/lib/nodejs")
SECONDS = 20         # for one file
MOST_MEMORY = 2 << 30


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (MOST_MEMORY, MOST_MEMORY))


def parse(line):
    """The items of an answer, as (name, size and checksum, or None when unreadable); None for a refusal."""
    if not line.startswith("+"):
        return None
    items = []
    for word in line.split()[1:]:
        name, content = word.split(":", 1)
        items.append((bytes.fromhex(name), None if content == "!" else content))
    return items


class Worker:
    """A process that answers a line for each line. It is started again when it ends or hangs."""

    def __init__(self, name, command, limited=True):
        self.name = name
        self.command = [str(word) for word in command]
        self.limited = limited
        self.process = None
        self.ended = 0  # how often it did not answer

    def start(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, preexec_fn=limit_memory if self.limited else None)
        self.rest = b""

    def stop(self):
        if self.process:
            self.process.kill()
            self.process.communicate()
            self.process = None

    def line(self):
        while b"\n" not in self.rest:
            if not select.select([self.process.stdout], [], [], SECONDS)[0]:
                return None
            piece = self.process.stdout.read1(1 << 16)
            if not piece:
                return None
            self.rest += piece
        line, self.rest = self.rest.split(b"\n", 1)
        return line.decode()

    def read(self, files):
        """An answer for each file; "- " and why for those on which the process ended."""
        answers = []
        while len(answers) < len(files):
            if not self.process:
                self.start()
            asked = files[len(answers):len(answers) + 100]
            try:
                self.process.stdin.write("".join(f"{file}\n" for file in asked).encode())
                self.process.stdin.flush()
            except BrokenPipeError:
                pass
            for _ in asked:
                line = self.line()
                if line is None:
                    self.ended += 1
                    answers.append("- it crashed or hung")
                    self.stop()
                    break
                answers.append(line)
        return answers


class Extractor:
    """A program that is started for each file, and unpacks it into a folder."""

    def __init__(self, name, command, scratch, warned=0):
        self.name = name
        self.warned = warned    # the exit status with which it has unpacked, and complained
        self.command = command  # words; FILE and FOLDER stand for what they say
        # Some follow a name with a few ".." in it.
        self.top = scratch / name
        self.folder = self.top / "1" / "2" / "3" / "4"
        self.ended = 0

    def stop(self):
        # Folders may be deeper than Python can go.
        try:
            shutil.rmtree(self.top, ignore_errors=True)
        except RecursionError:
            subprocess.run(["rm", "-rf", self.top], check=True)

    def read(self, files):
        return [self.read_one(str(file)) for file in files]

    def read_one(self, file):
        self.stop()
        self.folder.mkdir(parents=True)
        words = [word.replace("FILE", file).replace("FOLDER", str(self.folder)) for word in self.command]
        try:
            with open(file, "rb") as stream:
                done = subprocess.run(words, stdin=stream, stdout=subprocess.DEVNULL,
                                      stderr=subprocess.DEVNULL, cwd=self.folder, timeout=SECONDS,
                                      check=False)
        except subprocess.TimeoutExpired:
            self.ended += 1
            return "- it hung"
        if done.returncode not in (0, self.warned):
            return f"- status {done.returncode}"
        try:
            return "+" + "".join(self.items())
        except (OSError, RecursionError) as error:
            return f"- {error}"

    def items(self):
        for path in sorted(self.top.rglob("*")):
            mode = path.lstat().st_mode
            if stat.S_ISDIR(mode):
                continue
            name = bytes(path.relative_to(self.folder) if self.folder in path.parents
                         else path.relative_to(self.top)).hex()
            if stat.S_ISREG(mode):
                content = path.read_bytes()
                yield f" {name}:{len(content)}:{zlib.crc32(content):08x}"
            else:
                yield f" {name}:!"


def built(folder, command):
    """Whether it could be; what it lacks is not installed."""
    try:
        return subprocess.run(command, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              check=False).returncode == 0
    except FileNotFoundError:
        return False


def compiled(folder, name, libraries):
    target = folder / name
    source = READERS / f"{name}.cpp"
    flags = ["-std=c++20", "-O1", "-I", HERE.parent.parent, "-o", target, source, *(f"-l{library}" for library in libraries)]
    return [target] if built(folder, ["c++", *flags]) else None


def find_readers(folder, scratch):
    """Those that are installed, and the names of those that are not."""
    found, missing = [], []

    def add(name, make, *arguments, limited=True):
        if make is None:
            missing.append(name)
        else:
            found.append(Worker(name, [*make, *arguments], limited))

    def script(program, file, probe):
        return [program, READERS / file] if built(folder, [program, *probe]) else None

    def extract(name, *words, warned=0):
        if shutil.which(words[0]):
            found.append(Extractor(name, words, scratch, warned))
        else:
            missing.append(name)

    libarchive = compiled(folder, "libarchive", ["archive", "z"])
    add("libarchive", libarchive, "file")
    add("libarchive-pipe", libarchive, "pipe")
    add("libzip", compiled(folder, "libzip", ["zip", "z"]))
    add("minizip", compiled(folder, "minizip", ["minizip", "z"]))
    python = script("python3", "zipfile_reader.py", ["-c", "import zipfile"])
    add("python-zipfile", python, "items")
    add("python-zipfile-names", python, "names")
    add("perl-archive-zip", script("perl", "archive_zip.pl", ["-MArchive::Zip", "-e", "1"]))
    add("perl-uncompress", script("perl", "uncompress_unzip.pl", ["-MIO::Uncompress::Unzip", "-e", "1"]))
    add("php", script("php", "zip_archive.php", ["-r", 'exit(class_exists("ZipArchive") ? 0 : 1);']))
    ruby = script("ruby", "rubyzip.rb", ["-rzip", "-e", "1"])
    add("ruby", ruby)
    add("ruby-stream", ruby, "stream")
    go = built(folder, ["go", "build", "-o", folder / "go-reader", READERS / "archive_zip.go"])
    add("go", [folder / "go-reader"] if go else None, limited=False)
    java = None
    if built(folder, ["javac", "-d", folder, READERS / "JavaReader.java"]):
        java = ["java", "-Xmx512m", "-Xshare:auto", "-XX:+UseSerialGC", "-cp", folder, "JavaReader"]
    for how in ("file", "stream", "filesystem"):
        add(f"java-{how}", java, how, limited=False)
    for module in ("yauzl", "jszip"):
        add(module, script("node", f"{module}.js", ["-e", f"require('{module}')"]), limited=False)
    extract("unzip", "unzip", "-qq", "-o", "FILE", "-d", "FOLDER", warned=1)
    extract("7z", "7z", "x", "-y", "-bd", "-tzip", "-oFOLDER", "FILE", warned=1)
    extract("bsdtar", "bsdtar", "-x", "-f", "FILE")
    extract("busybox", "busybox", "unzip", "-q", "-o", "FILE", "-d", "FOLDER")
    return found, missing
