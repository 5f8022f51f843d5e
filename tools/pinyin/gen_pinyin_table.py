#!/usr/bin/env python3
"""Write the soft keyboard's pinyin table from the Unihan database.

Usage: gen_pinyin_table.py [--unihan DIR] [--output FILE]

Reads Debian's unicode-data files (Unihan_Readings, Unihan_OtherMappings,
Unihan_IRGSources, all .txt.bz2) and writes src/keyboard/pinyintable_data.cpp,
which is committed: the normal build never runs this script.
bench/pinyin_pages.py imports it for the same character counts.

How a character finds its row (every GB2312 level-1 character goes into
exactly one row, plus the one level-2 character of EXTRA_CHARACTERS):
  1. The eight PINNED_ROWS are written out by hand and stay as they are;
     their characters go nowhere else and no other character joins them.
  2. Otherwise the reading used most in modern Chinese, from kHanyuPinlu
     (counts from the Xiandai Hanyu Pinlu Cidian).  The keyboard does not
     type tones, so the counts of readings that differ only in tone are
     added up first (是 shì 27098 + shi 1032 is 28130 for "shi").  Readings
     that are no key ("lia") or a pinned row ("de" for 地) are passed over
     for the next most used one.
  3. Without a usable kHanyuPinlu reading: the customary reading, the first
     usable kMandarin one.
  4. Without either: the row it had before counts were used.  That is a monotonic
     walk along GB2312 order (level 1 is sorted by pinyin) choosing one of
     the character's Unihan readings, preferring kMandarin ones, plus the
     few placements by hand in SYLLABLE_OVERRIDES.  GB2312 collates
     u-umlaut next to u (lu, lv, luan, lue, lun, luo), and so does the walk.
  5. READING_FIXES and KEEP_IN_ROW correct the few cases where the rules
     above go wrong or would leave a row empty; each says why.

How a row is ordered: characters with a count come first, most used first,
by the character's count over all its readings (it sits in one row only, so
every use of it is picked there); equal counts keep the order below.
Characters without a count follow in the order the table has always had:
by tone under the row's syllable (neutral last), then by total stroke
count, then by code point.

The table is stored as GB2312 bytes; each row carries its UTF-8 text as a
comment for review.
"""

import argparse
import bz2
import collections
import os
import re
import sys
import unicodedata

# The syllables the keyboard knows, in strcmp order (u-umlaut is spelt "v";
# "lue" and "nue" keep the "u").
SYLLABLES = """
a ai an ang ao ba bai ban bang bao bei ben beng bi bian biao bie bin bing bo bu ca cai can
cang cao ce ceng cha chai chan chang chao che chen cheng chi chong chou chu chuai chuan chuang
chui chun chuo ci cong cou cu cuan cui cun cuo da dai dan dang dao de deng di dian diao die
ding diu dong dou du duan dui dun duo e en er fa fan fang fei fen feng fo fou fu ga gai gan
gang gao ge gei gen geng gong gou gu gua guai guan guang gui gun guo ha hai han hang hao he
hei hen heng hong hou hu hua huai huan huang hui hun huo ji jia jian jiang jiao jie jin jing
jiong jiu ju juan jue jun ka kai kan kang kao ke ken keng kong kou ku kua kuai kuan kuang kui
kun kuo la lai lan lang lao le lei leng li lian liang liao lie lin ling liu long lou lu luan
lue lun luo lv ma mai man mang mao me mei men meng mi mian miao mie min ming miu mo mou mu na
nai nan nang nao ne nei nen neng ni nian niang niao nie nin ning niu nong nu nuan nue nuo nv
o ou pa pai pan pang pao pei pen peng pi pian piao pie pin ping po pou pu qi qia qian qiang
qiao qie qin qing qiong qiu qu quan que qun ran rang rao re ren reng ri rong rou ru ruan rui
run ruo sa sai san sang sao se sen seng sha shai shan shang shao she shen sheng shi shou shu
shua shuai shuan shuang shui shun shuo si song sou su suan sui sun suo ta tai tan tang tao te
teng ti tian tiao tie ting tong tou tu tuan tui tun tuo wa wai wan wang wei wen weng wo wu xi
xia xian xiang xiao xie xin xing xiong xiu xu xuan xue xun ya yan yang yao ye yi yin ying yo
yong you yu yuan yue yun za zai zan zang zao ze zei zen zeng zha zhai zhan zhang zhao zhe zhen
zheng zhi zhong zhou zhu zhua zhuai zhuan zhuang zhui zhun zhuo zi zong zou zu zuan zui zun
zuo
""".split()

