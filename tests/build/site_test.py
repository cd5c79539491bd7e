#!/usr/bin/env python3
"""The site of docs/ and the headers, in a browser: every link and anchor leads somewhere, every page is
reached, searching finds, and nothing is asked of the network.

    site_test.py BROWSER...     its program and options
"""
import collections
import functools
import http.server
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import urllib.parse

ROOT = pathlib.Path(os.environ["QIM_SOURCE_DIR"])
# What a page holds, once it is there.
SEEN = """JSON.stringify({
  names: [...document.querySelectorAll('[id], a[name]')].map(e => e.id || e.name),
  links: [...document.querySelectorAll('a[href]')].map(e => e.href),
  broken: [...document.images].filter(e => e.naturalWidth === 0).map(e => e.src)})"""
FOUND = """[...document.querySelectorAll('#mkdocs-search-results a')].map(e => e.href).join(' ')"""
broken = []


def complain(text):
    broken.append(text)
    print("site_test:", text)


class Browser:
    """A browser without a window, which is told what to do over two pipes."""

    def __init__(self, program, folder):
        to_read, self.to = os.pipe()
        self.back, to_write = os.pipe()

        def place_pipes():
            kept = os.dup(to_read), os.dup(to_write)  # they may be 3 and 4 themselves
            os.dup2(kept[0], 3)
            os.dup2(kept[1], 4)

        options = ["--remote-debugging-pipe", f"--user-data-dir={folder}", "--disable-gpu", "--disable-dev-shm-usage",
                   "--disable-background-networking", "--disable-component-update", "--no-first-run",
                   "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1"]
        if os.geteuid() == 0:
            options.append("--no-sandbox")
        self.process = subprocess.Popen([*program, *options, "about:blank"], close_fds=False,
                                        preexec_fn=place_pipes, stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(to_write)
        self.left, self.count, self.session = b"", 0, {}
        self.asked = set()
        self.loaded = False
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        attached = self.call("Target.attachToTarget", targetId=target, flatten=True)
        self.session = {"sessionId": attached["sessionId"]}
        for each in ("Page", "Network"):
            self.call(each + ".enable")

    def message(self):
        while b"\0" not in self.left:
            more = os.read(self.back, 1 << 16)
            if not more:
                sys.exit("site_test: the browser has gone")
            self.left += more
        one, _, self.left = self.left.partition(b"\0")
        said = json.loads(one)
        if said.get("method") == "Network.requestWillBeSent":
            self.asked.add(said["params"]["request"]["url"])
        elif said.get("method") == "Page.loadEventFired":
            self.loaded = True
        return said

    def call(self, method, **parameters):
        self.count += 1
        said = {"id": self.count, "method": method, "params": parameters, **self.session}
        os.write(self.to, json.dumps(said).encode() + b"\0")
        while True:
            answer = self.message()
            if answer.get("id") == self.count:
                if "error" in answer:
                    sys.exit(f"site_test: {method}: {answer['error']}")
                return answer["result"]

    def go(self, url):
        self.loaded = False
        self.call("Page.navigate", url=url)
        while not self.loaded:
            self.message()

    def ask(self, expression, **how):
        return self.call("Runtime.evaluate", expression=expression, **how)["result"].get("value")


def walk(browser, site):
    """All pages that links lead to, and what is wrong with the links."""
    first = site / "index.html"
    names, links = {}, []
    queue = collections.deque([first])
    while queue:
        page = queue.popleft()
        if page in names:
            continue
        browser.go(page.as_uri())
        seen = json.loads(browser.ask(SEEN))
        names[page] = set(seen["names"])
        for each in seen["broken"]:
            complain(f"{page.name} shows no {each}")
        for url in set(seen["links"]):
            parts = urllib.parse.urlsplit(url)
            if parts.scheme in ("http", "https"):
                continue  # for readers to follow: no page needs it
            place = pathlib.Path(urllib.parse.unquote(parts.path))
            if parts.scheme != "file" or not place.is_relative_to(site) or not place.is_file():
                complain(f"{page.name} leads to {url}, which is not there")
                continue
            links.append((page, place, urllib.parse.unquote(parts.fragment)))
            if place.suffix == ".html":
                queue.append(place)
    for page, place, name in links:
        if name and place in names and name not in names[place]:
            complain(f"{page.name} leads to '{name}' in {place.name}, which has no such place")
    for page in set(site.rglob("*.html")) - set(names) - {site / "search.html"}:
        complain(f"nothing leads to {page.name}")
    return len(names), len(links)


def search(browser, site):
    """Searching works where a server of this machine gives the pages."""
    class Quiet(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer(
        ("127.0.0.1", 0), functools.partial(Quiet, directory=str(site)))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    browser.go(f"http://127.0.0.1:{server.server_port}/index.html?q=rov_mark_get")
    found = browser.ask(f"""new Promise(done => {{
      const look = () => {FOUND} ? done({FOUND}) : setTimeout(look, 20);
      look();
    }})""", awaitPromise=True)
    if "headers/rov_edit.h.html#rov_mark_get" not in found:
        complain(f"searching for rov_mark_get finds {found}")
    server.shutdown()


def main():
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as work:
        site = pathlib.Path(work).resolve() / "site"
        subprocess.run([ROOT / "scripts/site", site], check=True, stdout=subprocess.DEVNULL)
        browser = Browser(sys.argv[1:], work + "/browser")
        try:
            pages, links = walk(browser, site)
            search(browser, site)
        finally:
            browser.process.terminate()
            browser.process.wait()
        for url in browser.asked:
            parts = urllib.parse.urlsplit(url)
            if parts.scheme not in ("file", "data", "about") and parts.hostname != "127.0.0.1":
                complain(f"{url} was asked for")
        if pages < 25 or links < 500:
            complain(f"only {pages} pages and {links} links")
        print(f"site: {pages} pages, {links} links, {len(browser.asked)} files asked for")
    sys.exit(bool(broken))


main()
