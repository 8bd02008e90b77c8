"""Checks a folder of HTML pages: check_links.py FOLDER

Every link to a page, anchor, picture, style or script must have its target in the folder, so that the site opens
offline. Links to the network are allowed, but no page may load anything from there.
"""
import html.parser
import pathlib
import sys
import urllib.parse


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


def main(folder):
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


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: check_links.py FOLDER")
    main(sys.argv[1])