# Characters whose GB2312 position would put them under a syllable that is
# not the one people type for them.
SYLLABLE_OVERRIDES = {
    # GB2312 files it under "lia", a syllable the keyboard does not offer;
    # its other reading liang (as in "a couple") is the one that remains.
    "俩": "liang",
    # Sorted among the chuang characters (chuang2, a banner), but almost
    # always typed as zhuang4, the measure word for buildings.
    "幢": "zhuang",
    # Sorted among the zuo characters (zuo4, the oak); the place-name
    # reading zha4 keeps the zuo row to the seven common characters.
    "柞": "zha",
}

# The one level-2 character in the table: 叽 (ji1) is common in
# onomatopoeia (叽叽喳喳, 叽里咕噜) and has no level-1 stand-in.
EXTRA_CHARACTERS = {"叽": "ji"}

# Rows that users know by heart and pick from by position: written out here
# and kept exactly, whatever the counts say.  So 的 stays third under "de",
# and characters whose most used reading is a pinned row go to their next
# one: 地 (de 7394, di 4976) to "di", 呵 (a 392, he 64) to "he"; 琢 (zuo),
# 貉 (hao) and 幢 (chuang) keep the rows they had.
PINNED_ROWS = {
    "a": "啊阿",
    "o": "哦",
    "de": "得德的",
    "ni": "妮尼泥倪霓你拟逆匿溺腻",
    "hao": "毫豪嚎壕好郝号浩耗",
    "lv": "滤驴吕侣旅铝屡缕履律虑率绿氯",
    "chuang": "闯疮窗床创",
    "zuo": "昨左佐作坐座做",
}

# Readings given by hand where the Unihan data mislead; of the character's
# kHanyuPinlu counts only those of that reading are kept.
READING_FIXES = {
    # kHanyuPinlu and kMandarin give 著 the readings and the very counts of
    # 着 (zhe 10643, ...), whose traditional form it also is; in simplified
    # text, the only kind the keyboard writes, 著 is zhu4 (著名, 著作), and
    # zhu4 275 is the count that belongs to it.
    "著": "zhu",
}

# Characters kept in a row that would otherwise be left empty.  "fo": 佛 is
# the only level-1 character read fo2, but kHanyuPinlu counts it only as fu2
# (仿佛), which would take it to "fu"; it stays the one candidate of "fo".
KEEP_IN_ROW = {"佛": "fo"}

TONE_MARKS = {}
for base, marks in (("a", "āáǎà"), ("e", "ēéěè"), ("i", "īíǐì"), ("o", "ōóǒò"),
                    ("u", "ūúǔù"), ("v", "ǖǘǚǜ"), ("n", "\0ńňǹ"), ("m", "\0ḿ\0\0")):
    for tone, mark in enumerate(marks, 1):
        if mark != "\0":
            TONE_MARKS[mark] = (base, tone)


def toneless(reading):
    """Return (syllable as the keyboard spells it, tone 1-5) for one Unihan reading."""
    text, tone = "", 5
    for ch in unicodedata.normalize("NFC", reading):
        if ch in TONE_MARKS:
            base, tone = TONE_MARKS[ch]
            text += base
        elif ch == "ü":
            text += "v"
        else:
            text += ch
    # Leftover combining marks (ê with a tone) only decorate the vowel.
    text = "".join(c for c in unicodedata.normalize("NFD", text)
                   if unicodedata.category(c) != "Mn")
    return {"lve": "lue", "nve": "nue"}.get(text, text), tone


