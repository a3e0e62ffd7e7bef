"""Saving: whole or not at all, and nothing left behind."""

import contextlib
import errno
import io
import os
import pathlib
import unittest
import warnings
import zipfile

import qzapp
from support import EXAMPLE, MODEL, PNG, ModuleTest


class Create(ModuleTest):
    def test_what_is_given_arrives_whichever_way_it_is_given(self):
        def by_arguments():
            qzapp.create("app.kvpkg", metadata=qzapp.Metadata(name="A", required_products=["x"]), code="c",
                         model=EXAMPLE / "appModel.kvd", screenshot=EXAMPLE / "screenshot.png").save()

        def by_attributes():
            with qzapp.create("app.kvpkg") as app, open(EXAMPLE / "appModel.kvd", "rb") as model:
                app.metadata.Name = "A"
                app.metadata.required_products = ("x",)
                app.code, app.model, app.screenshot = "c", model, io.BytesIO(PNG)
                self.assertEqual((app.code, app.screenshot.format, app.form), ("c", "png", "packaged"))

        for make in [by_arguments, by_attributes]:
            with self.subTest(make), contextlib.suppress(FileNotFoundError):
                make()
                app = qzapp.open("app.kvpkg")
                self.assertEqual((app.metadata.name, app.metadata.required_products), ("A", ["x"]))
                self.assertEqual((app.code, app.model.read(), app.screenshot.data), ("c", MODEL, PNG))
                self.assertEqual(app.metadata.version, "1.0")
                self.assertEqual(self.names(), ["app.kvpkg"])
                os.unlink("app.kvpkg")

    def test_a_file_is_replaced_only_if_that_is_asked_for(self):
        name = self.create()
        text = "app.kvpkg: already exists; give overwrite=True to replace it"
        with self.fails(qzapp.Exists, text, errno=errno.EEXIST):
            qzapp.create(name)
        draft = qzapp.create("new.kvpkg", code="new", model=b"")
        pathlib.Path("new.kvpkg").write_text("made meanwhile")
        with self.fails(qzapp.Exists, text.replace("app", "new", 1)):
            draft.save()
        self.assertEqual(pathlib.Path("new.kvpkg").read_text(), "made meanwhile")
        qzapp.create(name, code="second", model=b"", overwrite=True).save()
        self.assertEqual(qzapp.open(name).code, "second")

    def test_what_cannot_be_in_an_app_is_refused_and_leaves_nothing(self):
        rows = [
            (dict(metadata={"name": "a\0b"}), qzapp.BadFileError, "Name: the character U\\+0000"),
            (dict(metadata={"name": "\ud800"}), qzapp.BadFileError, "Name"),
            (dict(metadata={"required_products": ["a", "\x01"]}), qzapp.BadFileError, "RequiredProducts"),
            (dict(code="a\udc80"), qzapp.BadFileError, "UTF-16|surrogate"),
            (dict(screenshot=qzapp.Screenshot("bmp", PNG)), qzapp.BadFileError, "png, jpg, jpeg or gif; convert"),
            (dict(screenshot=b"no image"), qzapp.BadFileError, "<bytes>: neither its name nor"),
            (dict(screenshot="no.png"), qzapp.NotFound, "no.png: there is no such file"),
            (dict(model="no.kvd"), qzapp.NotFound, "no.kvd: there is no such file"),
            (dict(model=10**30), TypeError, "found int"),
            (dict(code=b"c"), TypeError, "code: expected a str, found bytes"),
            (dict(metadata={"verison": "1"}), AttributeError, "there is no field 'verison'"),
            (dict(metadata=3), TypeError, "int"),
            (dict(code=None), qzapp.BadFileError, "app.kvpkg: no code was set, and an app has one; set it, to '' if"),
            (dict(model=None), qzapp.BadFileError, "app.kvpkg: no model was set.*; set it, to b'' if it is empty"),
        ]
        for content, kind, text in rows:
            with self.subTest(content), self.assertRaisesRegex(kind, text):
                qzapp.create("app.kvpkg", **{"code": "", "model": b"", **content}).save()
            self.assertEqual(self.names(), [])
        for path, kind in [("app.k", qzapp.ExtensionError), ("app.KVPKG", qzapp.ExtensionCaseError),
                           ("no/app.kvpkg", FileNotFoundError), (os.fsdecode(b"\xff.kvpkg"), qzapp.BadFileError)]:
            with self.subTest(path), self.assertRaises(kind):
                qzapp.create(path, code="", model=b"").save()

    def test_a_draft_that_is_forgotten_says_so(self):
        with self.assertWarnsRegex(ResourceWarning, "app.kvpkg: was never saved"):
            qzapp.create("app.kvpkg")
        self.assertEqual(self.names(), [])

    def test_doubtful_values_are_warned_of_before_anything_is_saved(self):
        with self.assertWarnsRegex(qzapp.AppWarning, 'Uuid "x" is not a UUID') as caught:
            self.create(metadata={"Uuid": "x"})
        self.assertTrue(caught.filename.endswith("support.py"), caught.filename)
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            with self.assertRaises(qzapp.AppWarning):
                self.create("other.kvpkg", metadata={"Uuid": "x"})
        self.assertEqual(self.names(), ["app.kvpkg"])


