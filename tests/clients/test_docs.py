"""Holds the pages in docs/ against the program's sources and the built program."""

import json
import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

from jsonschema import Draft202012Validator

ROOT = Path(__file__).resolve().parents[2]
PAGES = {path.name: path.read_text() for path in sorted((ROOT / "docs").glob("*.md"))}
PROGRAM = Path(os.environ["QUENLOR_BUILD"]) / "QuenlorHelperAudioVirtual"
TRANSCRIPTS = re.findall(r"```transcript\n(.*?)```", PAGES["protocol.md"], re.DOTALL)
SCHEMAS = {path.name.split(".")[0]: Draft202012Validator(json.loads(path.read_text()))
           for path in (ROOT / "docs/protocol").glob("*.schema.json")}
START = {"mode": "mixed", "outputPath": "meeting.wav", "title": "Weekly"}


def converse(*lines):
    """The replies to these lines, the last line on standard error and the exit status."""
    with tempfile.TemporaryDirectory() as folder:
        run = subprocess.run([PROGRAM], input="".join(line + "\n" for line in lines), cwd=folder,
                             capture_output=True, encoding="utf-8", timeout=60)
    return run.stdout.splitlines(), run.stderr.splitlines()[-1], run.returncode


class ProtocolTest(unittest.TestCase):
    def test_transcripts_are_what_the_program_says(self):
        self.assertGreaterEqual(len(TRANSCRIPTS), 4)
        for transcript in TRANSCRIPTS:
            said = [re.split(r"\s+", line, maxsplit=1) for line in transcript.splitlines()]
            part = {speaker: [text for who, text in said if who == speaker] for speaker, _ in said}
            lines = [line for line in part["parent"] if line != "(closes the pipe)"]
            with self.subTest(lines):
                replies, error, status = converse(*lines)
                self.assertEqual([shape(reply) for reply in replies],
                                 [shape(reply) for reply in part.get("sidecar", [])])
                self.assertEqual([status], [int(text) for text in part["exit"]])
                if "stderr" in part:
                    self.assertEqual([error], part["stderr"])

    def test_schemas_take_and_refuse_what_the_program_does(self):
        starts = [START, {**START, "title": ""}, {**START, "more": [1]}, {**START, "mode": "Mixed"},
                  {**START, "outputPath": ""}, {**START, "outputPath": "a\0b"},
                  {**START, "title": None}, {**START, "title": 5}, [START], "mixed",
                  *[{k: v for k, v in START.items() if k != key} for key in START]]
        stops = [{"command": "stop"}, {"command": "STOP", "more": 1}, {"command": " stop"},
                 {"command": "halt"}, {"command": None}, {"cmd": "stop"}, ["stop"], "stop"]
        for request in starts:
            with self.subTest(start=request):
                status = converse(json.dumps(request))[2]
                self.assertEqual(SCHEMAS["start-request"].is_valid(request), status == 0)
        for signal in stops:
            with self.subTest(stop=signal):
                status = converse(json.dumps(START), json.dumps(signal))[2]
                self.assertEqual(SCHEMAS["stop-signal"].is_valid(signal), status == 0)

    def test_replies_and_the_lines_in_the_table_match_their_schemas(self):
        ready, result = converse(json.dumps(START))[0]
        SCHEMAS["ready-reply"].validate(json.loads(ready))
        SCHEMAS["stop-result"].validate(json.loads(result))
        rows = re.findall(r"\| `(\{.*?\})` \| \[([\w-]+)\]", PAGES["protocol.md"])
        self.assertEqual({name for _, name in rows}, set(SCHEMAS))
        for line, name in rows:
            SCHEMAS[name].validate(json.loads(line))


def shape(reply):
    """A reply without its numbers."""
    return re.sub(r"[-+\d.e]+(?=[,}])", "0", reply)


def anchors(page):
    """What the headings of a page are linked by."""
    return {re.sub(r"[^\w -]", "", heading).lower().replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)", page, re.MULTILINE)}


def code_spans(page):
    return re.findall(r"`([^`]+)`", re.sub(r"```.*?```", "", page, flags=re.DOTALL))


def pieces(text):
    """What is fixed in a text, in the same cuts whether it stands in a page or in the sources."""
    text = text.replace('\\"', '"').replace("\\n", "").replace("%s", "…")
    cuts = (cut.strip(" ,:'") for cut in re.split(r'…|"|: |[().]', text))
    return {cut for cut in cuts if len(cut) > 3 and (" " in cut or cut.istitle())}


def texts_in_sources():
    """The pieces of what the program says: of its errors, and of everything."""
    errors, all_texts = set(), set()
    for folder in "helper", "platform/common", "platform/pulse", "platform/coreaudio":
        for path in sorted((ROOT / folder).rglob("*.[chm]*")):
            source = re.sub(r"//.*|^#.*|'\"'", "", path.read_text(), flags=re.MULTILINE)
            for statement in source.split(";\n"):
                texts = [re.sub(r'"\s*"', "", text) for text in
                         re.findall(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*', statement)]
                found = set().union(*(pieces(text[1:-1]) for text in texts))
                all_texts |= found
                if not re.search(r"trace\w*\(", statement, re.IGNORECASE):
                    errors |= found
    return errors, all_texts


class TextsTest(unittest.TestCase):
    # Names that others see; no part of any message.
    NAMES = {"Quenlor Helper", "Quenlor Helper Capture", "Microphone"}

    def test_every_error_of_the_program_is_explained(self):
        errors, _ = texts_in_sources()
        self.assertGreater(len(errors), 60)
        quoted = "\n".join(span for name in ("protocol.md", "troubleshooting.md")
                           for span in code_spans(PAGES[name]))
        self.assertEqual({text for text in errors - self.NAMES if text not in quoted}, set())

    def test_every_quoted_text_can_be_said(self):
        known = texts_in_sources()[1] | {os.strerror(number) for number in range(1, 134)}
        longest_first = sorted(known, key=len, reverse=True)
        for name, column in ("protocol.md", 0), ("troubleshooting.md", 1):
            for row in re.findall(r"^\| (.*) \|$", PAGES[name], re.MULTILINE):
                for span in code_spans(row.split(" | ")[column]):
                    for piece in pieces(span):
                        for text in longest_first:
                            piece = piece.replace(text, "")
                        self.assertEqual(piece.strip(), "", span)


class PlacesTest(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for page in [ROOT / "README.md", *ROOT.glob("docs/*.md"), *ROOT.glob("examples/*/*.md")]:
            for target, anchor in re.findall(r"\]\(([^#)]*)#?([^)]*)\)", page.read_text()):
                with self.subTest(f"{page.name}: {target}#{anchor}"):
                    file = page.parent / target if target else page
                    self.assertTrue(file.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(file.read_text()))

    def test_names_of_files_and_functions_exist(self):
        files = [path for folder in ("helper", "platform") for path in (ROOT / folder).rglob("*.*")]
        words = {word for path in [*files, ROOT / "CMakeLists.txt"]
                 for word in re.findall(r"\w+", path.read_text())}
        sidecar = ROOT / "helper/macos/native-audio/Sources/QuenlorHelperAudio"
        for span in code_spans(PAGES["architecture.md"]):
            if re.fullmatch(r"\w+(\(\))?", span):
                self.assertTrue(span.removesuffix("()") in words, span)
            elif re.search("[/.]", span):
                self.assertTrue((ROOT / span).exists() or (sidecar / span).exists(), span)
