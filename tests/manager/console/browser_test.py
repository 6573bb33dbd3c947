#!/usr/bin/python3 -B
"""The console's page in a real browser, with queues that are written and read meanwhile.

FERRY_BIN_DIR=build/dev/bin tests/manager/console/browser_test.py [--screenshots DIR] [TEST...]
needs python3-selenium, chromium and chromium-driver; where they are not there it ends with 77.
"""
import base64
import json
import os
import signal
import subprocess
import sys
import unittest

from page_case import BIN, PageCase, bxadm, listed, run
from selenium.webdriver.common.keys import Keys

SCREENSHOTS = None
FULL = 300
WIDTHS = "const page = document.scrollingElement; return [page.scrollWidth, page.clientWidth]"
MARK = "document.querySelectorAll('#queues tbody tr').forEach((row) => { row.marked = true; })"
FOCUSED = """const {dataset, role, textContent, id} = document.activeElement;
return dataset.change ?? dataset.sort ?? role ?? (textContent || id)"""
HIDE = """Object.defineProperty(document, 'hidden', {configurable: true, value: %s});
document.dispatchEvent(new Event('visibilitychange'))"""
# A manager does not answer for two steps of the overview's graphs.
SILENCE = """return import('/depths.js').then(({Depths}) => {
  const depths = new Depths(), told = {manager: 'STOCK', queue: 'JOBS'};
  for (const [time, reachable] of [[0, true], [1e4, false], [2e4, false], [3e4, true]])
    depths.add({time: new Date(time), managers: [{...told, reachable}],
                queues: reachable ? [{...told, depth: time}] : []});
  return depths.of('STOCK JOBS');
})"""
OUTLINE = "return getComputedStyle(document.activeElement).outlineStyle"
# The least contrast of any text to the ground it stands on.
CONTRAST = """
const light = (colour) => colour.slice(0, 3).map((part) => part / 255)
    .map((part) => part <= .04045 ? part / 12.92 : ((part + .055) / 1.055) ** 2.4)
    .reduce((sum, part, i) => sum + part * [.2126, .7152, .0722][i], .05);
const parts = (text) => text.match(/[\\d.]+/g).map(Number);
const ground = (node) => {
  const colour = node ? parts(getComputedStyle(node).backgroundColor) : [255, 255, 255];
  return colour[3] === 0 ? ground(node.parentElement) : colour;
};
const ratio = (node) => {
  const style = getComputedStyle(node);
  const of = light(parts(node.closest('svg') ? style.fill : style.color)) / light(ground(node));
  return Math.max(of, 1 / of);
};
const isText = (child) => child.nodeType === 3 && child.data.trim();
const isSeen = (node) => node.checkVisibility() && !node.disabled && !node.closest('.unseen');
return Math.min(...[...document.querySelectorAll('main *, header *')]
    .filter((node) => [...node.childNodes].some(isText) && isSeen(node)).map(ratio))"""


