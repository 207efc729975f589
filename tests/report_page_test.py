#!/usr/bin/env python3
"""Looks at the report's page as a user does: in a headless Chromium, through its WebDriver.

usage: report_page_test.py TARQUEL_LAB CHROMIUM CHROMEDRIVER
"""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.request

LAB, CHROMIUM, CHROMEDRIVER = sys.argv[1:4]
SECONDS_TO_START = 30

# The lanes of a run in which a control type was set.
CONTROL = ["thermal level", "control type"]

CHROMIUM_ARGUMENTS = [
    "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
    "--disable-background-networking", "--disable-component-update", "--disable-sync",
    "--disable-dev-shm-usage",
]

# A text that would end the page's data if it were not escaped.
NASTY = "</script><script>document.title='broken'</script><!-- & \\u2028"

DAY = """
title: A full day
steps:
  - repeat: 3500
    steps:
      - {after: 13000, on: touch}
      - {after: 180, off: touch}
      - {after: 1000, do: app_start_cold}
      - {after: 1000, do: game_fight}
      - {after: 5000, limit: {client: thermal, tags: {big_max: 1651200}}}
      - {after: 4000, limit: {client: thermal, tags: {big_max: 0}}}
"""

# Two things fail, long after one another; the control type comes from the plug-in's debug lines.
WRONG = """
title: A warm phone
steps:
  - {at: 0, debug: on}
  - {at: 500, control: 6}
  - {at: 510, limit: {client: thermal, tags: {big_max: 1651200}}}
  - {at: 1500, expect: {tags: {big_max: 2496000}}}
  - {at: 2000, do: touch}
  - {at: 3600000, do: game_fight, returns: 7}
  - {wait: 1000}
"""

# As many holders of locks, a lane for each.
MANY = 20_000