def read_fields(path, wanted):
    fields = collections.defaultdict(dict)
    with bz2.open(path, "rt", encoding="utf-8") as f:
        for line in f:
            if line.startswith("#") or not line.strip():
                continue
            cp, key, value = line.rstrip("\n").split("\t", 2)
            if key in wanted:
                fields[key][int(cp[2:], 16)] = value
    return fields


def read_copyright_year(path):
    with bz2.open(path, "rt", encoding="utf-8") as f:
        for line in f:
            m = re.match(r"# © (\d{4}) Unicode", line)
            if m:
                return m.group(1)
            if not line.startswith("#"):
                break
    return "2022"


class Unihan:
    def __init__(self, directory):
        join = lambda name: os.path.join(directory, name)
        gb = read_fields(join("Unihan_OtherMappings.txt.bz2"), {"kGB0"})["kGB0"]
        self.readings_raw = read_fields(
            join("Unihan_Readings.txt.bz2"),
            {"kMandarin", "kHanyuPinlu", "kXHC1983", "kTGHZ2013", "kHanyuPinyin"})
        self.strokes = read_fields(join("Unihan_IRGSources.txt.bz2"),
                                   {"kTotalStrokes"})["kTotalStrokes"]
        self.year = read_copyright_year(join("Unihan_Readings.txt.bz2"))
        by_position = {int(pos): cp for cp, pos in gb.items()}
        # Level 1 is rows 16 to 55 of GB2312, level 2 rows 56 to 87.
        self.level1 = [by_position[p] for p in sorted(by_position) if 1601 <= p <= 5594]
        self.level2 = {by_position[p] for p in by_position if 5601 <= p <= 8794}

    def readings(self, cp):
        """All (syllable, tone) readings, the primary and most frequent first."""
        r = self.readings_raw
        out = []
        if cp in r["kMandarin"]:
            out += r["kMandarin"][cp].split()
        if cp in r["kHanyuPinlu"]:
            out += [re.sub(r"\(\d+\)", "", x) for x in r["kHanyuPinlu"][cp].split()]
        for key in ("kXHC1983", "kTGHZ2013"):
            if cp in r[key]:
                out += [x.split(":")[1] for x in r[key][cp].split()]
        if cp in r["kHanyuPinyin"]:
            for x in r["kHanyuPinyin"][cp].split():
                out += x.split(":")[1].split(",")
        return [toneless(x) for x in out]

    def syllable_counts(self, cp):
        """kHanyuPinlu counts per toneless syllable (tones added up), as a Counter."""
        counts = collections.Counter()
        for entry in self.readings_raw["kHanyuPinlu"].get(cp, "").split():
            reading, count = re.fullmatch(r"(.+)\((\d+)\)", entry).groups()
            counts[toneless(reading)[0]] += int(count)
        fixed = READING_FIXES.get(chr(cp))
        return collections.Counter({fixed: counts[fixed]}) if fixed else counts

    def count(self, cp):
        """How often the character occurs, over all its readings; 0 when unknown."""
        return sum(self.syllable_counts(cp).values())

    def primary(self, cp):
        rs = self.readings_raw["kMandarin"].get(cp)
        return toneless(rs.split()[0])[0] if rs else None

    def tone_under(self, cp, syllable):
        for s, tone in self.readings(cp):
            if s == syllable:
                return tone
        return 5

    def stroke_count(self, cp):
        return int(self.strokes.get(cp, "99").split()[0])


