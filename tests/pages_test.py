#!/usr/bin/env python3
"""Pastes the examples of README and docs into a shell and looks at what they claim; does what a
product's CI does.

usage: pages_test.py TARQUEL_LAB

A fenced block is told by its language:
  console     lines behind "$ " are run, what follows each is its whole output; "..." stands for
              any lines, or for anything within a line
  sh          every command is run and succeeds
  yaml, xml   a scenario or a scene file, or steps or commands of one: it is run or checked
Others are not looked at, and hold no commands. A comment in the line before the
block, <!-- test: WORDS -->, says more:
  save NAME          the block is that file for all that follows
  lines of COMMAND   its lines stand in the command's output, in this order
  returns N          not 0
  not run: WHY
Commands of one page share a folder, in which lab/data is the source tree's and some files are those
that a user would have made; adb stands for one with a phone.
"""
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree
import zipfile

LAB = pathlib.Path(sys.argv.pop(1)).resolve()
SOURCES = pathlib.Path(__file__).resolve().parent.parent
CLUSTERS = """<command id="1"><qcom_cpu_info><lit_cpu_num>0-3</lit_cpu_num>
<big_cpu_num>4-6</big_cpu_num><prime_cpu_num>7-7</prime_cpu_num></qcom_cpu_info></command>
"""
DUMP = "".join(f"{line}\n" for line in [
    "tarquel-lab dump 1", "kernel 5.10.0",
    *(f"read /sys/devices/system/cpu/cpufreq/policy{cpus[0]}/{node}"
      for cpus in ("0 1 2 3", "4 5 6 7")
      for node in (f"related_cpus {cpus}", "scaling_available_frequencies 300000 600000 1200000")),
    "read /sys/class/kgsl/kgsl-3d0/freq_table_mhz 800 300",
    "read /sys/class/kgsl/kgsl-3d0/default_pwrlevel 1", "end 7"])
BLOCK = re.compile(r"(?:^<!-- test: (?P<words>.*?) -->\n)?^```(?P<kind>\w*)\n(?P<text>.*?)^```$",
                   re.M | re.S)


