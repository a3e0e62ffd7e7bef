"""What is of the whole process: signals, threads, forks, interpreters, memory."""

import gc
import os
import pathlib
import signal
import subprocess
import sys
import threading
import time
import unittest

import qzapp
from support import MODEL, PNG, ModuleTest

# Saves a model that is large enough for a signal to come in the middle, and says when it begins.
LONG_SAVE = """
import os, sys, qzapp
app = qzapp.{call}
app.code, app.model = "new", "large"
{before}
print("begins", flush=True)
try:
    app.save()
except KeyboardInterrupt:
    print("interrupted", app.closed, flush=True)
    app = None
    sys.exit(3)
print("saved", flush=True)
"""


class Signals(ModuleTest):
    def setUp(self):
        super().setUp()
        piece = os.urandom(1 << 20)
        with open("large", "wb") as large:
            for _ in range(300):
                large.write(piece)
        self.create()
        self.before = pathlib.Path("app.kvpkg").read_bytes()

    def while_it_saves(self, number, call='edit("app.kvpkg")', before=""):
        """Sends a signal once the new file grows; returns the exit status and the output."""
        with self.run_python(LONG_SAVE.format(call=call, before=before)) as program:
            self.assertEqual(program.stdout.readline(), b"begins\n")
            end = time.monotonic() + 60
            while not any(name.startswith(".qzapp-") for name in os.listdir(".")) and time.monotonic() < end:
                time.sleep(0.001)
            time.sleep(0.05)
            program.send_signal(number)
            output, errors = program.communicate(timeout=60)
        self.assertNotIn(b"saved", output, errors)
        return program.returncode, output, errors

    def test_an_interrupt_ends_a_save_and_leaves_the_old_file(self):
        for call in ['edit("app.kvpkg")', 'create("new.kvpkg")']:
            with self.subTest(call):
                status, output, errors = self.while_it_saves(signal.SIGINT, call)
                self.assertEqual((status, output), (3, b"interrupted True\n"), errors)
                self.assertEqual(self.names(), ["app.kvpkg", "large"])
                self.assertEqual(pathlib.Path("app.kvpkg").read_bytes(), self.before)

    def test_what_a_handler_raises_is_what_the_program_gets(self):
        handler = """
import signal
def handle(number, frame):
    raise KeyboardInterrupt
signal.signal(signal.SIGTERM, handle)
"""
        self.assertEqual(self.while_it_saves(signal.SIGTERM, before=handler)[:2], (3, b"interrupted True\n"))

    def test_a_signal_that_ends_the_process_leaves_nothing(self):
        for number in [signal.SIGTERM, signal.SIGHUP]:
            self.assertEqual(self.while_it_saves(number)[0], -number)
            self.assertEqual(self.names(), ["app.kvpkg", "large"])
            self.assertEqual(pathlib.Path("app.kvpkg").read_bytes(), self.before)

    def test_a_killed_process_leaves_the_old_file_and_at_most_a_hidden_folder(self):
        self.assertEqual(self.while_it_saves(signal.SIGKILL)[0], -signal.SIGKILL)
        self.assertEqual([name for name in self.names() if not name.startswith(".qzapp-")], ["app.kvpkg", "large"])
        self.assertEqual(pathlib.Path("app.kvpkg").read_bytes(), self.before)

    def test_a_copy_is_interrupted_too(self):
        qzapp.create("large.kvpkg", code="", model="large").save()
        pathlib.Path("model.kvd").write_text("old")
        program = """
import signal, threading, qzapp
model = qzapp.open("large.kvpkg").model
signal.setitimer(signal.ITIMER_REAL, 0.02)
def handle(number, frame):
    raise KeyboardInterrupt
signal.signal(signal.SIGALRM, handle)
try:
    model.save("model.kvd")
except KeyboardInterrupt:
    print("interrupted")
"""
        with self.run_python(program) as run:
            self.assertEqual(run.communicate(timeout=60), (b"interrupted\n", b""))
        self.assertEqual(pathlib.Path("model.kvd").read_text(), "old")
        self.assertEqual(self.names(), ["app.kvpkg", "large", "large.kvpkg", "model.kvd"])


