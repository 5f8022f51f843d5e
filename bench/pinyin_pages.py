#!/usr/bin/env python3
"""How far users page for a character: figures for one or more pinyin tables.

Usage: bench/pinyin_pages.py [TABLE ...] [--unihan DIR]

TABLE is a generated pinyintable_data.cpp, or git:REV for the one committed at
REV (git:main); the default is the working tree's.  Every character is weighted
by how often it occurs, the kHanyuPinlu counts over all its readings that
tools/pinyin/gen_pinyin_table.py orders the rows by; characters without a
count do not weigh.  The page size is the number of candidate buttons
(hzBtn*) on the keyboard's form.  Printed per table: the share of occurrences
offered on the first page, the share offered first, and the mean number of
page-down taps before the character shows.
"""

import argparse
import os
import re
import subprocess
import sys

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
TABLE = "src/keyboard/pinyintable_data.cpp"
sys.path.insert(0, os.path.join(ROOT, "tools", "pinyin"))
import gen_pinyin_table  # noqa: E402


def read_table(source):
    if source.startswith("git:"):
        return subprocess.run(["git", "-C", ROOT, "show", "%s:%s" % (source[4:], TABLE)],
                              check=True, capture_output=True, text=True).stdout
    with open(source, encoding="utf-8") as f:
        return f.read()


def rows(source):
    """{syllable: candidates} decoded from the GB2312 escapes of a generated table."""
    out = {}
    for key, literals in re.findall(r'\{"([a-z]+)", ((?:"[^"]*"\s*)+)\}', source):
        raw = bytes(int(h, 16) for h in re.findall(r"\\x([0-9a-f]{2})", literals))
        out[key] = raw.decode("gb2312")
    return out


def page_size():
    with open(os.path.join(ROOT, "src/keyboard/qwskeyboardwidget.ui"), encoding="utf-8") as f:
        return len(set(re.findall(r'name="(hzBtn\d+)"', f.read())))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("tables", nargs="*", default=[os.path.join(ROOT, TABLE)])
    parser.add_argument("--unihan", default="/usr/share/unicode")
    args = parser.parse_args()
    data = gen_pinyin_table.Unihan(args.unihan)
    n = page_size()
    print("page size %d (candidate buttons on the form)" % n)
    for source in args.tables:
        table = rows(read_table(source))
        total = first_page = first = taps = 0
        for candidates in table.values():
            for position, ch in enumerate(candidates):
                count = data.count(ord(ch))
                total += count
                first_page += count if position < n else 0
                first += count if position == 0 else 0
                taps += count * (position // n)
        print("%s: %d rows, %d occurrences; on the first page %.2f%%, offered first %.2f%%, "
              "page-down taps per character %.4f"
              % (source, len(table), total, 100.0 * first_page / total, 100.0 * first / total,
                 taps / total))


if __name__ == "__main__":
    main()
