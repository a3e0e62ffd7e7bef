"""Reading: one door for all apps, and what it says of what is none."""

import dataclasses
import errno
import hashlib
import io
import json
import os
import pathlib
import pickle
import unittest
import zipfile

import qzapp
from support import MODEL, PNG, TEXT_APP, ModuleTest


class Open(ModuleTest):
    def test_all_kinds_of_sources_are_one_app(self):
        name = self.create(screenshot=PNG)
        content = pathlib.Path(name).read_bytes()
        sources = [name, pathlib.Path(name), str(self.dir / name), content, bytearray(content), memoryview(content),
                   io.BytesIO(content)]
        for source in sources:
            with self.subTest(type(source)), qzapp.open(source) as app:
                self.assertEqual(app.form, "packaged")
                self.assertEqual(app.metadata.name, "Atlas")
                self.assertEqual(app.code, "disp(1)\n")
                self.assertEqual(app.screenshot, qzapp.Screenshot("png", PNG))
                self.assertEqual(app.screenshot._repr_png_(), PNG)
                self.assertIsNone(app.screenshot._repr_jpeg_())
                self.assertEqual(app.model.read(), MODEL)

    def test_a_text_app_has_what_it_has(self):
        pathlib.Path("a.k").write_text(TEXT_APP)
        for source in ["a.k", TEXT_APP.encode(), open("a.k", "rb")]:
            with self.subTest(source), qzapp.open(source) as app:
                self.assertEqual((app.form, app.metadata.name, app.code), ("text", "Scope", TEXT_APP))
                self.assertEqual((app.screenshot, app.model, app.parts), (None, None, {}))
            if isinstance(source, io.IOBase):
                source.close()

    def test_an_app_is_the_file_that_was_opened(self):
        app = qzapp.open(self.create())
        os.unlink("app.kvpkg")
        self.create(metadata={"name": "Other"})
        self.assertEqual((app.metadata.name, app.model.read()), ("Atlas", MODEL))

    def test_what_cannot_be_opened_has_its_python_type_and_says_why(self):
        name = self.create()
        os.mkdir("folder.kvpkg")
        pathlib.Path("a.zip").write_bytes(b"")
        pathlib.Path("a.KVPKG").write_bytes(b"")
        pathlib.Path("bad.kvpkg").write_bytes(pathlib.Path(name).read_bytes()[:-1])
        rows = [
            ("no.kvpkg", FileNotFoundError, qzapp.NotFound, errno.ENOENT, "check the name"),
            ("folder.kvpkg", IsADirectoryError, qzapp.IsADirectory, errno.EISDIR, "give the name of a file"),
            ("/dev/null", OSError, qzapp.SystemFailure, errno.EINVAL, "copy its content into one"),
            ("a.zip", ValueError, qzapp.ExtensionError, None,
             'rename the file, or use "qzapp parts" for any other package'),
            ("a.KVPKG", ValueError, qzapp.ExtensionCaseError, None, "rename the file"),
            ("bad.kvpkg", ValueError, qzapp.BadFileError, None,
             'get the file again from where it came from; "qzapp check" shows what can be saved'),
            (os.fsdecode(b"\xff.kvpkg"), ValueError, qzapp.BadFileError, None, "rename the file"),
            ("", FileNotFoundError, qzapp.NotFound, errno.ENOENT, "check the name"),
            ("a\0.kvpkg", FileNotFoundError, qzapp.NotFound, errno.ENOENT, "check the name"),
        ]
        for file, python_type, own_type, code, advice in rows:
            with self.subTest(file), self.assertRaises(python_type) as caught:
                qzapp.open(file)
            error = caught.exception
            self.assertIs(type(error), own_type)
            self.assertIsInstance(error, qzapp.Error)
            self.assertEqual((error.file, error.advice, getattr(error, "errno", None)), (file, advice, code))
            self.assertEqual(str(error), f"{file}: {error.found}; {advice}")
            self.assertEqual(str(pickle.loads(pickle.dumps(error))), str(error))
            if isinstance(error, OSError):
                self.assertEqual(error.filename, file)

    def test_arguments_of_wrong_types_are_type_errors_that_say_so(self):
        name = self.create()
        path = "expected the path of a file, found bytes"
        source = "expected a path, a bytes-like object without gaps or a file object, found "
        rows = [
            (lambda: qzapp.open(None), source + "NoneType"),
            (lambda: qzapp.open(10**30), source + "int"),
            (lambda: qzapp.open(io.StringIO("text")),
             "expected a file object that was opened in binary mode, found one in text mode"),
            (lambda: qzapp.check(3.5), source + "float"),
            (lambda: qzapp.edit(b"app.kvpkg"), path),
            (lambda: qzapp.create(b"app.kvpkg"), path),
            (lambda: qzapp.scan(b"."), "expected the path of a folder, found bytes"),
            (lambda: qzapp.open(name).model.save(None), "expected the path of a file, found NoneType"),
        ]
        for call, text in rows:
            with self.subTest(text), self.fails(TypeError, text):
                call()

    def test_bytes_that_are_no_app_and_files_that_do_not_wait_are_refused(self):
        class Waiting(io.RawIOBase):
            pieces = [TEXT_APP.encode(), None, b"more", b""]

            def read(self, size=-1):
                return self.pieces.pop(0)

        with self.assertRaises(BlockingIOError):
            qzapp.open(Waiting())
        for source in b"", os.fsencode(self.create()):
            with self.fails(qzapp.BadFileError, "<bytes>: these bytes hold neither a package nor the sections of a "
                            "text app; if they are a path, give it as a str"):
                qzapp.open(source)
        with self.fails(qzapp.BadFileError, r"'\ud800.kvpkg': the system has no bytes for this name; choose another"):
            qzapp.open("\ud800.kvpkg")

    def test_a_closed_app_is_not_read(self):
        with qzapp.open(self.create()) as app:
            stream = app.model.open()
            part = app.parts["/korval/code.k"]
        for name in ["metadata", "code", "screenshot", "model", "parts", "form"]:
            with self.subTest(name), self.fails(ValueError, "app.kvpkg: the app is closed"):
                getattr(app, name)
        with self.fails(ValueError, "app.kvpkg: the app is closed"), app:
            pass
        app.close()
        self.assertEqual((stream.read(), part.read()), (MODEL, b"disp(1)\n"))