def assign_syllables(data, level1):
    """Monotonic walk along GB2312 order; returns {code point: syllable}."""
    collated = sorted(SYLLABLES, key=lambda s: (s.replace("v", "u"), s))
    n = len(collated)
    impossible = -10**9
    score = [0] * n
    back = []
    for cp in level1:
        primary = data.primary(cp)
        known = {s for s, _ in data.readings(cp)}
        best, best_at, prefix = impossible, -1, []
        for j in range(n):
            if score[j] > best:
                best, best_at = score[j], j
            prefix.append((best, best_at))
        new, links = [impossible] * n, [-1] * n
        for j, syllable in enumerate(collated):
            if syllable == primary:
                weight = 2
            elif syllable in known:
                weight = 1
            else:
                continue
            if prefix[j][0] > impossible:
                new[j], links[j] = prefix[j][0] + weight, prefix[j][1]
        back.append(links)
        score = new
    j = max(range(n), key=lambda k: score[k])
    if score[j] <= impossible:
        sys.exit("no monotonic assignment of level-1 characters exists")
    result = {}
    for i in range(len(level1) - 1, -1, -1):
        result[level1[i]] = collated[j]
        j = back[i][j]
    return result


def former_syllables(data):
    """The row of every character before counts were used: {code point: syllable}."""
    overridden = {ord(c) for c in SYLLABLE_OVERRIDES}
    walk = [cp for cp in data.level1 if cp not in overridden]
    syllable_of = assign_syllables(data, walk)
    for ch, syllable in list(SYLLABLE_OVERRIDES.items()) + list(EXTRA_CHARACTERS.items()):
        syllable_of[ord(ch)] = syllable
    return syllable_of


def choose_syllable(data, cp, former):
    """(syllable, where it came from) for one character outside the pinned rows."""
    usable = lambda s: s in SYLLABLES and s not in PINNED_ROWS
    ch = chr(cp)
    if ch in KEEP_IN_ROW:
        return KEEP_IN_ROW[ch], "kept"
    if ch in READING_FIXES:
        return READING_FIXES[ch], "fixed"
    for syllable, _ in data.syllable_counts(cp).most_common():
        if usable(syllable):
            return syllable, "kHanyuPinlu"
    for reading in data.readings_raw["kMandarin"].get(cp, "").split():
        if usable(toneless(reading)[0]):
            return toneless(reading)[0], "kMandarin"
    assert usable(former), "%s has no usable reading" % ch
    return former, "former"


def former_order(data, syllable):
    return lambda cp: (data.tone_under(cp, syllable), data.stroke_count(cp), cp)


def build_rows(data):
    """{syllable: [code points]} and {source: number of characters filed from it}."""
    former = former_syllables(data)
    rows = {s: [] for s in SYLLABLES}
    sources = collections.Counter()
    pinned = {}
    for syllable, text in PINNED_ROWS.items():
        rows[syllable] = [ord(c) for c in text]
        pinned.update((ord(c), syllable) for c in text)
        sources["pinned"] += len(text)
    for cp, old in former.items():
        if cp not in pinned:
            syllable, source = choose_syllable(data, cp, old)
            rows[syllable].append(cp)
            sources[source] += 1
    for syllable, chars in rows.items():
        if syllable not in PINNED_ROWS:
            chars.sort(key=former_order(data, syllable))  # stable: ties keep this order
            chars.sort(key=lambda cp: -data.count(cp))
    return rows, sources


def check(data, rows):
    assert SYLLABLES == sorted(SYLLABLES) and len(SYLLABLES) == 396
    placed = [cp for chars in rows.values() for cp in chars]
    assert len(placed) == len(set(placed)), "a character is in two rows"
    assert set(data.level1) <= set(placed), "a level-1 character is missing"
    extra = set(placed) - set(data.level1)
    assert len(extra) == 1 and extra <= data.level2, "expected exactly one level-2 character"
    empty = [s for s, chars in rows.items() if not chars]
    assert not empty, "empty rows (add a character to KEEP_IN_ROW): " + " ".join(empty)
    for syllable, text in PINNED_ROWS.items():
        assert "".join(map(chr, rows[syllable])) == text, syllable


