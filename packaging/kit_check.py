"""Looks at what the kit has left under Wine: kit_check.py FOLDER

A report must be there, say that it comes from an emulator, and tell of suites that ran; nothing may have failed, and nothing
may lie in the folder that was not there before but the two reports.
"""
import json
import pathlib
import sys


def main(folder):
    folder = pathlib.Path(folder)
    faults = []
    report = json.loads((folder / "report.json").read_text(encoding="utf-8"))
    page = (folder / "report.html").read_text(encoding="utf-8", errors="replace")
    if not report["is_emulated"] or "emulator" not in page:
        faults.append("the report does not say that it comes from an emulator")
    passed = sum(suite["passed"] for suite in report["suites"])
    for suite in report["suites"]:
        if suite["state"] == "failed":
            names = [case["name"] for case in suite["cases"] if case["state"] == "failed"]
            faults.append(f"{suite['name']} failed: {', '.join(names) or suite.get('words', '')[-500:]}")
    if passed < 1000:
        faults.append(f"only {passed} cases passed")
    settled = [case for suite in report["suites"] for case in suite["cases"] if case["settles"]]
    if not settled:
        faults.append("no case of a real kernel is told")
    left = {path.name for path in folder.iterdir()} - {"bin", "run.cmd", "README.txt", "report.json", "report.html"}
    if left:
        faults.append(f"the kit leaves behind: {', '.join(sorted(left))}")
    for fault in faults:
        print(f"error: {fault}", file=sys.stderr)
    print(f"== {passed} cases passed in {len(report['suites'])} suites, {len(settled)} cases of a real kernel")
    return 1 if faults else 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: kit_check.py FOLDER")
    sys.exit(main(sys.argv[1]))
