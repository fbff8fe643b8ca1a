#!/usr/bin/env python3
"""Fails when a product file includes a header against the direction of the
tree's parts. Each folder may include its own files and those of the folders
listed for it below, nothing else; a quoted include is looked up as the
compiler does (beside the file, then in frame/host). Tests, benchmarks and
examples may include anything and are not read.

Usage: scripts/check-layers.py   (from anywhere; exit 0 clean, 1 otherwise)
"""
import os
import re
import subprocess
import sys

# frame/host declares what the plug-in expects of the host: every part of the
# host implements it, so every part may include it.
HOST_PARTS = ["labhost/text", "labhost/services", "labhost/store", "labhost/runs"]
MAY_INCLUDE = {
    "frame/host": [],
    "frame": ["frame/host"],
    "usage": ["frame/host"],
    "commands": ["frame/host", "frame", "usage"],
    "evaluator": ["frame/host"],
    # The host's library, from the bottom up: store and runs stand side by
    # side and use neither each other nor the root that ties them together.
    "labhost/text": ["frame/host"],
    "labhost/services": ["frame/host", "labhost/text"],
    "labhost/store": ["frame/host", "labhost/text", "labhost/services"],
    "labhost/runs": ["frame/host", "labhost/text", "labhost/services"],
    "labhost": ["frame/host"] + HOST_PARTS,
    "shell": ["frame/host", "labhost"] + HOST_PARTS,
    "shell/builtins": ["frame/host", "labhost", "shell"] + HOST_PARTS,
}

# Includes against the direction that are known and wait for their removal:
# the core units that ask whether a forecast's sandbox is active.
EXCEPTIONS = {
    ("labhost/services/DateTime.cpp", "labhost/HostSandbox.h"),
    ("labhost/services/LogFile.cpp", "labhost/HostSandbox.h"),
    ("labhost/store/UsageLog.cpp", "labhost/HostSandbox.h"),
}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def product_files(top):
    listed = subprocess.run(["git", "ls-files", "--", *MAY_INCLUDE], cwd=top, check=True,
                            capture_output=True, text=True).stdout.split()
    return [path for path in listed if path.endswith((".cpp", ".h"))]


def resolve(top, including, name):
    for folder in (os.path.dirname(including), "frame/host"):
        candidate = os.path.normpath(os.path.join(folder, name))
        if os.path.isfile(os.path.join(top, candidate)):
            return candidate
    return None


def main():
    top = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    problems, used_exceptions = [], set()
    for path in product_files(top):
        folder = os.path.dirname(path)
        if folder not in MAY_INCLUDE:
            problems.append(f"{path}: the folder {folder} is not in the table of parts (scripts/check-layers.py)")
            continue
        with open(os.path.join(top, path), encoding="utf-8") as source:
            for number, line in enumerate(source, 1):
                match = INCLUDE.match(line)
                if not match:
                    continue
                target = resolve(top, path, match.group(1))
                if target is None:
                    problems.append(f"{path}:{number}: \"{match.group(1)}\" is found neither beside it "
                                    "nor in frame/host")
                    continue
                target_folder = os.path.dirname(target)
                if target_folder == folder or target_folder in MAY_INCLUDE[folder]:
                    continue
                if (path, target) in EXCEPTIONS:
                    used_exceptions.add((path, target))
                    continue
                allowed = ", ".join(MAY_INCLUDE[folder]) or "nothing else"
                problems.append(f"{path}:{number}: includes {target}, against the direction "
                                f"({folder} may use {allowed})")
    for path, target in sorted(EXCEPTIONS - used_exceptions):
        problems.append(f"{path}: no longer includes {target}; take it off the exceptions")
    for problem in problems:
        print(problem, file=sys.stderr)
    if problems:
        return 1
    print(f"layers: every include follows the direction ({len(EXCEPTIONS)} known exceptions)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
