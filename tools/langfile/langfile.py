#!/usr/bin/env python3
"""Makes a user-interface language file ("lang_<code>.bin") from a readable text file.

The text file is UTF-8 with one text a line, "<string id> = <text>"; blank lines and lines
starting with "#" are skipped. In the text, \\n, \\r, \\t and \\\\ stand for a line feed, a carriage
return, a tab and a backslash; blanks around the "=" are not part of the text. Every id may appear
once. The binary layout is described in common/LanguageFile.h.

    langfile.py INPUT.txt OUTPUT.bin [--cover Talvorn.rc resource.h]

With --cover the tool also fails when a string of the resource script other than the
registration names is missing from the text file, so that a shipped language covers every text.
"""

import re
import struct
import sys

MAGIC = b"TDLF"
VERSION = 1
HEADER_SIZE = 16
ENTRY_SIZE = 12
MAX_SIZE = 1024 * 1024
# Class names and ProgIDs are registered, never shown: a language file does not translate them.
NOT_SHOWN = {"IDS_ADDIN_PROGID", "IDS_ADDIN_NAME", "IDS_CONNECTOR_PROGID", "IDS_CONNECTOR_NAME"}
ESCAPES = {"n": "\n", "r": "\r", "t": "\t", "\\": "\\"}


def unescape(text, where):
    out = []
    i = 0
    while i < len(text):
        c = text[i]
        if c == "\\":
            if i + 1 >= len(text) or text[i + 1] not in ESCAPES:
                raise ValueError(f"{where}: unknown escape in {text!r}")
            out.append(ESCAPES[text[i + 1]])
            i += 2
        else:
            out.append(c)
            i += 1
    return "".join(out)


def read_texts(path):
    texts = {}
    with open(path, encoding="utf-8-sig") as source:
        for number, line in enumerate(source, 1):
            line = line.rstrip("\r\n")
            if not line.strip() or line.lstrip().startswith("#"):
                continue
            where = f"{path}:{number}"
            key, sep, text = line.partition("=")
            if not sep or not key.strip().isdigit():
                raise ValueError(f"{where}: expected '<id> = <text>'")
            string_id = int(key.strip())
            if string_id > 0xFFFF:
                raise ValueError(f"{where}: id {string_id} out of range")
            if string_id in texts:
                raise ValueError(f"{where}: id {string_id} given twice")
            texts[string_id] = unescape(text.strip(), where)
    return texts


def encode(texts):
    ids = sorted(texts)
    encoded = [texts[i].encode("utf-16-le") for i in ids]
    offset = HEADER_SIZE + ENTRY_SIZE * len(ids)
    entries = b""
    for string_id, data in zip(ids, encoded):
        entries += struct.pack("<III", string_id, offset, len(data) // 2)
        offset += len(data)
    size = offset
    if size > MAX_SIZE:
        raise ValueError(f"language file of {size} bytes is larger than {MAX_SIZE}")
    header = MAGIC + struct.pack("<HHII", VERSION, HEADER_SIZE, len(ids), size)
    return header + entries + b"".join(encoded)


def shown_string_ids(script, header):
    with open(header, encoding="utf-8") as source:
        numbers = dict(re.findall(r"#define\s+(IDS_\w+)\s+(\d+)", source.read()))
    with open(script, encoding="utf-8") as source:
        content = source.read()
    table = re.search(r"STRINGTABLE\s+BEGIN(.*?)\nEND", content, re.S).group(1)
    names = re.findall(r"^\s*(IDS_\w+)\s", table, re.M)
    return {name: int(numbers[name]) for name in names if name not in NOT_SHOWN}


def main(argv):
    if len(argv) not in (3, 6) or (len(argv) == 6 and argv[3] != "--cover"):
        print(__doc__, file=sys.stderr)
        return 2
    try:
        texts = read_texts(argv[1])
        if len(argv) == 6:
            missing = [name for name, number in shown_string_ids(argv[4], argv[5]).items()
                       if number not in texts]
            if missing:
                raise ValueError(f"{argv[1]} lacks {', '.join(sorted(missing))}")
        data = encode(texts)
    except (OSError, ValueError) as error:
        print(f"langfile: {error}", file=sys.stderr)
        return 1
    with open(argv[2], "wb") as out:
        out.write(data)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
