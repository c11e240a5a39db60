# SPDX-License-Identifier: MIT
#
# Timers, programs and AT commands in Python: a monitor that asks the modem again and again, for a limited time.
#
# Without a modem start one that answers by a script: kelo_scripted_modem modem_monitor.modem
#
# Run: python3 modem_monitor.py
#
# Prints:
#   the kernel is Linux
#   signal 23 of 31
#   signal 23 of 31
#   signal 23 of 31
#   a wrong PIN: 16
#   no answer in time
#   Grüße has 7 bytes and 5 septets
import threading

import kelo_utils
from kelo_utils import Error, ModemError, TimedOut, Timer

finished = threading.Event()
readings = []


def ask_for_signal():
    """It runs in a thread of Python. What it raises is printed and ends nothing."""
    if finished.is_set():
        return  # the timer has expired once more before it was stopped
    for line in kelo_utils.at("AT+CSQ", timeout=5.0):
        if line.startswith("+CSQ: "):
            readings.append(line[6:].split(",")[0])
            print(f"signal {readings[-1]} of 31")
    if len(readings) == 3:
        timer.stop()
        finished.set()


ended = kelo_utils.run(["uname", "-s"], timeout=5.0)
print("the kernel is", ended.output.strip())

with Timer(ask_for_signal, 0.02, interval=0.05) as timer:
    finished.wait()

try:
    kelo_utils.at('AT+CPIN="0000"', timeout=5.0)
except ModemError as error:
    print("a wrong PIN:", error.reason)

try:
    kelo_utils.at("AT+COPS=?", timeout=0.3)
except TimedOut:
    print("no answer in time")
except Error as error:
    print("not sent:", error.name)

text = "Grüße"
print(text, "has", len(text.encode()), "bytes and", len(kelo_utils.gsm_encode(text)), "septets")
