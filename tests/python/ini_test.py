# SPDX-License-Identifier: MIT
"""INI files as mappings."""
import configparser
import os
import random
import signal
import tempfile
import threading
import unittest

from kelo_utils import Error, Ini, Section, _ini


class IniTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "settings.ini")
        self.ini = Ini(self.path)

    def written(self, text):
        with open(self.path, "w", encoding="utf-8", newline="") as file:
            file.write(text)

    def test_a_file_is_read(self):
        self.written("first = 1\n[Net]\nName = \"a \"\nname = b\n# n = 1\n empty =\n[lan]\nmtu: 0x10\n[net]\nlost = 1\n")
        self.assertEqual(list(self.ini), ["Net", "lan"])
        self.assertEqual(dict(self.ini["NET"]), {"Name": "a ", "empty": ""})
        self.assertEqual(dict(self.ini[None]), {"first": "1"})
        self.assertEqual(len(self.ini["Net"]), 2)
        self.assertIn("NAME", self.ini["net"])
        self.assertIn("LAN", self.ini)
        self.assertNotIn("wan", self.ini)
        self.assertEqual(self.ini["lan"].get_int("mtu"), 16)

    def test_a_missing_file_is_empty(self):
        self.assertEqual((list(self.ini), list(self.ini["a"]), len(self.ini)), ([], [], 0))
        with self.assertRaises(KeyError):
            self.ini["a"]["b"]
        self.assertEqual(self.ini["a"].get("b", "c"), "c")
        self.assertEqual(self.ini["a"].get_int("b", 7), 7)

    def test_a_value_may_look_like_a_default(self):
        self.written('a = "\1"\nb = "\2"\n')
        self.assertEqual(dict(self.ini[""]), {"a": "\1", "b": "\2"})

    def test_values_are_set_and_deleted(self):
        section = self.ini["net"]
        section["name"] = "the; \"name\" "
        section["mtu"] = 1500
        section["on"] = True
        section["share"] = 0.25
        section["empty"] = ""
        self.assertEqual(dict(section), {"name": 'the; "name" ', "mtu": "1500", "on": "1", "share": "0.25", "empty": ""})
        self.assertEqual((section.get_int("mtu"), section.get_bool("on"), section.get_float("share")), (1500, True, 0.25))
        del section["name"]
        self.assertNotIn("name", section)
        with self.assertRaises(KeyError):
            del section["name"]
        self.ini["other"]["x"] = "1"
        del self.ini["net"]
        self.assertEqual(list(self.ini), ["other"])
        with self.assertRaises(KeyError):
            del self.ini["net"]
        del self.ini[None]

    def test_python_reads_what_is_written(self):
        self.ini["net"].update(a="1", b="zwei")
        parser = configparser.ConfigParser()
        parser.read(self.path)
        self.assertEqual({name: dict(parser[name]) for name in parser.sections()}, {"net": {"a": "1", "b": "zwei"}})

    def test_what_would_read_as_something_else_is_refused(self):
        section = self.ini["net"]
        for key in ("", " a", "a ", "a=b", "a:b", "[a", "#a", ";a", "a\nb", "k" * 509, "a\0", None, 5, b"a"):
            with self.assertRaises((TypeError, ValueError)):
                section[key] = "1"
        for value in ("a\nb", " a", "\ta", "a\t", "v" * 508, '"' * 254, "a\0", None, b"a", float("nan"), 2**31, []):
            with self.assertRaises((TypeError, ValueError)):
                section["a"] = value
        for name in ("a\n", "n" * 508, 5, b"a"):
            with self.assertRaises((TypeError, ValueError)):
                self.ini[name]["a"] = "1"
        for path in ("", "a\0b", None, 5, "p" * 5000):
            with self.assertRaises((TypeError, ValueError)):
                Ini(path)
        with self.assertRaises(TypeError):
            Section(self.path, "net")
        self.assertFalse(os.path.exists(self.path))

    def test_every_accepted_value_reads_as_it_was(self):
        rng, section = random.Random(7), self.ini["net"]
        for number in range(400):
            value = "".join(rng.choice("ab \"\\;#=:[]'\t\xfc") for _ in range(rng.randrange(12)))
            key = f"k{number % 5}"
            try:
                section[key] = value
            except ValueError:
                continue
            self.assertEqual(section[key], value)

    def test_a_file_that_cannot_be_written_is_an_error(self):
        with self.assertRaises(Error) as caught:
            Ini(os.path.join(self.path, "below"))["a"]["b"] = "1"
        self.assertEqual((caught.exception.code, caught.exception.name), (0, None))
        with self.assertRaises(Error):
            Ini("/proc/version")["a"]["b"] = "1"

    def test_what_is_no_file_is_not_read(self):
        os.mkfifo(self.path)
        for path in ("/dev/zero", "/tmp", self.path):
            for call in (lambda ini: list(ini), lambda ini: list(ini["a"]), lambda ini: ini["a"].get_int("b")):
                with self.assertRaises(Error):
                    call(Ini(path))

    def test_paths_of_every_kind(self):
        Ini(os.fsencode(self.path))["a"]["b"] = "1"
        self.assertEqual(dict(Ini(os.path.relpath(self.path))["a"]), {"b": "1"})

    def test_a_child_uses_files_while_a_thread_of_its_parent_is_in_a_call(self):
        begun, ended = threading.Event(), threading.Event()

        def in_a_call():
            with _ini._using(os.fsencode(self.path)):
                begun.set()
                ended.wait()

        thread = threading.Thread(target=in_a_call)
        thread.start()
        begun.wait()
        child = os.fork()
        if child == 0:
            signal.alarm(20)
            self.ini["net"]["mtu"] = 1500
            os._exit(0)
        status = os.waitpid(child, 0)[1]
        ended.set()
        thread.join()
        self.assertEqual(status, 0)
        self.assertEqual(self.ini["net"]["mtu"], "1500")
