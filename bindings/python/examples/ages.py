"""How old are an area's documents? Walks a storage tree and plots their ages.

    python3 ages.py /srv/data docs             (needs matplotlib)
    python3 ages.py /srv/data docs --text
"""

import argparse
import collections

import vu_storage

# %% Arguments

parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
parser.add_argument("root")
parser.add_argument("area", choices=["docs", "user", "mail"])
parser.add_argument("--text", action="store_true", help="print the counts instead of a plot")
arguments = parser.parse_args()

# %% Walk the tree

ages = collections.defaultdict(list)
with vu_storage.Store(arguments.root, adoption=False) as store:
    for owner in store.owners(arguments.area):
        for entry in store.documents(arguments.area, owner, with_info=True):
            if entry.info:
                ages[owner].append(entry.info.age.days)

# %% Show them

if arguments.text:
    for owner, days in sorted(ages.items()):
        print(f"{owner}: {len(days)} documents, the oldest {max(days)} days")
else:
    from matplotlib import pyplot

    pyplot.hist(list(ages.values()), bins=30, stacked=True, label=list(ages))
    pyplot.xlabel("age in days")
    pyplot.ylabel("documents")
    pyplot.legend()
    pyplot.show()
