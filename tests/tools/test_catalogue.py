"""index and find."""

import hashlib
import json
import os
import re
import shutil
import sqlite3
import struct
import subprocess
import time
import unittest

from support import DOCS, EXAMPLE, TOOL, ToolTest, why_not

OLD = 1_600_000_000  # a time at which no clock is coarse any more
# Options of a run as an ordinary user.
ORDINARY = {"preexec_fn": lambda: os.setuid(65534)} if os.getuid() == 0 else {}


class CatalogueTest(ToolTest):
    def app(self, name, *fields, age=OLD):
        """A packaged app with these fields, which was written long ago."""
        path = self.dir / name
        path.parent.mkdir(parents=True, exist_ok=True)
        self.small(name, "--force", *(word for field in fields for word in ("--set", field)))
        os.utime(path, (age, age))
        return name

    def index(self, *args):
        run = json.loads(self.ok("index", "--json", "-d", "c.db", *args))
        return run["added"], run["changed"], run["removed"]

    def find(self, *query, database="c.db"):
        """The names of the files that are found, without their folders."""
        return [line.rsplit("/", 1)[-1] for line in self.ok("find", "-d", database, "--", *query).splitlines()]

    def sql(self, statements, database="c.db"):
        connection = sqlite3.connect(self.dir / database)
        try:
            if ";" not in statements:
                return connection.execute(statements).fetchall()
            connection.executescript(statements)
            connection.commit()
            return []
        finally:
            connection.close()

    def content(self, database="c.db"):
        """All that a catalogue says, but when it was made."""
        tables = ("apps", "RequiredProducts", "UserComponents", "ImageRelativePaths", "findings", "words")
        rows = {table: [row[1:] for row in self.sql(f"SELECT rowid, * FROM {table}" if table in ("apps", "words") else
                                                    f"SELECT * FROM {table}", database)] for table in tables}
        rows["apps"] = [row[1:] for row in rows["apps"]]
        rows["files"] = self.sql("SELECT path, size, modified, again FROM files", database)
        return {table: sorted(map(repr, values)) for table, values in rows.items()}

    def is_whole(self, database="c.db"):
        self.assertEqual(self.sql("PRAGMA integrity_check", database), [("ok",)])
        self.sql("INSERT INTO words (words) VALUES ('integrity-check');", database)


