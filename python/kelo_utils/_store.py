# SPDX-License-Identifier: MIT
"""The settings of a device: items in SQLite databases."""
import atexit
import ctypes
import itertools
import os
import re

from . import _abi, _callbacks, _checks, _registry
from ._errors import Error, name_of
from ._library import c

PATH_SIZE = _abi.DM_SQLITE_AREA_SIZE
KINDS = (bool, int, str, bytes)

_process = _registry.process
_FOLDER = re.compile(rb"/([A-Za-z0-9._+-]+/)*")
_area = None


def _folder(path, what):
    """Returns the bytes of a folder with its final slash. The back-end copies files with a shell command."""
    if path is None:
        return None
    encoded = _checks.path(path, what, PATH_SIZE - 1).rstrip(b"/") + b"/"
    if not _FOLDER.fullmatch(encoded):
        raise ValueError(f"{what} is an absolute path of letters, digits and . _ + - /")
    if len(encoded) > PATH_SIZE:
        raise ValueError(f"{what} has more than {PATH_SIZE} bytes with its final /")
    return encoded


def _use_area(folders):
    """Moves the databases, which is possible before the first handle of the process is made."""
    global _area  # pylint: disable=global-statement
    if folders == (None, None) or folders == _area:
        return
    if _area is not None:
        raise ValueError("the process has opened a store in other folders already")
    result = c.kelo_dm_reg_store_area(*folders)
    if result != 0:
        raise Error("open the store", result)


class Subscription(_callbacks.NotCopied):
    """Calls a function for every change of an item until it is cancelled. Store.subscribe() makes one."""

    _numbers = itertools.count(1)
    _functions = {}

    def __init__(self, function):
        self._key = next(self._numbers)
        self._functions[self._key] = _checks.function(function, "function")
        self._number = c.kelo_dm_subscribe(_on_change, self._key)
        if self._number < 0:
            del self._functions[self._key]
            raise Error(f"subscribe: a process has at most {_abi.KELO_DM_MOST_SUBSCRIPTIONS} subscriptions", self._number)

    def cancel(self):
        """Ends the subscription. After it no call of the function is running, except when a callback cancels."""
        if self._functions.pop(self._key, None) is not None:
            c.kelo_dm_unsubscribe(self._number)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.cancel()


def _announce(number, data, length, key):
    function = Subscription._functions.get(key)
    if function is None:
        return
    content = ctypes.string_at(data, length) if length > 0 else b""
    item = _process.known.get(number)
    if length <= 0:
        value = None
    elif item is None or item.kind is None:
        value = content
    else:
        value = _registry.value_of(item.kind, content)
    _callbacks.call(function, number, value)


# It is one object for all subscriptions that is never freed: a call may begin while a subscription ends.
_on_change = _abi.kelo_dm_change_fn(_announce)


