# SPDX-License-Identifier: MIT
#
# Settings in Python: the same store as that of the daemons, with values of the types of Python.
#
# Run: python3 settings_tool.py
#
# Prints:
#   MTU 1500, APN internet, roaming False
#   heard: 2402 is 'fixed.wireless'
#   heard: 2403 is True
#   stored: MTU 1500, APN fixed.wireless, roaming True
#   refused: a text is no MTU (KELO_DM_VALUE_WRONG_TYPE)
#   heard: 2402 is None
#   different from their defaults: roaming
from kelo_utils import Error, Item, Store

MTU, APN, ROAMING = 2401, 2402, 2403

ITEMS = [
    Item(MTU, "wan", "mtu", int, 1500),
    Item(APN, "wan", "apn", str, "internet"),
    Item(ROAMING, "wan", "roaming", bool, False),
]


def shown(store):
    return f"MTU {store[MTU]}, APN {store[APN]}, roaming {store[ROAMING]}"


def heard(number, value):
    """It runs after the value is stored. None is told when an item has lost its value."""
    print(f"heard: {number} is {value!r}")


with Store(ITEMS) as store:
    store.write_defaults()
    print(shown(store))

    with store.subscribe(heard):
        store[APN] = "fixed.wireless"
        store[ROAMING] = True
        print("stored:", shown(store))

        try:
            store[MTU] = "1430"
        except Error as error:
            print(f"refused: a text is no MTU ({error.name})")

        del store[APN]  # it has its default again

    changed = [item.key for item in store.items() if store[item.id] != item.default]
    print("different from their defaults:", ", ".join(changed))
