"""The take check: are all the words of the text in what the recogniser heard?

Both sides are reduced to plain lower-case words (numbers spelled out, accents
and apostrophes dropped), then aligned in order. A word counts as found when the
alignment pairs it with a heard word that is the same or nearly the same
(recognisers spell some words differently), or when two words on one side make
the one word on the other ("every one" / "everyone").
"""

from __future__ import annotations

import re
import unicodedata

_ONES = ["zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine", "ten",
         "eleven", "twelve", "thirteen", "fourteen", "fifteen", "sixteen", "seventeen", "eighteen",
         "nineteen"]
_TENS = ["", "", "twenty", "thirty", "forty", "fifty", "sixty", "seventy", "eighty", "ninety"]
_ORDINAL_ENDINGS = {"one": "first", "two": "second", "three": "third", "five": "fifth",
                    "eight": "eighth", "nine": "ninth", "twelve": "twelfth"}

# Words that recognisers and people write in more than one way.
_SAME = {
    "ok": "okay", "mr": "mister", "mrs": "missus", "ms": "miss", "dr": "doctor",
    "percent": "percent", "pct": "percent", "vs": "versus", "st": "saint",
}


def _number_words(n: int) -> list[str]:
    if n < 20:
        return [_ONES[n]]
    if n < 100:
        return [_TENS[n // 10]] + ([_ONES[n % 10]] if n % 10 else [])
    if n < 1000:
        return [_ONES[n // 100], "hundred"] + (_number_words(n % 100) if n % 100 else [])
    for size, name in ((10 ** 12, "trillion"), (10 ** 9, "billion"), (10 ** 6, "million"), (1000, "thousand")):
        if n >= size:
            rest = n % size
            return _number_words(n // size) + [name] + (_number_words(rest) if rest else [])
    return [str(n)]


def _spell_number(token: str) -> list[str]:
    """'42' -> forty two; '3.5' -> three point five; '1,000' -> one thousand; '21st' -> twenty first."""
    ordinal = re.fullmatch(r"(\d+)(st|nd|rd|th)", token)
    if ordinal:
        words = _spell_number(ordinal.group(1))
        last = words[-1]
        if last in _ORDINAL_ENDINGS:
            words[-1] = _ORDINAL_ENDINGS[last]
        elif last.endswith("y"):
            words[-1] = last[:-1] + "ieth"
        else:
            words[-1] = last + "th"
        return words
    whole, _, fraction = token.replace(",", "").partition(".")
    if not whole.isdigit() or len(whole) > 15:
        return [token]
    words = _number_words(int(whole))
    if fraction.isdigit():
        words += ["point"] + [_ONES[int(d)] for d in fraction]
    return words


def words(text: str) -> list[str]:
    """Plain words of a text, in order."""
    text = unicodedata.normalize("NFKD", text)
    text = "".join(c for c in text if not unicodedata.combining(c)).lower()
    text = text.replace("\u2019", "'").replace("\u2018", "'").replace("&", " and ").replace("%", " percent ")
    out: list[str] = []
    for token in re.findall(r"\d[\d,]*(?:\.\d+)?(?:st|nd|rd|th)?|[^\W\d_]+(?:'[^\W\d_]+)*", text):
        if token[0].isdigit():
            out.extend(_spell_number(token.rstrip(",")))
        else:
            word = token.replace("'", "")
            out.append(_SAME.get(word, word))
    return out


def _edit_distance(a: str, b: str, limit: int) -> int:
    if abs(len(a) - len(b)) > limit:
        return limit + 1
    previous = list(range(len(b) + 1))
    for i, ca in enumerate(a, 1):
        current = [i] + [0] * len(b)
        for j, cb in enumerate(b, 1):
            current[j] = min(previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (ca != cb))
        if min(current) > limit:
            return limit + 1
        previous = current
    return previous[-1]


def _alike(a: str, b: str) -> bool:
    if a == b:
        return True
    shorter = min(len(a), len(b))
    if shorter < 4:
        return False
    allowed = 1 if shorter < 8 else 2
    return _edit_distance(a, b, allowed) <= allowed


def missing_words(text: str, heard: str) -> list[str]:
    """The words of `text` that the order-preserving alignment with `heard` leaves unpaired."""
    want, got = words(text), words(heard)
    n, m = len(want), len(got)
    # best[i][j]: most words of want[i:] found in got[j:]; move[i][j] remembers how.
    best = [[0] * (m + 1) for _ in range(n + 1)]
    move = [[0] * (m + 1) for _ in range(n + 1)]
    for i in range(n - 1, -1, -1):
        for j in range(m - 1, -1, -1):
            options = [(best[i + 1][j], 1), (best[i][j + 1], 2)]
            if _alike(want[i], got[j]):
                options.append((best[i + 1][j + 1] + 1, 3))
            if j + 1 < m and _alike(want[i], got[j] + got[j + 1]):
                options.append((best[i + 1][j + 2] + 1, 4))
            if i + 1 < n and _alike(want[i] + want[i + 1], got[j]):
                options.append((best[i + 2][j + 1] + 2, 5))
            best[i][j], move[i][j] = max(options)
    missing: list[str] = []
    i = j = 0
    while i < n:
        step = move[i][j] if j < m else 1
        if step == 1:
            missing.append(want[i])
            i += 1
        elif step == 2:
            j += 1
        elif step == 3:
            i, j = i + 1, j + 1
        elif step == 4:
            i, j = i + 1, j + 2
        else:
            i, j = i + 2, j + 1
    return missing