class Content(ModuleTest):
    def test_a_model_is_read_in_every_way(self):
        model = os.urandom(5 << 20)
        app = qzapp.open(self.create(model=model))
        self.assertEqual(app.model.size, len(model))
        self.assertEqual(bytes(app.model), model)
        app.model.save("model.kvd")
        self.assertEqual(pathlib.Path("model.kvd").read_bytes(), model)
        digest = hashlib.sha256()
        with app.model.open() as stream:
            while piece := stream.read(12345):
                digest.update(piece)
            with self.assertRaises(OverflowError):
                stream.read(10**30)
        self.assertEqual(digest.digest(), hashlib.sha256(model).digest())
        with self.assertRaises(ValueError):
            stream.read()

    def test_an_app_is_not_replaced_by_its_model(self):
        name = self.create()
        before = pathlib.Path(name).read_bytes()
        os.symlink(name, "link")
        for target in (name, "link", pathlib.Path(name).absolute()):
            with self.assertRaisesRegex(qzapp.Error, "holds what is to be copied to it; choose another file"):
                qzapp.open(name).model.save(target)
        self.assertEqual(pathlib.Path(name).read_bytes(), before)

    def test_a_damaged_model_is_never_taken_for_a_whole_one(self):
        self.create(model=bytes(100) + os.urandom(3 << 20))
        content = bytearray(pathlib.Path("app.kvpkg").read_bytes())
        content[2 << 20] ^= 1
        app = qzapp.open(bytes(content))
        pathlib.Path("model.kvd").write_text("old")
        stream = app.model.open()
        for read in [app.model.read, lambda: app.model.save("model.kvd"), stream.read, stream.read]:
            with self.assertRaises(qzapp.BadFileError) as caught:
                read()
            self.assertIn("lumenforge/appModel.kvd", caught.exception.place or "")
        self.assertEqual(self.names(), ["app.kvpkg", "model.kvd"])
        self.assertEqual(pathlib.Path("model.kvd").read_text(), "old")

    def test_parts_are_those_of_the_package(self):
        name = self.create(screenshot=PNG)
        parts = qzapp.open(name).parts
        with zipfile.ZipFile(name) as package:
            found = {"/" + item.filename: package.read(item) for item in package.infolist()}
        found.pop("/[Content_Types].xml")
        self.assertEqual({name: part.read() for name, part in parts.items()}, found)
        self.assertEqual(parts["/metadata/appScreenshot.png"].content_type, "image/png")

    def test_code_is_what_the_file_has(self):
        code = "a\r\nb\n\u00e9\U0001f600"
        self.assertEqual(qzapp.open(self.create(code=code)).code, code)
        self.assertEqual(qzapp.open(b"a\xff\r\n%[app:appDetails]\n").code, "a\ufffd\r\n%[app:appDetails]\n")


