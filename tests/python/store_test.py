# SPDX-License-Identifier: MIT
"""The settings: items of every type, their defaults, changes, and what is refused."""
import copy
import os
import sys
import threading
import unittest

import kelo_utils
from kelo_utils import Error, Item, Store, _registry

MTU, APN, ROAMING, KEY, BIG = 1003, 1005, 1006, 1007, 1008
ITEMS = [
    Item(MTU, "wan", "mtu", int, 1500),
    Item(APN, "wan", "apn", str, "internet"),
    Item(ROAMING, "wan", "roaming", bool, True),
    Item(KEY, "wan", "secret", bytes, b"\0\1\2"),
    Item(BIG, "wan", "big", int, 4294967295),
]


class StoreTest(unittest.TestCase):
    def setUp(self):
        self.store = Store(ITEMS)
        self.addCleanup(self.store.close)
        for item in ITEMS:
            self.store.reset(item.id)

    def test_defaults_are_read_with_their_types(self):
        self.assertEqual([self.store.get(item.id) for item in ITEMS], [1500, "internet", True, b"\0\1\2", -1])
        self.assertEqual([self.store.default(item.id) for item in ITEMS], [item.default for item in ITEMS])
        self.assertEqual(self.store.get(BIG, unsigned=True), 4294967295)
        self.assertIs(self.store.get(ROAMING), True)

    def test_values_are_stored_and_removed(self):
        for number, value in ((MTU, -7), (APN, "Zürich €"), (ROAMING, False), (KEY, b"x" * 10000)):
            self.store[number] = value
            self.assertEqual(self.store[number], value)
            with Store() as other:
                self.assertEqual(other[number], value)
            del self.store[number]
            self.assertEqual(self.store[number], self.store.default(number))

    def test_values_are_in_the_database(self):
        self.store.set(APN, "wireless")
        self.assertTrue(os.path.exists("/data/config.db"))

    def test_unsigned_numbers_and_their_limits(self):
        self.store[BIG] = 4294967290
        self.assertEqual(self.store.get(BIG, unsigned=True), 4294967290)
        self.assertEqual(self.store.get(BIG), -6)
        for value in (-2147483648, 2147483647, 4294967295):
            self.store[MTU] = value
        for value in (-2147483649, 4294967296):
            with self.assertRaises(ValueError):
                self.store[MTU] = value

    def test_another_type_is_an_error_with_its_name(self):
        with self.assertRaises(Error) as caught:
            self.store[APN] = 5
        self.assertEqual((caught.exception.code, caught.exception.name), (-6, "KELO_DM_VALUE_WRONG_TYPE"))
        self.assertIn("KELO_DM_VALUE_WRONG_TYPE", str(caught.exception))
        for number, kind in ((APN, bytes), (APN, int), (KEY, str), (MTU, str)):
            with self.assertRaises(Error):
                self.store.get(number, kind)
        with self.assertRaises(Error) as caught:
            self.store[APN] = ""
        self.assertEqual(caught.exception.name, "KELO_DM_VALUE_WRONG_LENGTH")

    def test_a_text_that_is_no_utf_8_is_kept(self):
        self.store[APN] = os.fsdecode(b"a\xffb")
        self.assertEqual(os.fsencode(self.store[APN]), b"a\xffb")

    def test_unknown_items(self):
        self.assertNotIn(99, self.store)
        self.assertNotIn("wan", self.store)
        for call in (self.store.get, self.store.reset, self.store.default, self.store.item):
            with self.assertRaises(KeyError):
                call(99)
        with self.assertRaises(KeyError):
            self.store[99] = 1

    def test_items_are_enumerated_in_their_order(self):
        more = [Item(3000 + number, "order", f"k{number}", str, "") for number in range(5)]
        with Store(more) as store:
            self.assertEqual(store.items()[-5:], more)
            self.assertEqual(list(store)[-5:], [item.id for item in more])
            self.assertEqual(len(store), len(list(store)))
            self.assertLessEqual(set(ITEMS), set(store.items()))
        self.assertIn(MTU, self.store)

    def test_an_item_that_is_registered_again_has_its_new_default(self):
        with Store([Item(KEY, "wan", "secret", bytes, b"new")]) as other:
            self.assertEqual(other[KEY], b"new")
        with Store([ITEMS[3]]) as other:
            self.assertEqual(other[KEY], ITEMS[3].default)

    def test_changes_are_announced(self):
        changes = []
        with self.store.subscribe(lambda number, value: changes.append((number, value))):
            self.store[MTU] = 1400
            self.store[APN] = "other"
            self.store[ROAMING] = False
            self.store[KEY] = b"k"
            self.store.reset(APN)
        self.store[MTU] = 1300
        self.assertEqual(changes, [(MTU, 1400), (APN, "other"), (ROAMING, False), (KEY, b"k"), (APN, None)])

    def test_a_callback_uses_the_store(self):
        seen = []
        subscription = self.store.subscribe(lambda number, value: seen.append(self.store[number]))
        self.store[MTU] = 9000
        subscription.cancel()
        subscription.cancel()
        self.assertEqual(seen, [9000])

    def test_a_callback_cannot_open_or_close_a_store(self):
        refused = []

        def callback(*_):
            for call in (self.store.close, Store):
                try:
                    call()
                except RuntimeError as error:
                    refused.append(error)

        with self.store.subscribe(callback):
            self.store[MTU] = 1
        self.assertEqual(len(refused), 2)

    def test_a_callback_that_is_called_by_what_it_writes_comes_to_an_end(self):
        reports, before = [], sys.unraisablehook
        sys.unraisablehook = lambda report: reports.append((report.exc_type, str(report.exc_value)))
        limit = sys.getrecursionlimit()

        def write_again(_, value):
            self.store[MTU] = value + 1

        try:
            sys.setrecursionlimit(100000)  # the stack would end first
            with self.store.subscribe(write_again):
                self.store[MTU] = 1
        finally:
            sys.setrecursionlimit(limit)
            sys.unraisablehook = before
        self.assertEqual([kind for kind, _ in reports], [RuntimeError])
        self.assertIn("16 deep", reports[0][1])
        self.assertEqual(self.store[MTU], 16)

    def test_an_error_of_a_callback_is_reported_and_ends_nothing(self):
        reports, before = [], sys.unraisablehook
        sys.unraisablehook = lambda report: reports.append(report.exc_type)
        try:
            with self.store.subscribe(lambda *_: 1 // 0), self.store.subscribe(lambda *_: sys.exit(3)):
                self.store[MTU] = 1
        finally:
            sys.unraisablehook = before
        self.assertEqual(reports, [ZeroDivisionError, SystemExit])
        self.assertEqual(self.store[MTU], 1)

    def test_there_are_sixteen_subscriptions(self):
        subscriptions = [self.store.subscribe(print) for _ in range(kelo_utils.KELO_DM_MOST_SUBSCRIPTIONS)]
        with self.assertRaises(Error):
            self.store.subscribe(print)
        for subscription in subscriptions:
            subscription.cancel()
        self.store.subscribe(print).cancel()

    def test_a_closed_store_refuses_everything(self):
        self.store.close()
        self.store.close()
        for call in (lambda: self.store[MTU], lambda: self.store.set(MTU, 1), lambda: list(self.store), self.store.clean,
                     lambda: MTU in self.store, self.store.write_defaults, lambda: self.store.subscribe(print)):
            with self.assertRaises(ValueError):
                call()

    def test_a_store_is_not_copied(self):
        with self.assertRaises(TypeError):
            copy.copy(self.store)
        with self.assertRaises(RuntimeError):
            self.store.__init__()

    def test_bad_items_are_refused(self):
        for arguments in ((1.5, "t", "k", int, 0), (-1, "t", "k", int, 0), (1, "t k", "k", int, 0), (1, "t", "", int, 0),
                          (1, "t" * 32, "k", int, 0), (1, "t", "k", float, 0), (1, "t", "k", int, "0"),
                          (1, "t", "k", bool, 1), (1, "t", "k", str, b""), (1, "t", "k", str, "a\0"),
                          (1, "t", "k", int, 2**32), (2**31, "t", "k", int, 0)):
            with self.assertRaises((TypeError, ValueError)):
                Item(*arguments)
        for items in ([1], [("t",)], None, [tuple.__new__(Item, (1, "a b", "c", int, 0))]):
            with self.assertRaises((TypeError, ValueError, IndexError)):
                Store(items)

    def test_other_folders_than_those_of_the_first_store_are_refused(self):
        for folder in ("/tmp", "relative", "/tmp/a b", "/tmp/$(reboot)", "/" + "x" * 60, "", 5, "/tmp\0"):
            with self.assertRaises((TypeError, ValueError)):
                Store(directory=folder)

    def test_the_store_is_cleaned(self):
        self.store.write_defaults()
        self.store[APN] = "mine"
        self.store.clean()
        self.assertEqual(self.store[APN], "internet")

    def test_threads_use_the_store_while_others_open_and_close_one(self):
        wrong = []

        def use(number):
            for value in range(5):
                self.store[number] = value
                if self.store[number] != value:
                    wrong.append(number)

        def open_and_close():
            for number in range(20):
                with Store([Item(2000 + number, "more", f"k{number}", int, number)]) as store:
                    if store[2000 + number] != number:
                        wrong.append(number)

        threads = [threading.Thread(target=use, args=(number,)) for number in (MTU, BIG)]
        threads += [threading.Thread(target=open_and_close) for _ in range(2)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])

    def test_a_child_uses_the_store(self):
        child = os.fork()
        if child == 0:
            self.store[APN] = "child"
            os._exit(0 if self.store[APN] == "child" else 1)
        self.assertEqual(os.waitpid(child, 0)[1], 0)
        self.assertEqual(self.store[APN], "child")

    def test_a_child_that_a_callback_has_forked_cannot_close_the_store(self):
        exit_codes = []

        def callback(*_):
            child = os.fork()
            if child == 0:
                try:
                    self.store.close()
                except RuntimeError:
                    os._exit(0 if self.store[APN] == "forked" else 2)
                os._exit(1)
            exit_codes.append(os.waitpid(child, 0)[1])

        with self.store.subscribe(callback):
            self.store[APN] = "forked"
        self.assertEqual(exit_codes, [0])

    def test_a_handler_of_a_signal_cannot_use_a_store_while_its_thread_opens_one(self):
        with _registry.process.turns.change():
            for call in (lambda: self.store[MTU], self.store.close, Store):
                with self.assertRaises(RuntimeError):
                    call()
        self.assertEqual(self.store[MTU], 1500)
