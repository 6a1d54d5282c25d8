# SPDX-License-Identifier: LGPL-2.1-or-later
# Turns the file INPUT into the C++ source OUTPUT that defines the bytes as "bootSector".
file(READ "${INPUT}" hex HEX)
string(REGEX REPLACE "(..)" "0x\\1," bytes "${hex}")
set(name "const unsigned char bootSector[512]")
file(WRITE "${OUTPUT}" "extern ${name};\n${name} = {${bytes}};\n")
