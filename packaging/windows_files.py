"""Writes the list of files for the installer: windows_files.py TREE FILE

FILE gets two macros for windows.nsi. InstallFiles installs the files of the tree. RemoveFiles removes the same files and
then the folders that are empty; other files remain.
"""
import pathlib
import sys


def quoted(path):
    """A path below $INSTDIR, quoted for NSIS."""
    return "\\".join(path.parts).replace("$", "$$").replace('"', '$\\"')


def main(tree, target):
    tree = pathlib.Path(tree)
    files = sorted(path.relative_to(tree) for path in tree.rglob("*") if path.is_file())
    if not files:
        sys.exit(f"error: there is no file below {tree}: name the folder of the package")
    folders = sorted({parent for path in files for parent in path.parents if parent.parts})
    lines = ["!macro InstallFiles tree"]
    for folder in [pathlib.Path(), *folders]:
        mine = [path for path in files if path.parent == folder]
        lines.append(f'  SetOutPath "$INSTDIR\\{quoted(folder)}"' if folder.parts else '  SetOutPath "$INSTDIR"')
        lines += [f'  File "${{tree}}/{path.as_posix().replace("$", "$$")}"' for path in mine]
    lines += ["!macroend", "!macro RemoveFiles"]
    lines += [f'  Delete "$INSTDIR\\{quoted(path)}"' for path in files]
    lines += [f'  RMDir "$INSTDIR\\{quoted(folder)}"' for folder in reversed(folders)]
    lines += ["!macroend", ""]
    pathlib.Path(target).write_text("\n".join(lines), encoding="utf-8")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: windows_files.py TREE FILE")
    main(*sys.argv[1:])
