# SPDX-License-Identifier: MIT
"""Parameters of the user database, and its factory settings."""
import contextlib
import os
import sqlite3
import unittest
import unittest.mock

import kelo_utils
from kelo_utils import Error, Parameters

FOLDER = "/data/kelo-resource/sqlite3"
COLUMNS = {"enabled": "uint8", "channel": "int32", "address": "uint32", "bytes": "uint64", "ssid": "text"}


class ParametersTest(unittest.TestCase):
    def setUp(self):
        os.makedirs(FOLDER, exist_ok=True)
        kelo_utils.close_parameters()
        for name in os.listdir(FOLDER):
            os.remove(os.path.join(FOLDER, name))
        with contextlib.closing(sqlite3.connect(os.path.join(FOLDER, "factory_info.db"))) as database:
            database.execute("create table wifi (enabled, channel, address, bytes, ssid)")
            database.execute("insert into wifi values (1, -6, 4294967295, 9007199254740993, 'home')")
            database.commit()
        self.wifi = Parameters("wifi", COLUMNS)

    def test_values_are_read(self):
        self.assertEqual(dict(self.wifi), {"enabled": 1, "channel": -6, "address": 4294967295, "bytes": 9007199254740993,
                                           "ssid": "home"})
        self.assertEqual((len(self.wifi), "ssid" in self.wifi, "x" in self.wifi), (5, True, False))

    def test_values_are_set_and_reloaded(self):
        for name, value in (("enabled", 0), ("channel", -2147483648), ("address", 2147483648), ("bytes", 2**62),
                            ("ssid", "Zürich 5 GHz")):
            factory = self.wifi[name]
            self.wifi[name] = value
            self.assertEqual(self.wifi[name], value)
            self.assertEqual(self.wifi.reload(name), factory)
            self.assertEqual(self.wifi[name], factory)

    def test_statements_give_rows(self):
        self.wifi["ssid"] = "mine"
        self.assertEqual(kelo_utils.query_parameters("select ssid, null as n from wifi"), [{"ssid": "mine", "n": None}])
        self.assertEqual(kelo_utils.query_parameters("select ssid from wifi", factory=True), [{"ssid": "home"}])
        self.assertEqual(kelo_utils.query_parameters("update wifi set ssid = 'x'"), [])
        self.assertEqual(self.wifi["ssid"], "x")
        with self.assertRaises(Error) as caught:
            kelo_utils.query_parameters("select nothing from nowhere")
        self.assertEqual(caught.exception.name, "KELO_DB_FAILED")

    def test_statements_that_could_lead_sqlite_astray_do_no_harm(self):
        self.assertEqual(kelo_utils.query_parameters("pragma empty_result_callbacks = 1; select ssid from wifi where 0"), [])
        for name in ("fts3_tokenizer", '"FTS3_Tokenizer"'):
            with self.assertRaises(ValueError):
                kelo_utils.query_parameters(f"select {name}('simple', x'4141414141414141')")
        with self.assertRaises(Error):
            kelo_utils.query_parameters("select load_extension('/tmp/x')")

    def test_an_error_ends_a_query_and_is_raised(self):
        with unittest.mock.patch("kelo_utils._checks.shown", side_effect=KeyboardInterrupt):
            with self.assertRaises(KeyboardInterrupt):
                kelo_utils.query_parameters("select 1 union select 2")
        self.assertEqual(kelo_utils.query_parameters("select 1 as one"), [{"one": "1"}])

    def test_factory_settings_are_restored(self):
        self.wifi["ssid"] = "mine"
        kelo_utils.restore_parameters()
        self.assertEqual(self.wifi["ssid"], "home")

    def test_what_the_database_lacks_is_an_error(self):
        for table, column in (("wifi", "nothing"), ("nowhere", "ssid")):
            with self.assertRaises(Error) as caught:
                Parameters(table, {column: "text"})[column]
            self.assertEqual(caught.exception.name, "KELO_DB_FAILED")
        with self.assertRaises(Error):
            self.wifi["ssid"] = 'a "quoted" name'
        with self.assertRaises(Error):
            self.wifi["ssid"] = "x" * 300
        self.assertEqual(self.wifi["ssid"], "home")

    def test_bad_arguments(self):
        for table, columns in ((5, {}), ("a b", {}), ("a;drop", {}), ("a", {"b c": "text"}), ("a", {"b": "float"}),
                               ("a", None), ("a", {"b": None}), ("a", [1]), ("", {}), ("a" * 64, {})):
            with self.assertRaises((TypeError, ValueError)):
                Parameters(table, columns)
        for name, value in (("enabled", 256), ("enabled", -1), ("enabled", True), ("channel", 2**31), ("address", -1),
                            ("bytes", 2**64), ("ssid", 5), ("ssid", "a\0"), ("ssid", None), ("ssid", "x" * 5000)):
            with self.assertRaises((TypeError, ValueError)):
                self.wifi[name] = value
        for name in ("nothing", None, 5, ["ssid"]):
            with self.assertRaises(KeyError):
                self.wifi[name]
        for sql in (None, 5, b"select 1", "select 1\0"):
            with self.assertRaises((TypeError, ValueError)):
                kelo_utils.query_parameters(sql)
