"""Checks what the reference says of each public function: check_members.py FOLDER

FOLDER holds Doxygen's XML. Every public function that the headers declare, of a class or of none, must say what it
waits for (@blocking) and which threads may call it (@threads), each once and not with an empty text.
"""
import pathlib
import sys
import xml.etree.ElementTree as tree

PARAGRAPHS = {"Blocking": "@blocking", "Threads": "@threads"}
KINDS = {"class", "struct", "namespace", "file"}


def text_of(element):
    """The words below an element, or below none."""
    return "" if element is None else "".join(element.itertext()).strip()


def told(member, title):
    """What the member's paragraphs of that title say."""
    texts = []
    for section in member.findall("./detaileddescription//simplesect[@kind='par']"):
        if text_of(section.find("title")) == title:
            texts.append(" ".join(text_of(para) for para in section.findall("para")).strip())
    return texts


def faults_of(member, scope):
    """One line per paragraph that the member lacks, or has twice."""
    place = member.find("location")
    name = f"{scope}{text_of(member.find('name'))}{text_of(member.find('argsstring'))}"
    for title, alias in PARAGRAPHS.items():
        texts = told(member, title)
        if len(texts) != 1 or not texts[0]:
            fault = f"has {alias} {len(texts)} times" if len(texts) > 1 else f"has no {alias}{{...}}"
            yield f"{place.get('file')}:{place.get('line')}: {name} {fault}"


def main(folder):
    faults = set()
    members = set()
    classes = set()
    for path in sorted(pathlib.Path(folder).glob("*.xml")):
        for compound in tree.parse(path).getroot().iter("compounddef"):
            if compound.get("kind") not in KINDS:
                continue
            is_scope = compound.get("kind") != "file"
            scope = f"{text_of(compound.find('compoundname'))}::" if is_scope else ""
            for member in compound.iter("memberdef"):
                if member.get("kind") != "function" or member.get("prot") != "public":
                    continue
                # A function of a namespace is listed in its file, too.
                if member.get("id") in members:
                    continue
                members.add(member.get("id"))
                classes.add(scope)
                faults.update(faults_of(member, scope))
    if not members:
        sys.exit(f"error: {folder} tells of no function")
    for fault in sorted(faults):
        print(f"error: {fault}", file=sys.stderr)
    if faults:
        sys.exit(1)
    print(f"== {len(members)} public functions in {len(classes)} scopes, each says whom it waits for and who calls it")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: check_members.py FOLDER")
    main(sys.argv[1])
