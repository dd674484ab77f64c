#!/usr/bin/env python3
"""The include arrows between the framework's folders, checked against its layers.

Each folder of ZQCore/ is a layer; a file may include its own folder and the layers below it,
never one above. Prints every arrow between two folders (with how many includes make it) and
fails on an arrow that runs upward, naming the files. `--quiet` prints only what is wrong.

Run by `make test`.
"""

import re
import sys
from collections import defaultdict
from pathlib import Path

# Bottom to top. A loader (reader, artwork, sqlite, medialibrary) takes the device's files and
# gives plain contents; it never reaches the device layer. The umbrella header ZQCore/ZQCore.h
# stands above every folder.
LAYERS = ["foundation", "files", "model", "reader", "artwork", "sqlite", "medialibrary", "device", "afc"]
UMBRELLA = "(umbrella)"

# Arrows that run upward today, each with the reason it is still there. Anything else upward
# fails the check, and so does an allowance that is no longer needed.
KNOWN_UPWARD = {
    ("model", "artwork"): "a track without artwork of its own answers the shared no-artwork picture "
                          "(AlbumArt::noAlbumArtInstance); AlbumArt and AlbumArtRep belong in the model "
                          "once the thumbnail record they parse moves out of them",
    ("device", "afc"): "ZQCore (device/ZQCore.{h,cpp}), the discovery facade, watches phones as well "
                       "as volumes and keeps the registry of loaded libraries that both ZQCoreiPod "
                       "and AFCiPod use",
}

INCLUDE = re.compile(r'^\s*#\s*include\s+"ZQCore/([^"/]+)/')


def layer_of(path: Path, root: Path) -> str:
    parts = path.relative_to(root).parts
    return parts[0] if len(parts) > 1 else UMBRELLA


def main() -> int:
    quiet = "--quiet" in sys.argv
    repo = Path(__file__).resolve().parent.parent
    root = repo / "ZQCore"
    rank = {name: i for i, name in enumerate(LAYERS)}
    rank[UMBRELLA] = len(LAYERS)

    arrows = defaultdict(list)
    unknown = set()
    for path in sorted(root.rglob("*")):
        if path.suffix not in (".h", ".cpp") or not path.is_file():
            continue
        source = layer_of(path, root)
        if source not in rank:
            unknown.add(source)
            continue
        for line in path.read_text(encoding="utf-8", errors="replace").splitlines():
            match = INCLUDE.match(line)
            if not match or match.group(1) == source:
                continue
            arrows[(source, match.group(1))].append(str(path.relative_to(repo)))

    failures = []
    for name in sorted(unknown | {target for _, target in arrows if target not in rank}):
        failures.append(f"folder ZQCore/{name} is in no layer: add it to LAYERS in {Path(__file__).name}")
    upward = set()
    for (source, target), files in sorted(arrows.items(), key=lambda a: (rank.get(a[0][0], 99), a[0][1])):
        if target not in rank:
            continue
        up = rank[target] > rank[source]
        if not quiet:
            mark = "UP " if up else "   "
            print(f"{mark}{source} -> {target} ({len(files)})")
        if up:
            upward.add((source, target))
            if (source, target) not in KNOWN_UPWARD:
                failures.append(f"{source} -> {target} runs upward: " + ", ".join(sorted(set(files))))
    for arrow, why in KNOWN_UPWARD.items():
        if arrow not in upward:
            failures.append(f"{arrow[0]} -> {arrow[1]} is allowed upward but no longer occurs: drop it from KNOWN_UPWARD")
        elif not quiet:
            print(f"(allowed for now: {arrow[0]} -> {arrow[1]}: {why})")
    if not quiet and not failures:
        print("check-layers: no arrow runs upward beyond those allowed")

    for failure in failures:
        print("check-layers: " + failure, file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
