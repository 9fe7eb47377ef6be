"""Resolves names on a list of folders with Python's own import machinery, for comparison.

Each folder gets an importlib.machinery.FileFinder for the language's extensions, and a name
resolves, as on sys.path, to the first folder whose finder finds it. Prints one JSON object:
the median time per lookup of the hits and of the misses, and the folder index each hit
resolved to (so that the caller can check both sides gave the same answers).

  python3 filefinder_baseline.py --folders F --hits H --misses M --repetitions R
"""

import argparse
import json
import statistics
import time
from importlib.machinery import FileFinder, SourceFileLoader

EXTENSIONS = [".vlx", ".vlp", ".vl"]


def read_lines(path):
    with open(path, "rb") as f:
        return [line.rstrip(b"\n").decode("utf-8", "surrogateescape") for line in f if line.strip()]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--folders", required=True)
    parser.add_argument("--hits", required=True)
    parser.add_argument("--misses", required=True)
    parser.add_argument("--repetitions", type=int, default=3)
    args = parser.parse_args()

    folders = read_lines(args.folders)
    hits = read_lines(args.hits)
    misses = read_lines(args.misses)
    finders = [FileFinder(folder, (SourceFileLoader, EXTENSIONS)) for folder in folders]

    def resolve(name):
        for index, finder in enumerate(finders):
            if finder.find_spec(name) is not None:
                return index
        return -1

    # The first lookup in each folder reads its listing; time the warm state, as a running
    # interpreter has it.
    answers = [resolve(name) for name in hits]
    for name in misses:
        resolve(name)

    def per_lookup(names):
        samples = []
        for _ in range(args.repetitions):
            start = time.perf_counter_ns()
            for name in names:
                resolve(name)
            samples.append((time.perf_counter_ns() - start) / max(1, len(names)))
        return statistics.median(samples)

    print(json.dumps({
        "hit_ns": per_lookup(hits),
        "miss_ns": per_lookup(misses),
        "answers": answers,
    }))


if __name__ == "__main__":
    main()
