#!/usr/bin/env python3
"""Summarises results.tsv of run.sh: medians, per-round ratios and targets (Markdown)."""
import statistics
import sys
from collections import defaultdict

WORKER_PAUSE = 1.0  # the removal worker sleeps a second before it starts


def load(path):
    times = defaultdict(dict)  # (kind, contestant, phase) -> {round: seconds}
    for line in open(path):
        r, kind, who, phase, value = line.rstrip("\n").split("\t")
        try:
            times[(kind, who, phase)][int(r)] = float(value)
        except ValueError:
            pass  # failed or timed out: left out, and reported as missing
    return times


def fmt(x):
    return "-" if x is None else "%.2f" % x


def main():
    times = load(sys.argv[1])
    rounds = sorted({r for v in times.values() for r in v})
    median = lambda key: statistics.median(times[key].values()) if times.get(key) else None

    print("## Medians (seconds, %d rounds)\n" % len(rounds))
    print("| Payload | setup.exe install | NSIS install | xcopy (Wine) | xcopy 32-bit | cp (native) | setup.exe removal | NSIS removal |")
    print("|---|---|---|---|---|---|---|---|")
    for kind in ("small", "large", "one"):
        cells = [median((kind, "ours", "install")), median((kind, "nsis", "install")),
                 median((kind, "xcopy", "install")), median((kind, "xcopy32", "install")),
                 median((kind, "cp", "install")),
                 median((kind, "ours", "remove")), median((kind, "nsis", "remove"))]
        print("| %s | %s |" % (kind, " | ".join(fmt(c) for c in cells)))

    ratios = [
        ("install small: setup.exe / NSIS", "small", ("ours", "install"), ("nsis", "install"), 0.0, 1.05),
        ("install large: setup.exe / xcopy", "large", ("ours", "install"), ("xcopy", "install"), 0.0, 1.10),
        ("removal small: (setup.exe - 1 s) / NSIS", "small", ("ours", "remove"), ("nsis", "remove"), WORKER_PAUSE, 1.0),
        ("removal large: (setup.exe - 1 s) / NSIS", "large", ("ours", "remove"), ("nsis", "remove"), WORKER_PAUSE, 1.0),
        ("install small: NSIS / xcopy", "small", ("nsis", "install"), ("xcopy", "install"), 0.0, None),
        ("install large: NSIS / xcopy", "large", ("nsis", "install"), ("xcopy", "install"), 0.0, None),
        ("install large: setup.exe / xcopy 32-bit", "large", ("ours", "install"), ("xcopy32", "install"), 0.0, None),
        ("install one file: setup.exe / xcopy", "one", ("ours", "install"), ("xcopy", "install"), 0.0, None),
        ("install one file: xcopy 32-bit / xcopy", "one", ("xcopy32", "install"), ("xcopy", "install"), 0.0, None),
        ("removal one file: (setup.exe - 1 s) / NSIS", "one", ("ours", "remove"), ("nsis", "remove"), WORKER_PAUSE, None),
    ]
    print("\n## Ratios per round\n")
    print("| Ratio | " + " | ".join("r%d" % r for r in rounds) + " | median | target | met |")
    print("|---|" + "---|" * len(rounds) + "---|---|---|")
    for title, kind, num, den, minus, target in ratios:
        a, b = times.get((kind,) + num, {}), times.get((kind,) + den, {})
        per = {r: (a[r] - minus) / b[r] for r in rounds if r in a and r in b and b[r] > 0}
        if not per:
            continue
        med = statistics.median(per.values())
        met = "" if target is None else ("yes" if med <= target else "NO")
        print("| %s | %s | %s | %s | %s |" % (
            title, " | ".join(fmt(per.get(r)) for r in rounds), fmt(med),
            "-" if target is None else "≤ %.2f" % target, met))

    # What the payload itself costs, each contestant's fixed start-up and
    # registration work taken off: the large payload less the one-file one.
    def payload_only(who):
        large, one = times.get(("large", who, "install"), {}), times.get(("one", who, "install"), {})
        return {r: large[r] - one[r] for r in rounds if r in large and r in one}
    a, b = payload_only("ours"), payload_only("xcopy")
    per = {r: a[r] / b[r] for r in rounds if r in a and r in b and b[r] > 0}
    if per:
        print("| install large less one file: setup.exe / xcopy | %s | %s | - |  |" % (
            " | ".join(fmt(per.get(r)) for r in rounds), fmt(statistics.median(per.values()))))


if __name__ == "__main__":
    main()
