"""Checks Windows programs and DLLs: windows_pe.py VERSION FILE...

Each file must have the version in its version resource and use the memory protection of Windows: random addresses
(ASLR), no execution of data (DEP). It may only need DLLs in its own folder, and DLLs that Windows loads from its system
folder only.
"""
import pathlib
import struct
import sys

# DLLs that Windows always loads from the system folder ("KnownDLLs"; COMCTL32 by the manifest), and DLLs that only the
# system folder contains. Windows searches the system folder before the current folder.
OF_WINDOWS = {"advapi32.dll", "comctl32.dll", "gdi32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "shell32.dll",
              "user32.dll", "ws2_32.dll", "iphlpapi.dll"}
PROTECTED = {0x20: "random 64-bit addresses (HIGH_ENTROPY_VA)", 0x40: "random addresses (DYNAMIC_BASE)",
             0x100: "no execution of data (NX_COMPAT)"}


class Image:
    """The checked parts of a 64-bit PE image."""

    def __init__(self, path):
        self.data = path.read_bytes()
        header = self.number("<I", 0x3C)
        if self.data[header:header + 4] != b"PE\0\0" or self.number("<H", header + 24) != 0x20B:
            raise ValueError("not a 64-bit PE image")
        self.flags = self.number("<H", header + 24 + 70)
        self.folders = [struct.unpack_from("<II", self.data, header + 24 + 112 + 8 * i) for i in range(16)]
        first = header + 24 + self.number("<H", header + 20)
        self.sections = [struct.unpack_from("<IIII", self.data, first + 40 * i + 8)
                         for i in range(self.number("<H", header + 6))]

    def number(self, form, at):
        return struct.unpack_from(form, self.data, at)[0]

    def position(self, address):
        for size, start, raw_size, raw in self.sections:
            if start <= address < start + max(size, raw_size):
                return address - start + raw
        raise ValueError(f"the address {address:#x} is in no section")

    def imports(self):
        """The names of the imported DLLs, including delay-loaded ones."""
        names = []
        for folder, size, field in ((1, 20, 12), (13, 32, 4)):
            address = self.folders[folder][0]
            at = self.position(address) if address else None
            while at is not None and self.number("<I", at + field):
                name = self.position(self.number("<I", at + field))
                names.append(self.data[name:self.data.index(b"\0", name)].decode("ascii").lower())
                at += size
        return names

    def resource(self, kind):
        """The first resource of a kind, with any name and language."""
        base = self.position(self.folders[2][0]) if self.folders[2][0] else None
        at = base
        for level in range(3):
            if at is None:
                return b""
            named, numbered = struct.unpack_from("<HH", self.data, at + 12)
            entries = [struct.unpack_from("<II", self.data, at + 16 + 8 * i) for i in range(named + numbered)]
            found = [target for key, target in entries if level or key == kind]
            at = base + (found[0] & 0x7FFFFFFF) if found else None
        address, size = struct.unpack_from("<II", self.data, at)
        return self.data[self.position(address):][:size]

    def versions(self):
        """The file version from the numbers, and from the text FileVersion."""
        block = self.resource(16)
        at = block.find(struct.pack("<I", 0xFEEF04BD))
        if at < 0:
            return None, None
        high, low = struct.unpack_from("<II", block, at + 8)
        name = "FileVersion\0".encode("utf-16-le")
        text = block[block.find(name) + len(name):].decode("utf-16-le", "replace").lstrip("\0").split("\0")[0]
        return f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}", text


def faults_of(path, version):
    image = Image(path)
    number, text = image.versions()
    if number is None:
        yield "it has no version resource"
    elif number != version + ".0" or text != version:
        yield f"its version is {number} and its FileVersion is '{text}', expected {version}.0 and '{version}'"
    for bit, what in PROTECTED.items():
        if not image.flags & bit:
            yield f"it lacks: {what}"
    beside = {other.name.lower() for other in path.parent.iterdir()}
    for name in image.imports():
        if name not in OF_WINDOWS and name not in beside:
            yield f"it needs {name}, which is neither in its folder nor a DLL of Windows"


def main(version, names):
    failed = False
    for path in map(pathlib.Path, names):
        for fault in faults_of(path, version):
            print(f"error: {path.name}: {fault}", file=sys.stderr)
            failed = True
    if failed:
        sys.exit(1)
    print(f"== {len(names)} files: version {version}, memory protection, only own DLLs and DLLs of Windows")


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit("usage: windows_pe.py VERSION FILE...")
    main(sys.argv[1], sys.argv[2:])