class Overview(PageCase):
    def test_shows_what_goes_on(self):
        console, queues = self.serve(), []
        for size in (1, 20, 300):
            with self.subTest(queues=size):
                queues += [f"Q.{number:03}" for number in range(len(queues), size)]
                for queue in sorted(set(queues) - set(listed())):
                    bxadm("queue", "create", queue)
                self.look(console)
                self.until_shown(queues)
                self.script(MARK)
                self.watch_a_load_and_a_read(queues[-1])
                right = {name: f"{told['depth']:,}" for name, told in listed().items()}
                self.until(lambda: right == self.column("depth"), "the right depths")
                self.assertTrue(all(row["marked"] for row in self.rows().values()), "rows are kept")

    def column(self, name):
        return {queue: row[name] for queue, row in self.rows().items()}

    def watch_a_load_and_a_read(self, queue):
        depths, rates = set(), set()
        with subprocess.Popen([f"{BIN}/ferry", "-f", queue], stdin=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True) as load:
            def moves():
                load.stdin.write("record\n")
                load.stdin.flush()
                row = self.rows()[queue]
                depths.add(row["depth"])
                rates.add(row["puts"])
                return len(depths) > 3 and len(rates) > 1
            self.until(moves, "depth and rate to move", 30)
            run("ferry", "-r", queue, "-c", "2")

    def test_sorts_filters_and_keeps_both_in_the_address(self):
        for number, count in enumerate((5, 40, 0, 300, 7)):
            bxadm("queue", "create", f"Q{number}", "--max-depth", str(400 * (number + 1)))
            run("ferry", "-f", f"Q{number}", text="x\n" * count)
        bxadm("queue", "create", "FULL", "--max-depth", "2")
        run("ferry", "-f", "FULL", text="x\nx\n")
        bxadm("queue", "create", "SHUT", "--inhibit-put", "yes")
        self.look(self.serve())
        self.until_shown(listed())
        for column, of in (("queue", lambda told: told["name"]),
                           ("depth", lambda told: told["depth"]),
                           ("share", lambda told: told["depth"] / told["max_depth"])):
            for _ in range(2):
                self.one(f"[data-sort={column}]").click()
                how = self.one("thead [aria-sort]").get_attribute("aria-sort")
                found = [of(listed()[name]) for name in self.rows()]
                self.assertEqual(sorted(found, reverse=how == "descending"), found, (column, how))
        self.assertEqual({"FULL": "Full", "SHUT": "Shut"}, {
            name: remark for name, remark in self.column("remark").items() if remark})
        for part, left in (("q3", ["Q3"]), ("nothing", []), ("u", ["FULL", "SHUT"])):
            self.type("#filter", part)
            self.until_shown(left)
            self.assertEqual(not left, self.one("#no-queues").is_displayed())
        self.browser.refresh()
        self.until_shown(["FULL", "SHUT"])
        self.assertTrue(self.all("[aria-sort=ascending] [data-sort=share]"))
        self.one("#queues a").click()
        self.until(lambda: self.one("#queue-title").is_displayed(), "the queue's page")
        self.browser.back()
        self.until_shown(["FULL", "SHUT"])

    def test_says_that_a_manager_cannot_be_reached(self):
        for manager in ("ORDERS", "STOCK"):
            if manager != "ORDERS":
                bxadm("manager", "create", manager)
            bxadm("queue", "create", "-m", manager, f"OF.{manager}")
        self.look(self.serve())
        self.until_shown(["OF.ORDERS", "OF.STOCK"])
        os.truncate(f"{self.home}/STOCK/manager", 0)
        self.until_shown(["OF.ORDERS"])
        self.assertIn("STOCK cannot be reached: ", self.text("#notices .alert"))
        self.assertEqual([0, None, None, 30000], self.script(SILENCE))

    def test_comes_back_after_the_connection_was_lost(self):
        self.expected_faults = ("ERR_",)
        bxadm("queue", "create", "JOBS")
        console = self.serve()
        self.look(console)
        self.until_shown(["JOBS"])
        console.process.send_signal(signal.SIGSTOP)
        for hidden in ("true", "false"):
            self.script(HIDE % hidden)
        self.assertEqual("Connecting", self.text("#connection"))
        self.until(lambda: self.text("#connection") == "Connection lost, trying again", "the loss")
        console.end(signal.SIGKILL)
        run("ferry", "-f", "JOBS", text="x\n" * 17)
        bxadm("queue", "create", "NEW")
        self.serve(listen=console.url.split("//")[1])
        self.until_shown(["JOBS", "NEW"])
        self.assertEqual(("Live", "17"), (self.text("#connection"), self.rows()["JOBS"]["depth"]))


