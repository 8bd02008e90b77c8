"""The software bill of materials (SBOM) of a package, as SPDX 2.3 in JSON.

  sbom.py write --kind windows --version X.Y.Z --poco VERSION FOLDER FILE    writes FILE, which lists each file below FOLDER
  sbom.py write --kind debian --version X.Y.Z FOLDER FILE
  sbom.py check FOLDER FILE                                                  compares FILE with FOLDER and checks its format

MATERIALS names the third-party software for each kind. Its versions are those of the Debian packages that are installed
on this machine. Only the POCO of the Windows build is built from a source package, whose version can differ.
"""
import argparse
import hashlib
import json
import pathlib
import re
import subprocess
import sys
import time

NAMESPACE = "https://vu-storage.invalid/spdx/"
MATERIALS = [
    {"name": "POCO Foundation", "debian": "libpoco-dev", "licence": "BSL-1.0",
     "what": "the storage mutex; its sources contain PCRE and zlib", "how": {"windows": "STATIC_LINK", "debian": "DYNAMIC_LINK"}},
    {"name": "PCRE", "debian": "libpoco-dev", "licence": "BSD-3-Clause",
     "what": "part of POCO Foundation; the version is that of POCO", "how": {"windows": "STATIC_LINK"}},
    {"name": "zlib", "debian": "libpoco-dev", "licence": "Zlib",
     "what": "part of POCO Foundation; the version is that of POCO", "how": {"windows": "STATIC_LINK"}},
    {"name": "utfcpp", "debian": "libutfcpp-dev", "licence": "BSL-1.0",
     "what": "conversion between UTF-8 and UTF-16, headers only", "how": {"windows": "STATIC_LINK", "debian": "STATIC_LINK"}},
    {"name": "CLI11", "debian": "libcli11-dev", "licence": "BSD-3-Clause",
     "what": "the client's command line, headers only", "how": {"windows": "STATIC_LINK", "debian": "STATIC_LINK"}},
    {"name": "nlohmann-json", "debian": "nlohmann-json3-dev", "licence": "MIT",
     "what": "the client's JSON, headers only", "how": {"windows": "STATIC_LINK", "debian": "STATIC_LINK"}},
    {"name": "fmt", "debian": "libfmt-dev", "licence": "MIT",
     "what": "the client's text, headers only", "how": {"windows": "STATIC_LINK", "debian": "STATIC_LINK"}},
    {"name": "xxHash", "debian": "libxxhash-dev", "licence": "BSD-2-Clause",
     "what": "checksums and tables of names, headers only", "how": {"windows": "STATIC_LINK", "debian": "STATIC_LINK"}},
    {"name": "GCC runtime libraries", "debian": "gcc-mingw-w64-x86-64-posix-runtime", "licence": "GPL-3.0-or-later WITH GCC-exception-3.1",
     "what": "libstdc++-6.dll and libgcc_s_seh-1.dll", "how": {"windows": "CONTAINS"}},
    {"name": "MinGW-w64 runtime", "debian": "mingw-w64-x86-64-dev", "licence": "ZPL-2.1 AND MIT AND BSD-3-Clause",
     "what": "libwinpthread-1.dll, and start-up code in every program", "how": {"windows": "CONTAINS"}},
    {"name": "jQuery", "debian": "doxygen", "licence": "MIT",
     "what": "part of the documentation that Doxygen generates; the version is that of Doxygen", "how": {"windows": "CONTAINS", "debian": "CONTAINS"}},
]


def digest(path, kind):
    return hashlib.new(kind, path.read_bytes()).hexdigest()


def files_below(folder, own):
    return sorted(p for p in folder.rglob("*") if p.is_file() and p.resolve() != own.resolve())


def identifier(text):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.-]+", "-", text).strip("-")


def debian_version(package):
    answer = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True)
    if answer.returncode != 0 or not answer.stdout:
        sys.exit(f"error: the Debian package {package} is not installed: install it, because the SBOM needs its version")
    return answer.stdout