def run(command, folder):
    environment = dict(os.environ, PATH=f"{LAB.parent}:{folder}:{os.environ['PATH']}")
    ran = subprocess.run(["bash", "-c", command], cwd=folder, env=environment, text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
    return ran.returncode, ran.stdout


def pattern(text):
    """What matches the text, of whose lines each may end in blanks."""
    lines = []
    for line in text.rstrip("\n").split("\n"):
        if line.strip() == "...":
            lines.append(r"(?:.*\n)*?")
        else:
            lines.append(".*".join(map(re.escape, line.rstrip().split("..."))) + r" *\n")
    return "".join(lines)


class Shell(unittest.TestCase):
    """A folder of its own, and commands in it."""
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def play(self, command, code=0):
        returned, output = run(command, self.folder)
        self.assertEqual(returned, code, f"{command}\n{output}")
        return output


class Pages(Shell):
    def play_console(self, text, code):
        for part in re.split(r"^\$ ", text, flags=re.M)[1:]:
            command, _, expected = part.partition("\n")
            output = self.play(command, code)
            if not re.fullmatch(pattern(expected) if expected else "", output):
                self.assertEqual(expected, output, f"of {command}")

    def play_lines(self, command, text, code):
        rest = iter(self.play(command, code).split("\n"))
        for line in text.rstrip("\n").split("\n"):
            if line.strip() != "...":
                self.assertTrue(any(line.rstrip() == other.rstrip() for other in rest),
                                f"not in the output of {command}, or not there: {line}")

    def play_block(self, kind, text, words):
        code = 0
        save = re.search(r"save (\S+)", words)
        returns = re.search(r"returns (\d)", words)
        lines = re.search(r"lines of ([^;]*)", words)
        if returns:
            code = int(returns[1])
        if words.startswith("not run:"):
            return
        if not kind and not lines:
            self.assertNotRegex(text, r"(?m)^(\$ |tarquel-lab |\./dev )", "name their language")
        if save:
            file = self.folder / save[1]
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        elif lines:
            self.play_lines(lines[1], text, code)
        elif kind == "console":
            self.play_console(text, code)
        elif kind == "sh":
            for command in re.sub(r"\\\n", " ", text).splitlines():
                if command.startswith("./dev "):
                    name = command.split()[1]
                    self.assertRegex((SOURCES / "dev").read_text(), rf"\n    {name}\)", command)
                else:
                    self.play(command)
        elif kind == "yaml":
            file = self.folder / "pasted.yaml"
            file.write_text(text if re.search(r"^steps:", text, re.M) else "steps:\n" + text)
            self.play(f"tarquel-lab run {file.name}", code)
        elif kind == "xml":
            file = self.folder / "pasted.xml"
            file.write_text(text if text.startswith(("<?xml", "<scenes>"))
                            else f"<scenes>\n{CLUSTERS}{text}</scenes>\n")
            self.play(f"tarquel-lab check {file.name} --device sm8450", code)
        elif kind:
            self.fail(f"no test for blocks of {kind}")


def furnish(folder):
    data = SOURCES / "lab/data"
    (folder / "lab").mkdir()
    (folder / "lab/data").symlink_to(data)
    (folder / "scenarios").mkdir()
    (folder / "docs").mkdir()
    shutil.copy(data / "devices/sm8450.yaml", folder / "my_phone.yaml")
    shutil.copy(data / "scenes/sm8450.xml", folder / "my_scenes.xml")
    log = (data / "captures/hot_game.txt").read_text()
    (folder / "evening.txt").write_text(log)
    (folder / "my_phone.csv").write_text("cluster,mhz,mw\nbig,633.6,95\nbig,2496,1400\n")
    with zipfile.ZipFile(folder / "bugreport.zip", "w") as report:
        report.writestr("bugreport-phone.txt", "== dumpstate: 2026-06-14 19:45:00\n------ SYSTEM LOG "
                        f"(logcat -v threadtime -d *:v) ------\n{log}------ EVENT LOG ------\n")
    for name in ["my_scenario.yaml", "scenarios/first.yaml", "scenarios/second.yaml"]:
        shutil.copy(data / "scenarios/first_seconds.yaml", folder / name)
    for name in ["dump.txt", "dump.txt.phone"]:
        (folder / name).write_text(DUMP)
    adb = folder / "adb"
    adb.write_text("#!/bin/sh\ncase $* in logcat*-[Gc]* | root | push*) ;; "
                   "*dump.sh) cat dump.txt.phone;; "
                   f"*) cat {data}/captures/hot_game.txt;; esac\n")
    adb.chmod(0o755)


def of_page(page):
    def test(self):
        if page.parent.name != "product":
            furnish(self.folder)
        else:
            shutil.copytree(page.parent, self.folder, dirs_exist_ok=True)
        text = page.read_text()
        for block in BLOCK.finditer(text):
            line = text.count("\n", 0, block.start()) + 1
            with self.subTest(f"{page}:{line}"):
                self.play_block(block["kind"], block["text"], block["words"] or "")
    return test


def fields_of(value):
    """The names of all fields of a JSON value. Names that are data have letters of no field's."""
    if isinstance(value, dict):
        own = {name for name in value if not re.search("_freq$", name)}
        return own.union(*map(fields_of, value.values()))
    return set().union(*map(fields_of, value)) if isinstance(value, list) else set()


class Help(Shell):
    def test_its_examples_run(self):
        commands = self.play("tarquel-lab --help").split("Subcommands:")[1]
        commands = re.findall(r"^  (\w+) ", commands, re.M)
        self.assertGreater(len(commands), 7)
        top = self.folder
        for command in commands:
            self.folder = top / command
            self.folder.mkdir()
            furnish(self.folder)
            words = self.play(f"tarquel-lab {command} --help")
            examples = re.findall(r"^  (.*tarquel-lab .*)$", words, re.M)
            self.assertTrue(examples, f"none of {command}")
            for example in examples:
                with self.subTest(example):
                    words = re.findall(r"\| (\w+)", example)
                    if all(map(shutil.which, set(words) - {"tarquel"})):
                        self.play(example)


class Watch(Shell):
    def test_what_is_edited_runs_again(self):
        scenario = self.folder / "mine.yaml"
        scenario.write_text("title: One\nsteps:\n- {do: touch}\n- {wait: 9000}\n")
        report = self.folder / "mine.html"
        program = subprocess.Popen([LAB, "run", "--watch", "mine.yaml", "--report", report],
                                   cwd=self.folder, stdout=subprocess.PIPE, text=True)
        self.addCleanup(program.stdout.close)
        self.addCleanup(program.kill)

        def shown(title):
            text = ""
            for line in program.stdout:
                text += line
                if title in text and line.startswith(("Nothing leaked", "  ! ")):
                    return text
            return self.fail(f"ended after {text}")

        self.assertIn("do touch", shown("One"))
        scenario.write_text("title: Two\nsteps:\n- {do: game_fight, returns: 7}\n")
        self.assertIn("do game_fight", shown("Two"))
        self.assertIn('"title":"Two"', report.read_text())
        # A mistake is waited out, and an end is one.
        scenario.write_text("stops: [\n")
        scenario.write_text("title: Three\nsteps:\n- {do: touch}\n- {wait: 9000}\n")
        shown("Three")
        program.send_signal(signal.SIGINT)
        self.assertEqual(program.wait(20), 0)
        self.assertFalse((self.folder / "mine.html.watched.js").exists())


def seconds_of(time):
    hours, minutes, seconds = time.split(":")
    return f"{int(hours) * 3600 + int(minutes) * 60 + float(seconds):.3f}"


class Trace(Shell):
    def test_of_a_capture_is_in_the_phones_clock(self):
        capture = (SOURCES / "lab/data/captures/hot_game.txt").read_text()
        day = 1718323200 - 10 * 3600  # 14 June 2024, where clocks are 10 hours ahead
        for stamp, begin in [(lambda time: f"06-14 {time}", 0),
                             (lambda time: f"2024-06-14 {time} +1000", day + 70937),
                             (seconds_of, 70937)]:
            (self.folder / "log.txt").write_text(
                re.sub(r"^06-14 ([\d:.]+)", lambda match: stamp(match[1]), capture, flags=re.M))
            self.play("tarquel-lab logcat log.txt --trace trace.json")
            events = json.loads((self.folder / "trace.json").read_text())["traceEvents"]
            first = min(event["ts"] for event in events if event["ph"] != "M")
            self.assertAlmostEqual(first / 1e6, begin, delta=0.001)
            levels = [event["args"]["value"] for event in events if event.get("name") == "thermal level"]
            self.assertEqual(levels[:2], [2, 0])


class Json(Shell):
    def test_every_field_is_described(self):
        (self.folder / "lab").symlink_to(SOURCES / "lab")
        for section in (SOURCES / "docs/json.md").read_text().split("\n## ")[1:]:
            for command in re.findall("^tarquel-lab .*", section, re.M):
                with self.subTest(command):
                    fields = fields_of(json.loads(self.play(command)))
                    self.assertGreater(len(fields), 5)
                    self.assertEqual(fields - set(re.findall(r"`(\w+)`", section)), set())


for page in [SOURCES / "README.md", *sorted((SOURCES / "docs").rglob("*.md"))]:
    name = re.sub(r"\W", "_", str(page.relative_to(SOURCES).with_suffix("")))
    setattr(Pages, f"test_{name}", of_page(page))


class Product(Shell):
    """The example of a product's repository, where there is nothing of the lab's sources."""

    def results(self):
        suite = xml.etree.ElementTree.parse(self.folder / "results.xml").getroot()[0]
        return {case.get("name"): [child.tag for child in case] for case in suite}, suite

    def test_its_ci_finds_what_is_wrong(self):
        shutil.copytree(SOURCES / "docs/product", self.folder, dirs_exist_ok=True)
        self.play("cd / && " + str(self.folder / "ci.sh"))
        self.assertEqual(self.results()[0], {"cold_start": [], "power_save": []})

        # A floor lower than the scenario expects, and a scene that nobody uses.
        scenes = self.folder / "scenes/aster.xml"
        text = scenes.read_text().replace(">1804800</big_cpu0_min_freq>",
                                          ">1516800</big_cpu0_min_freq>")
        scenes.write_text(text.replace(
            "</scenes>", '<command id="4099" name="fling"><boost><duration_ms>500</duration_ms>'
            "<big_cpu0_min_freq>1228800</big_cpu0_min_freq></boost></command></scenes>"))
        (self.folder / "scenarios/broken.yaml").write_text("steps:\n- {du: touch}\n")
        output = self.play("./ci.sh", code=2)
        self.assertIn("scenes/aster.xml: 3 of 4 scenes used (75 %); not used: fling (4099)", output)
        self.assertIn("scenarios/cold_start.yaml: ", output)
        self.assertIn("3 scenarios: 1 fine, 1 with findings, 1 cannot run; ", output)
        cases, suite = self.results()
        self.assertEqual(cases, {"broken": ["error"], "cold_start": ["failure"], "power_save": [],
                                 "aster": ["failure"]})
        self.assertEqual((suite.get("tests"), suite.get("failures"), suite.get("errors")),
                         ("4", "2", "1"))
        (self.folder / "scenarios/broken.yaml").unlink()
        self.play("./ci.sh", code=1)
        self.play("rm scenarios/cold_start.yaml; tarquel-lab run --coverage scenarios")
        self.play("tarquel-lab run --coverage-limit 51 scenarios", code=1)


if __name__ == "__main__":
    unittest.main()
