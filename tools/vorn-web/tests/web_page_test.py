#!/usr/bin/env python3
"""The page in a browser: it shows what runs, changes it, outlives it, and takes nothing that it shows for markup.

    web_page_test.py VORN-WEB VORN-RUN CHROMIUM CHROMEDRIVER
"""
import json
import os
import socket
import sys
import tempfile

from selenium import webdriver
from selenium.common.exceptions import ElementNotInteractableException, StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from processes import Process, Web, await_that, fake_monitor, raise_loopback

WEB, RUN, CHROMIUM, DRIVER = sys.argv[1:]
PIPELINE = "tone sine 440 ! gain -6 ! level ! null"
raise_loopback()


def start_browser(profile):
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--disable-background-networking",
                     f"--user-data-dir={profile}", "--window-size=1280,800"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service(DRIVER), options=options)


class Page:
    def __init__(self, browser, web):
        self.browser = browser
        browser.get(web.address)
        assert web.token not in browser.current_url, "the token stays in the address"

    def all(self, selector): return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector, what=None):
        return await_that(lambda: next(iter(self.all(selector)), None), what or selector)

    def texts(self, selector):
        try: return [element.text for element in self.all(selector)]
        except StaleElementReferenceException: return []  # it is being drawn anew

    def shows(self, selector, text): await_that(lambda: any(text in one for one in self.texts(selector)), f"'{text}' in {selector}")

    def patiently(self, action, what):
        """Does something with elements, which may be drawn anew meanwhile. @param action gives whether it was done."""
        def attempt():
            try: return action()
            except (StaleElementReferenceException, ElementNotInteractableException): return False
        await_that(attempt, what)

    def press(self, text, within="#panel"):
        def action():
            button = next((one for one in self.all(within + " button") if one.text == text), None)
            if button: button.click()
            return button is not None
        self.patiently(action, f"button {text}")

    def choose(self, label):
        """As somebody without a mouse does."""
        def action():
            self.browser.execute_script("arguments[0].focus()", self.one(f'#graph [aria-label^="{label}"]'))
            self.browser.switch_to.active_element.send_keys(Keys.ENTER)
            return True
        self.patiently(action, label)

    def blocks(self): return [label.split(",")[0].removeprefix("Block ") for label in self.labels()]

    def labels(self):
        try: return [one.get_attribute("aria-label") for one in self.all("#graph .block")]
        except StaleElementReferenceException: return []


def ask(process, request):
    """One request to the monitor of a process, beside the page."""
    with socket.socket(socket.AF_UNIX) as monitor:
        monitor.connect(f"\0vorn.{process.run.pid}")
        monitor.sendall(request.encode() + b"\n")
        return json.loads(monitor.makefile().readline())


def parameter(process, block, name):
    table = ask(process, f"params RouteA {block}")["routes"][0]["blocks"][0]["parameters"]
    return float(next(one["value"] for one in table if one["name"] == name))


def start_graph(): return Process("nice", RUN, "-q", "-e", PIPELINE)


