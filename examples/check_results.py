#!/usr/bin/python3
"""Compares what the viewer saw with the solver's own files.

    check_results.py RESULTS HISTORIES REPORT...

RESULTS and HISTORIES are the solver's text files, REPORT what follow_results has written. The text files are read here
in another way and another language than by the recorder, so that both do not share a mistake. Everything is compared
exactly: the numbers of both sides are the same doubles or they are not.

Exit codes: 0 all is equal, 1 something differs, 2 usage.
"""

import struct
import sys
import zlib


def read_increments(file_name):
    """The blocks of temperatures: number, step, time, lowest, highest, mean, checksum of all values."""
    with open(file_name, encoding="latin-1") as file:
        blocks = file.read().split("***NTSYR=")[1:]
    for number, block in enumerate(blocks, start=1):
        head, variable = block.split("***VAR=", 1)
        step = int(head.split()[0])
        time = float(head.split("***TEMPS=")[1].split()[0])
        name, rest = variable.split(None, 1)
        if name != "TEMPERATURE":
            raise ValueError(f"{file_name}: block {number} is of {name}")
        count, text = rest.split("***NB=")[1].split(None, 1)
        values = [float(word) for word in text.split("***", 1)[0].split()]
        if len(values) != int(count):
            raise ValueError(f"{file_name}: block {number} holds {len(values)} of {count} values")
        total = 0.0
        for value in values:
            total += value
        checksum = zlib.crc32(struct.pack(f"<{len(values)}d", *values))
        yield (number, step, time, min(values), max(values), total / len(values), checksum)


def read_histories(file_name):
    """The probes' values: number of the probe in order of appearance, time, temperature."""
    numbers = {}
    with open(file_name, encoding="latin-1") as file:
        for line in file:
            if line.startswith("#"):
                continue
            time, temperature, *place = (float(word) for word in line.split()[:5])
            yield (numbers.setdefault(tuple(place), len(numbers)), time, temperature)


def read_report(file_name):
    increments, probes = [], []
    with open(file_name, encoding="utf-8") as file:
        for line in file:
            kind, *words = line.split()
            if kind == "increment":
                increments.append((int(words[0]), int(words[1]), *map(float, words[2:6]), int(words[6], 16)))
            elif kind == "probe":
                probes.append((int(words[0]), float(words[1]), float(words[2])))
            else:
                raise ValueError(f"{file_name}: unknown line {line!r}")
    return increments, probes


def compare(what, solver, seen):
    """True when both lists are equal and not empty; says where they first differ."""
    for place, (expected, found) in enumerate(zip(solver, seen), start=1):
        if expected != found:
            print(f"DIFFERENT: {what} {place}: the solver's file has {expected}, the viewer saw {found}")
            return False
    if len(solver) != len(seen):
        print(f"DIFFERENT: the solver's file has {len(solver)} x {what}, the viewer saw {len(seen)}")
        return False
    if not solver:
        print(f"DIFFERENT: there is no {what} at all")
        return False
    return True


def main(arguments):
    if len(arguments) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    increments = list(read_increments(arguments[0]))
    probes = list(read_histories(arguments[1]))
    for report in arguments[2:]:
        seen_increments, seen_probes = read_report(report)
        if not (compare("increment", increments, seen_increments) and compare("probe value", probes, seen_probes)):
            return 1
        print(f"{report}: {len(increments)} increments (extremes, mean and checksum of all values) and "
              f"{len(probes)} probe values equal the solver's files")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except (OSError, ValueError, IndexError) as failure:
        print(f"check_results.py: {failure}", file=sys.stderr)
        sys.exit(1)
