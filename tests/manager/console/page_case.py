"""What the tests of the console's page share: programs, a console, and a browser to look at it."""
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
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    sys.exit(77)
if not shutil.which("chromedriver"):
    sys.exit(77)

BIN = os.environ.get("FERRY_BIN_DIR", "build/dev/bin")

ROWS = """return [...document.querySelectorAll('#queues tbody tr')].map((row) => {
  const [name, manager, depth, share, puts, gets] = [...row.cells].map((cell) => cell.textContent);
  return {queue: row.querySelector('a').textContent, depth, puts, marked: row.marked ?? false,
          remark: row.querySelector('.chip').textContent};
})"""


def run(program, *words, text=""):
    return subprocess.run([f"{BIN}/{program}", *words], input=text, text=True, check=True,
                          capture_output=True).stdout


def bxadm(*words, **how):
    return run("bxadm", *words, **how)


def listed():
    return {each["name"]: each for each in json.loads(bxadm("queue", "list", "--json"))}


class Console:
    def __init__(self, *words, listen="127.0.0.1:0"):
        self.process = subprocess.Popen([f"{BIN}/bxadm", "serve", "--listen", listen, *words],
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        text=True)
        self.url = self.process.stdout.readline().split()[-1].rstrip("/")

    def end(self, by=signal.SIGTERM):
        self.process.send_signal(by)
        self.process.send_signal(signal.SIGCONT)  # it may have been stopped
        self.process.wait(10)
        self.process.stdout.close()


class PageCase(unittest.TestCase):
    """Each test has a home with the manager ORDERS. None may leave a fault in the browser's log."""

    @classmethod
    def setUpClass(cls):
        options = webdriver.ChromeOptions()
        for word in ("headless=new", "no-sandbox", "disable-dev-shm-usage", "hide-scrollbars"):
            options.add_argument(f"--{word}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        driver = Service(shutil.which("chromedriver"))
        cls.browser = webdriver.Chrome(options=options, service=driver)

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()

    def setUp(self):
        home = tempfile.TemporaryDirectory()
        self.addCleanup(home.cleanup)
        self.home = os.environ["BXM_HOME"] = home.name
        bxadm("manager", "create", "ORDERS", "--default")
        self.expected_faults = ()

    def tearDown(self):
        self.browser.get("about:blank")
        self.assertEqual([], [line for line in self.browser.get_log("browser")
                              if line["level"] == "SEVERE" and
                              not any(word in line["message"] for word in self.expected_faults)])

    def serve(self, *words, **how):
        console = Console(*words, **how)
        self.addCleanup(lambda: console.process.poll() is None and console.end())
        return console

    def look(self, console, place="#/", width=1600, scheme="light"):
        for command, how in (
                ("setDeviceMetricsOverride",
                 {"width": width, "height": 1000, "deviceScaleFactor": 1, "mobile": False}),
                ("setEmulatedMedia",
                 {"features": [{"name": "prefers-color-scheme", "value": scheme}]})):
            self.browser.execute_cdp_cmd(f"Emulation.{command}", how)
        self.browser.get("about:blank")  # another fragment alone would be no new page
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

    def script(self, script):
        return self.browser.execute_script(script)

    def rows(self):
        return {row["queue"]: row for row in self.script(ROWS)}

    def until(self, holds, what, seconds=15):
        WebDriverWait(self.browser, seconds, 0.1).until(lambda _: holds(), f"waited for: {what}")

    def until_shown(self, queues):
        self.until(lambda: sorted(self.rows()) == sorted(queues), f"the rows {queues}")

    def press(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()

    def type(self, selector, text):
        self.one(selector).clear()
        self.one(selector).send_keys(text)

    def open(self, name):
        self.one(f"[data-change={name}]").click()
        self.until(self.one(f"#{name}").is_displayed, f"the dialog {name}")

    def change(self, name, **values):
        """Opens a dialog, fills it in and sends it."""
        self.open(name)
        for field, value in values.items():
            at = f"#{name} [name={field}]"
            if self.one(at).tag_name == "select":
                self.one(at).send_keys(value)
            else:
                self.type(at, value)
        self.one(f"#{name} [type=submit]").click()