class Index(CatalogueTest):
    def test_a_run_reads_what_has_changed_and_takes_out_what_went(self):
        self.app("apps/a.kvpkg", "Name=One")
        self.app("apps/sub/b.kvpkg", "Name=Two")
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "apps/t.k")
        self.write("apps/source.k", "function y = f(x)\n")
        for name in "t.k", "source.k":
            os.utime(self.dir / "apps" / name, (OLD, OLD))
        self.assertEqual(self.index("apps"), (4, 0, 0))
        self.assertEqual(self.index("apps"), (0, 0, 0))
        self.assertEqual(self.find(), ["a.kvpkg", "b.kvpkg", "t.k"])
        self.app("apps/a.kvpkg", "Name=Uno", age=OLD + 1)
        self.app("apps/c.kvpkg", "Name=Three")
        os.remove(self.dir / "apps/sub/b.kvpkg")
        self.assertEqual(self.index("apps"), (1, 1, 1))
        self.assertEqual(self.find(), ["c.kvpkg", "a.kvpkg", "t.k"])
        self.assertEqual((self.find("two"), self.find("one"), self.find("uno")), ([], [], ["a.kvpkg"]))
        self.index("apps", "--rescan")
        self.ok("index", "apps", "-d", "fresh.db")
        self.assertEqual(self.content(), self.content("fresh.db"))
        self.is_whole()

    def test_size_time_and_inode_say_what_has_changed(self):
        rows = [("the size", lambda path: path.write_bytes(path.read_bytes() + b" "), True),
                ("nanoseconds", lambda path: os.utime(path, ns=(0, OLD * 10**9 + 1)), False),
                ("the inode", lambda path: (shutil.copy(path, path.with_suffix(".new")),
                                            os.replace(path.with_suffix(".new"), path)), True)]
        for why, change, keeps_time in rows:
            shutil.rmtree(self.dir / "apps", ignore_errors=True)
            self.app("apps/a.kvpkg")
            self.index("apps", "--rescan")
            change(self.dir / "apps/a.kvpkg")
            if keeps_time:
                os.utime(self.dir / "apps/a.kvpkg", (OLD, OLD))
            self.assertEqual(self.index("apps"), (0, 1, 0), why)
        with open(self.dir / "apps/a.kvpkg", "r+b") as file:  # what only a rescan sees
            file.write(b"not a package")
        os.utime(self.dir / "apps/a.kvpkg", ns=(0, OLD * 10**9))
        self.index("apps")
        before = self.content()
        with open(self.dir / "apps/a.kvpkg", "r+b") as file:
            file.write(b"NOT")
        os.utime(self.dir / "apps/a.kvpkg", ns=(0, OLD * 10**9))
        self.assertEqual((self.index("apps"), self.content()), ((0, 0, 0), before))
        self.assertEqual(self.index("apps", "--rescan"), (0, 1, 0))
        self.assertNotEqual(self.content(), before)

    def test_a_file_of_this_moment_is_read_again(self):
        for why, moment in ("whole seconds", int(time.time()) * 10**9), ("the future", time.time_ns() + 10**10):
            self.app("apps/a.kvpkg")
            os.utime(self.dir / "apps/a.kvpkg", ns=(moment, moment))
            self.index("apps")
            self.assertEqual(self.index("apps"), (0, 1, 0), why)

    def test_only_what_is_below_the_folders_is_looked_at(self):
        self.app("apps/one/a.kvpkg")
        self.app("apps/two/b.kvpkg")
        self.app("apps/one-more/c.kvpkg")
        self.app("apps/.hidden/d.kvpkg")
        self.app("else/e.kvpkg")
        os.symlink("../else", self.dir / "apps/folder")
        os.symlink("../else/e.kvpkg", self.dir / "apps/e.kvpkg")
        self.assertEqual(self.index("apps", "apps/one", "apps/../apps"), (3, 0, 0))
        for folder in "one", "one-more":
            shutil.rmtree(self.dir / "apps" / folder)
            (self.dir / "apps" / folder).mkdir()
        self.assertEqual(self.index("apps/one"), (0, 0, 1))
        self.assertEqual(sorted(self.find()), ["b.kvpkg", "c.kvpkg"])
        self.ok("index", "apps", "-d", "apps/one/below.db")
        self.ok("index", "apps", "-d", "apps/one/below.db")
        self.assertEqual(self.find(database="apps/one/below.db"), ["b.kvpkg"])
        os.symlink("apps", self.dir / "named")
        self.assertEqual(self.index("named"), (0, 0, 1))
        shutil.rmtree(self.dir / "apps/two")
        self.fails(1, "gone: there is no such folder; check the name", "index", "apps", "gone", "-d", "c.db")
        self.assertEqual(self.find(), ["b.kvpkg"])
        self.fails(1, "c.db: is not a folder; name the one with the apps", "index", "c.db", "-d", "c.db")

    def test_what_cannot_be_looked_at_is_not_taken_out(self):
        self.app("apps/open/a.kvpkg")
        self.app("apps/shut/b.kvpkg")
        self.app("apps/shut-too.kvpkg")
        self.index("apps")
        os.chmod(self.dir, 0o777)
        for name in "c.db", "apps":
            shutil.chown(self.dir / name, 65534)
        os.remove(self.dir / "apps/open/a.kvpkg")
        os.chmod(self.dir / "apps/shut", 0)
        os.chmod(self.dir / "apps/shut-too.kvpkg", 0)
        self.addCleanup(os.chmod, self.dir / "apps/shut", 0o700)
        run = self.run_tool("index", "apps", "-d", "c.db", "--json", "--rescan", **ORDINARY)
        if os.getuid():
            return
        self.assertEqual(run.returncode, 1, run.stderr)
        self.assertIn("apps/shut: cannot be listed (Permission denied)", run.stderr.decode())
        self.assertIn("apps/shut-too.kvpkg: may not be read", run.stderr.decode())
        self.assertEqual([entry["file"].rsplit("/", 1)[1] for entry in json.loads(run.stdout)["unread"]],
                         ["shut", "shut-too.kvpkg"])
        self.assertEqual((self.find(), self.find("is:unreadable")), (["shut-too.kvpkg", "b.kvpkg"], []))
        os.chmod(self.dir / "apps/shut-too.kvpkg", 0o600)  # which changes neither size nor time
        self.assertEqual(self.index("apps"), (0, 1, 0))
        self.assertEqual(self.find("is:unreadable"), [])

    def test_what_is_damaged_or_oddly_named_is_recorded(self):
        self.app("apps/good.kvpkg", "Name=Good")
        self.write("apps/bad.kvpkg", b"PK\3\4 and nothing more")
        self.write("apps/bad.k", b"PK\3\4%[app:appDetails]")
        moment = time.time() + 10  # it will be read again, but it could be looked at
        os.utime(self.dir / "apps/bad.k", (moment, moment))
        name = b"w\xff\x1b[31m\n.kvpkg"
        shutil.copy(self.dir / "apps/good.kvpkg", os.fsencode(self.dir) + b"/apps/" + name)
        shutil.copy(self.dir / "apps/good.kvpkg", self.dir / "apps/UPPER.KVPKG")
        run = json.loads(self.ok("index", "apps", "-d", "c.db", "--json"))
        self.assertEqual((run["apps"], run["unreadable"], run["unread"]), (5, 4, []))
        self.assertEqual(sorted(self.find("is:unreadable")),
                         ["UPPER.KVPKG", "bad.k", "bad.kvpkg", "w\ufffd\\u001B[31m\\u000A.kvpkg"])
        listed = self.run_tool("find", "-d", "c.db", "-0").stdout
        self.assertIn(name, [path.rsplit(b"/", 1)[-1] for path in listed.split(b"\0")])
        errors = dict(self.sql("SELECT substr(File, -9), error FROM apps WHERE error IS NOT NULL"))
        self.assertIn("rename the file", errors["PER.KVPKG"])
        self.assertEqual(self.sql("SELECT count(*) FROM files WHERE path = x'" + os.fsencode(
            self.dir / "apps").hex() + "2f" + name.hex() + "'"), [(1,)])
        os.utime(self.dir / "apps/good.kvpkg", (15 * 10**9, 15 * 10**9))
        text = self.ok("index", "apps", "-d", "c.db")
        self.assertEqual(self.find("modified:>2200"), ["good.kvpkg"])
        self.assertIn('4 apps cannot be read; "qzapp find -d c.db is:unreadable" lists them', text)

    def test_other_files_are_refused_and_left_as_they_are(self):
        self.app("apps/a.kvpkg")
        self.index("apps")
        good = self.read("c.db")
        made = {}

        def database(name, statements, source=good):
            self.write(name, source)
            self.sql(statements, name)
            made[name] = self.read(name)
        self.write("text.db", "hello, this is a text that is longer than the head of a database, which has a hundred bytes")
        self.write("short.db", "SQLite format 3\0")
        made.update({name: self.read(name) for name in ("text.db", "short.db")})
        database("other.db", "CREATE TABLE t (x);", b"")
        database("newer.db", "PRAGMA user_version = 2;")
        database("wal.db", "PRAGMA journal_mode = WAL;")
        database("view.db", "CREATE VIEW v AS SELECT 1;")
        database("trigger.db", "CREATE TRIGGER t AFTER INSERT ON files BEGIN DELETE FROM apps; END;")
        database("virtual.db", "CREATE VIRTUAL TABLE v USING fts5(x);")
        database("column.db", "ALTER TABLE apps ADD COLUMN more TEXT;")
        database("missing.db", "DROP TABLE findings;")
        self.write("cut.db", good[:len(good) // 2])
        made["cut.db"] = self.read("cut.db")
        expected = {
            "text.db": "is not a catalogue of qzapp, nor any other SQLite database; it is left as it is",
            "short.db": "is not a catalogue of qzapp", "other.db": "is an SQLite database of another program",
            "newer.db": r"was made by a newer qzapp \(its schema is 2, this one knows 1\)",
            "wal.db": "write-ahead mode", "view.db": 'its view "v" is not as qzapp makes it',
            "trigger.db": 'its trigger "t" is not', "virtual.db": "is not as qzapp makes it",
            "column.db": 'its table "apps" is not', "missing.db": 'its table "findings" is not',
            "cut.db": "is damaged"}
        self.assertEqual(set(expected), set(made))
        for name, message in expected.items():
            for verb in (["index", "apps", "-d", name], ["find", "-d", name], ["index", "--status", "-d", name],
                         ["index", "--merge", name, "-d", "new.db"]):
                run = self.run_tool(*verb)
                self.assertEqual((run.returncode, run.stdout), (1, b""), (name, verb, run.stderr))
                self.assertRegex(run.stderr.decode(), f"^qzapp: {name}: .*{message}", (name, verb))
                self.assertEqual(self.read(name), made[name], (name, verb))
                self.assertFalse((self.dir / "new.db").exists(), verb)
        self.assertEqual([name for name in self.names() if "-" in name], [])
        self.fails(2, "x.KVPKG: is the name of an app; choose another for the catalogue, such as apps.db",
                   "index", "apps", "-d", "x.KVPKG")
        self.fails(2, "x.db/: is the name of a folder; name a file in it, such as apps.db", "index", "apps", "-d", "x.db/")
        self.fails(1, "none.db: there is no such file; check the name", "find", "-d", "none.db")
        self.assertNotIn("none.db", self.names())

    def test_an_older_catalogue_is_made_anew(self):
        self.app("apps/a.kvpkg")
        self.index("apps")
        self.sql("PRAGMA user_version = 0; DROP TABLE words; DROP TABLE findings; CREATE TABLE more (x);"
                 "CREATE VIEW v AS SELECT 1; UPDATE apps SET Name = 'old';")
        self.fails(1, 'c.db: was made by an older qzapp; "qzapp index" with the same folders makes it anew', "find", "-d",
                   "c.db")
        run = self.run_tool("index", "apps", "-d", "c.db", "--json")
        self.assertEqual((run.returncode, json.loads(run.stdout)["made"]), (0, "rebuilt"))
        self.assertRegex(run.stderr.decode(), "^qzapp: c.db: was made by an older qzapp and has been made anew")
        self.ok("index", "apps", "-d", "fresh.db")
        self.assertEqual(self.content(), self.content("fresh.db"))
        self.assertEqual(self.find("old"), [])

    def test_several_runs_at_once_do_the_same_as_one(self):
        for number in range(30):
            self.app(f"apps/{number % 3}/{number}.kvpkg", f"Name=n{number}")
        runs = [subprocess.Popen([TOOL, "index", f"apps/{folder}", "-d", "c.db"], cwd=self.dir,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE) for folder in ("0", "1", "2", "", "0", "")]
        for run in runs:
            self.assertEqual((run.communicate(timeout=120)[1], run.returncode), (b"", 0))
        self.ok("index", "apps", "-d", "fresh.db")
        self.assertEqual(self.content(), self.content("fresh.db"))
        self.is_whole()

    def test_a_run_waits_for_another_program_and_says_so(self):
        self.app("apps/a.kvpkg")
        self.index("apps")
        before = self.content()
        self.app("apps/b.kvpkg")
        other = sqlite3.connect(self.dir / "c.db", isolation_level=None)
        other.execute("BEGIN EXCLUSIVE")
        runs = [subprocess.Popen([TOOL, *args, "-d", "c.db"], cwd=self.dir, stderr=subprocess.PIPE)
                for args in (["index", "apps"], ["find", "x"])]
        for run, doing in zip(runs, ("reading or writing", "writing to")):
            self.assertEqual(run.communicate(timeout=60)[1].decode(), f"qzapp: c.db: another program is {doing} it and "
                             "has not finished within 10 seconds; try again when it has\n")
            self.assertEqual(run.returncode, 1)
        other.execute("ROLLBACK")
        other.close()
        self.assertEqual(self.content(), before)

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_whenever_a_run_is_killed_the_database_is_whole(self):
        """Killed at each call that writes: a first run, one that changes much, and a merge of what was merged."""
        self.app("apps/a.kvpkg", "Name=One")
        self.app("apps/b.kvpkg", "Name=Two")
        self.index("apps")
        first, before = self.read("c.db"), self.content()
        self.app("apps/a.kvpkg", "Name=Uno", age=OLD + 1)
        os.remove(self.dir / "apps/b.kvpkg")
        self.app("apps/c.kvpkg", "Name=Three")
        self.ok("index", "apps", "-d", "fresh.db")
        after = self.content("fresh.db")
        self.ok("index", "--merge", "fresh.db", "-d", "all.db")
        kills = 0
        for start, what in (first, ["apps"]), (None, ["apps"]), (None, ["--merge", "all.db"]):
            for call in "pwrite64", "unlink", "ftruncate":
                for number in range(1, 200):
                    for name in "c.db", "c.db-journal":
                        (self.dir / name).unlink(missing_ok=True)
                    if start:
                        self.write("c.db", start)
                    run = subprocess.run(["strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={call}", "-e",
                                          f"inject={call}:signal=KILL:when={number}", TOOL, "index", "-d", "c.db", *what],
                                         cwd=self.dir, capture_output=True)
                    if run.returncode == 0:
                        break
                    kills += 1
                    found = self.run_tool("find", "-d", "c.db")
                    if found.returncode:
                        self.assertRegex(found.stderr.decode(), "which restores (it|the database)|is empty|no such file")
                    self.ok("index", "-d", "c.db", *what)
                    self.is_whole()
                    self.assertEqual(self.content(), after, (what, call, number))
        self.assertGreater(kills, 20)
        self.assertNotEqual(before, after)

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_what_a_finished_run_did_outlives_a_power_failure(self):
        self.app("apps/a.kvpkg", "Name=One")
        subprocess.run(["strace", "-f", "-qq", "-y", "-o", "calls", "-e", "trace=unlink,unlinkat,fsync,fdatasync",
                        TOOL, "index", "-d", "c.db", "apps"], cwd=self.dir, capture_output=True, check=True)
        behind = self.read("calls").decode().rpartition('c.db-journal"')[2]
        self.assertRegex(behind, rf"sync\(\d+<{re.escape(str(self.dir.resolve()))}>\)")

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_failing_disk_loses_nothing_that_was_there(self):
        self.app("apps/a.kvpkg", "Name=One")
        self.index("apps")
        self.app("apps/b.kvpkg", "Name=Two")
        start = self.read("c.db")
        for call, fault, message in (("pwrite64", "ENOSPC", "there is no room for it on the disk"),
                                     ("pwrite64", "EIO", "cannot be read or written"),
                                     ("fdatasync", "EIO", "cannot be read or written")):
            number = 0
            for number, run in self.with_faults(call, fault, "index", "apps", "-d", "c.db"):
                if run.returncode:
                    self.assertRegex(run.stderr.decode(), f"^qzapp: c.db: .*{message}")
                self.is_whole()
                self.assertIn("a.kvpkg", self.find())
                for name in "c.db", "c.db-journal":
                    (self.dir / name).unlink(missing_ok=True)
                self.write("c.db", start)
            self.assertGreater(number, 1)

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_process_for_pictures_that_cannot_be_had_costs_pictures(self):
        for name in "ab":
            picture = self.write("s.png", (EXAMPLE / "screenshot.png").read_bytes() + name.encode())
            self.app(f"apps/{name}.kvpkg")
            self.ok("edit", f"apps/{name}.kvpkg", "--screenshot", picture)
        number = 0
        for call, fault in (("sendmsg", "ETOOMANYREFS"), ("socketpair", "EMFILE")):
            for number, run in self.with_faults(call, fault, "index", "apps", "-d", "c.db"):
                self.assertIn(run.returncode, (1, 2), (call, number))
                self.assertRegex(run.stderr.decode(), "screenshots? could not be scaled now|cannot make a socket")
                (self.dir / "c.db").unlink(missing_ok=True)
            self.assertGreater(number, 0)

    @unittest.skipIf(os.getuid() != 0, "only root can become an ordinary user")
    def test_a_database_that_may_not_be_written_is_refused(self):
        self.app("apps/a.kvpkg")
        self.index("apps")
        self.app("apps/b.kvpkg")
        os.chmod(self.dir, 0o755)
        run = self.run_tool("index", "apps", "-d", "c.db", **ORDINARY)
        self.assertRegex(run.stderr.decode(), "^qzapp: c.db: may not be written to; check the permissions")
        run = self.run_tool("index", "apps", "-d", "new.db", **ORDINARY)
        self.assertRegex(run.stderr.decode(), "^qzapp: new.db: it, or the journal beside it, cannot be made or opened")
        self.assertEqual(self.run_tool("find", "-d", "c.db", **ORDINARY).returncode, 0)

    @unittest.skipIf(os.getuid() != 0, "only root can make files for others")
    def test_what_others_put_into_a_directory_for_all_changes_no_database(self):
        self.app("apps/a.kvpkg")
        for folder in ("all", "victim"):
            (self.dir / folder).mkdir()
        (self.dir / "all").chmod(0o1777)
        link = self.dir / "all/link.db"
        link.symlink_to("../victim/c.db")
        os.lchown(link, 12345, 12345)
        self.fails_like(r"all/link\.db: is another user's symbolic link, .*", "index", "apps", "-d", "all/link.db")
        self.assertEqual(self.names("victim"), [])
        self.ok("index", "apps", "-d", "all/c.db")
        before = self.read("all/c.db")
        os.chown(self.dir / self.write("all/c.db-journal", b"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7" + bytes(504)), 12345, 12345)
        self.fails_like(r"all/c\.db: has a journal beside it that another user put there, .*", "index", "apps", "-d", "all/c.db")
        self.assertEqual(self.read("all/c.db"), before)
        os.unlink(self.dir / "all/c.db-journal")
        for name, content, message in [
                ("c.db-journal", bytes(512) + b"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", ".* which names another file, "),
                ("c.db-journal", b"My lab journal", ".* which is something else, "),
                ("c.db-wal", b"", "a write-ahead log ")]:
            self.write(f"all/{name}", content)
            self.fails_like(rf"all/c\.db: has {message}.*", "index", "apps", "-d", "all/c.db")
            self.assertEqual(self.read(f"all/{name}"), content)
            os.unlink(self.dir / "all" / name)
        self.assertEqual(self.read("all/c.db"), before)
        (self.dir / "own.db").symlink_to("all/own.db")
        self.ok("index", "apps", "-d", "own.db")
        self.assertIn("own.db", self.names("all"))

    @unittest.skipIf(os.getuid() != 0, "only root can make files for others")
    def test_a_journal_that_another_user_adds_while_index_waits_is_not_played_back(self):
        self.app("apps/a.kvpkg")
        self.index("apps")
        journal = bytes(self.changes_of_another("c.db"))
        self.app("apps/b.kvpkg")
        before = self.read("c.db")
        holder = sqlite3.connect(self.dir / "c.db")
        holder.execute("BEGIN EXCLUSIVE")
        run = subprocess.Popen([TOOL, "index", "apps", "-d", "c.db"], cwd=self.dir, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE)
        time.sleep(1)
        self.write("c.db-journal", journal)
        os.chown(self.dir / "c.db-journal", 12345, 12345)
        holder.rollback()
        message = run.communicate(timeout=60)[1].decode()
        self.assertEqual((run.returncode, self.read("c.db")), (1, before), message)
        self.assertEqual(self.read("c.db-journal"), journal)

    def changes_of_another(self, database):
        """A journal that would put a page of zeros into the place of the second one."""
        page = struct.unpack(">H", self.read(database)[16:18])[0]
        head = b"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7" + struct.pack(">IIIII", 1, 7, len(self.read(database)) // page, 512, page)
        return head.ljust(512, b"\0") + struct.pack(">I", 2) + bytes(page) + struct.pack(">I", 7)

    def test_a_hole_costs_nothing(self):
        for name, start in (("a.kvpkg", b""), ("b.kvpkg", self.read(self.app("apps/c.kvpkg")))):
            self.write(f"apps/{name}", start)
            os.truncate(self.dir / "apps" / name, 1 << 40)
        self.index("apps")  # at the speed of a disk this takes an hour
        self.assertEqual(self.find("has:errors"), ["a.kvpkg", "b.kvpkg"])

    def test_the_documented_schema_is_that_of_the_database(self):
        self.app("apps/a.kvpkg", "RequiredProducts=Signals",
                 "MinimumSupportedKORVALRelease=R2024b")
        self.index("apps")
        documented = re.search(r"^```sql\n(.*?)^```", (DOCS / "catalogue.md").read_text(), re.M | re.S)[1]
        ours = sqlite3.connect(":memory:")
        ours.executescript(documented)
        schema = "SELECT type, name, sql FROM sqlite_schema ORDER BY name"
        self.assertEqual(self.sql(schema), ours.execute(schema).fetchall())
        self.assertEqual(self.sql("SELECT releaseOrder, minimumOrder, Form FROM apps"), [(20262, 20242, "packaged")])
        self.assertEqual(self.sql("SELECT value FROM RequiredProducts"), [("Signals",)])
        self.assertEqual((self.sql("PRAGMA application_id"), self.sql("PRAGMA user_version")), ([(0x515A4150,)], [(1,)]))


class Pictures(CatalogueTest):
    def pictures(self):
        return self.sql("SELECT count(*) FROM apps JOIN pictures ON pictures.sha256 = screenshotSha256 WHERE "
                        "width BETWEEN 1 AND 480 AND height BETWEEN 1 AND 360 AND length(bytes) > 100"), self.sql(
                            "SELECT count(*) FROM pictures WHERE reason IS NULL"), self.sql(
                                "SELECT count(*) FROM pictures WHERE reason IS NOT NULL AND bytes IS NULL")

    def test_each_screenshot_is_scaled_once_and_kept_as_long_as_an_app_has_it(self):
        picture = (EXAMPLE / "screenshot.png").read_bytes()
        self.write("bad.png", picture[:200])
        for number in range(3):
            self.small(f"apps{number}.kvpkg", "--screenshot", EXAMPLE / "screenshot.png")
        self.small("bad.kvpkg", "--screenshot", "bad.png")
        (self.dir / "apps").mkdir()
        for name in "apps0", "apps1", "apps2", "bad":
            os.replace(self.dir / f"{name}.kvpkg", self.dir / f"apps/{name}.kvpkg")
            os.utime(self.dir / f"apps/{name}.kvpkg", (OLD, OLD))
        self.assertEqual(self.index("apps"), (4, 0, 0))
        self.assertEqual(self.pictures(), ([(3,)], [(1,)], [(1,)]))
        self.assertEqual(self.index("apps"), (0, 0, 0))
        # Whichever of several has brought the picture with it.
        for number in range(20, 60):
            shutil.copy2(self.dir / "apps/apps0.kvpkg", self.dir / f"apps/{number}.kvpkg")
        self.ok("index", "apps", "-d", "many.db")
        self.assertEqual(self.sql("SELECT count(*) FROM files WHERE again", "many.db"), [(0,)])
        for number in range(20, 60):
            os.remove(self.dir / f"apps/{number}.kvpkg")
        self.assertEqual(self.sql("SELECT DISTINCT screenshotSha256 FROM apps WHERE File NOT LIKE '%bad%'"),
                         [(hashlib.sha256(picture).hexdigest(),)])
        self.assertEqual(self.sql("SELECT originalWidth, originalHeight FROM pictures WHERE reason IS NULL"),
                         [struct.unpack(">II", picture[16:24])])
        self.ok("index", "--merge", "c.db", "-d", "all.db")
        self.assertEqual(self.sql("SELECT * FROM pictures ORDER BY sha256", "all.db"),
                         self.sql("SELECT * FROM pictures ORDER BY sha256"))
        os.remove(self.dir / "apps/apps0.kvpkg")
        os.remove(self.dir / "apps/bad.kvpkg")
        self.index("apps")
        self.assertEqual(self.pictures(), ([(2,)], [(1,)], [(0,)]))
        # One that could not be scaled is tried again when all is read again.
        self.sql("UPDATE pictures SET bytes = NULL, reason = 'it took too long';")
        self.index("apps", "--rescan")
        self.assertEqual(self.pictures(), ([(2,)], [(1,)], [(0,)]))
        # One that somebody took out is made again, as soon as the app is read.
        self.sql("DELETE FROM pictures;")
        self.index("apps", "--rescan")
        self.assertEqual(self.pictures(), ([(2,)], [(1,)], [(0,)]))
        for name in "apps1", "apps2":
            os.remove(self.dir / f"apps/{name}.kvpkg")
        self.index("apps")
        self.assertEqual(self.pictures(), ([(0,)], [(0,)], [(0,)]))

    def test_no_picture_of_a_stranger_has_another_type(self):
        self.small("app.kvpkg", "--screenshot", EXAMPLE / "screenshot.png")
        self.ok("index", ".", "-d", "c.db")
        self.sql("UPDATE pictures SET mediaType = 'text/html';")
        self.fails(1, 'c.db: holds what no catalogue holds; make it again with "qzapp index"', "index", "--merge", "c.db",
                   "-d", "all.db")


class Find(CatalogueTest):
    def setUp(self):
        super().setUp()
        self.app("apps/1.kvpkg", "Name=Heat Field", "Author=Åsa Lindqvist", "Summary=Maps of warmth",
                 "KORVALRelease=R2024a", "Version=1.2", "RequiredProducts=Signals", "RequiredProducts=Heat Tools",
                 "Uuid=5B1C1C0E-8f0f-4c43-9a63-2f0d6f3f7f11", age=1_700_000_000)
        self.app("apps/2.kvpkg", "Name=Atlas", "Author=Ada", "Summary=The heat of seas", "KORVALRelease=R2023b",
                 "Version=1.10", "Uuid=5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f11", age=1_600_000_000)
        self.app("apps/3.kvpkg", "Name=Zoom", "Description=needs HEAT flow, 100% a_b", "Author=Ada Lindqvist",
                 "KORVALRelease=R2024b", "MinimumSupportedKORVALRelease=R2024b")
        self.write("apps/4.kvpkg", "no package")
        shutil.copy(self.dir / "apps/3.kvpkg", self.dir / "apps/33.kvpkg")
        self.small("apps/5.kvpkg", "--set", "Description=Pictures", "--screenshot", EXAMPLE / "screenshot.png")
        self.index("apps")
        # A packaged app has the release that wrote it.
        for name, release, order in ("1", "R2024a", 20241), ("2", "R2023b", 20232), ("3%", "R2024b", 20242):
            self.sql(f"UPDATE apps SET KORVALRelease = '{release}', releaseOrder = {order} "
                     f"WHERE File LIKE '%/{name}.kvpkg';")
        self.sql("UPDATE apps SET KORVALRelease = 'old', releaseOrder = NULL WHERE File LIKE '%/5.kvpkg';")

    def found(self, *query):
        return " ".join(name.removesuffix(".kvpkg") for name in self.find(*query))

    def test_a_query_finds_what_it_says(self):
        rows = [
            ("", "4 5 2 1 3 33"), ("heat", "1 2 3 33"), ("HEAT", "1 2 3 33"), ("hea", ""), ("hea*", "1 2 3 33"),
            ("heat lindqvist", "1 3 33"), ("heat AND lindqvist", "1 3 33"), ("author:lindqvist", "1 3 33"),
            ("author:asa", "1"), ("author:Åsa", "1"), ('author:"ada lindqvist"', "3 33"), ('author:"lindqvist ada"', ""),
            ('"heat fl*"', "3 33"), ('"heat fl"*', "3 33"), ('product:"Signal*"', "1"), ("RequiredProducts:signals", "1"),
            ('product:"tools signals"', ""), ("atlas OR zoom", "2 3 33"), ("heat -atlas", "1 3 33"),
            ("heat NOT atlas", "1 3 33"), ("-heat", "4 5"), ("heat (ada OR åsa) -lindqvist", "2"),
            ("heat -(ada OR åsa)", ""), ("NOT (heat OR warmth) -is:unreadable", "5"),
            ("release:R2024a", "1"), ("release:r2024A", "1"), ("release:R2024*", "1 3 33"), ("release:>=R2024a", "1 3 33"),
            ("release:>R2024a", "3 33"), ("release:<R2024a", "2"), ("release:<=R2024a", "2 1"),
            ("release:=R2024a", "1"), ("minimum:>=R2020a", "3 33"), ("NOT release:>=R2024a", "4 5 2"),
            ("version:1.2", "1"), ("version:1.* -version:1.0", "2 1"), ('version:"1.1*"', "2"),
            ("uuid:5b1c1c0e-8F0F-4c43-9a63-2f0d6f3f7f11", "2 1"), ("uuid:5b1c*", "2 1"), ("duplicate:uuid", "2 1"),
            ("duplicate:hash", "3 33"), ("heat duplicate:hash", "3 33"), ("has:screenshot", "5"),
            ("NOT has:screenshot NOT is:unreadable", "2 1 3 33"), ("is:unreadable", "4"), ("has:errors", "4"),
            ("is:packaged heat*", "1 2 3 33"), ("has:RequiredProducts lindqvist", "1"), ("has:description", "5 3 33"),
            ("modified:2023", "1"), ("modified:2023-11-14", "1"), ("modified:<2023-11-14", "2 3"),
            ("modified:>=2023-11-15 heat", "33"), ("modified:<=2023-11 atlas", "2"), ("modified:>2023 -5 -4", "33"),
            ("size:10", "4"), ("size:>=10 size:<=10", "4"), ("size:>10k", "5"), ("size:<1k", "4"),
            ("rule:not-readable OR rule:zip*", "4"), ("file:33", "33"), ("33", "33"), ('path:"*"', "4 5 2 1 3 33"),
            (f"path:{self.dir}/apps/3*", "3 33"), ('"a_b"', "3 33"), ('path:"%"', ""), ('"OR"', ""),
            ("form:packaged zoom", "3 33"), ('"\\"heat\\" flow"', "3 33"),
        ]
        for query, expected in rows:
            self.assertEqual(self.found(query), expected, query)
            self.assertEqual(self.ok("find", "-d", "c.db", "--count", "--", query), f"{len(expected.split())}\n", query)
        self.assertEqual(self.found("heat", "author:lindqvist", "release:>=R2024a"), "1 3 33")
        self.assertEqual(self.ok("find", "-d", "c.db", "--limit", "2", "heat").count("\n"), 2)

    def test_what_is_wrong_with_a_query_is_said_with_its_place(self):
        rows = [
            ("autor:x", 1, 'unknown field "autor"; did you mean "author"?'),
            ("heät autor:x", 6, 'unknown field "autor"; did you mean "author"?'),
            ("http://x", 1, 'unknown field "http"; "qzapp find --help" lists them; put text with a colon between '
                            "quotation marks"),
            ("a (b", 3, '"(" has no ")"'), ("a)", 2, 'unexpected ")"; there is no "(" for it'),
            ("()", 1, 'there is nothing between "(" and ")"'), ('a "b', 3, "the quotation mark has no second one"),
            ("OR a", 1, "something is missing before OR"), ("a OR", 3, "something is missing behind OR"),
            ("a NOT", 3, "something is missing behind it"), ("a -", 3, "something is missing behind it"),
            ("AND a", 1, 'AND stands between two terms; write "AND" to search for the word'),
            ("a author:", 10, 'there is no value behind "author:"'), ("a*b", 2, '"*" can only be at the end of a value'),
            ("author:>x", 8, '">" only compares with release:, minimum:, size: and modified:; leave it out'),
            ("release:>=2024", 11, '"2024" is not a release, such as R2026b'),
            ("size:1x", 6, '"1x" is not a size, such as 500, 20k or 3M'),
            ("modified:2026-13", 10, '"2026-13" is not a year, month or day, such as 2026-11-22'),
            ("is:unreadble", 4, 'unknown value "unreadble"; did you mean "unreadable"?'),
            ("duplicate:x", 11, 'unknown value "x"; duplicate: takes uuid, hash'),
            ("has:nam", 5, 'unknown value "nam"; did you mean "Name"?'),
            ("a +++", 3, "words consist of letters and digits; here are none, so leave it out"),
            ("a \u2014 b", 3, "words consist of letters and digits; here are none, so leave it out"),
            ("a NOT -b", 3, "excludes what is excluded; leave both NOT or - out"),
            ("a --b", 3, "excludes what is excluded; leave both NOT or - out"),
            ("(" * 60, 51, "there are too many parentheses in each other"),
            ("a " * 201, 401, "a query has at most 200 terms"),
        ]
        for query, place, message in rows:
            self.fails(2, f"the query at character {place}: {message}", "find", "-d", "c.db", "--", query)

    def test_the_documented_terms_and_fields_are_those_of_the_verb(self):
        page = (DOCS / "catalogue.md").read_text()
        table = page[page.index("| term |"):page.index("| fields |")]
        terms = re.findall(r"`([^`]+)`", re.sub(r"\[.*?\]", "", table))
        self.assertGreater(len(terms), 20)
        for term in [*terms, "\u00b5", "\u3005", "\u2460"]:  # words without a letter of ASCII
            self.ok("find", "-d", "c.db", "--", term)
        fields = re.search(r"Fields: (.*?)\.\n", self.ok("find", "--help"), re.S)[1].split(", ")
        documented = page[page.index("| fields |"):page.index("The names of the metadata fields")]
        for field in fields:
            self.assertTrue(f"`{field}`" in documented or field in self.METADATA, field)
        for name in re.findall(r"`(\w+)`", documented):
            self.assertIn(name, fields)

    METADATA = ("RequiredProducts", "UserComponents", "ImageRelativePaths", "KORVALRelease",
                "MinimumSupportedKORVALRelease", "AppType", "ScreenshotMode")

    def test_each_form_of_output(self):
        lines = [json.loads(line) for line in self.ok("find", "-d", "c.db", "--json", "heat OR is:unreadable").splitlines()]
        self.assertEqual([line["file"].rsplit("/", 1)[1] for line in lines],
                         ["1.kvpkg", "2.kvpkg", "4.kvpkg", "3.kvpkg", "33.kvpkg"])
        info = self.json("info", "apps/1.kvpkg")
        info["metadata"]["KORVALRelease"] = "R2024a"  # see setUp()
        self.assertEqual((lines[0]["metadata"], lines[0]["screenshot"], lines[0]["modified"]),
                         (info["metadata"], info["screenshot"], "2023-11-14T22:13:20Z"))
        checked = self.run_tool("check", "--json", "apps/4.kvpkg").stdout
        self.assertEqual(lines[2]["findings"], json.loads(checked)["findings"])
        self.assertEqual((lines[2]["metadata"], lines[2]["form"]), (None, "packaged"))
        columns = ["--columns", "Name,Form,Screenshot,RequiredProducts"]
        self.assertEqual(self.ok("find", "-d", "c.db", *columns, "1"), self.ok("info", *columns, "apps/1.kvpkg"))
        for more in ["--json"], ["--count"], ["-0"]:
            self.fails_like("find: give one of .*", "find", "-d", "c.db", "--table", *more, status=2)

    def test_find_writes_nothing(self):
        before = self.read("c.db"), os.stat(self.dir / "c.db").st_mtime_ns, self.names()
        for args in ["heat"], ["--json"], ["--count"]:
            self.ok("find", "-d", "c.db", *args)
        self.ok("index", "--status", "-d", "c.db")
        self.assertEqual((self.read("c.db"), os.stat(self.dir / "c.db").st_mtime_ns, self.names()), before)

    def test_values_that_no_catalogue_holds_do_no_harm(self):
        """A database that looks like ours, with contents that are not."""
        self.sql("UPDATE apps SET Name = char(27) || '[31m' || char(10) || 'x', screenshotBytes = -5, errors = -1;"
                 "INSERT INTO apps SELECT 99, File, 'odd', error, sha256, Name, '', '', '', '', '', '', '', '', '', '', 1, 1,"
                 "'png', 9223372036854775807, NULL, 0, 0, 0 FROM apps LIMIT 1;"
                 "UPDATE files SET path = x'00ff', modified = -9223372036854775807 WHERE id = 1;"
                 "INSERT INTO words (words, rank) VALUES ('rank', 'bm25(1)');")
        for args in ["--json"], ["--columns", "Name,File,Form"], [], ["--table", "x"]:
            run = self.run_tool("find", "-d", "c.db", *args)
            self.assertEqual((run.returncode, run.stderr), (0, b""))
            self.assertNotIn(b"\x1b", run.stdout)
        self.sql("UPDATE words_data SET block = zeroblob(10) WHERE id > 1;")
        run = self.run_tool("find", "-d", "c.db", "heat")
        self.assertIn(run.returncode, (0, 1), run.stderr)


class Merge(CatalogueTest):
    def test_merged_catalogues_are_asked_as_one(self):
        self.app("one/a.kvpkg", "Name=A", "RequiredProducts=P")
        self.app("two/b.kvpkg", "Name=B")
        self.app("two/c.kvpkg", "Name=C")
        shutil.copytree(self.dir / "two", self.dir / "three")
        for name in "one", "two", "three":
            self.ok("index", name, "-d", f"{name}.db")
        merge = ["index", "--merge", "-d", "c.db"]
        self.assertEqual(self.ok(*merge, "one.db", "two.db"),
                         'c.db: merged one.db as "one"; files: 1 taken, 0 removed\n'
                         'c.db: merged two.db as "two"; files: 2 taken, 0 removed\n')
        self.assertEqual((self.find("source:two"), self.find("product:p")), (["b.kvpkg", "c.kvpkg"], ["a.kvpkg"]))
        self.assertEqual(self.ok(*merge, "two.db"), "c.db: nothing in two.db is newer than what was merged before\n")
        os.remove(self.dir / "two/b.kvpkg")
        self.app("two/c.kvpkg", "Name=Sea", age=OLD + 1)
        self.ok("index", "two", "-d", "two.db")
        self.assertEqual(self.ok(*merge, "two.db"), 'c.db: merged two.db as "two"; files: 1 taken, 1 removed\n')
        self.assertEqual((self.find(), self.find("sea")), (["a.kvpkg", "c.kvpkg"], ["c.kvpkg"]))
        # What was merged is merged on, and does not come back to where it is from.
        self.ok("index", "--merge", "c.db", "-d", "all.db")
        self.assertEqual(self.find("source:one OR source:two", database="all.db"), ["a.kvpkg", "c.kvpkg"])
        self.ok("index", "--merge", "all.db", "-d", "one.db")
        self.assertEqual(self.find(database="one.db"), ["a.kvpkg", "c.kvpkg"])
        # Folders of this machine are no concern of what was merged.
        self.ok("index", "two", "-d", "c.db")
        self.assertEqual(self.find("sea"), ["c.kvpkg", "c.kvpkg"])
        status = json.loads(self.ok("index", "--status", "--json", "-d", "c.db"))
        self.assertEqual([source["label"] for source in status["sources"]], [None, "one", "two"])
        self.is_whole()

    def test_no_other_catalogue_takes_the_place_of_one_for_good(self):
        self.app("one/a.kvpkg", "Name=Real")
        self.ok("index", "one", "-d", "one.db")
        shutil.copy(self.dir / "one.db", self.dir / "evil.db")
        self.sql("UPDATE sources SET updated = 9223372036854775807; UPDATE apps SET Name = 'Evil';", "evil.db")
        self.ok("index", "--merge", "evil.db", "-d", "c.db")
        self.ok("index", "--merge", "one.db", "-d", "c.db")
        self.assertEqual(self.sql("SELECT Name FROM apps"), [("Real",)])
        # Nothing that is longer than an index makes it is taken.
        self.sql("UPDATE apps SET Name = printf('%.*c', 30000000, 'x'), Summary = Name;", "evil.db")
        self.sql("UPDATE sources SET updated = 1;", "evil.db")
        self.ok("index", "--merge", "evil.db", "-d", "c.db")
        self.assertEqual(self.sql("SELECT length(Name) FROM apps"), [(1 << 20,)])
        # Names that might be taken for options are no files.
        self.sql("UPDATE files SET path = CAST('-rf' AS BLOB);", "evil.db")
        self.fails(1, 'evil.db: holds the path "-rf", and no catalogue does; make it again with "qzapp index"', "find", "-0",
                   "-d", "evil.db")
        self.fails_like("evil.db: holds what no catalogue holds.*", "index", "--merge", "evil.db", "-d", "c.db")

    def test_the_same_catalogue_is_refused(self):
        self.app("one/a.kvpkg")
        self.ok("index", "one", "-d", "one.db")
        shutil.copy(self.dir / "one.db", self.dir / "copy.db")
        for name in "one.db", "copy.db":
            self.fails(1, f'{name}: is this catalogue, or a copy of it; make a new one with "qzapp index"', "index",
                       "--merge", name, "-d", "one.db")

    def test_a_merge_copies_values_only(self):
        self.app("one/a.kvpkg")
        self.ok("index", "one", "-d", "one.db")
        text = "'); DROP TABLE apps; --"
        self.sql(f"UPDATE apps SET Name = '{text.replace(chr(39), chr(39) * 2)}', File = '{'x' * 70}';", "one.db")
        self.ok("index", "--merge", "one.db", "-d", "c.db")
        self.assertEqual(self.sql("SELECT Name FROM apps"), [(text,)])
        self.is_whole()

    def test_status_counts_what_find_finds(self):
        (self.dir / "apps").mkdir()
        self.create("apps/a.kvpkg")
        self.write("apps/b.kvpkg", "no package")
        self.ok("index", "apps", "-d", "c.db")
        sheet = self.ok("index", "--status", "-d", "c.db")
        self.assertRegex(sheet, r"^c.db: whole, [\d,]+ bytes, schema 1\n +2 apps\n")
        for count, query in re.findall(r"^ +(\d+) .*?  +(\S+:\S+|NOT \S+)$", sheet, re.M):
            self.assertEqual(self.ok("find", "-d", "c.db", "--count", query), count + "\n", query)
        self.assertIn(str(self.dir / "apps"), sheet)


if __name__ == "__main__":
    unittest.main()
