#!/usr/bin/env python3
"""Opens pages of `ostrum flame` in a headless Chromium: how long 50,000 paths take, and that search, zoom, inversion,
colours, comparison and names that look like HTML come out right.

usage: check_flame_page.py OSTRUM [FOLDER]; status 77: left out, there is no Chromium
FOLDER keeps the pages and a screenshot of each.
"""
import html.parser
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

import trace_texts as texts

# From starting the browser to the screenshot; on a machine that is busy with other things as much more as they take.
MOST_SECONDS = 3.0 * max(1.0, os.getloadavg()[0] / os.cpu_count())
WINDOW = "1280,900"


class Frames(html.parser.HTMLParser):
    """What stands in the drawn page: frames by name, texts by the id of their element, the page's own words."""

    def __init__(self, page):
        super().__init__()
        self.frames, self.texts, self.page, self.scripts, self.drawn = {}, {}, {}, 0, 0
        self.inside = self.element = None
        self.feed(page)

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        if tag == "html":
            self.page = values
        elif tag == "g":
            self.drawn += 1
            self.inside = values["name"]
            self.frames[self.inside] = {"width": float(values["width"]), "at": values["transform"]}
        elif tag == "rect":
            self.frames[self.inside]["fill"] = values["fill"]
        self.scripts += tag == "script"
        self.element = values.get("id")

    def handle_endtag(self, tag):
        self.element = None

    def handle_data(self, data):
        if self.element is not None:
            self.texts[self.element] = self.texts.get(self.element, "") + data


class Browser:
    def __init__(self, program, folder):
        self.command = [program, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                        "--no-first-run", f"--window-size={WINDOW}", f"--user-data-dir={folder}/profile"]

    def run(self, page, view, *options):
        url = page.resolve().as_uri() + view
        return subprocess.run([*self.command, *options, url], capture_output=True, text=True, check=True, timeout=120)

    def drawn(self, page, view="", *options):
        return Frames(self.run(page, view, "--dump-dom", *options).stdout)

    def settled(self, page, view=""):
        """As drawn(), when what goes over into something else has done so."""
        return self.drawn(page, view, "--virtual-time-budget=2000")

    def seconds_to_screenshot(self, page, view=""):
        begin = time.monotonic()
        picture = page.with_suffix(".png")
        self.run(page, view, f"--screenshot={picture}")
        assert picture.stat().st_size > 5_000, "an empty picture"
        return time.monotonic() - begin


def make_page(tool, folder, name, text, *options):
    trace = folder / f"{name}.plog.txt"
    trace.write_text(text)
    page = folder / f"{name}.html"
    subprocess.run([tool, "flame", str(trace), "-o", str(page), *options], check=True)
    return page


def check_large_page(tool, folder, browser):
    page = make_page(tool, folder, "large", texts.large_tree(50_000))
    empty = folder / "empty.html"
    empty.write_text("<body>" + "." * 10_000)
    browser.run(empty, "", f"--screenshot={folder}/empty.png")  # what only a first start takes
    times = [browser.seconds_to_screenshot(page) for _ in range(3)]
    drawn = browser.drawn(page)
    print(f"50,000 paths: {page.stat().st_size:,} bytes; opened in " +
          ", ".join(f"{each:.2f}" for each in times) +
          f" s (limit {MOST_SECONDS:.1f}); drawn after {drawn.page['data-drawn-ms']} ms; "
          f"{drawn.drawn} frames drawn")
    assert min(times) < MOST_SECONDS
    assert 500 < drawn.drawn < 20_000, "what is thinner than a pixel is left out"


def check_views(tool, folder, browser):
    hostile = "</script><img src=x onerror=document.title=1><!--"
    text = texts.block(texts.start(1, 1, "outer") + texts.start(2, 2, "inner") + texts.end(4 * 10**8) +
                       texts.start(2, 3, hostile) + texts.end(10**8) + texts.end(10**9) +
                       texts.start(1, 9, "other") + texts.end(10**9))
    page = make_page(tool, folder, "views", text)
    plain = browser.settled(page)
    assert plain.texts["title"] == str(folder / "views.plog.txt")  # a name was not run
    assert plain.scripts == 2 and hostile + " (3)" in plain.frames
    all_width = plain.frames["all"]["width"]
    assert abs(plain.frames["inner (2)"]["width"] - all_width / 5) < 0.01

    # Frame 1 of equals is the first by name, "other".
    view = browser.settled(page, "#search=^(inner|outer)&zoom=2&invert=1&palette=safe&theme=dark")
    assert view.page["data-theme"] == "dark"
    assert view.texts["found"] == "2 paths, 50.0% of all", view.texts["found"]
    assert view.frames["outer (1)"]["width"] == all_width and "other (9)" not in view.frames
    assert view.frames["inner (2)"]["fill"] == "#c792ea" != view.frames[hostile + " (3)"]["fill"]
    heights = [int(re.search(r",\s*(\d+)", view.frames[name]["at"])[1]) for name in ("all", "outer (1)", "inner (2)")]
    assert heights == [0, 18, 36], "the outermost at the top"

    before = folder / "before.plog.txt"
    before.write_text(texts.block(texts.start(1, 1, "outer") + texts.start(2, 4, "gone") + texts.end(10**8) +
                                  texts.end(4 * 10**9) + texts.start(1, 9, "other") + texts.end(10**9)))
    page = make_page(tool, folder, "compared", text, "--diff", str(before))
    compared = browser.settled(page, "#width=both")
    fills = [compared.frames[name]["fill"] for name in ("outer (1)", "inner (2)", "gone (4)", "other (9)")]
    assert fills == ["#4f9fd6", "#ea7a2c", "#4f9fd6", "#ececec"], fills
    assert "gone (4)" not in browser.settled(page).frames
    browser.seconds_to_screenshot(page, "#width=both")


def main(tool, folder=None):
    program = shutil.which("chromium") or shutil.which("chromium-browser") or shutil.which("google-chrome")
    if program is None:
        print("left out: there is no Chromium (scripts/install_packages flame)")
        return 77
    with tempfile.TemporaryDirectory() as scratch:
        kept = pathlib.Path(folder or scratch)
        kept.mkdir(parents=True, exist_ok=True)
        browser = Browser(program, scratch)
        check_views(tool, kept, browser)
        check_large_page(tool, kept, browser)
    return 0


sys.exit(main(*sys.argv[1:]))