class Queue(PageCase):
    def test_changes_what_it_is_told_to(self):
        self.expected_faults = ("409", "404")  # the browser's log has them, though all is well
        bxadm("queue", "create", "JOBS")
        console = self.serve("--allow-changes")
        self.look(console)
        self.until_shown(["JOBS"])
        self.change("create", queue="JOBS")
        self.until(lambda: self.text("#create .fault"), "that it exists")
        self.press(Keys.ESCAPE)
        self.change("create", queue="OTHER", max_depth="70")
        self.until(lambda: self.text("#queue-title") == "OTHER", "its page")
        self.until(lambda: "70 messages" in self.text("#definition"), "its definition")
        self.look_at(console, "JOBS")
        self.open("alter")
        bxadm("queue", "alter", "JOBS", "--max-depth", "90")
        self.until(lambda: "90 messages" in self.text("#definition"), "what somebody else altered")
        self.type("#alter [name=max_length]", "500" + Keys.ENTER)
        self.until(lambda: "500 bytes" in self.text("#definition"), "what was altered here")
        self.assertEqual(90, listed()["JOBS"]["max_depth"])
        depth = lambda queue: listed()[queue]["depth"]
        counted = lambda: self.text("[data-figure=put-count]")
        steps = (("put", {"text": "first", "priority": "3"}, lambda: depth("JOBS") == 1),
                 ("put", {"text": "second", "expires_in": "600"}, lambda: counted()[:7] == "2 since"),
                 ("alter", {"max_depth": "0"}, lambda: listed()["JOBS"]["max_depth"] == 0),
                 ("move", {"to": "OTHER", "matching": "sec"}, lambda: depth("OTHER") == 1),
                 ("purge", {"confirm": "JOBS"}, lambda: depth("JOBS") == 0),
                 ("delete", {"confirm": "JOBS"}, lambda: "JOBS" not in listed()))
        for name, values, holds in steps:
            with self.subTest(name, **values):
                if "confirm" in values:
                    self.change(name, confirm="JOB")
                    self.assertFalse(self.one(f"#{name} [type=submit]").is_enabled())
                    self.press(Keys.ESCAPE)
                self.assertFalse(holds())
                self.change(name, **values)
                self.until(holds, name)
                self.until(lambda: not self.all("dialog[open]:not(.done)"), "that it is told")
                self.press(Keys.ESCAPE)
        self.until_shown(["OTHER"])
        moved = json.loads(bxadm("browse", "OTHER", "--json"))
        self.assertEqual(("second\n", 0), (moved["text"], moved["priority"]))
        self.assertIn("expires", moved)

    def test_shows_messages_as_they_are(self):
        script, data = "<script>document.title = 'run'</script>", b"\xff\xfe\x00<b>"
        long = "word " * 800000
        told = [{"text": script}, {"text": long}, {"base64": base64.b64encode(data).decode()}]
        told += [{"text": f"message {number}"} for number in range(60)]
        bxadm("queue", "create", "JOBS")
        bxadm("import", "JOBS", text="".join(
            json.dumps({"id": f"{i:048x}", "priority": 0, **each}) + "\n"
            for i, each in enumerate(told, 1)))
        console = self.serve()
        self.look_at(console, "JOBS")
        rows = lambda: len(self.all("#messages tbody tr"))
        self.until(lambda: rows() == 50, "the first page")
        shown = [node.get_property("textContent") for node in self.all(".preview")]
        self.assertEqual([script, long[:1024], data.hex(" ")], shown[:3])
        for i, part in enumerate((script, long[:1000], data.hex(" "))):
            self.all(".whole button")[i].click()
            self.until(lambda: part in self.text("#message pre"), "the whole message")
            if part in long:
                self.one("#message .all").click()
                self.until(lambda: self.text("#message pre") == long, "all of it", 60)
            self.one("#message .close").click()
        self.assertEqual([], self.all("main script, pre b"))
        self.type("#search", "MESSAGE 17")
        self.assertEqual(["message 17"],
                         [node.text for node in self.all(".preview") if node.is_displayed()])
        for turn, count in ((self.one("#next").click, 13), (self.browser.back, 50)):
            turn()
            self.until(lambda: rows() == count, f"the page of {count}")
        self.assertEqual([], [node for node in self.all(".changes") if node.is_displayed()])
        bxadm("queue", "create", "EMPTY")
        console.process.send_signal(signal.SIGSTOP)
        self.script("location.hash = '#/queue?manager=ORDERS&queue=EMPTY'")
        self.until(lambda: self.text("#queue-title") == "EMPTY", "its page")
        self.type("#search", "message")
        self.assertEqual("", self.text("#definition") + self.text("#messages-shown"))
        console.process.send_signal(signal.SIGCONT)
        self.until(lambda: self.text("#no-messages") == "The queue is empty.", "what is on it")


