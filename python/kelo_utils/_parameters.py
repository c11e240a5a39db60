# SPDX-License-Identifier: MIT
"""Parameters: named columns of a table in the user database, with factory settings."""
import collections.abc
import ctypes

from . import _abi, _callbacks, _checks
from ._errors import Error, name_of
from ._library import c

NAME_SIZE = 63
TEXT_SIZE = 4096
MOST_COLUMNS = 1000
MOST_ROWS = 100000

_INTEGERS = {
    "uint8": (_abi.KELO_DB_TYPE_8BIT_0, ctypes.c_uint8, 0, 0xff),
    "int32": (_abi.KELO_DB_TYPE_32BIT_2, ctypes.c_int32, _checks.INT32_MIN, _checks.INT32_MAX),
    "uint32": (_abi.KELO_DB_TYPE_32BIT_2, ctypes.c_uint32, 0, _checks.UINT32_MAX),
    "uint64": (_abi.KELO_DB_TYPE_64BIT, ctypes.c_uint64, 0, 2**64 - 1),
}
KINDS = (*_INTEGERS, "text")


def _result(what, code):
    if code != 0:
        raise Error(what, code, name_of("kelo_db_result", code))


class Parameters(collections.abc.Mapping):
    """The parameters of one table: names with values that can be read and set.

    `columns` says for each name what its column holds: "uint8", "int32", "uint32", "uint64" or "text". The provisioning of
    the device makes the tables; nothing here adds a column or a row.
    """

    def __init__(self, table, columns):
        self._table = _checks.identifier(table, "table", NAME_SIZE)
        pairs = list(dict(columns).items())
        if len(pairs) > MOST_COLUMNS:
            raise ValueError(f"a table has at most {MOST_COLUMNS} columns")
        self._columns = {}
        for name, kind in pairs:
            encoded = _checks.identifier(name, "a column", NAME_SIZE)
            if not isinstance(kind, str) or kind not in KINDS:
                raise ValueError(f"a column is one of {', '.join(KINDS)}")
            self._columns[encoded.decode("ascii")] = str(kind)

    def _column(self, name):
        kind = self._columns.get(name) if isinstance(name, str) else None
        if kind is None:
            raise KeyError(name)
        encoded = str.encode(name, "ascii")
        return encoded, kind, f"parameter {self._table.decode()}.{encoded.decode()}"

    @staticmethod
    def _variable(kind):
        """Returns the number of a type, and an object that holds a value of it."""
        if kind == "text":
            return _abi.KELO_DB_TYPE_TEXT, ctypes.create_string_buffer(TEXT_SIZE)
        return _INTEGERS[kind][0], _INTEGERS[kind][1]()

    @staticmethod
    def _value(variable):
        return _checks.shown(variable.value) if isinstance(variable.value, bytes) else variable.value

    def __getitem__(self, name):
        encoded, kind, what = self._column(name)
        number, variable = self._variable(kind)
        _result("read " + what, c.kelo_db_get_value(self._table, encoded, ctypes.addressof(variable), number,
                                                    ctypes.sizeof(variable)))
        return self._value(variable)

    def __setitem__(self, name, value):
        encoded, kind, what = self._column(name)
        number, variable = self._variable(kind)
        if kind == "text":
            variable.value = _checks.text(value, "value", TEXT_SIZE - 1)
        else:
            variable.value = _checks.integer(value, "value", *_INTEGERS[kind][2:])
        _result("set " + what, c.kelo_db_update_value(self._table, encoded, ctypes.addressof(variable), number))

    def reload(self, name):
        """Sets a parameter to its factory value, which is returned."""
        encoded, kind, what = self._column(name)
        number, variable = self._variable(kind)
        column = ctypes.create_string_buffer(encoded)
        entries = (_abi.kelo_db_param * 2)()
        entries[0].value, entries[0].name = ctypes.addressof(variable), ctypes.addressof(column)
        entries[0].type, entries[0].size, entries[0].param_id = number, ctypes.sizeof(variable), 1
        table = ctypes.create_string_buffer(self._table)
        query = _abi.kelo_db_query(ctypes.addressof(table), ctypes.addressof(entries))
        _result("reload " + what, c.kelo_db_reload_value(ctypes.byref(query), 1))
        return self._value(variable)

    def __contains__(self, name):
        return isinstance(name, str) and name in self._columns

    def __iter__(self):
        return iter(list(self._columns))

    def __len__(self):
        return len(self._columns)

    def __repr__(self):
        return f"Parameters({self._table.decode()!r}, {self._columns!r})"


def query_parameters(sql, factory=False):
    """Runs SQL statements on the user database, or on the factory database, and returns the rows as dictionaries.

    A cell is a text, or None for NULL. More than 100000 rows are an Error. Changes of every transaction that has ended are on
    storage. Statements that name the SQL function fts3_tokenizer are refused: its argument is an address that SQLite would
    call.
    """
    statements = _checks.text(sql, "sql")
    if b"fts3_tokenizer" in statements.lower():
        raise ValueError("sql has the function fts3_tokenizer")
    which = int(_checks.boolean(factory, "factory"))
    rows = []

    def collect(_, count, values, names):
        if not values:
            return 0  # there is no row: a PRAGMA asks for the names of the columns alone
        if len(rows) == MOST_ROWS:
            return 1
        cells = [[ctypes.cast(pointer, ctypes.c_char_p).value for pointer in (ctypes.c_void_p * count).from_address(array)]
                 for array in (names, values)]
        rows.append({_checks.shown(name or b""): None if cell is None else _checks.shown(cell)
                     for name, cell in zip(*cells)})
        return 0

    visits = _callbacks.Visits(collect, 1)
    code = c.kelo_db_exec_cmd(statements, _abi.kelo_db_row_fn(visits), None, which)
    visits.done()
    _result("query the parameters", code)
    return rows


def close_parameters():
    """Closes the connection to the user database that is kept between calls."""
    code = c.kelo_db_close_sqlite()
    if code != 0:
        raise Error("close the parameters", code)


def restore_parameters():
    """Resets the user database to the factory settings."""
    code = c.kelo_db_restore_factory()
    if code != 1:
        raise Error("restore the factory settings", code)