class Threads(ModuleTest):
    def in_threads(self, count, work):
        failures = []

        def run(number):
            try:
                work(number)
            except BaseException as error:
                failures.append(error)

        threads = [threading.Thread(target=run, args=(i,)) for i in range(count)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return failures

    def test_one_app_is_read_by_many(self):
        model = os.urandom(3 << 20)
        app = qzapp.open(self.create(screenshot=PNG, model=model))
        stream = app.model.open()
        other = app.model.open()

        def read(number):
            buffer = bytearray(1000)
            for _ in range(30):
                self.assertEqual(app.metadata.name, "Atlas")
                self.assertEqual((app.code, app.screenshot.data), ("disp(1)\n", PNG))
                self.assertEqual(app.parts["/korval/code.k"].read(), b"disp(1)\n")
                stream.read(1000)
                other.raw.readinto(buffer)
            if number == 0:
                self.assertEqual(app.model.read(), model)

        self.assertEqual(self.in_threads(8, read), [])

    def test_a_thread_that_works_when_the_program_ends_does_no_harm(self):
        self.create()
        for work in ['qzapp.open("app.kvpkg").metadata', 'list(qzapp.scan("."))',
                     'qzapp.create(name, code="", model=bytes(1 << 20), overwrite=True).save()']:
            program = self.run_python(f"""
import qzapp, threading, time
def loop():
    name = f"{{threading.get_ident()}}.kvpkg"
    while True:
        {work}
for _ in range(3):
    threading.Thread(target=loop, daemon=True).start()
time.sleep(.3)
""")
            self.assertEqual((program.communicate()[1], program.returncode), (b"", 0), work)

    def test_any_number_may_save_at_once(self):
        model = bytes(4 << 20)
        self.assertEqual(self.in_threads(40, lambda i: self.create(f"{i}.kvpkg", model=model)), [])
        self.assertEqual(len(self.names()), 40)

    def test_only_one_of_many_edits_is_saved_and_the_others_know(self):
        name = self.create()
        drafts = [qzapp.edit(name) for _ in range(6)]
        for i, draft in enumerate(drafts):
            draft.metadata.version = f"v{i}"
        failures = self.in_threads(6, lambda i: drafts[i].save())
        self.assertEqual({type(failure) for failure in failures}, {qzapp.SystemFailure})
        self.assertEqual(len(failures), 5)
        self.assertRegex(qzapp.open(name).metadata.version, "^v[0-5]$")
        self.assertEqual(self.names(), [name])

    def test_other_threads_run_while_one_saves(self):
        with open("large", "wb") as large:
            large.write(os.urandom(64 << 20))
        counted, done = 0, threading.Event()

        def save(number):
            qzapp.create("large.kvpkg", code="", model="large").save()
            done.set()

        saver = threading.Thread(target=save, args=(0,))
        saver.start()
        while not done.is_set():
            counted += 1
            time.sleep(0.001)
        saver.join()
        self.assertGreater(counted, 5)

    def test_scans_of_several_threads_do_not_meet(self):
        for i in range(20):
            self.create(f"{i:02}.kvpkg")
        scan = qzapp.scan(".")
        self.assertEqual(self.in_threads(4, lambda i: self.assertEqual(len(list(qzapp.scan("."))), 20)), [])
        self.assertEqual(len(list(scan)), 20)


class Processes(ModuleTest):
    def in_child(self, work):
        """Runs `work` in a forked process and returns what it says."""
        reading, writing = os.pipe()
        child = os.fork()
        if child == 0:
            try:
                said = work()
            except BaseException as error:
                said = f"{type(error).__name__}: {error}"
            os.write(writing, str(said).encode())
            os._exit(0)
        os.close(writing)
        with open(reading, "rb") as pipe:
            said = pipe.read().decode()
        os.waitpid(child, 0)
        return said

    def test_a_forked_process_reads_but_does_not_save(self):
        name = self.create()
        app = qzapp.open(name)
        stream = app.model.open()
        stream.read(10)
        self.assertEqual(self.in_child(lambda: app.metadata.name + str(stream.read() == MODEL[10:])), "AtlasTrue")
        self.assertEqual(stream.read(), MODEL[10:])
        forked = "was opened before this process was forked; open it again to change it"
        for draft, file in [(qzapp.edit(name), name), (qzapp.create("new.kvpkg", model=b""), "new.kvpkg")]:
            draft.code = "new"
            self.assertEqual(self.in_child(draft.save), f"PermissionDenied: {file}: {forked}")
            self.assertEqual(self.in_child(draft.close), "None")
            draft.save()
            self.assertEqual(qzapp.open(file).code, "new")
        self.assertEqual(self.names(), [name, "new.kvpkg"])

    def test_a_forked_process_reads_what_other_threads_were_reading(self):
        app, done = qzapp.open(self.create()), threading.Event()
        scan = qzapp.scan(".")

        def read():
            while not done.is_set():
                app.metadata

        threads = [threading.Thread(target=read) for _ in range(3)]
        for thread in threads:
            thread.start()
        self.addCleanup(lambda: [done.set(), *(thread.join() for thread in threads)])

        def work():
            signal.alarm(20)
            return app.metadata.name

        self.assertEqual([self.in_child(work) for _ in range(20)], ["Atlas"] * 20)
        self.assertIn("belongs to the process that began it", self.in_child(lambda: list(scan)))

    def test_a_forked_process_scans_and_saves_what_it_opens_itself(self):
        list(qzapp.scan("."))

        def work():
            self.create("child.kvpkg")
            return len(list(qzapp.scan(".")))

        self.assertEqual(self.in_child(work), "1")

    def test_a_subinterpreter_is_refused_whoever_is_first(self):
        program = """
import _xxsubinterpreters as interpreters
{first}
inner = interpreters.create()
try:
    interpreters.run_string(inner, {code!r})
except interpreters.RunFailedError as error:
    print(error)
import qzapp
print(qzapp.Metadata())
"""
        code = "import sys; sys.path[:] = %r\nimport qzapp" % sys.path
        for first in ["", "import qzapp"]:
            with self.subTest(first), self.run_python(program.format(first=first, code=code)) as run:
                output, errors = run.communicate(timeout=60)
                self.assertEqual((run.returncode, errors), (0, b""))
                self.assertIn(b"qzapp works in the main interpreter only", output)
                self.assertIn(b"Metadata(name=None", output)

    def test_nothing_leaks(self):
        name = self.create(screenshot=PNG)
        pathlib.Path("bad.kvpkg").write_bytes(b"bad")
        content = pathlib.Path(name).read_bytes()

        def use():
            app = qzapp.open(name)
            app.metadata, app.code, app.screenshot, app.parts, app.model.open().read(10)
            qzapp.open(content).metadata
            list(qzapp.scan("."))
            qzapp.check(name)
            with qzapp.edit(name) as draft:
                draft.metadata.version += "1"
                draft.model = content
            for call in [lambda: qzapp.open("bad.kvpkg"), lambda: qzapp.edit("no.kvpkg")]:
                with self.assertRaises(qzapp.Error):
                    call()

        def state():
            gc.collect()
            resident = int(pathlib.Path("/proc/self/statm").read_text().split()[1]) * 4096
            return len(os.listdir("/proc/self/fd")), len(gc.get_objects()), sys.getallocatedblocks(), resident

        for _ in range(20):
            use()
        before = state()
        for _ in range(100):
            use()
        descriptors, objects, blocks, resident = (b - a for a, b in zip(before, state()))
        self.assertEqual(descriptors, 0)
        self.assertLess(objects, 50)
        self.assertLess(blocks, 200)
        if "QZ_SANITIZED" not in os.environ:  # a sanitizer keeps what is freed for a while
            self.assertLess(resident, 4 << 20)


if __name__ == "__main__":
    unittest.main()