def write(kind, version, poco, folder, target):
    paths = files_below(folder, target)
    if not paths:
        sys.exit(f"error: there is no file below {folder}: name the folder of the package")
    files = []
    relationships = [["SPDXRef-DOCUMENT", "DESCRIBES", "SPDXRef-vu-storage"]]
    for number, path in enumerate(paths, 1):
        name = "./" + path.relative_to(folder).as_posix()
        files.append({
            "SPDXID": f"SPDXRef-File-{number}",
            "fileName": name,
            "checksums": [{"algorithm": "SHA1", "checksumValue": digest(path, "sha1")},
                          {"algorithm": "SHA256", "checksumValue": digest(path, "sha256")}],
            "licenseConcluded": "NOASSERTION",
            "copyrightText": "NOASSERTION"})
        relationships.append(["SPDXRef-vu-storage", "CONTAINS", files[-1]["SPDXID"]])
    packages = [{
        "SPDXID": "SPDXRef-vu-storage",
        "name": "vu_storage",
        "versionInfo": version,
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": True,
        "packageVerificationCode": {"packageVerificationCodeValue": verification_code(files)},
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": "NOASSERTION",
        "copyrightText": "NOASSERTION"}]
    for part in MATERIALS:
        if kind not in part["how"]:
            continue
        reference = identifier("part-" + part["name"])
        packages.append({
            "SPDXID": reference,
            "name": part["name"],
            "versionInfo": poco if poco and part["debian"] == "libpoco-dev" else debian_version(part["debian"]),
            "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False,
            "licenseConcluded": part["licence"],
            "licenseDeclared": part["licence"],
            "copyrightText": "NOASSERTION",
            "comment": part["what"]})
        relationships.append(["SPDXRef-vu-storage", part["how"][kind], reference])
    target.write_text(json.dumps({
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"vu_storage-{version}-{kind}",
        "documentNamespace": f"{NAMESPACE}{kind}-{version}-{verification_code(files)}",
        "creationInfo": {"created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime()),
                         "creators": ["Tool: packaging/sbom.py"]},
        "packages": packages,
        "files": files,
        "relationships": [{"spdxElementId": a, "relationshipType": how, "relatedSpdxElement": b}
                          for a, how, b in relationships]}, indent=1) + "\n")


def verification_code(files):
    """The packageVerificationCode of SPDX: the SHA-1 of the sorted SHA-1 sums of all files."""
    sums = sorted(f["checksums"][0]["checksumValue"] for f in files)
    return hashlib.sha1("".join(sums).encode()).hexdigest()


def check(folder, target):
    faults = []
    bill = json.loads(target.read_text())
    for member in ("spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo", "packages"):
        if not bill.get(member):
            faults.append(f"the member {member} is missing")
    if bill.get("spdxVersion") != "SPDX-2.3" or bill.get("dataLicense") != "CC0-1.0":
        faults.append("it is not SPDX 2.3 under CC0-1.0")
    if not re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", bill.get("creationInfo", {}).get("created", "")):
        faults.append("creationInfo.created is not a UTC time")
    known = {"SPDXRef-DOCUMENT"}
    for element in bill.get("packages", []) + bill.get("files", []):
        name = element.get("SPDXID", "")
        if not re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", name) or name in known:
            faults.append(f"'{name}' is not a valid, unique SPDXID")
        known.add(name)
    for package in bill.get("packages", []):
        for member in ("name", "versionInfo", "downloadLocation", "licenseConcluded", "copyrightText"):
            if not package.get(member):
                faults.append(f"{package.get('SPDXID')} has no {member}")
        if package.get("filesAnalyzed") and verification_code(bill.get("files", [])) != package.get(
                "packageVerificationCode", {}).get("packageVerificationCodeValue"):
            faults.append("packageVerificationCode does not match the listed files")
    for relation in bill.get("relationships", []):
        for end in ("spdxElementId", "relatedSpdxElement"):
            if relation.get(end) not in known:
                faults.append(f"a relationship names the unknown element {relation.get(end)}")
    listed = {f["fileName"]: f["checksums"][1]["checksumValue"] for f in bill.get("files", [])}
    present = {"./" + p.relative_to(folder).as_posix(): digest(p, "sha256") for p in files_below(folder, target)}
    for name in sorted(set(listed) | set(present)):
        if listed.get(name) != present.get(name):
            faults.append(f"{name} is missing, not listed, or has another checksum")
    if len(bill.get("packages", [])) < 2:
        faults.append("it lists no third-party software")
    for fault in faults:
        print(f"error: {target}: {fault}", file=sys.stderr)
    if faults:
        sys.exit(1)
    print(f"== {target}: {len(present)} files, {len(bill['packages'])} packages")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("action", choices=("write", "check"))
    parser.add_argument("--kind", choices=("windows", "debian"))
    parser.add_argument("--version")
    parser.add_argument("--poco")
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("file", type=pathlib.Path)
    given = parser.parse_args()
    if given.action == "check":
        check(given.folder, given.file)
    elif given.kind and given.version and bool(given.poco) == (given.kind == "windows"):
        write(given.kind, given.version, given.poco, given.folder, given.file)
    else:
        parser.error("write needs --kind and --version, and --poco for the kind windows only")
