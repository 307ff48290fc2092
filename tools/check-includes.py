#!/usr/bin/env python3
"""Checks the include direction between the source folders.

Fails when a file under core/ includes a header of another folder, or when the
graph of folder includes has a cycle. With --matrix, prints who includes whom.
"""
import re
import sys
from pathlib import Path

# Matrix order: the ground first, the composition root last; a folder not named
# here is still checked.
ORDER = ["core", "infrared", "remotes", "learning", "climate", "scenes", "webserver", "tls", "webpages", "reservations",
         "reachability", "power", "camera", "exchange", "setup", "desktop", "app"]
NOT_SOURCE = {"tests", "bench", "tools", "data", "dist", "docs", "build"}
ROOT = Path(__file__).resolve().parent.parent
FOLDERS = [f for f in ORDER if (ROOT / f).is_dir()] + sorted(
    d.name for d in ROOT.iterdir()
    if d.is_dir() and d.name not in ORDER and d.name not in NOT_SOURCE
    and not d.name.startswith((".", "build")) and any(d.glob("*.cpp")))
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"/]+)/[^"]+"', re.M)


def graph(root):
    edges = {}
    for folder in FOLDERS:
        for f in sorted((root / folder).rglob("*")) if (root / folder).is_dir() else []:
            if f.suffix not in (".h", ".cpp"):
                continue
            for target in INCLUDE.findall(f.read_text(errors="replace")):
                if target != folder and target in FOLDERS:
                    edges.setdefault(folder, {}).setdefault(target, []).append(
                        str(f.relative_to(root)))
    return edges


def cycles(edges):
    found, state = [], {}

    def visit(node, path):
        state[node] = 1
        for nxt in sorted(edges.get(node, {})):
            if state.get(nxt) == 1:
                found.append(path[path.index(nxt):] + [nxt] if nxt in path else [node, nxt])
            elif not state.get(nxt):
                visit(nxt, path + [nxt])
        state[node] = 2

    for node in sorted(edges):
        if not state.get(node):
            visit(node, [node])
    return found


def main():
    root = ROOT
    edges = graph(root)
    present = [f for f in FOLDERS if (root / f).is_dir()]
    if "--matrix" in sys.argv:
        width = max(len(f) for f in present)
        print(" " * (width + 1) + " ".join(f[:4].ljust(4) for f in present))
        for a in present:
            row = ["  x " if b in edges.get(a, {}) else "  . " for b in present]
            print(a.ljust(width + 1) + " ".join(row))
    bad = 0
    for target, files in sorted(edges.get("core", {}).items()):
        print(f"core/ includes {target}/: {', '.join(sorted(set(files)))}")
        bad += 1
    for cycle in cycles(edges):
        print("include cycle: " + " -> ".join(cycle))
        bad += 1
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