class Edit(ModuleTest):
    def test_what_is_set_changes_and_the_rest_stays(self):
        name = self.create(screenshot=PNG, metadata={"name": "Atlas", "summary": "s", "required_products": ["a"]})
        before = qzapp.open(name)
        with qzapp.edit(name) as app:
            app.metadata.version = "2"
            app.metadata.required_products.append("b")
            app.metadata.Summary = ""
            app.code = "new"
        after = qzapp.open(name)
        expected = before.metadata
        expected.version, expected.required_products, expected.summary = "2", ["a", "b"], ""
        self.assertEqual(after.metadata, expected)
        self.assertEqual((after.code, after.model.read(), after.screenshot), ("new", MODEL, before.screenshot))
        with qzapp.edit(name) as app:
            app.screenshot = None
            self.assertIsNone(app.screenshot)
            app.model = b"other"
            app.metadata = {"Author": "Ada"}
        after = qzapp.open(name)
        self.assertEqual((after.screenshot, after.model.read(), after.metadata.author, after.metadata.version),
                         (None, b"other", "Ada", "2"))

    def test_an_edit_that_changes_nothing_leaves_the_file_alone(self):
        name = self.create(screenshot=PNG)
        before = os.stat(name), pathlib.Path(name).read_bytes()
        with qzapp.edit(name) as app:
            app.metadata.name = "Atlas"
            app.code, app.model, app.screenshot = app.code, MODEL, app.screenshot
        with qzapp.edit(name):
            pass
        self.assertEqual((os.stat(name), pathlib.Path(name).read_bytes()), before)

    def test_notes_say_what_may_not_be_expected(self):
        with qzapp.edit(self.create()) as app:
            app.metadata.KORVALRelease = "R2020a"
        self.assertIn("R2020a is kept as legacy information", app.notes[0])

    def test_a_block_that_raises_saves_nothing(self):
        name = self.create()
        before = pathlib.Path(name).read_bytes()
        for kind in [ZeroDivisionError, KeyboardInterrupt, SystemExit]:
            with self.assertRaises(kind), qzapp.edit(name) as app:
                app.metadata.version = "2"
                app.code = "new"
                raise kind
            with self.assertRaises(kind), qzapp.create("new.kvpkg", code="x"):
                raise kind
        self.assertEqual((pathlib.Path(name).read_bytes(), self.names()), (before, [name]))

    def test_an_edit_that_fails_leaves_the_file_and_nothing_else(self):
        name = self.create()
        before = pathlib.Path(name).read_bytes()

        def set_text(app):
            app.metadata.name = "a\0"

        def set_absent(app):
            app.metadata.summary = None

        def set_item(app):
            app.metadata.required_products.append(3)

        rows = [(set_text, qzapp.BadFileError, "Name"),
                (set_absent, TypeError, "metadata.summary: None would make it absent.*'' makes it empty"),
                (set_item, TypeError, "required_products: expected a list of str or None, found"),
                (lambda app: os.unlink(name), FileNotFoundError, "there is no such file")]
        for change, kind, text in rows:
            with self.subTest(text), self.assertRaisesRegex(kind, text):
                with qzapp.edit(name) as app:
                    app.metadata.version = "2"
                    app.code = "new"
                    change(app)
            self.assertTrue(app.closed)
            if os.path.exists(name):
                self.assertEqual(pathlib.Path(name).read_bytes(), before)
                self.assertEqual(self.names(), [name])
        self.assertEqual(self.names(), [])

    def test_signatures_go_only_if_that_is_asked_for(self):
        name = self.create()
        kind = b"http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/origin"
        with zipfile.ZipFile(name) as package:
            items = {item: package.read(item) for item in package.namelist()}
        items["_rels/.rels"] = items["_rels/.rels"].replace(
            b"</Rel", b'<Relationship Id="s" Type="' + kind + b'" Target="korval/code.k"/></Rel')
        with zipfile.ZipFile(name, "w") as package:
            for item, content in items.items():
                package.writestr(item, content)
        text = "app.kvpkg: is signed, and no signature would be valid after an edit; "
        with self.fails(qzapp.BadFileError, text + "give edit() drop_signature=True to remove the signatures"):
            with qzapp.edit(name) as draft:
                draft.metadata.name = "B"
        with qzapp.edit(name, drop_signature=True) as draft:
            draft.metadata.name = "B"
        self.assertEqual((qzapp.open(name).metadata.name, qzapp.open(name).code), ("B", "disp(1)\n"))

    def test_the_second_of_two_edits_sees_the_first_or_fails(self):
        name = self.create()
        first, second = qzapp.edit(name), qzapp.edit(name)
        first.metadata.version, second.metadata.author = "2", "Ada"
        first.save()
        with self.assertRaisesRegex(qzapp.SystemFailure, "someone else") as caught:
            second.save()
        self.assertEqual((caught.exception.errno, caught.exception.filename), (errno.EBUSY, name))
        self.assertEqual((qzapp.open(name).metadata.version, qzapp.open(name).metadata.author), ("2", ""))
        self.assertEqual(self.names(), [name])

    def test_an_edit_is_of_the_file_that_its_name_led_to(self):
        name = self.create()
        os.mkdir("other")
        self.create("other/app.kvpkg")
        app = qzapp.edit(name)
        app.metadata.version = "2"
        os.chdir("other")
        app.save()
        os.chdir("..")
        self.assertEqual([qzapp.open(n).metadata.version for n in [name, "other/app.kvpkg"]], ["2", "1.0"])

    def test_after_the_end_nothing_can_be_set_or_read(self):
        with qzapp.edit(self.create()) as app:
            app.metadata.version = "2"
        text = "app.kvpkg: has been saved or closed already; open it again"
        for name, value in [("metadata", {}), ("code", ""), ("model", b""), ("screenshot", None)]:
            with self.subTest(name), self.fails(ValueError, text):
                getattr(app, name)
            with self.subTest(name), self.fails(ValueError, text):
                setattr(app, name, value)
        with self.fails(ValueError, text):
            app.save()

    def test_a_file_that_may_not_be_written_stays(self):
        if os.geteuid() == 0:
            self.skipTest("root may write everything")
        name = self.create()
        os.chmod(name, 0o400)
        with self.assertRaises(PermissionError), qzapp.edit(name) as app:
            app.metadata.version = "2"


if __name__ == "__main__":
    unittest.main()