class Browser:
    """As much of the WebDriver protocol as the tests need."""

    def __init__(self, folder):
        # With port 0 the driver takes a free one and says which.
        self.driver = subprocess.Popen([CHROMEDRIVER, "--port=0"], stdout=subprocess.PIPE,
                                       stderr=subprocess.STDOUT, text=True)
        for line in self.driver.stdout:
            if "started successfully on port" in line:
                self.base = "http://127.0.0.1:" + line.rstrip(".\n ").rsplit(" ", 1)[1]
                break
        else:
            raise RuntimeError("chromedriver did not start")
        profile = os.path.join(folder, "profile")
        options = {
            "browserName": "chrome",
            "goog:loggingPrefs": {"browser": "ALL"},
            "goog:chromeOptions": {
                "binary": CHROMIUM,
                "args": CHROMIUM_ARGUMENTS + ["--user-data-dir=" + profile],
            },
        }
        answer = self.ask("POST", "/session", {"capabilities": {"alwaysMatch": options}})
        self.base += "/session/" + answer["sessionId"]

    def ask(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data=data, method=method)
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        with opener.open(request, timeout=SECONDS_TO_START) as answer:
            return json.load(answer)["value"]

    def close(self):
        try:
            self.ask("DELETE", "")
        finally:
            self.driver.terminate()
            self.driver.stdout.close()
            self.driver.wait(10)

    def size(self, width, height):
        # A window's frame is part of it: the page gets what is asked for.
        self.ask("POST", "/window/rect", {"width": width, "height": height})
        frame = self.js("return [outerWidth - innerWidth, outerHeight - innerHeight]")
        self.ask("POST", "/window/rect", {"width": width + frame[0], "height": height + frame[1]})

    def load(self, file, fragment=""):
        self.ask("POST", "/url", {"url": "about:blank"})
        self.ask("POST", "/url", {"url": "file://" + file + fragment})
        self.wait_for("return document.body.dataset.ready === 'true'")

    def js(self, script, *arguments):
        return self.ask("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def wait_for(self, condition):
        end = time.monotonic() + SECONDS_TO_START
        while not self.js(condition):
            if time.monotonic() > end:
                raise AssertionError("never came true: " + condition)
            time.sleep(0.05)

    def console(self):
        return [entry["message"] for entry in self.ask("POST", "/se/log", {"type": "browser"})]

    def point(self, *steps):
        """Moves and presses the pointer: (x, y), "down" or "up"."""
        actions = []
        for step in steps:
            if isinstance(step, tuple):
                x, y = (int(round(part)) for part in step)
                actions.append({"type": "pointerMove", "x": x, "y": y, "duration": 20})
            else:
                actions.append({"type": "pointer" + step.capitalize(), "button": 0})
        mouse = {"type": "pointer", "id": "mouse", "parameters": {"pointerType": "mouse"}}
        self.ask("POST", "/actions", {"actions": [dict(mouse, actions=actions)]})

    def click(self, selector):
        x, y, width, height = self.box(selector)
        self.point((x + width / 2, y + height / 2), "down", "up")

    def box(self, selector):
        return self.js("const box = document.querySelector(arguments[0]).getBoundingClientRect();"
                       "return [box.x, box.y, box.width, box.height]", selector)

    def texts(self, selector):
        return self.js("return [...document.querySelectorAll(arguments[0])]"
                       ".map((one) => one.textContent)", selector)

    def text(self, selector):
        return " ".join(self.texts(selector))


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="tarquel-report-")
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.report = cls.make_report("report", ["thermal_breakthrough"])
        cls.browser = Browser(cls.folder)
        cls.addClassCleanup(cls.browser.close)

    @classmethod
    def make_report(cls, name, arguments):
        file = os.path.join(cls.folder, name + ".html")
        subprocess.run([LAB, "run", "--quiet", *arguments, "--report", file], check=True,
                       stdout=subprocess.DEVNULL)
        return file

    @classmethod
    def write(cls, name, text):
        file = os.path.join(cls.folder, name)
        with open(file, "w", encoding="utf-8") as stream:
            stream.write(text)
        return file

    def setUp(self):
        self.browser.size(1280, 800)

    def tearDown(self):
        self.assertEqual(self.browser.console(), [])

    def rows(self):
        """What the rows of the log say, uncut."""
        return self.browser.js("return [...document.querySelectorAll('.row')]"
                               ".map((row) => row.title)")

    def at(self, lane, t, length=18.14):
        """Where time `t` is on a lane of a run of that length."""
        x, _, width, _ = self.browser.box("#lanes .u-over")
        _, y, _, height = self.browser.box(f"[data-who='{lane}']")
        start, end = self.browser.js("const hash = new URLSearchParams(location.hash.slice(1));"
                                     "return [hash.get('from'), hash.get('to')]")
        start, end = float(start or 0), float(end or length)
        return x + width * (t - start) / (end - start), y + height / 2

    def test_reloads_itself_while_it_is_watched_and_says_when_it_is_not(self):
        scenario = self.write("watched.yaml", "title: One\nsteps:\n- {do: touch}\n")
        file = os.path.join(self.folder, "watched.html")
        with subprocess.Popen([LAB, "run", "--quiet", "--watch", scenario, "--report", file],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as lab:
            try:
                while "Watching" not in lab.stdout.readline():
                    self.assertIsNone(lab.poll())
                self.browser.load(file, "#from=0.1")
                self.write("watched.yaml", "title: Two\nsteps:\n- {do: game_fight}\n")
                self.browser.wait_for("return document.title.startsWith('Two')"
                                      " && location.hash.includes('from=0.1')")
            finally:
                lab.terminate()
        self.browser.wait_for("return !document.getElementById('watched').hidden")
        # The browser tells of the stamp that is gone.
        self.assertIn("ERR_FILE_NOT_FOUND", " ".join(self.browser.console()))

    def test_shows_charts_with_every_line_and_all_lanes(self):
        self.browser.load(self.report)
        self.assertEqual(self.browser.texts(".chart .name b"), ["little", "big", "prime", "gpu", "ddr bwmon"])
        self.assertEqual(self.browser.texts(".lane-name"),
                         ["requests", "thermal level", "control type", "breakthrough",
                          "game_running", "game_fight", "thermal big_max"])
        # Counts the pixels of each colour in the chart of the big cluster.
        drawn = self.browser.js("""
            const canvas = document.querySelectorAll(".chart canvas")[1];
            const pixels = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
            const style = getComputedStyle(document.documentElement);
            return Object.fromEntries(arguments[0].map((name) => {
                const wanted = style.getPropertyValue("--" + name).trim();
                const [r, g, b] = [1, 3, 5].map((at) => parseInt(wanted.slice(at, at + 2), 16));
                let found = 0;
                for (let i = 0; i < pixels.length; i += 4) {
                    if (pixels[i] === r && pixels[i + 1] === g && pixels[i + 2] === b) ++found;
                }
                return [name, found];
            }));""", ["ceiling", "floor", "current"])
        self.assertGreater(min(drawn.values()), 100, drawn)
        self.assertIn("no findings", self.browser.text("#findings"))

    def test_shows_every_shipped_scenario(self):
        folder = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../lab/data/scenarios")
        for name in sorted(os.listdir(folder)):
            self.browser.load(self.make_report("shipped", [os.path.join(folder, name)]))
            self.assertEqual(self.browser.console(), [], name)

    def test_hover_tells_holder_request_and_time_left(self):
        self.browser.load(self.report)
        self.browser.point(self.at("command:game_fight", 6.12))
        tip = self.browser.text("#tip")
        for part in ("lock 4", "game_fight", "do game_fight (9220) (line", "time left", " of 2 s",
                     "big_cpu0_min_freq >= 2112 MHz"):
            self.assertIn(part, tip)
        # Over a chart it tells the values and who asks for them.
        x, y, width, height = self.browser.box(".chart:nth-child(2) .u-over")
        self.browser.point((x + width * 6.12 / 18.14, y + height / 2))
        tip = self.browser.text("#tip")
        for part in ("big, CPUs 4-6", "2227.2 MHz", "lifts to 2227.2 MHz, game_fight",
                     "≤ 1651.2 MHz, thermal, until released", "≥ 1324.8 MHz, game_running"):
            self.assertIn(part, tip)
        self.browser.point((5, 5))
        self.assertTrue(self.browser.js("return document.getElementById('tip').hidden"))

    def test_filters_by_hash_and_by_click(self):
        self.browser.load(self.report, "#who=client:thermal")
        self.assertEqual(self.browser.texts(".lane-name"), ["requests", *CONTROL, "thermal big_max"])
        self.assertIn("limit by thermal: big_max <= 1651.2 MHz", self.rows())
        self.assertNotIn("do game_fight (9220)", self.rows())
        # The chip takes it out again; a lane's name puts it in.
        self.browser.click("#chips button")
        self.assertIn("do game_fight (9220)", self.rows())
        self.browser.click("[data-who='command:game_running']")
        self.assertEqual(self.browser.js("return location.hash"), "#who=command:game_running")
        self.assertEqual(self.browser.texts(".lane-name"), ["requests", *CONTROL, "game_running"])
        self.assertIn("lock 1 of game_running  released", self.rows())
        # Who is typed is added; the names are offered.
        self.browser.js("const pick = document.getElementById('pick'); pick.value = 'thermal';"
                        "for (const type of ['input', 'change']) pick.dispatchEvent(new Event(type))")
        self.assertEqual(self.browser.texts(".lane-name"),
                         ["requests", *CONTROL, "game_running", "thermal big_max"])
        # The search looks at texts.
        self.browser.load(self.report, "#find=BREAKTHROUGH+FOR")
        self.assertEqual(self.rows(), ["limit breakthrough for 2000 ms"] * 3)

    def test_log_and_charts_mark_the_same_time(self):
        self.browser.load(self.report)
        self.browser.js("[...document.querySelectorAll('.row')].find("
                        "(row) => row.textContent.includes('limit by thermal')).click()")
        self.assertEqual(self.browser.js("return location.hash"), "#at=4.01")
        self.assertFalse(self.browser.js("return document.getElementById('mark').hidden"))
        self.assertIn("thermal", self.browser.text("#detail"))
        # A click on a lock leads to its line in the log.
        self.browser.point(self.at("command:game_fight", 10), "down", "up")
        self.assertIn("lock 5", self.browser.text(".row[aria-selected=true]"))
        self.assertEqual(self.browser.js("return location.hash"), "#at=9.12")

    def test_zooms_by_dragging_and_back(self):
        self.browser.load(self.report)
        x, y, width, height = self.browser.box(".chart .u-over")
        middle = y + height / 2
        self.browser.point((x + width * 0.25, middle), "down", (x + width * 0.4, middle),
                           (x + width * 0.5, middle), "up")
        hash_of = "return Object.fromEntries(new URLSearchParams(location.hash.slice(1)))"
        shown = self.browser.js(hash_of)
        self.assertAlmostEqual(float(shown["from"]), 18.14 * 0.25, delta=0.1)
        self.assertAlmostEqual(float(shown["to"]), 18.14 * 0.5, delta=0.1)
        self.browser.click("#fit")
        self.assertEqual(self.browser.js(hash_of), {})

    def test_shows_a_captures_own_clock(self):
        lines = "".join(f"06-{clock} 1 1 I a: b\n" for clock in ("14 23:59:57.123", "15 00:00:09.000"))
        capture = self.write("night.txt", lines)
        night = os.path.join(self.folder, "night.html")
        for log, report in (("hot_game", self.report + ".html"), (capture, night)):
            subprocess.run([LAB, "logcat", log, "--report", report], check=False,
                           stdout=subprocess.DEVNULL)
        self.browser.load(self.report + ".html")
        self.assertEqual(self.browser.text("#range"), "19:42:17.000 – 19:42:35.635")
        self.assertIn("19:42:17.100", self.browser.text("#rows"))
        self.browser.load(night)
        self.assertEqual(self.browser.text("#range"), "06-14 23:59:57.123 – 06-15 00:00:09.000")

    def test_fits_a_narrow_window(self):
        self.browser.size(420, 800)
        self.browser.load(self.report)
        wide, inner = self.browser.js("return [document.documentElement.scrollWidth, innerWidth]")
        self.assertLessEqual(wide, inner)
        self.assertGreater(self.browser.box(".chart .u-over")[2], 200)

    def test_labels_are_cut_so_that_no_other_number_remains(self):
        self.browser.load(self.report)
        self.browser.js("""
            const write = CanvasRenderingContext2D.prototype.fillText;
            window.drawn = [];
            CanvasRenderingContext2D.prototype.fillText = function(text, ...place) {
                window.drawn.push(text);
                write.call(this, text, ...place);
            };""")
        for width in range(830, 1400, 30):
            self.browser.size(width, 800)
            self.browser.wait_for("return innerWidth === %d" % width)
        self.browser.click("#zoom-in")
        labels = [text for text in self.browser.js("return window.drawn") if "big ≥" in text]
        self.assertTrue(any(text.endswith("…") for text in labels), labels)
        numbers = {number for text in labels for number in re.findall(r"\d+", text)}
        self.assertLessEqual(numbers, {"1324", "1075", "1286", "350", "1555", "2112", "1478",
                                       "2284", "2227", "492", "2092", "1785", "2841"})
        cut = 0
        for text, whole in self.browser.js("return [...document.querySelectorAll('.row')].map("
                                           "(row) => [row.querySelector('.text').textContent,"
                                           " row.title])"):
            self.assertLessEqual(set(re.findall(r"\d+", text)), set(re.findall(r"\d+", whole)))
            cut += text.endswith("…")
        self.assertGreater(cut, 0)

    def test_a_lock_that_changes_hands_goes_on_with_its_new_holder(self):
        with open(self.report, encoding="utf-8") as stream:
            page = stream.read()
        begin = page.index('id="run">') + len('id="run">')
        end = page.index("</script>", begin)
        run = json.loads(page[begin:end])
        # The client's lock from 4.01 s to 18.03 s is another one's from 9 s on.
        number, lock = next((number, lock) for number, lock in enumerate(run["locks"])
                            if lock[0] == 3)
        since, _, _, request = lock[4][0]
        # The other one asks for it with a request of its own.
        run["texts"] += ["limit by power", "power"]
        text = len(run["texts"]) - 2
        run["requests"]["t"].append(0)
        run["requests"]["rows"].append([text, run["requests"]["rows"][0][1], 0, text + 1,
                                        run["requests"]["rows"][0][3]])
        lock.append([[since, request], [9000, len(run["requests"]["rows"]) - 1]])
        lane = next(lane for lane in run["lanes"] if lane["name"] == "thermal big_max")
        lane["spans"] = [[number, since, 9000]]
        run["lanes"].append({"name": "power big_max", "who": "client:power",
                             "spans": [[number, 9000, lock[1]]]})
        data = json.dumps(run).replace("<", "\\u003c")
        self.browser.load(self.write("passed.html", page[:begin] + data + page[end:]))
        for lane, t, parts in (("thermal", 6, ["holderthermal", "laterpower, from 9.000 s"]),
                               ("power", 12, ["holderpower", "beforethermal, from 4.010 s"])):
            self.browser.point(self.at("client:" + lane, t))
            for part in parts:
                self.assertIn(part, self.browser.text("#tip"))
            x, y, width, height = self.browser.box(".chart:nth-child(2) .u-over")
            self.browser.point((x + width * t / 18.14, y + height / 2))
            self.assertIn("≤ 1651.2 MHz, %s, until released" % lane, self.browser.text("#tip"))
        self.browser.point((5, 5))
        self.browser.click("[data-who='client:power']")
        self.assertEqual(self.browser.texts(".lane-name"), ["requests", *CONTROL, "power big_max"])
        self.assertEqual(self.rows(), ["lock 3  goes on for power", "lock 3 of power  released",
                                       "limit by power"])

    def test_lanes_with_nothing_in_view_fold_away(self):
        self.browser.load(self.report, "#from=0&to=0.3")
        self.assertEqual(self.browser.texts(".lane-name"), ["requests", "game_running"])
        self.assertIn("5 lanes have nothing in view", self.browser.text("#fold"))
        self.browser.click("#fold")
        self.assertEqual(len(self.browser.texts(".lane-name")), 7)
        self.browser.click("#fold")
        self.browser.click("#fit")
        self.assertEqual(len(self.browser.texts(".lane-name")), 7)
        self.assertTrue(self.browser.js("return document.getElementById('fold').hidden"))

    def test_findings_are_red_and_lead_to_their_moments(self):
        file = os.path.join(self.folder, "wrong.html")
        subprocess.run([LAB, "run", "--quiet", self.write("wrong.yaml", WRONG), "--report", file],
                       stdout=subprocess.DEVNULL)
        # A filter that hides what a finding is about makes room for it.
        self.browser.load(file, "#who=command:touch")
        self.assertEqual(self.browser.text("#findings summary"), "2 findings")
        self.browser.click("#findings summary")
        for finding, t, text in (2, 3600, "returned 0"), (1, 1.5, "expected 2496000"):
            self.browser.click("#findings li:nth-child(%d) button" % finding)
            start, end, at = self.browser.js(
                "const hash = new URLSearchParams(location.hash.slice(1));"
                "return ['from', 'to', 'at'].map((name) => Number(hash.get(name)))")
            self.assertEqual(at, t)
            self.assertTrue(start <= t <= end <= start + 60, (start, end))
            self.assertIn(text, self.browser.js(
                "return document.querySelector('.row[aria-selected=true]').title"))
            self.assertIn(text, self.browser.text("#detail"))
        red, wrong, usual = self.browser.js("""
            const colourOf = (part) => getComputedStyle(part.querySelector(".text")).color;
            const rows = [...document.querySelectorAll(".row")];
            const row = (text) => rows.find((one) => one.title.includes(text));
            return [getComputedStyle(document.getElementById("findings")).color,
                    colourOf(row("expected 2496000")), colourOf(row("not registerd"))];""")
        self.assertEqual(wrong, red)
        self.assertNotEqual(usual, red)
        self.assertEqual(self.browser.texts(".lane-name")[:4],
                         ["requests", "findings", "thermal level", "control type"])

    def test_twenty_thousand_lanes_scroll_and_zoom(self):
        commands = "".join(
            f'<command id="{30000 + i}" name="scene_{i:05}"><boost><duration_ms>500</duration_ms>'
            "<little_cpu0_min_freq>1075200</little_cpu0_min_freq></boost></command>\n"
            for i in range(MANY))
        steps = "".join(f"- {{after: 100, do: scene_{i:05}}}\n" for i in range(MANY))
        scenes = self.write("many.xml", "<scenes>\n" + commands + "</scenes>\n")
        report = self.make_report("many", ["--scenes", scenes,
                                           self.write("many.yaml", "steps:\n" + steps)])
        begin = time.monotonic()
        self.browser.load(report)
        names = lambda: self.browser.texts(".lane-name")
        self.assertEqual(names()[:2], ["requests", "scene_00000"])
        # Far down, and a pointer there finds the lane's lock.
        for lane, top in (MANY - 1, 1e9), (MANY // 2, MANY // 2 * 21 - 50):
            name = f"scene_{lane:05}"
            self.browser.js("document.getElementById('lanes-box').scrollTop = arguments[0]", top)
            self.browser.wait_for("return [...document.querySelectorAll('.lane-name')]"
                                  f".some((one) => one.textContent === '{name}')")
        self.browser.point(self.at("command:" + name, (lane + 1) / 10, MANY / 10))
        self.assertIn("holder" + name, self.browser.text("#tip"))
        # What is in sight is what there is.
        elements, tallest = self.browser.js("""
            return [document.querySelectorAll("*").length,
                    Math.max(...[...document.querySelectorAll("canvas")].map((one) => one.height))]""")
        self.assertLess(elements, 600)
        self.assertLessEqual(tallest, 1600)
        for _ in range(14):
            self.browser.click("#zoom-in")
        self.assertIn("lanes have nothing in view", self.browser.text("#fold"))
        self.assertLess(len(names()), 40)
        self.browser.click("#fit")
        self.assertLess(time.monotonic() - begin, 15)

    def test_survives_texts_that_look_like_markup(self):
        scenario = self.write("nasty.yaml", 'title: "%s"\nsteps:\n  - {at: 1, do: touch}\n' % NASTY)
        self.browser.load(self.make_report("nasty", [scenario]))
        self.assertEqual(self.browser.text("h1"), NASTY.replace("\\u2028", "\u2028"))
        self.assertNotEqual(self.browser.js("return document.title"), "broken")

    def test_a_full_day_stays_small_and_quick(self):
        report = self.make_report("day", [self.write("day.yaml", DAY)])
        self.assertLess(os.path.getsize(report), 4_000_000)
        begin = time.monotonic()
        self.browser.load(report)
        self.assertIn("21000 requests", self.browser.text("#facts"))
        self.browser.js("document.getElementById('rows').scrollTop = 1e6")
        self.browser.click("[data-who='client:thermal']")
        self.browser.click("#zoom-in")
        self.assertLess(time.monotonic() - begin, 15)
        self.assertLess(self.browser.js("return document.querySelectorAll('*').length"), 600)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