def test_changes_what_runs(page, process):
    await_that(lambda: page.blocks() == ["tone_0", "gain_0", "level_0", "null_0"], "the graph")
    page.shows("#graph .value", "dB")

    # A slider, by the keyboard; and the level behind it falls.
    page.choose("Block gain_0")
    slider = page.one("#panel [data-name=gain] [type=range]")
    for _ in range(40): slider.send_keys(Keys.ARROW_LEFT)
    await_that(lambda: parameter(process, "gain_0", "gain") == -26, "a gain of -26 dB")
    await_that(lambda: parameter(process, "level_0", "recent-rms") < -46, "a lower level")
    field = page.one("#panel [data-name=gain] [inputmode]")
    field.send_keys(Keys.CONTROL + "a")
    field.send_keys("99", Keys.ENTER)
    page.shows("#notes .bad", "60")  # the reason, with the range
    await_that(lambda: page.one("#panel [data-name=gain] [inputmode]").get_attribute("value") == "-26", "the value as it is")

    # A block more, between two cycles.
    frames = ask(process, "stats")["routes"][0]["frames"]
    page.choose("Link")
    page.press("Insert…")
    search = page.one("dialog [type=search]")
    await_that(lambda: page.all("dialog .plug-ins button"), "plug-ins")
    assert "null" not in page.texts("dialog .plug-ins b"), "null has no output, so it does not fit into a link"
    search.send_keys("gain", Keys.ENTER)
    page.one("dialog [data-name=gain]").send_keys("-3", Keys.ENTER)
    await_that(lambda: "gain_1" in page.blocks(), "gain_1 in the picture")
    assert parameter(process, "gain_1", "gain") == -3
    await_that(lambda: ask(process, "stats")["routes"][0]["frames"] > frames, "frames that go on")
    page.shows("#panel h2", "gain_1")
    page.press("Remove…")
    page.press("Remove", "dialog")
    await_that(lambda: "gain_1" not in page.blocks(), "the picture without gain_1")

    page.choose("Block level_0")
    page.browser.find_element(By.TAG_NAME, "body").send_keys("t")
    page.shows("#graph .load", "worst")
    await_that(lambda: len(page.all("#panel .curve canvas")) > 2, "curves of readings")


def test_outlives_the_process(page, process):
    page.browser.find_element(By.TAG_NAME, "body").send_keys(Keys.ESCAPE)
    process.kill()
    page.shows("#state", "has ended")
    assert page.blocks(), "the picture is gone"
    page.browser.refresh()
    page.shows("#state", "waiting for another")
    await_that(lambda: page.texts("#panel .curve output"), "the curves, after a reload")
    assert any(text not in ("", "–") for text in page.texts("#panel .curve output")) or page.all("#panel .curve canvas")
    with start_graph() as successor:
        page.shows("#pid", str(successor.run.pid))
        page.shows("#graph .figures", "/s")


def test_takes_nothing_for_markup(page, process):
    page.shows("#alerts", "no samples in fifo_0")
    page.shows("#events", "<img src=x")
    page.shows("#log", "<img src=x")
    page.choose("Block out<img src=x")
    page.shows("#panel h2", "<img src=x onerror=hacked=1>")
    assert page.all("#graph .block.standing"), "the block in which RouteB stands is not marked"
    assert not page.all("img") and page.browser.execute_script("return window.hacked") is None
    page.choose("Block aec")
    page.patiently(lambda: page.one("#panel [data-name=aec] [role=switch]").click() or True, "a switch")
    page.patiently(lambda: page.one("#panel [data-name=ns] option:first-child").click() or True, "a list")
    assert process.line() == "edit { setparam RouteA voice_aec_0 aec false }"
    assert process.line() == "edit { setparam RouteA voice_aec_0 ns off }"
    assert not page.one("#panel [data-name=model] input").is_enabled(), "what takes a stopped route can be set while it runs"


def test_fits(page):
    for width, height, scheme in ((390, 844, "dark"), (1280, 800, "light"), (320, 568, "light")):
        page.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})
        page.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        page.one("#graph svg .block")
        await_that(lambda: page.browser.execute_script("return document.documentElement.scrollWidth <= innerWidth"),
                   f"a page that is {width} wide")
        ground = page.browser.execute_script("return getComputedStyle(document.body).backgroundColor")
        assert (int(ground[4:].split(",")[0]) < 128) == (scheme == "dark"), ground


with tempfile.TemporaryDirectory() as profile:
    browser = start_browser(os.path.join(profile, "profile"))
    try:
        with start_graph() as process, Web(WEB) as web:
            page = Page(browser, web)
            test_changes_what_runs(page, process)
            test_outlives_the_process(page, process)
        with fake_monitor("--hostile") as process, Web(WEB, "-p", "frontend") as web:
            page = Page(browser, web)
            test_takes_nothing_for_markup(page, process)
            test_fits(page)
        faults = [entry for entry in browser.get_log("browser") if "Content Security" in entry["message"] or "Error" in entry["message"]]
        assert not faults, faults
    finally:
        browser.quit()