LICENCE = """\
// Generated by tools/pinyin/gen_pinyin_table.py from the Unihan database; do not edit.
//
// This file contains data derived (and modified: readings reduced to toneless syllables,
// characters grouped and reordered) from the Unicode Character Database:
//
// COPYRIGHT AND PERMISSION NOTICE
//
// Copyright © 1991-{year} Unicode, Inc. All rights reserved.
// Distributed under the Terms of Use in https://www.unicode.org/copyright.html.
//
// Permission is hereby granted, free of charge, to any person obtaining a copy of the Unicode
// data files and any associated documentation (the "Data Files") or Unicode software and any
// associated documentation (the "Software") to deal in the Data Files or Software without
// restriction, including without limitation the rights to use, copy, modify, merge, publish,
// distribute, and/or sell copies of the Data Files or Software, and to permit persons to whom
// the Data Files or Software are furnished to do so, provided that either (a) this copyright
// and permission notice appear with all copies of the Data Files or Software, or (b) this
// copyright and permission notice appear in associated Documentation.
//
// THE DATA FILES AND SOFTWARE ARE PROVIDED "AS IS", WITHOUT WARRANTY OF ANY KIND, EXPRESS OR
// IMPLIED, INCLUDING BUT NOT LIMITED TO THE WARRANTIES OF MERCHANTABILITY, FITNESS FOR A
// PARTICULAR PURPOSE AND NONINFRINGEMENT OF THIRD PARTY RIGHTS. IN NO EVENT SHALL THE
// COPYRIGHT HOLDER OR HOLDERS INCLUDED IN THIS NOTICE BE LIABLE FOR ANY CLAIM, OR ANY SPECIAL
// INDIRECT OR CONSEQUENTIAL DAMAGES, OR ANY DAMAGES WHATSOEVER RESULTING FROM LOSS OF USE,
// DATA OR PROFITS, WHETHER IN AN ACTION OF CONTRACT, NEGLIGENCE OR OTHER TORTIOUS ACTION,
// ARISING OUT OF OR IN CONNECTION WITH THE USE OR PERFORMANCE OF THE DATA FILES OR SOFTWARE.
//
// Except as contained in this notice, the name of a copyright holder shall not be used in
// advertising or otherwise to promote the sale, use or other dealings in these Data Files or
// Software without prior written authorization of the copyright holder.
"""


def write(rows, year, path):
    lines = [LICENCE.format(year=year),
             '#include "imetables.h"',
             "",
             "// Toneless syllable -> GB2312 candidates, most likely first; sorted for bsearch.",
             "// clang-format off",
             "const PinyinDef pinyinTable[396] = {"]
    for syllable in SYLLABLES:
        text = "".join(chr(cp) for cp in rows[syllable])
        escaped = "".join("\\x%02x" % b for b in text.encode("gb2312"))
        # Long rows are split into adjacent literals so that lines stay readable.
        chunks = [escaped[i:i + 64] for i in range(0, len(escaped), 64)]
        lines.append("    // %s" % text)
        lines.append('    {"%s", "%s"},' % (syllable, '"\n     "'.join(chunks)))
    lines += ["};", "// clang-format on", ""]
    with open(path, "w", encoding="utf-8") as f:
        f.write("\n".join(lines))


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--unihan", default="/usr/share/unicode")
    parser.add_argument("--output",
                        default=os.path.join(here, "..", "..", "src", "keyboard",
                                             "pinyintable_data.cpp"))
    args = parser.parse_args()
    data = Unihan(args.unihan)
    rows, sources = build_rows(data)
    check(data, rows)
    write(rows, data.year, os.path.normpath(args.output))
    print("characters filed by: " + ", ".join("%s %d" % kv for kv in sorted(sources.items())))


if __name__ == "__main__":
    main()
