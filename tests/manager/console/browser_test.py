#!/usr/bin/python3
"""The console's page in a real browser, with a real console and queues that are written and read meanwhile.

FERRY_BIN_DIR=build/dev/bin tests/manager/console/browser_test.py [--screenshots DIR] [Page.test_sorts ...]
needs python3-selenium, chromium and chromium-driver, and passes over all (77) where they are not there.
"""
import base64
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from urllib.parse import quote

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    sys.exit(77)

BIN = os.environ.get("FERRY_BIN_DIR", "build/dev/bin")
SCREENSHOTS = sys.argv.pop(sys.argv.index("--screenshots") + 1) if "--screenshots" in sys.argv else None
if SCREENSHOTS:
    sys.argv.remove("--screenshots")
    os.makedirs(SCREENSHOTS, exist_ok=True)

ROWS = """return [...document.querySelectorAll('#queues tbody tr')].map((row) => ({
  queue: row.querySelector('a').textContent, marked: row.marked ?? false,
  remark: row.querySelector('.chip').textContent, cells: [...row.cells].map((cell) => cell.textContent)}))"""
MARK = "document.querySelectorAll('#queues tbody tr').forEach((row) => { row.marked = true; })"
WIDTHS = "const page = document.scrollingElement; return [page.scrollWidth, page.clientWidth]"
# The least contrast of any text to the ground it stands on.
CONTRAST = """
const light = (colour) => colour.slice(0, 3).map((part) => part / 255)
    .map((part) => part <= .04045 ? part / 12.92 : ((part + .055) / 1.055) ** 2.4)
    .reduce((sum, part, i) => sum + part * [.2126, .7152, .0722][i], 0);
const parts = (text) => text.match(/[\\d.]+/g).map(Number);
const ground = (node) => {
  const colour = node ? parts(getComputedStyle(node).backgroundColor) : [255, 255, 255];
  return colour[3] === 0 ? ground(node.parentElement) : colour;
};
return [...document.querySelectorAll('main *, header *')]
  .filter((node) => node.checkVisibility() && !node.disabled && !node.closest('.unseen') &&
          [...node.childNodes].some((child) => child.nodeType === 3 && child.data.trim()))
  .map((node) => {
    const style = getComputedStyle(node);
    const [low, high] = [light(parts(node.closest('svg') ? style.fill : style.color)), light(ground(node))].sort();
    return (Math.max(low, high) + .05) / (Math.min(low, high) + .05);
  }).reduce((least, ratio) => Math.min(least, ratio), 99)"""


def run(program, *words, text=""):
    return subprocess.run([f"{BIN}/{program}", *words], input=text, text=True, check=True, capture_output=True).stdout


def bxadm(*words, **how):
    return run("bxadm", *words, **how)


def listed():
    return {each["name"]: each for each in json.loads(bxadm("queue", "list", "--json"))}


