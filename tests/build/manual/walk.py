#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Opens the manual's start page in a headless browser and follows every link as the browser sees it.

Usage: walk.py BROWSER FOLDER EXPORTS
Wrong is a link to a file or to a place in a page that is not there, a file that a page lacks or a script of it that
fails, and an exported name that no link leads to. Pages are opened where they lie, as a reader does without a server.
"""

import json
import os
import select
import subprocess
import sys
import tempfile
import time
import urllib.parse

TIME_LIMIT = 240

# Run in each page. The places are what a link may name after its '#'.
LOOK = """({
  links: Array.from(document.links, (link) => [link.href, link.textContent.trim()]),
  places: Array.from(document.querySelectorAll('[id], a[name]'), (place) => place.id || place.name),
  menu: document.querySelectorAll('#main-nav a').length,
})"""


class Browser:
    """A browser that takes commands and gives answers as JSON, each ended by a zero byte, over two pipes."""

    def __init__(self, program, profile):
        command_reader, self.commands = os.pipe()
        self.answers, answer_writer = os.pipe()
        arguments = [program, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                     "--disable-background-networking", "--user-data-dir=" + profile, "--remote-debugging-pipe"]
        self.log = open(os.path.join(profile, "log"), "w+", encoding="utf-8", errors="replace")
        # It reads its descriptor 3 and writes to 4.
        move = 'exec "$@" 3<&%d 4>&%d' % (command_reader, answer_writer)
        self.process = subprocess.Popen(["sh", "-c", move, "sh"] + arguments, stdin=subprocess.DEVNULL, stdout=self.log,
                                        stderr=self.log, pass_fds=(command_reader, answer_writer))
        os.close(command_reader)
        os.close(answer_writer)
        self.deadline = time.monotonic() + TIME_LIMIT
        self.received = b""
        self.number = 0
        self.session = None
        self.events = []

    def receive(self):
        while b"\0" not in self.received:
            left = self.deadline - time.monotonic()
            ready = left > 0 and select.select([self.answers], [], [], left)[0]
            more = os.read(self.answers, 1 << 20) if ready else b""
            if not more:
                self.log.seek(0)
                sys.exit("the browser %s:\n%s" % ("ended" if ready else "does not answer", self.log.read()[-2000:]))
            self.received += more
        message, self.received = self.received.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.commands, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.number:
                if "error" in answer:
                    sys.exit("%s: %s" % (method, answer["error"]))
                return answer["result"]
            self.events.append(answer)

    def open_tab(self):
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self.call(domain + ".enable")

    def look_at(self, url):
        """What the page holds once it is loaded, and what went wrong meanwhile."""
        self.events = []
        result = self.call("Page.navigate", url=url)
        if "errorText" in result:
            return None, [result["errorText"]]
        while not any(event.get("method") == "Page.loadEventFired" for event in self.events):
            self.events.append(self.receive())
        found = self.call("Runtime.evaluate", expression=LOOK, returnByValue=True)["result"]["value"]
        wrong = []
        for event in self.events:
            if event.get("method") == "Runtime.exceptionThrown":
                wrong.append(event["params"]["exceptionDetails"]["text"])
            if event.get("method") == "Log.entryAdded" and event["params"]["entry"]["level"] == "error":
                entry = event["params"]["entry"]
                wrong.append("%s %s" % (entry["text"], entry.get("url", "")))
        return found, wrong


def walk(browser, start, root):
    """Opens every page that can be reached from `start`. Returns the pages by URL, and what is wrong with them."""
    pages, wrong, waiting = {}, [], [start]
    while waiting:
        url = waiting.pop()
        if url in pages:
            continue
        pages[url], errors = browser.look_at(url)
        wrong += ["%s: %s" % (url, error) for error in errors]
        for target, _ in pages[url]["links"] if pages[url] else []:
            page = urllib.parse.urldefrag(target)[0]
            path = urllib.parse.unquote(urllib.parse.urlsplit(page).path)
            if not page.startswith("file:"):
                continue
            if not page.startswith(root) or not os.path.isfile(path):
                wrong.append("%s: broken link to %s" % (url, target))
            elif page.endswith(".html"):
                waiting.append(page)
    return pages, wrong


def is_there(pages, target):
    page, place = urllib.parse.urldefrag(target)
    return bool(pages.get(page)) and (place in ("", "top") or urllib.parse.unquote(place) in pages[page]["places"])


def main(program, folder, exports):
    root = "file://" + urllib.parse.quote(os.path.realpath(folder)) + "/"
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = Browser(program, profile)
        try:
            browser.open_tab()
            pages, wrong = walk(browser, root + "index.html", root)
        finally:
            browser.process.terminate()
            browser.process.wait()
    led_to = set()
    count = 0
    for url, page in pages.items():
        for target, text in page["links"] if page else []:
            if not target.startswith(root) or urllib.parse.urldefrag(target)[0] not in pages:
                continue
            count += 1
            if not is_there(pages, target):
                wrong.append("%s: broken link to %s" % (url, target))
            elif "#" in target:
                led_to.add(text)
        if page and page["menu"] == 0:
            wrong.append("%s: no menu" % url)
    with open(exports, encoding="utf-8") as lines:
        names = [line.strip() for line in lines if line.strip() and not line.startswith("#")]
    wrong += ["no link leads to " + name for name in names if name not in led_to]
    print("\n".join(wrong + ["%d pages, %d links, %d exported names" % (len(pages), count, len(names))]))
    return 1 if wrong or len(pages) < 2 or not names else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
