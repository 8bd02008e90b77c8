"""Checks the reports of the kit after a run under Wine: kit_check.py FOLDER PORTING

- Both reports exist and say that they come from an emulator.
- Each suite ran and none failed.
- The cases for a real Windows kernel are those that docs/porting.md (PORTING) lists. Each case states which question it
  answers, and what it found or why it was skipped.
- The page is well-formed and refers to no other file or host.
- The run left no other file in the folder.
"""
import html.parser
import json
import pathlib
import re
import sys


class Page(html.parser.HTMLParser):
    """Collects faults: elements that are not closed in order, and references to other files or hosts."""

    alone = {"meta", "wbr"}

    def __init__(self):
        super().__init__()
        self.open = []
        self.faults = []

    def handle_starttag(self, tag, attributes):
        if tag not in self.alone:
            self.open.append(tag)
        self.faults += [f"the page refers to {value}" for name, value in attributes if name in ("src", "href")]

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            self.faults.append(f"the page has a {tag} that is closed out of order (line {self.getpos()[0]})")


def faults_of_page(page):
    parser = Page()
    parser.feed(page)
    parser.close()
    return parser.faults + [f"the page has a {tag} that is not closed" for tag in parser.open]


def faults_of_suites(report):
    if len(report["suites"]) != report["suites_wanted"]:
        yield f"the report has {len(report['suites'])} suites, expected {report['suites_wanted']}"
    if report["is_stopped"]:
        yield "the run was stopped before its end"
    for suite in report["suites"]:
        if suite["state"] == "skipped":
            yield f"{suite['name']} did not run: {suite.get('words', '')}"
        if suite["state"] == "failed":
            names = [case["name"] for case in suite["cases"] if case["state"] == "failed"]
            yield f"{suite['name']} failed: {', '.join(names)} {suite.get('words', '')[-500:]}"
        for case in suite["cases"]:
            if case["state"] == "skipped" and not case.get("words", "").strip():
                yield f"{suite['name']}: {case['name']} was skipped without a reason"


def faults_of_kernel_cases(report, listed):
    cases = [case for suite in report["suites"] for case in suite["cases"] if "number" in case]
    told = sorted(case["number"] for case in cases)
    if told != listed:
        yield f"the report has the case numbers {told}, docs/porting.md has {listed}"
    for case in cases:
        if not case.get("settles") or not (case.get("found") or case.get("words")):
            yield f"case {case['number']} does not state its question, or has no result"


def main(folder, porting):
    folder = pathlib.Path(folder)
    report = json.loads((folder / "report.json").read_text(encoding="utf-8"))
    page = (folder / "report.html").read_text(encoding="utf-8")
    listed = [int(number) for number in re.findall(r"^\| (\d+) \| ", pathlib.Path(porting).read_text(encoding="utf-8"), re.M)]
    faults = faults_of_page(page)
    if not report["is_emulated"] or "emulator" not in page:
        faults.append("the report does not say that it comes from an emulator")
    faults += faults_of_suites(report)
    faults += faults_of_kernel_cases(report, listed)
    passed = sum(suite["passed"] for suite in report["suites"])
    if passed < 1000:
        faults.append(f"only {passed} cases passed")
    left = {path.name for path in folder.iterdir()} - {"bin", "run.cmd", "README.txt", "report.json", "report.html"}
    if left:
        faults.append(f"the kit left files in its folder: {', '.join(sorted(left))}")
    for fault in faults:
        print(f"error: {fault}", file=sys.stderr)
    print(f"== {report['summary']} {report['seconds']} s under Wine; {len(listed)} cases for a real kernel")
    return 1 if faults else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: kit_check.py FOLDER PORTING")
    sys.exit(main(*sys.argv[1:]))