class Store(_callbacks.NotCopied):
    """The settings of a device.

    `items` are registered first; see Item. They stay registered until the process ends. `directory` and `backup_directory`
    are the folders of the databases and of their backup, of the whole process: only the first store can choose them. Without
    them the databases are in "/data".

    A store is used by any number of threads, and closed with close() or at the end of a `with`.
    """

    _handle = None

    def __init__(self, items=(), directory=None, backup_directory=None):
        table = list(itertools.islice(iter(items), _registry.MOST_ITEMS + 1))
        if len(table) > _registry.MOST_ITEMS:
            raise ValueError(f"a store has at most {_registry.MOST_ITEMS} items")
        for item in table:
            if not isinstance(item, _registry.Item) or item.kind not in KINDS or item.default is None:
                raise TypeError("items are objects of the type Item with a kind and a default")
        table = [_registry.Item(*item) for item in table]
        folders = _folder(directory, "directory"), _folder(backup_directory, "backup_directory")
        if folders[0] is not None and folders[1] is None:
            folders = folders[0], folders[0]
        with _process.turns.change():
            if self._handle is not None:
                raise RuntimeError("the store is open already")
            self._register(table, folders)

    def _register(self, table, folders):
        global _area  # pylint: disable=global-statement
        c.kelo_dm_use_sqlite()
        _use_area(folders)
        handle = c.kelo_dm_reg(0)
        _area = _area or folders
        operations = _abi.kelo_dm_handle.from_address(handle).operations
        if not all(getattr(operations, name) for name, _ in _abi.kelo_dm_operations._fields_):
            c.kelo_dm_unreg(handle)
            raise Error("open the store: the process has another back-end", -1)
        self._handle = handle
        try:
            _registry.register(table)
        except BaseException:
            self._release()
            raise

    def _release(self):
        handle, self._handle = self._handle, None
        if handle is not None:
            c.kelo_dm_unreg(handle)

    def close(self):
        """Closes the store. A closed store can be closed again."""
        if self._handle is not None:
            with _process.turns.change():
                self._release()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def __repr__(self):
        return "<Store, closed>" if self._handle is None else "<Store>"

    def _live(self):
        if self._handle is None:
            raise ValueError("the store is closed")
        return self._handle

    def _item(self, number):
        item = _registry.find(_checks.integer(number, "id"))
        if item is None:
            raise KeyError(number)
        return item

    @staticmethod
    def _result(what, code):
        if code != _abi.KELO_DM_VALUE_OK:
            raise Error(what, code, name_of("kelo_dm_value_result", code))

    def get(self, id, kind=None, unsigned=False):  # pylint: disable=redefined-builtin
        """Returns the value of an item: the stored value, or else the default.

        `kind` is the expected type, bool, int, str or bytes, or None for that of the item. A number is signed unless `unsigned`
        is true.
        """
        if kind is not None and kind not in KINDS:
            raise TypeError("kind is bool, int, str, bytes or None")
        unsigned = _checks.boolean(unsigned, "unsigned")
        with _process.turns.use():
            handle, item = self._live(), self._item(id)
            wanted = kind or item.kind
            what = f"get item {item.id}"
            if wanted in (bool, int):
                name = "bool" if wanted is bool else "uint32" if unsigned else "int32"
                value = ctypes.c_uint32() if name == "uint32" else ctypes.c_int32()
                self._result(what, getattr(c, "kelo_dm_get_" + name)(handle, item.id, ctypes.byref(value)))
                return wanted(value.value)
            if wanted is not item.kind and item.kind is not None:
                self._result(what, _abi.KELO_DM_VALUE_WRONG_TYPE)
            content = self._content(what, handle, item.id)
        return _checks.shown(content) if wanted is str else content

    def _content(self, what, handle, number):
        size, length = 4096, ctypes.c_int32()
        while True:
            buffer = ctypes.create_string_buffer(size)
            result = c.kelo_dm_get(handle, number, buffer, size, ctypes.byref(length))
            if result != _abi.KELO_DM_VALUE_TOO_LONG or length.value <= size:
                break
            size = length.value
        self._result(what, result)
        return buffer.raw[:length.value]

    def set(self, id, value):  # pylint: disable=redefined-builtin
        """Stores a value, which is read back to see that it is there, and announces the change.

        A bool, an int, a str and bytes go to items of their type. A text is not empty: reset() removes a value.
        """
        with _process.turns.use():
            handle, item = self._live(), self._item(id)
            number = item.id
            if isinstance(value, bool):
                code = c.kelo_dm_set_bool(handle, number, int(value))
            elif isinstance(value, str):
                code = c.kelo_dm_set_text(handle, number, _checks.text(value, "value"))
            elif isinstance(value, (bytes, bytearray, memoryview)):
                content = _checks.octets(value, "value")
                code = c.kelo_dm_set_bytes(handle, number, content, len(content))
            else:
                whole = _checks.integer(value, "value", _checks.INT32_MIN, _checks.UINT32_MAX)
                code = c.kelo_dm_set_uint32(handle, number, whole & _checks.UINT32_MAX)
            self._result(f"set item {number}", code)

    def reset(self, id):  # pylint: disable=redefined-builtin
        """Removes the stored value of an item, which has its default again. The change is announced with None."""
        with _process.turns.use():
            handle, item = self._live(), self._item(id)
            code = c.kelo_dm_empty(handle, item.id)
            if code != 0:
                raise Error(f"reset item {item.id}", code, name_of("dm_sqlite_result", code))

    def default(self, id):  # pylint: disable=redefined-builtin
        """Returns the default of an item, or None when it has none."""
        return self.item(id).default

    def item(self, id):  # pylint: disable=redefined-builtin
        """Returns the Item with this id."""
        with _process.turns.use():
            self._live()
            return self._item(id)

    def items(self):
        """Returns all registered items, in the order of registration, also those that C code has registered."""
        with _process.turns.use():
            self._live()
            return _registry.enumerate_items()

    def __iter__(self):
        return iter([item.id for item in self.items()])

    def __len__(self):
        return len(self.items())

    def __contains__(self, id):  # pylint: disable=redefined-builtin
        try:
            self.item(id)
        except (KeyError, TypeError):
            return False
        except ValueError:
            self._live()
            return False
        return True

    __getitem__ = get
    __setitem__ = set
    __delitem__ = reset

    def subscribe(self, function):
        """Calls `function(id, value)` for every change of an item; returns a Subscription, which ends it.

        The function runs in the thread that has written. `value` is None when the value was removed, and bytes for an item
        of an unknown type. What the function raises goes to sys.unraisablehook.
        """
        with _process.turns.use():
            self._live()
            _registry.enumerate_items()
            return Subscription(function)

    def write_defaults(self):
        """Stores the defaults of all registered items in the database of defaults, where they are not stored yet."""
        with _process.turns.use():
            self._live()
            code = c.kelo_dm_construct_def_database(0)
        if code != 0:
            raise Error("write the defaults", code)

    def clean(self, keep_copy=False):
        """Removes all stored values. With `keep_copy` the back-end keeps a dated copy first."""
        copy = b"1" if _checks.boolean(keep_copy, "keep_copy") else None
        with _process.turns.use():
            code = c.kelo_dm_clean(self._live(), copy)
        if code != 0:
            raise Error("clean the store", code, name_of("dm_sqlite_result", code))


@atexit.register
def _end():
    """Ends what the library could still call. No thread waits here: another one may be in the middle of a call."""
    for key in list(Subscription._functions):
        Subscription._functions.pop(key, None)


os.register_at_fork(after_in_child=_process.turns.after_fork)