class Record(unittest.TestCase):
    def test_both_spellings_are_one_field_and_in_the_order_of_the_format(self):
        from qzapp import _native, _records
        self.assertEqual(tuple(_records.FORMAT_NAMES), _native.FIELDS)
        self.assertEqual(list(_records.FORMAT_NAMES.values()), list(_records.FIELDS))
        for format_name, name in _records.FORMAT_NAMES.items():
            self.assertEqual(format_name.lower(), name.replace("_", ""))
            value = ["x"] if _records.FIELDS[name] else "x"
            record = qzapp.Metadata(**{name: value})
            self.assertEqual((getattr(record, format_name), record[name], record[format_name]), (value,) * 3)
            setattr(record, format_name, None)
            self.assertEqual(record, qzapp.Metadata())

    def test_a_record_is_a_value(self):
        record = qzapp.Metadata(name="A", required_products=["x"])
        self.assertEqual(record, pickle.loads(pickle.dumps(record)))
        self.assertNotEqual(record, qzapp.Metadata(name="A", required_products=[]))
        self.assertEqual(json.loads(json.dumps(dict(record)))["RequiredProducts"], ["x"])
        self.assertIsNone(dict(record)["Summary"])

    def test_what_is_no_field_or_no_value_of_one_is_refused_at_once(self):
        record = qzapp.Metadata()
        rows = [("name", 10**30), ("name", b"x"), ("name", ["x"]), ("required_products", "x"),
                ("required_products", ["x", 1]), ("required_products", 3), ("RequiredProducts", "x")]
        for name, value in rows:
            with self.subTest(name, value=value), self.assertRaisesRegex(TypeError, f"^{name.lower()[:8]}.*: expected"):
                setattr(record, name, value)
        with self.assertRaisesRegex(AttributeError, "^there is no field 'verison'; the fields are name, "):
            record.verison = "1"
        with self.assertRaises(TypeError):
            qzapp.Metadata(verison="1")
        with self.assertRaises(KeyError):
            record["verison"]


class Scan(ModuleTest):
    def test_every_app_is_a_record_in_the_order_of_names(self):
        os.makedirs("apps/sub")
        for i in range(300):
            self.create(f"apps/{i:03}.kvpkg", metadata={"name": f"App {i}"}, code="", model=b"")
        pathlib.Path("apps/sub/text.k").write_text(TEXT_APP)
        pathlib.Path("apps/source.k").write_text("disp(1)")
        pathlib.Path("apps/bad.kvpkg").write_bytes(b"bad")
        odd = os.fsencode("apps/") + b"\xff.kvpkg"
        with open(odd, "wb"):
            pass
        for threads in [0, 1]:
            records = list(qzapp.scan("apps", threads=threads))
            self.assertEqual([record.path for record in records],
                             [f"apps/{i:03}.kvpkg" for i in range(300)]
                             + ["apps/bad.kvpkg", "apps/sub/text.k", os.fsdecode(odd)])
            self.assertEqual([record.metadata.name for record in records[:300]], [f"App {i}" for i in range(300)])
            bad, text, named = records[300:]
            self.assertEqual((bad.metadata, bad["name"], bad.form, type(bad.error)), (None, None, None, qzapp.BadFileError))
            self.assertEqual((text["name"], text.form, text.error), ("Scope", "text", None))
            self.assertIsInstance(named.error, qzapp.BadFileError)
        scan = qzapp.scan("apps")
        next(scan)
        os.chdir("/")
        self.assertEqual([(record.path, type(record.error)) for record in scan][-4:],
                         [(record.path, type(record.error)) for record in records[-4:]])
        os.chdir(self.dir)
        self.assertEqual(dict(text)["app_type"], text.metadata.app_type)
        self.assertEqual(list(text)[:4], ["path", "form", "error", "name"])
        self.assertFalse(dataclasses.is_dataclass(text))  # pandas takes the columns from a dataclass, not the mapping

    def test_a_folder_that_cannot_be_listed_is_an_error_at_once(self):
        pathlib.Path("file").write_text("")
        with self.assertRaises(FileNotFoundError):
            qzapp.scan("no")
        with self.assertRaises(NotADirectoryError):
            qzapp.scan("file")
        with self.fails(ValueError, "threads: expected 0 to 1024, found -1"):
            qzapp.scan(".", threads=-1)
        self.assertEqual(list(qzapp.scan(".")), [])


class Check(ModuleTest):
    def test_findings_are_those_of_the_tool(self):
        name = self.create(code="")
        findings = qzapp.check(name)
        self.assertTrue(findings)
        self.assertEqual({finding.severity for finding in findings}, {"note"})
        damaged = pathlib.Path(name).read_bytes()[:-30]
        first = qzapp.check(damaged)[0]
        self.assertEqual((first.rule, first.severity, first.count), ("zip-end", "error", 1))
        with self.assertRaises(FileNotFoundError):
            qzapp.check("no.kvpkg")