class Console:
    def __init__(self, *words, listen="127.0.0.1:0"):
        self.process = subprocess.Popen([f"{BIN}/bxadm", "serve", "--listen", listen, *words],
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.url = self.process.stdout.readline().split()[-1].rstrip("/")

    def end(self, by=signal.SIGTERM):
        self.process.send_signal(by)
        self.process.wait(10)
        self.process.stdout.close()


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        options = webdriver.ChromeOptions()
        for word in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--hide-scrollbars"):
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()

    def setUp(self):
        self.home = tempfile.TemporaryDirectory()
        self.addCleanup(self.home.cleanup)
        os.environ["BXM_HOME"] = self.home.name
        bxadm("manager", "create", "ORDERS", "--default")
        self.expected_faults = ()

    def tearDown(self):
        self.browser.get("about:blank")
        faults = [line["message"] for line in self.browser.get_log("browser") if line["level"] == "SEVERE"]
        self.assertEqual([], [fault for fault in faults if not any(word in fault for word in self.expected_faults)])

    # ---- What a person does ----------------------------------------------------------------------

    def serve(self, *words, **how):
        console = Console(*words, **how)
        self.addCleanup(lambda: console.process.poll() is None and console.end())
        return console

    def look(self, console, place="#/", width=1600, scheme="light"):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": 1000, "deviceScaleFactor": 1, "mobile": False})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                     {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        self.browser.get("about:blank")  # else another fragment would be no new page
        self.browser.get(f"{console.url}/{place}")

    def look_at(self, console, queue, **how):
        self.look(console, f"#/queue?manager=ORDERS&queue={quote(queue, safe='')}", **how)
        self.until(lambda: self.text("#queue-figures dd") not in ("", "–"), f"figures of {queue}")

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.one(selector).get_property("textContent")

    def rows(self):
        return self.browser.execute_script(ROWS)

    def names(self):
        return [row["queue"] for row in self.rows()]

    def until(self, holds, what, seconds=15):
        return WebDriverWait(self.browser, seconds, 0.1).until(lambda _: holds(), f"waited for: {what}")

    def until_shown(self, queues):
        self.until(lambda: sorted(self.names()) == sorted(queues), "the rows")

    def press(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()

    def change(self, name, **values):
        """Opens a dialog, fills it in and sends it."""
        self.one(f"[data-change={name}]").click()
        for field, value in values.items():
            at = self.one(f"#{name} [name={field}]")
            if at.tag_name == "select":
                at.find_element(By.XPATH, f"option[. = '{value}']").click()
            else:
                at.clear()
                at.send_keys(value)
        self.one(f"#{name} [type=submit]").click()

    # ---- The overview ----------------------------------------------------------------------------

    def test_shows_what_goes_on(self):
        console, queues = self.serve(), []
        for size in (1, 20, 300):
            with self.subTest(queues=size):
                for number in range(len(queues), size):
                    queues.append(f"Q.{number:03}")
                    bxadm("queue", "create", queues[-1])
                self.look(console)
                self.until_shown(queues)
                self.browser.execute_script(MARK)
                seen = self.watch_a_load_and_a_read(queues[-1])
                self.assertGreater(len(seen), 3, "the depth moves")
                right = {name: f"{told['depth']:,}" for name, told in listed().items()}
                self.until(lambda: right == {row["queue"]: row["cells"][2] for row in self.rows()}, "the right depths")
                self.assertTrue(all(row["marked"] for row in self.rows()), "rows are kept")

    def watch_a_load_and_a_read(self, queue):
        programs = [subprocess.Popen([f"{BIN}/ferry", "-f", queue, "-t", "10"], stdin=subprocess.PIPE,
                                     stderr=subprocess.DEVNULL, text=True)]
        programs[0].stdin.write("".join(f"record {number}\n" for number in range(400)))
        programs[0].stdin.close()
        seen = set()
        cell = f"#queues a[href$='={queue}']"
        while programs[0].poll() is None:
            row = self.browser.execute_script("return [...document.querySelector(arguments[0]).closest('tr').cells]"
                                              ".map((cell) => cell.textContent)", cell)
            seen.add((row[2], row[4] != "0"))
            if len(seen) == 3:
                run("ferry", "-r", queue, "-c", "20")
        self.assertIn(True, {puts for _, puts in seen}, "puts are told")
        return seen

    def test_sorts_filters_and_keeps_both_in_the_address(self):
        for number, count in enumerate((5, 40, 0, 300, 7)):
            bxadm("queue", "create", f"Q{number}", "--max-depth", str(400 * (number + 1)))
            run("ferry", "-f", f"Q{number}", text="x\n" * count)
        bxadm("queue", "create", "FULL", "--max-depth", "2")
        run("ferry", "-f", "FULL", text="x\nx\n")
        bxadm("queue", "create", "SHUT", "--inhibit-put", "yes")
        console = self.serve()
        self.look(console)
        self.until_shown(listed())
        order = {"queue": lambda told: told["name"], "depth": lambda told: told["depth"],
                 "share": lambda told: told["depth"] / told["max_depth"]}
        for column, of in order.items():
            for _ in range(2):
                self.one(f"[data-sort={column}]").click()
                how = self.one("thead [aria-sort]").get_attribute("aria-sort")
                found = [of(listed()[name]) for name in self.names()]
                self.assertEqual(sorted(found, reverse=how == "descending"), found, (column, how))
        self.assertEqual({"FULL": "Full", "SHUT": "Shut"}, {row["queue"]: row["remark"] for row in self.rows() if row["remark"]})
        for part, left in (("q3", ["Q3"]), ("nothing", []), ("u", ["FULL", "SHUT"])):
            self.one("#filter").clear()
            self.one("#filter").send_keys(part)
            self.until_shown(left)
            self.assertEqual(not left, self.one("#no-queues").is_displayed())
        self.browser.refresh()
        self.until_shown(["FULL", "SHUT"])
        self.assertEqual("ascending", self.one("[aria-sort]").get_attribute("aria-sort"))
        self.one("#queues a").click()
        self.until(lambda: self.one("#queue-title").is_displayed(), "the queue's page")
        self.browser.back()
        self.until_shown(["FULL", "SHUT"])

    def test_comes_back_after_the_connection_was_lost(self):
        self.expected_faults = ("ERR_",)
        bxadm("queue", "create", "JOBS")
        console = self.serve()
        self.look(console)
        self.until_shown(["JOBS"])
        console.end(signal.SIGKILL)
        self.until(lambda: self.text("#connection") == "Connection lost, trying again", "that it is lost")
        run("ferry", "-f", "JOBS", text="x\n" * 17)
        bxadm("queue", "create", "NEW")
        self.serve(listen=console.url.split("//")[1])
        self.until_shown(["JOBS", "NEW"])
        self.assertEqual(("Live", "17"), (self.text("#connection"), self.rows()[0]["cells"][2]))

    # ---- One queue -------------------------------------------------------------------------------

    def test_changes_what_it_is_told_to(self):
        self.expected_faults = ("409", "404")
        bxadm("queue", "create", "JOBS")
        console = self.serve("--allow-changes")
        self.look(console)
        self.until_shown(["JOBS"])
        self.change("create", queue="JOBS")
        self.until(lambda: self.text("#create .fault"), "that it exists")
        self.press(Keys.ESCAPE)
        self.change("create", queue="OTHER", max_depth="70")
        self.until(lambda: self.text("#queue-title") == "OTHER" and "70" in self.text("#definition"), "its page")
        self.look_at(console, "JOBS")
        depth = lambda queue: listed()[queue]["depth"]
        steps = (("put", {"text": "first", "priority": "3"}, lambda: depth("JOBS") == 1),
                 ("put", {"text": "second", "expires_in": "600"}, lambda: depth("JOBS") == 2),
                 ("alter", {"max_depth": "80"}, lambda: listed()["JOBS"]["max_depth"] == 80),
                 ("move", {"to": "OTHER", "matching": "sec"}, lambda: (depth("JOBS"), depth("OTHER")) == (1, 1)),
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
                self.press(*[Keys.ESCAPE] * bool(self.all(f"#{name}.done")))
                self.until(lambda: not self.all("dialog[open]"), "the dialog to close")
        self.until_shown(["OTHER"])
        moved = json.loads(bxadm("browse", "OTHER", "--json"))
        self.assertEqual(("second", 0), (moved["text"], moved["priority"]))
        self.assertIn("expires", moved)

    def test_shows_messages_as_they_are(self):
        script, long, bytes_ = "<script>document.title = 'run'</script>", "word " * 800000, b"\xff\xfe\x00<b>"
        bxadm("queue", "create", "JOBS")
        told = [{"text": script}, {"text": long}, {"base64": base64.b64encode(bytes_).decode()}]
        told += [{"text": f"message {number}"} for number in range(60)]
        bxadm("import", "JOBS", text="".join(json.dumps({"id": f"{i:048x}", "priority": 0, **each}) + "\n"
                                             for i, each in enumerate(told, 1)))
        self.look_at(self.serve(), "JOBS")
        self.until(lambda: len(self.all("#messages tbody tr")) == 50, "the first page")
        shown = [node.get_property("textContent") for node in self.all(".preview")]
        self.assertEqual([script, long[:1024], bytes_.hex(" ")], shown[:3])
        for i, part in enumerate((script, long[:1000], bytes_.hex(" "))):
            self.all(".whole button")[i].click()
            self.until(lambda: part in self.text("#message pre"), "the whole message")
            if i == 1:
                self.one("#message .all").click()
                self.until(lambda: self.text("#message pre") == long, "all of it", 60)
            self.one("#message .close").click()
        self.assertEqual([], self.all("main script, pre b"))
        self.one("#search").send_keys("MESSAGE 17")
        self.assertEqual(["message 17"], [node.text for node in self.all(".preview") if node.is_displayed()])
        self.one("#next").click()
        self.until(lambda: len(self.all("#messages tbody tr")) == 13, "the second page")
        self.browser.back()
        self.until(lambda: len(self.all("#messages tbody tr")) == 50, "the first page again")
        self.assertEqual([], [node for node in self.all(".changes") if node.is_displayed()])

    # ---- Who and how -----------------------------------------------------------------------------

    def test_asks_for_the_token(self):
        self.expected_faults = ("401",)
        bxadm("queue", "create", "JOBS")
        path = f"{self.home.name}/token"
        with open(os.open(path, os.O_CREAT | os.O_WRONLY, 0o600), "w") as file:
            file.write("a-token-of-the-test\n")
        self.look(self.serve("--token-file", path))
        for token, is_right in (("wrong-wrong-wrong-wrong", False), ("a-token-of-the-test", True)):
            self.until(lambda: self.one("#sign-in").is_displayed(), "the form")
            self.one("[name=token]").clear()
            self.one("[name=token]").send_keys(token, Keys.ENTER)
            self.until((lambda: self.names() == ["JOBS"]) if is_right else (lambda: self.text("#sign-in .fault")), token)
        self.assertFalse(self.one("#sign-in").is_displayed())
        self.one("#sign-out").click()
        self.until(lambda: self.one("#sign-in").is_displayed(), "the form again")

    def test_works_by_keyboard_alone(self):
        bxadm("queue", "create", "JOBS")
        bxadm("queue", "create", "MAIL")
        self.look(self.serve("--allow-changes"))
        self.until_shown(["JOBS", "MAIL"])
        focused = lambda: self.browser.execute_script(
            "const at = document.activeElement; return at.dataset.change ?? at.dataset.sort ?? (at.textContent || at.id)")
        def tab_to(what):
            for _ in range(40):
                self.press(Keys.TAB)
                if focused() == what:
                    return self.assertNotEqual("none", self.browser.execute_script(
                        "return getComputedStyle(document.activeElement).outlineStyle"), what)
            self.fail(f"Tab does not come to {what}")
        tab_to("Skip to the content")
        self.press(Keys.ENTER)
        for stop, keys in (("create", [Keys.ENTER, Keys.ESCAPE]), ("queue", [Keys.SPACE]), ("MAIL", [Keys.ENTER])):
            tab_to(stop)
            for key in keys:
                self.press(key)
            self.assertIn(focused(), (stop, "MAIL"))
        self.until(lambda: self.one("#queue-title").is_displayed(), "the queue's page")
        tab_to("purge")
        self.press(Keys.ENTER, "MAIL", Keys.ENTER)
        self.until(lambda: self.text("#purge .outcome") == "0 messages deleted.", "the outcome")
        self.press(Keys.ENTER)
        self.until(lambda: focused() == "purge", "the focus where it was")

    def test_fits_and_can_be_read(self):
        names = ["JOBS", "A.QUEUE.WITH_A_NAME_OF.48_CHARACTERS/AND.ONE%XX"] + [f"Q{number}" for number in range(18)]
        for number, name in enumerate(names):
            bxadm("queue", "create", name, "--max-depth", "300" if number % 7 == 0 else "5000")
            run("ferry", "-f", name, text=(f"record {'x' * 200}\n") * (300 if number % 7 == 0 else 13 * number))
        console = self.serve("--allow-changes")
        for scheme in ("light", "dark"):
            for width in (390, 700, 1600):
                for page, go in (("overview", lambda **how: self.look(console, **how)),
                                 ("queue", lambda **how: self.look_at(console, "JOBS", **how))):
                    with self.subTest(page=page, width=width, scheme=scheme):
                        go(width=width, scheme=scheme)
                        rows = "#queues tbody tr" if page == "overview" else "#messages tbody tr"
                        self.until(lambda: len(self.all(rows)) >= 20, "the rows")
                        inner, outer = self.browser.execute_script(WIDTHS)
                        self.assertLessEqual(inner, outer)
                        self.assertGreaterEqual(self.browser.execute_script(CONTRAST), 4.5)
                        if SCREENSHOTS:
                            self.browser.save_screenshot(f"{SCREENSHOTS}/{page}-{width}-{scheme}.png")


if __name__ == "__main__":
    unittest.main(verbosity=2)