class Everywhere(PageCase):
    def test_asks_for_the_token(self):
        self.expected_faults = ("401",)
        bxadm("queue", "create", "JOBS")
        path = f"{self.home}/token"
        with open(os.open(path, os.O_CREAT | os.O_WRONLY, 0o600), "w") as file:
            file.write("a-token-of-the-test\n")
        self.look(self.serve("--token-file", path))
        for token, told in (("a-token-of-somebody-else", lambda: self.text("#sign-in .fault")),
                            ("a-token-of-the-test", lambda: list(self.rows()) == ["JOBS"])):
            self.until(lambda: self.one("#sign-in").is_displayed(), "the form")
            self.type("[name=token]", token + Keys.ENTER)
            self.until(told, token)
        self.assertFalse(self.one("#sign-in").is_displayed())
        self.one("#sign-out").click()
        self.until(lambda: self.one("#sign-in").is_displayed(), "the form again")

    def tab_to(self, what):
        for _ in range(40):
            self.press(Keys.TAB)
            if self.script(FOCUSED) == what:
                return self.assertNotEqual("none", self.script(OUTLINE), f"{what} is seen")
        return self.fail(f"Tab does not come to {what}")

    def test_works_by_keyboard_alone(self):
        for queue in ("JOBS", "MAIL"):
            bxadm("queue", "create", queue)
        self.look(self.serve("--allow-changes"))
        self.until_shown(["JOBS", "MAIL"])
        for stop, keys in (("Skip to the content", Keys.ENTER), ("queue", Keys.SPACE),
                           ("MAIL", Keys.ENTER)):
            self.tab_to(stop)
            self.press(*keys)
        self.until(lambda: self.one("#queue-title").is_displayed(), "the queue's page")
        self.tab_to("purge")
        self.press(Keys.ENTER, "MAIL", Keys.ENTER)
        self.until(lambda: self.text("#purge .outcome") == "0 messages deleted.", "the outcome")
        self.press(Keys.ENTER)
        self.until(lambda: self.script(FOCUSED) == "purge", "the focus where it was")
        self.tab_to("slider")
        self.press(Keys.HOME)
        self.assertRegex(self.text("#depth-graph .readout"), r"^\d\d:\d\d:\d\dDepth –$")

    def test_fits_and_can_be_read(self):
        names = ["JOBS", "A.QUEUE.WITH_A_NAME_OF.48_CHARACTERS/AND.ONE%XX"]
        for number, name in enumerate(names + [f"Q{number}" for number in range(18)]):
            is_full = number % 7 == 0
            bxadm("queue", "create", name, "--max-depth", str(FULL if is_full else 5000))
            run("ferry", "-f", name, text=f"{'x' * 200}\n" * (FULL if is_full else 13 * number))
        console = self.serve("--allow-changes")
        pages = {"queues": lambda **how: self.look(console, **how),
                 "messages": lambda **how: self.look_at(console, "JOBS", **how)}
        for page, width, scheme in [(page, width, scheme) for page in pages
                                    for width in (390, 700, 1600) for scheme in ("light", "dark")]:
            with self.subTest(page=page, width=width, scheme=scheme):
                pages[page](width=width, scheme=scheme)
                self.until(lambda: len(self.all(f"#{page} tbody tr")) >= 20, "the rows")
                inner, outer = self.script(WIDTHS)
                self.assertLessEqual(inner, outer)
                self.assertGreaterEqual(self.script(CONTRAST), 4.5)
                if SCREENSHOTS:
                    self.browser.save_screenshot(f"{SCREENSHOTS}/{page}-{width}-{scheme}.png")


if __name__ == "__main__":
    if "--screenshots" in sys.argv:
        at = sys.argv.index("--screenshots")
        _, SCREENSHOTS = sys.argv[at:at + 2]
        del sys.argv[at:at + 2]
        os.makedirs(SCREENSHOTS, exist_ok=True)
    unittest.main(verbosity=2)
