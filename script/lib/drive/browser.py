"""A browser without a screen, for pages that the project's programs write."""

import base64

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

PROGRAM = "/usr/bin/chromium"
DRIVER = "/usr/bin/chromedriver"

# The browser asks nobody for anything; without a sandbox of its own it also runs as root, and the pages are ours.
OPTIONS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--disable-quic",
           "--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--disable-extensions", "--hide-scrollbars", "--force-color-profile=srgb")
HEIGHT = 900


class Browser:
    """Shows one page after the other, as on a screen of a given width, in light or dark."""

    def __init__(self):
        options = Options()
        options.binary_location = PROGRAM
        for option in OPTIONS:
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self._driver = webdriver.Chrome(service=Service(DRIVER), options=options)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._driver.quit()

    def show(self, path, width=1100, dark=False):
        """Opens the page in the file `path`."""
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self._driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "", "features": [scheme]})
        self._driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": HEIGHT, "deviceScaleFactor": 1, "mobile": width < 600})
        self._driver.get("file://" + path)

    def run(self, script, *arguments):
        """The result of a script in the page."""
        return self._driver.execute_script(script, *arguments)

    def complaints(self):
        """What the browser has written on its console since it was asked last."""
        return self._driver.get_log("browser")

    def picture(self, height=None):
        """The page as a PNG: its first `height` pixels, or all of it."""
        width, whole = self.run("return [innerWidth, document.documentElement.scrollHeight]")
        clip = {"x": 0, "y": 0, "width": width, "height": min(height or whole, whole), "scale": 1}
        shot = self._driver.execute_cdp_cmd("Page.captureScreenshot", {"captureBeyondViewport": True, "clip": clip})
        return base64.b64decode(shot["data"])

    def print_media(self):
        """Shows the page as paper gets it."""
        self._driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})

    def print(self):
        """The page as a PDF, on the paper that it asks for."""
        pdf = self._driver.execute_cdp_cmd("Page.printToPDF", {"preferCSSPageSize": True, "printBackground": True})
        return base64.b64decode(pdf["data"])
