#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""What the library exports is exactly what its installed headers declare, and has the version of its soname.

usage: exports.py LIBRARY VERSION ROOT HEADER... -- COMPILER-OPTION...
"""
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree


def symbols_of(library, version):
    """The mangled names; of a constructor or destructor what it is of, since it has several."""
    names, strangers = set(), []
    listing = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True)
    for line in listing.stdout.splitlines():
        name, _, given = line.split()[-1].partition("@@")
        if name == version:
            continue
        if given != version:
            strangers.append(f"{name} has the version '{given}', not '{version}'")
        if re.match(r"_ZT[VISh]", name):
            continue  # of a class, with its other symbols
        special = re.match(r"_ZN\d+(\w+?)([CD])[0-5]E", name)
        names.add(f"{special[2]} {special[1]}" if special else name)
    return names, strangers


def declarations_in(headers, root, options):
    with tempfile.TemporaryDirectory() as folder:
        everything, tree = folder + "/all.cpp", folder + "/all.xml"
        with open(everything, "w", encoding="utf-8") as file:
            file.writelines(f'#include "{header}"\n' for header in headers)
        subprocess.run(["castxml", "--castxml-output=1", *options, everything, "-o", tree], check=True)
        elements = ElementTree.parse(tree).getroot()
    ours = {os.path.join(root, header) for header in headers}
    files = {file.get("id") for file in elements.iter("File") if os.path.abspath(file.get("name")) in ours}
    names = set()
    for element in elements:
        if element.get("file") not in files or element.get("init") or element.get("name") == "qt_static_metacall":
            continue
        if any(element.get(what) == "1" for what in ("inline", "artificial", "pure_virtual", "deleted")):
            continue
        if element.tag in ("Constructor", "Destructor"):
            names.add(f"{element.tag[0]} {element.get('name')}")
        elif element.tag in ("Function", "Method", "OperatorMethod", "Variable"):
            names.add(element.get("mangled") or element.get("name"))
    return names


def main():
    library, version, root = sys.argv[1:4]
    end = sys.argv.index("--")
    exported, trouble = symbols_of(library, version)
    declared = declarations_in(sys.argv[4:end], root, sys.argv[end + 1:])
    if len(declared) < 100:
        trouble.append(f"only {len(declared)} declarations were found")
    trouble += [f"declared, and not exported: {name}" for name in sorted(declared - exported)]
    trouble += [f"exported, and not declared: {name}" for name in sorted(exported - declared)]
    print("\n".join(trouble) or f"{len(exported)} symbols, as declared")
    sys.exit(bool(trouble))


main()
