"""Checks what Doxygen wrote: check.py SITE XML

SITE is the folder of HTML pages: its links. XML is the folder of Doxygen's XML: the documentation of each function.
"""
import html.parser
import pathlib
import sys
import urllib.parse
import xml.etree.ElementTree as tree

# ---- links -------------------------------------------------------------------------------------------


class Page(html.parser.HTMLParser):
    """The links and the anchors of one page."""

    def __init__(self, path):
        super().__init__()
        self.links = []
        self.needs = []
        self.anchors = set()
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if value is None:
                continue
            if name == "id" or (tag == "a" and name == "name"):
                self.anchors.add(value)
            elif tag == "a" and name == "href":
                self.links.append(value)
            elif name == "src" or (tag == "link" and name == "href"):
                self.needs.append(value)


def check_links(folder):
    """Every link to a page, anchor, picture, style or script must have its target in the folder, so that the site opens
    offline. Links to the network are allowed, but no page may load anything from there.
    """
    root = pathlib.Path(folder).resolve()
    pages = {path: Page(path) for path in sorted(root.rglob("*.html"))}
    if root / "index.html" not in pages:
        sys.exit(f"error: {folder} contains no index.html")
    faults = []
    count = 0
    for path, page in pages.items():
        for link in page.links + page.needs:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme == "javascript":
                continue
            count += 1
            if parts.scheme or parts.netloc:
                if link in page.needs:
                    faults.append(f"{path.name}: needs {link} from the network")
                continue
            target = path if not parts.path else (path.parent / urllib.parse.unquote(parts.path)).resolve()
            if not target.exists():
                faults.append(f"{path.name}: {link}: there is no such file")
            elif parts.fragment and target in pages and parts.fragment not in pages[target].anchors:
                faults.append(f"{path.name}: {link}: there is no such anchor")
    if not list(root.glob("search/all_*.js")):
        faults.append("the search has no index")
    for fault in faults:
        print(f"error: {fault}", file=sys.stderr)
    if faults:
        sys.exit(1)
    print(f"== {len(pages)} pages, {count} links, none of them broken: {root / 'index.html'}")


# ---- members -----------------------------------------------------------------------------------------

TITLES = {"Blocking": "blocking", "Threads": "threads"}
OF_CLASS = "{}, unless a member says otherwise"
CLASSES = {"class", "struct"}
OTHERS = {"namespace", "file"}


def text_of(element):
    """The words below an element; nothing if there is no element."""
    return "" if element is None else " ".join("".join(element.itertext()).split())


def told(documented, title):
    """The texts of the paragraphs with that title."""
    texts = []
    for section in documented.findall("./detaileddescription//simplesect[@kind='par']"):
        if text_of(section.find("title")) == title:
            texts.append(" ".join(text_of(para) for para in section.findall("para")).strip())
    return texts


def fault_of(texts, alias, needed, of_class=None):
    """The fault of the paragraphs with one title, or None."""
    if len(texts) > 1:
        return f"has {alias} {len(texts)} times"
    if not texts:
        return f"has no {alias}{{...}}" if needed else None
    if not texts[0]:
        return f"has an empty {alias}"
    return f"repeats the {alias} of its class" if texts[0] == of_class else None


def place_of(documented):
    place = documented.find("location")
    return f"{place.get('file')}:{place.get('line')}"


def faults_of(compound, functions):
    """Yields one line per fault of a class, namespace or file and its functions."""
    name = text_of(compound.find("compoundname"))
    is_class = compound.get("kind") in CLASSES
    for title, alias in TITLES.items():
        of_class = told(compound, OF_CLASS.format(title)) if is_class else []
        if is_class:
            fault = fault_of(of_class, f"@all_{alias}", needed=True)
            if fault:
                yield f"{place_of(compound)}: {name} {fault}"
        for member in functions:
            fault = fault_of(told(member, title), f"@{alias}", not is_class, of_class[0] if of_class else None)
            if fault:
                of_member = f"{text_of(member.find('name'))}{text_of(member.find('argsstring'))}"
                scope = "" if compound.get("kind") == "file" else f"{name}::"
                yield f"{place_of(member)}: {scope}{of_member} {fault}"


def check_members(folder):
    """The reference must say for every public function what it waits for and which threads may call it. A class says it
    once for all of its functions (@all_blocking, @all_threads). A member function says it only where it differs
    (@blocking, @threads). Each function outside a class says it itself. No text may be empty, appear twice, or repeat
    the text of the class.
    """
    faults = set()
    members = set()
    scopes = 0
    for path in sorted(pathlib.Path(folder).glob("*.xml")):
        for compound in tree.parse(path).getroot().iter("compounddef"):
            if compound.get("kind") not in CLASSES | OTHERS:
                continue
            functions = [
                member
                for member in compound.iter("memberdef")
                if member.get("kind") == "function" and member.get("prot") == "public"
                # Doxygen lists a function of a namespace in its file as well.
                and member.get("id") not in members
            ]
            if not functions:
                continue
            scopes += 1
            members.update(member.get("id") for member in functions)
            faults.update(faults_of(compound, functions))
    if not members:
        sys.exit(f"error: {folder} contains no function")
    for fault in sorted(faults):
        print(f"error: {fault}", file=sys.stderr)
    if faults:
        sys.exit(1)
    print(f"== {len(members)} public functions in {scopes} scopes: each says what it waits for and who may call it")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: check.py SITE XML")
    check_links(sys.argv[1])
    check_members(sys.argv[2])
